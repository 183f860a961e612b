#pragma once

#include <QString>
#include <cstdint>
#include <string>

namespace brenvo {

// The program's words in this system's dialect ("your Mac" becomes "your computer" on Linux).
QString say(const char* text);
// Sizes and counts as everywhere else in the program.
QString sizeText(int64_t bytes);
QString countText(int64_t n);
// A path as people read it: the home folder is "~".
QString displayPath(const std::string& path);

} // namespace brenvo
