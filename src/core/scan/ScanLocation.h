#pragma once

#include "platform/Profile.h"

#include <string>
#include <vector>

namespace brenvo {

// What to scan: one of the user's usual places, or any folder.
class ScanLocation {
public:
    enum class Kind { custom, downloads, desktop, documents, home, iCloudDrive };

    static ScanLocation custom(std::string path) { return ScanLocation(Kind::custom, std::move(path)); }
    static ScanLocation downloads() { return ScanLocation(Kind::downloads); }
    static ScanLocation desktop() { return ScanLocation(Kind::desktop); }
    static ScanLocation documents() { return ScanLocation(Kind::documents); }
    static ScanLocation home() { return ScanLocation(Kind::home); }
    static ScanLocation iCloudDrive() { return ScanLocation(Kind::iCloudDrive); }
    // The places offered first in the sidebar.
    static const std::vector<ScanLocation>& starters();

    Kind kind() const { return kind_; }
    // The folder's path under `profile`; a custom location's own path as given.
    std::string path(const Profile& profile) const;
    // The location under which a path is found: a usual place, the home folder outside its Library, or
    // the folder holding it.
    static ScanLocation best(const std::string& path, const Profile& profile);

    // The same case, and for a custom location the same path text.
    bool operator==(const ScanLocation& other) const = default;

private:
    explicit ScanLocation(Kind kind, std::string path = {}) : kind_(kind), customPath_(std::move(path)) {}

    Kind kind_;
    std::string customPath_;
};

} // namespace brenvo
