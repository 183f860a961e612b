#pragma once

#include <string>

namespace brenvo {

// How a removal ended. On failure `error` is the errno of the first problem met, and `message` either the
// system's words for it (strerror, naming nothing) or, for another disk inside the item (EXDEV) or an item
// that changed under the walk (EAGAIN), a sentence that names the item.
struct RemovalResult {
    bool ok = true;
    int error = 0;
    std::string message;
};

// Removes the file, symbolic link or whole folder tree at `path`. Links on the way to the item are followed
// as part of the path's meaning; the item itself and everything below it never are, and no other mounted
// file system is entered. Stops at the first error, so a folder may be left partly removed; another disk
// inside a folder is found before anything is removed. "/" and an empty path are refused (EINVAL).
RemovalResult removeItem(const std::string& path);

} // namespace brenvo
