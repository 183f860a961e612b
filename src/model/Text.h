#pragma once

#include <QString>
#include <string>
#include <string_view>

namespace brenvo {

// Names and paths are raw bytes; screens and settings speak QString. A byte that is not UTF-8 becomes
// the lone surrogate U+DC00 + byte and turns back into the same byte, so no name is ever lost.
QString toQString(std::string_view bytes);
std::string toBytes(const QString& text);

} // namespace brenvo
