#pragma once

#include <string>
#include <vector>

namespace brenvo {

// Small questions to the file system, asked the same way everywhere.

// The item itself is there; a symbolic link counts, whatever it points to.
bool itemExists(const std::string& path);
// Something is there at the end of the path, links followed.
bool targetExists(const std::string& path);
// The names in `folder` in byte order, so nothing depends on the order the file system lists them in;
// nothing when it can't be listed.
std::vector<std::string> folderNames(const std::string& folder);

} // namespace brenvo
