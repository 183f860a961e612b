#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brenvo {

// "file:///Users/a/My%20Files/" for a path: each byte outside the characters a URL path may hold is
// percent-encoded, and a folder's URL ends in "/". The reverse answers nothing for anything else.
std::string fileURL(std::string_view path, bool isDirectory);
std::optional<std::string> pathFromFileURL(std::string_view url);

// A path with "." parts, repeated and trailing slashes removed and ".." resolved by the letter, the way a
// standardised URL spells it; nothing on disk is consulted.
std::string standardizePath(std::string_view path);

} // namespace brenvo
