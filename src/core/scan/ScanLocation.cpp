#include "scan/ScanLocation.h"

#include "util/Paths.h"

namespace brenvo {

const std::vector<ScanLocation>& ScanLocation::starters() {
    static const std::vector<ScanLocation> list = {downloads(), desktop(), documents()};
    return list;
}

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

ScanLocation ScanLocation::best(const std::string& path, const Profile& profile) {
    for (const ScanLocation& place : {downloads(), desktop(), documents(), iCloudDrive()}) {
        if (isBelow(path, place.path(profile))) return place;
    }
    if (isBelow(path, profile.home) && !isInside(path, profile.libraryPath)) return home();
    return custom(parentPath(path));
}

} // namespace brenvo
