#include "util/Utf8.h"

#include <cstdint>
#include <cstring>

namespace brenvo::utf8 {

namespace {

inline unsigned char byteAt(std::string_view s, std::size_t i) {
    return static_cast<unsigned char>(s[i]);
}

inline bool isContinuation(unsigned char c) {
    return (c & 0xC0) == 0x80;
}

// Number of leading bytes of `s` from `pos` that are ASCII, checked a word at a time: most names are
// plain ASCII and this keeps them from going through the per-byte decoder.
std::size_t asciiRun(std::string_view s, std::size_t pos) {
    constexpr std::uint64_t kHighBits = 0x8080808080808080ULL;
    std::size_t i = pos;
    while (i + 8 <= s.size()) {
        std::uint64_t word;
        std::memcpy(&word, s.data() + i, sizeof word);
        if (word & kHighBits) break;
        i += 8;
    }
    while (i < s.size() && byteAt(s, i) < 0x80) ++i;
    return i - pos;
}

} // namespace

std::size_t sequenceLength(std::string_view bytes, std::size_t pos) {
    const unsigned char lead = byteAt(bytes, pos);
    const std::size_t available = bytes.size() - pos;
    if (lead < 0x80) return 1;
    if (lead < 0xC2) return 0; // a continuation byte, or C0/C1 which could only start an overlong form
    if (lead < 0xE0) return available >= 2 && isContinuation(byteAt(bytes, pos + 1)) ? 2 : 0;

    // The second byte's range is narrowed for the leads where the full range would allow overlong
    // forms (E0, F0), surrogates (ED) or values above U+10FFFF (F4).
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    std::size_t length;
    if (lead < 0xF0) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead < 0xF5) {
        length = 4;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return 0;
    }
    if (available < length) return 0;
    const unsigned char second = byteAt(bytes, pos + 1);
    if (second < low || second > high) return 0;
    for (std::size_t i = 2; i < length; ++i) {
        if (!isContinuation(byteAt(bytes, pos + i))) return 0;
    }
    return length;
}

bool isValid(std::string_view bytes) {
    std::size_t pos = 0;
    while (pos < bytes.size()) {
        pos += asciiRun(bytes, pos);
        if (pos == bytes.size()) break;
        const std::size_t length = sequenceLength(bytes, pos);
        if (length == 0) return false;
        pos += length;
    }
    return true;
}

std::u32string decodeEscaped(std::string_view bytes) {
    std::u32string out;
    out.reserve(bytes.size());
    std::size_t pos = 0;
    while (pos < bytes.size()) {
        const unsigned char lead = byteAt(bytes, pos);
        if (lead < 0x80) {
            out.push_back(lead);
            ++pos;
            continue;
        }
        const std::size_t length = sequenceLength(bytes, pos);
        if (length == 0) {
            out.push_back(kEscapeBase + lead);
            ++pos;
            continue;
        }
        // Lead bytes carry 5, 4 or 3 payload bits for lengths 2, 3 and 4.
        char32_t cp = lead & (0x7F >> length);
        for (std::size_t i = 1; i < length; ++i) cp = (cp << 6) | (byteAt(bytes, pos + i) & 0x3F);
        out.push_back(cp);
        pos += length;
    }
    return out;
}

std::string encodeEscaped(std::u32string_view codePoints) {
    std::string out;
    out.reserve(codePoints.size());
    for (char32_t cp : codePoints) {
        if (cp >= kEscapeBase + 0x80 && cp <= kEscapeBase + 0xFF) {
            out.push_back(static_cast<char>(cp - kEscapeBase));
        } else {
            appendCodePoint(out, cp);
        }
    }
    return out;
}

void appendCodePoint(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
        return;
    }
    if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        return;
    }
    if ((cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF) cp = kReplacement;
    if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    }
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
}

} // namespace brenvo::utf8
