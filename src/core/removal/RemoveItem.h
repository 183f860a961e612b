#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brenvo {

// How a removal ended. On failure `error` is the errno of the first problem met, and `message` either the
// system's words for it (strerror, naming nothing) or, for another disk inside the item (EXDEV) or an item
// that changed under the walk (EAGAIN), a sentence that names the item.
struct RemovalResult {
    bool ok = true;
    int error = 0;
    std::string message;
    bool namesItem = false; // the message is a sentence that names the item
};

// The places no removal may ever take, whatever anything else says: "/", a top-level folder, and a home
// folder or any folder that holds one. Why, in a sentence naming the item; nothing for anything else.
// `homes` are real paths.
std::optional<std::string> refusedRemoval(std::string_view path, const std::vector<std::string>& homes);
// The home folders `removeItem` guards: the one in HOME and the account's own, as real paths.
const std::vector<std::string>& guardedHomes();

// Which item a path named when it was chosen; a different one there later is not the user's choice.
struct ItemIdentity {
    uint64_t device = 0;
    uint64_t inode = 0;
};
std::optional<ItemIdentity> identifyItem(const std::string& path);

// Removes the file, symbolic link or whole folder tree at `path`. No link is followed, on the way to the
// item or below it (the path must be a real path), and no other mounted file system is entered. With
// `expected`, an item that is not that one is left in place (EAGAIN). Stops at the first error, so a folder may be left partly removed; another disk
// inside a folder is found before anything is removed, and a mount point is another disk. An empty path is
// refused (EINVAL), and so is every place `refusedRemoval` names (EPERM).
RemovalResult removeItem(const std::string& path, const std::optional<ItemIdentity>& expected = std::nullopt);

} // namespace brenvo
