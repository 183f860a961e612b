#pragma once

#include <string>
#include <string_view>

namespace brenvo {

// Absolute paths as plain text: no trailing slash except for "/" itself. An empty folder holds nothing.

// `path` lies strictly inside `folder`.
bool isBelow(std::string_view path, std::string_view folder);
// `path` equals `folder` or lies inside it.
bool isInside(std::string_view path, std::string_view folder);
// The folder holding `path`: "/" for a top-level item, empty for "/" or a bare name.
std::string parentPath(std::string_view path);
// The path without the data volume's prefix that firmlinks add on a Mac, so each place has one spelling.
std::string withoutDataVolumePrefix(std::string path);

} // namespace brenvo
