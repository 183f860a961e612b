#include "scan/SkippedFolders.h"

namespace brenvo {

DiskScanner::Skipped skippedFolders(const Profile& profile, const std::vector<std::string>& excluded) {
    DiskScanner::Skipped skipped;
    if (!profile.libraryPath.empty())
        skipped[profile.libraryPath] = profile.say(
            "Your Library folder holds app data and settings. The Overview explains the parts that matter, so it "
            "isn't counted here.");
    for (const std::string& folder : excluded)
        skipped[folder] = "You excluded this folder in Settings, so Brenvo doesn't look inside it.";
    return skipped;
}

} // namespace brenvo
