#include "explain/SystemPlaces.h"

#include "util/Paths.h"

#include <algorithm>

namespace brenvo {

namespace {

// The top-level folder a path lies in or is: "/usr" for "/usr/lib/x".
std::string_view topFolder(std::string_view path) {
    const size_t next = path.find('/', 1);
    return next == std::string_view::npos ? path : path.substr(0, next);
}

bool inSystemFolder(std::string_view path, const Profile& profile) {
    const std::string_view top = topFolder(path);
    return std::any_of(profile.systemFolders.begin(), profile.systemFolders.end(), [&](const std::string& folder) {
        if (folder.ends_with('*')) return top.starts_with(std::string_view(folder).substr(0, folder.size() - 1));
        return isInside(path, folder);
    });
}

} // namespace

std::optional<SystemPlace> systemPlace(std::string_view path, const Profile& profile) {
    if (profile.systemFolders.empty() || !path.starts_with('/')) return std::nullopt;
    // The user's own home may lie anywhere, /root included: what is inside it is theirs.
    if (profile.home.size() > 1 && isInside(path, profile.home)) return std::nullopt;
    if (path == "/" || path.find('/', 1) == std::string_view::npos) return SystemPlace::system;
    // Another account's home folder: a folder in the users' folder that is not, and doesn't hold, ours.
    if (!profile.usersFolder.empty() && isBelow(path, profile.usersFolder)) {
        const std::string_view rest = path.substr(profile.usersFolder.size() + 1);
        const std::string account = profile.usersFolder + "/" + std::string(rest.substr(0, rest.find('/')));
        if (!isInside(profile.home, account) && !isInside(account, profile.home)) {
            const bool managed = std::any_of(profile.systemFolderExceptions.begin(), profile.systemFolderExceptions.end(),
                                             [&](const std::string& spot) { return isInside(path, spot); });
            if (!managed) return SystemPlace::otherUser;
        }
        return std::nullopt;
    }
    if (!inSystemFolder(path, profile)) return std::nullopt;
    for (const std::string& spot : profile.systemFolderExceptions)
        if (isInside(path, spot)) return std::nullopt;
    return SystemPlace::system;
}

} // namespace brenvo
