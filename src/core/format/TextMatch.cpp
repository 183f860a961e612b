#include "format/TextMatch.h"

#include "util/Utf8.h"

#include <algorithm>
#include <unicode/unistr.h>

namespace brenvo {

std::string foldCase(std::string_view text) {
    // Bytes that are not UTF-8 stay as they are: only text has a case.
    std::u32string points = utf8::decodeEscaped(text);
    icu::UnicodeString unicode;
    for (char32_t cp : points) unicode.append(static_cast<UChar32>(cp));
    unicode.foldCase();
    std::u32string folded;
    for (int32_t i = 0; i < unicode.length();) {
        UChar32 cp = unicode.char32At(i);
        folded.push_back(static_cast<char32_t>(cp));
        i += U16_LENGTH(cp);
    }
    return utf8::encodeEscaped(folded);
}

CaseInsensitiveQuery::CaseInsensitiveQuery(std::string_view query)
    : folded_(foldCase(query)),
      ascii_(std::all_of(query.begin(), query.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {}

bool CaseInsensitiveQuery::foundIn(std::string_view text) const {
    if (folded_.empty()) return true;
    // Most names and queries are ASCII: compare bytes, folding only A–Z.
    if (ascii_ && std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
        auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
        return std::search(text.begin(), text.end(), folded_.begin(), folded_.end(),
                           [&](char a, char b) { return lower(a) == b; }) != text.end();
    }
    return foldCase(text).find(folded_) != std::string::npos;
}

} // namespace brenvo
