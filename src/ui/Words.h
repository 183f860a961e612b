#pragma once

#include <QString>
#include <cstdint>

namespace brenvo {

// The program's words in this system's dialect ("your Mac" becomes "your computer" on Linux).
QString say(const char* text);
// Sizes and counts as everywhere else in the program.
QString sizeText(int64_t bytes);
QString countText(int64_t n);

} // namespace brenvo
