#include "ScanLocation.h"

#include "platform/Platform.h"

namespace brenvo {

const std::vector<ScanLocation>& ScanLocation::starters() {
    static const std::vector<ScanLocation> list = {downloads(), desktop(), documents()};
    return list;
}

std::string ScanLocation::path() const { return path(platform::profile()); }

std::string ScanLocation::path(const Profile& profile) const {
    switch (kind_) {
    case Kind::custom: return customPath_;
    case Kind::downloads: return profile.downloadsPath;
    case Kind::desktop: return profile.desktopPath;
    case Kind::documents: return profile.documentsPath;
    case Kind::home: return profile.home;
    case Kind::iCloudDrive: return profile.iCloudDrivePath;
    }
    return {};
}

} // namespace brenvo
