#include "Words.h"

#include "format/Formatters.h"
#include "platform/Platform.h"

namespace brenvo {

QString say(const char* text) { return QString::fromStdString(platform::profile().say(text)); }
QString sizeText(int64_t bytes) { return QString::fromStdString(format::bytes(bytes)); }
QString countText(int64_t n) { return QString::fromStdString(format::count(n)); }

} // namespace brenvo
