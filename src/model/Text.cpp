#include "Text.h"

#include "util/Utf8.h"

namespace brenvo {

QString toQString(std::string_view bytes) {
    QString out;
    out.reserve(static_cast<qsizetype>(bytes.size()));
    for (char32_t cp : utf8::decodeEscaped(bytes)) {
        if (cp >= 0x10000) {
            out.append(QChar(static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10))));
            out.append(QChar(static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF))));
        } else {
            out.append(QChar(static_cast<char16_t>(cp)));
        }
    }
    return out;
}

std::string toBytes(const QString& text) {
    std::u32string points;
    points.reserve(static_cast<size_t>(text.size()));
    const QChar* units = text.constData();
    const qsizetype n = text.size();
    for (qsizetype i = 0; i < n; ++i) {
        char16_t unit = units[i].unicode();
        if (unit >= 0xD800 && unit < 0xDC00 && i + 1 < n && units[i + 1].isLowSurrogate()) {
            points.push_back(0x10000 + ((char32_t(unit) - 0xD800) << 10) + (char32_t(units[i + 1].unicode()) - 0xDC00));
            ++i;
        } else {
            points.push_back(unit);
        }
    }
    return utf8::encodeEscaped(points);
}

} // namespace brenvo
