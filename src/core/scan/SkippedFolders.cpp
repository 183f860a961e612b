#include "scan/SkippedFolders.h"

#include "util/Paths.h"

#include <cstdlib>
#include <optional>

namespace brenvo {

namespace {

// The one spelling of a folder, so "x", "x/" and a link to x are the same key; nothing when it isn't there.
std::optional<std::string> resolved(const std::string& path) {
    char* real = ::realpath(path.c_str(), nullptr);
    if (!real) return std::nullopt;
    std::string out = withoutDataVolumePrefix(real);
    std::free(real);
    return out;
}

} // namespace

DiskScanner::Skipped skippedFolders(const Profile& profile, const std::vector<std::string>& excluded) {
    DiskScanner::Skipped skipped;
    if (!profile.libraryPath.empty())
        if (auto library = resolved(profile.libraryPath))
            skipped[*library] = profile.say("Your Library folder holds app data and settings. The Overview explains the "
                                            "parts that matter, so it isn't counted here.");
    // Later entries win: the user's own exclusion is the reason shown.
    for (const std::string& folder : excluded)
        if (auto real = resolved(folder))
            skipped[*real] = "You excluded this folder in Settings, so Brenvo doesn't look inside it.";
    return skipped;
}

} // namespace brenvo
