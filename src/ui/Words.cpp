#include "Words.h"

#include "Text.h"

#include "format/Formatters.h"
#include "platform/Platform.h"

namespace brenvo {

QString say(const char* text) { return QString::fromStdString(platform::profile().say(text)); }
QString sizeText(int64_t bytes) { return QString::fromStdString(format::bytes(bytes)); }
QString countText(int64_t n) { return QString::fromStdString(format::count(n)); }

QString displayPath(const std::string& path) {
    const std::string& home = platform::profile().home;
    if (path == home) return QStringLiteral("~");
    if (path.starts_with(home + "/")) return QStringLiteral("~") + toQString(path.substr(home.size()));
    return toQString(path);
}

} // namespace brenvo
