#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// File names are arbitrary bytes. Wherever they have to travel as text, bytes that are not part of a
// valid UTF-8 sequence are carried as the lone surrogates U+DC80..U+DCFF (U+DC00 + byte), which no valid
// UTF-8 can produce, so the original bytes always come back exactly.
namespace brenvo::utf8 {

inline constexpr char32_t kEscapeBase = 0xDC00;
inline constexpr char32_t kReplacement = 0xFFFD;

// Length of the valid UTF-8 sequence that starts at bytes[pos] (1 for ASCII), or 0 if the byte there does
// not start one. Strict: overlong forms, encoded surrogates, values above U+10FFFF and sequences cut
// short by the end of `bytes` are all invalid. Requires pos < bytes.size().
std::size_t sequenceLength(std::string_view bytes, std::size_t pos);

bool isValid(std::string_view bytes);

// Code points of `bytes`, each byte outside a valid sequence as U+DC00 + byte.
std::u32string decodeEscaped(std::string_view bytes);

// The reverse of decodeEscaped: U+DC80..U+DCFF become the byte again. Anything else that UTF-8 cannot
// hold (other lone surrogates, values above U+10FFFF) becomes U+FFFD.
std::string encodeEscaped(std::u32string_view codePoints);

// Appends cp as UTF-8; surrogates and values above U+10FFFF are written as U+FFFD so that the output
// stays valid.
void appendCodePoint(std::string& out, char32_t cp);

} // namespace brenvo::utf8
