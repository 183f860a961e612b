#include "plist/XmlPlist.h"

#include "util/Date.h"
#include "util/Utf8.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <utility>

namespace brenvo::plist {

namespace {

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool isNameChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == ':' || c == '-' || c == '.' || static_cast<unsigned char>(c) >= 0x80;
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && isSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

std::string lower(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return out;
}

// Days from 1970-01-01 to the given civil date (proleptic Gregorian).
std::int64_t daysFromCivil(std::int64_t year, unsigned month, unsigned day) {
    year -= month <= 2;
    const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    const auto yearOfEra = static_cast<unsigned>(year - era * 400);
    const unsigned dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + static_cast<std::int64_t>(dayOfEra) - 719468;
}

std::optional<std::int64_t> parseInteger(std::string_view text) {
    bool negative = false;
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    std::uint64_t magnitude = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
    if (text.empty() || ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
    constexpr auto kMax = static_cast<std::uint64_t>(INT64_MAX);
    if (magnitude > kMax + negative) return std::nullopt;
    return negative ? static_cast<std::int64_t>(0 - magnitude) : static_cast<std::int64_t>(magnitude);
}

std::optional<double> parseReal(std::string_view text) {
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    double value = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

int base64Digit(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

std::optional<std::string> decodeBase64(std::string_view text) {
    std::string out;
    out.reserve(text.size() / 4 * 3);
    std::uint32_t bits = 0;
    int pending = 0; // digits in `bits`
    int padding = 0;
    for (char c : text) {
        if (isSpace(c)) continue;
        if (c == '=') {
            ++padding;
            continue;
        }
        const int digit = base64Digit(c);
        if (digit < 0 || padding > 0) return std::nullopt;
        bits = bits << 6 | static_cast<std::uint32_t>(digit);
        if (++pending == 4) {
            out.push_back(static_cast<char>(bits >> 16));
            out.push_back(static_cast<char>(bits >> 8));
            out.push_back(static_cast<char>(bits));
            bits = 0;
            pending = 0;
        }
    }
    // A final group of 2 or 3 digits holds 1 or 2 bytes; padding, if any, must complete it to 4.
    if (pending == 1 || (padding > 0 && pending + padding != 4)) return std::nullopt;
    if (pending == 2) out.push_back(static_cast<char>(bits >> 4));
    if (pending == 3) {
        out.push_back(static_cast<char>(bits >> 10));
        out.push_back(static_cast<char>(bits >> 2));
    }
    return out;
}

class XmlParser {
public:
    XmlParser(std::string_view xml, std::string* error, std::size_t maxDepth)
        : text_(xml), error_(error), maxDepth_(maxDepth) {}

    std::optional<Value> run() {
        if (text_.starts_with("\xEF\xBB\xBF")) pos_ = 3;
        if (text_.starts_with("\xFE\xFF") || text_.starts_with("\xFF\xFE")) {
            return fail("only UTF-8 property lists are supported, this one is UTF-16");
        }
        if (!declaration()) return std::nullopt;
        if (!skipMisc(true)) return std::nullopt;
        auto tag = startTag();
        if (!tag) return std::nullopt;
        std::optional<Value> value;
        if (tag->name == "plist") {
            if (tag->selfClosing) return fail("the property list is empty");
            if (!skipMisc(false)) return std::nullopt;
            if (text_.substr(pos_).starts_with("</")) return fail("the property list is empty");
            auto inner = startTag();
            if (!inner || !(value = element(*inner, 0))) return std::nullopt;
            if (!skipMisc(false) || !endTag("plist")) return std::nullopt;
        } else if (!(value = element(*tag, 0))) {
            return std::nullopt;
        }
        if (!skipMisc(false)) return std::nullopt;
        if (pos_ != text_.size()) return fail("unexpected content after the property list");
        return value;
    }

private:
    struct Tag {
        std::string_view name;
        bool selfClosing;
    };

    bool atEnd() const { return pos_ >= text_.size(); }
    bool lookingAt(std::string_view what) const { return text_.substr(pos_).starts_with(what); }

    // Records the first failure, with the line it was found on.
    bool reject(const std::string& message) {
        if (!failed_ && error_) {
            const auto end = text_.begin() + static_cast<std::ptrdiff_t>(std::min(pos_, text_.size()));
            *error_ = "line " + std::to_string(1 + std::count(text_.begin(), end, '\n')) + ": " + message;
        }
        failed_ = true;
        return false;
    }

    std::nullopt_t fail(const std::string& message) {
        reject(message);
        return std::nullopt;
    }

    bool skipPast(std::string_view terminator, const char* what) {
        const std::size_t found = text_.find(terminator, pos_);
        if (found == std::string_view::npos) return reject(std::string("unterminated ") + what);
        pos_ = found + terminator.size();
        return true;
    }

    bool declaration() {
        if (!lookingAt("<?xml")) return true;
        const std::size_t end = text_.find("?>", pos_);
        if (end == std::string_view::npos) return reject("unterminated XML declaration");
        const std::string decl = lower(text_.substr(pos_, end - pos_));
        if (const std::size_t at = decl.find("encoding"); at != std::string::npos) {
            const std::size_t open = decl.find_first_of("\"'", at);
            const std::size_t close = open == std::string::npos ? open : decl.find(decl[open], open + 1);
            if (close == std::string::npos) return reject("malformed XML declaration");
            const std::string encoding = decl.substr(open + 1, close - open - 1);
            if (encoding != "utf-8" && encoding != "us-ascii" && encoding != "ascii") {
                return reject("encoding \"" + encoding + "\" is not supported, only UTF-8");
            }
        }
        pos_ = end + 2;
        return true;
    }

    // Whitespace, comments and processing instructions; before the root also a DOCTYPE.
    bool skipMisc(bool allowDoctype) {
        while (true) {
            while (!atEnd() && isSpace(text_[pos_]))
                ++pos_;
            if (lookingAt("<!--")) {
                if (!skipPast("-->", "comment")) return false;
            } else if (lookingAt("<?")) {
                if (!skipPast("?>", "processing instruction")) return false;
            } else if (allowDoctype && lookingAt("<!DOCTYPE")) {
                if (!doctype()) return false;
                allowDoctype = false;
            } else {
                return true;
            }
        }
    }

    bool doctype() {
        char quote = 0;
        for (; !atEnd(); ++pos_) {
            const char c = text_[pos_];
            if (quote) {
                if (c == quote) quote = 0;
            } else if (c == '"' || c == '\'') {
                quote = c;
            } else if (c == '[') {
                return reject("DOCTYPE declarations with an internal subset are not supported");
            } else if (c == '>') {
                ++pos_;
                return true;
            }
        }
        return reject("unterminated DOCTYPE");
    }

    std::string_view name() {
        const std::size_t start = pos_;
        while (!atEnd() && isNameChar(text_[pos_]))
            ++pos_;
        return text_.substr(start, pos_ - start);
    }

    std::optional<Tag> startTag() {
        if (atEnd()) return fail("the document ends where an element was expected");
        if (text_[pos_] != '<' || lookingAt("</") || lookingAt("<!")) return fail("expected an element");
        ++pos_;
        Tag tag{name(), false};
        if (tag.name.empty()) return fail("malformed element name");
        while (true) {
            while (!atEnd() && isSpace(text_[pos_]))
                ++pos_;
            if (lookingAt("/>")) {
                pos_ += 2;
                tag.selfClosing = true;
                return tag;
            }
            if (lookingAt(">")) {
                ++pos_;
                return tag;
            }
            // An attribute: name="value" or name='value'. Their values do not matter here.
            if (name().empty()) return fail("malformed attribute in <" + std::string(tag.name) + ">");
            while (!atEnd() && isSpace(text_[pos_]))
                ++pos_;
            if (!lookingAt("=")) return fail("attribute without a value in <" + std::string(tag.name) + ">");
            ++pos_;
            while (!atEnd() && isSpace(text_[pos_]))
                ++pos_;
            if (atEnd() || (text_[pos_] != '"' && text_[pos_] != '\'')) {
                return fail("unquoted attribute value in <" + std::string(tag.name) + ">");
            }
            const std::size_t close = text_.find(text_[pos_], pos_ + 1);
            if (close == std::string_view::npos) return fail("unterminated attribute value");
            pos_ = close + 1;
        }
    }

    bool endTag(std::string_view expected) {
        if (!lookingAt("</")) return reject("expected </" + std::string(expected) + ">");
        pos_ += 2;
        const std::string_view found = name();
        while (!atEnd() && isSpace(text_[pos_]))
            ++pos_;
        if (found != expected || !lookingAt(">")) {
            return reject("expected </" + std::string(expected) + ">");
        }
        ++pos_;
        return true;
    }

    // Plain text with XML's line-end normalisation: CR LF and lone CR become LF.
    static void appendText(std::string& out, std::string_view text) {
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (text[i] == '\r') {
                out.push_back('\n');
                if (i + 1 < text.size() && text[i + 1] == '\n') ++i;
            } else {
                out.push_back(text[i]);
            }
        }
    }

    bool entity(std::string& out) {
        const std::size_t end = text_.find(';', pos_);
        if (end == std::string_view::npos || end - pos_ > 12) return reject("malformed entity");
        const std::string_view ref = text_.substr(pos_ + 1, end - pos_ - 1);
        static constexpr std::pair<std::string_view, char> kNamed[] = {
            {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
        for (const auto& [entityName, c] : kNamed) {
            if (ref == entityName) {
                out.push_back(c);
                pos_ = end + 1;
                return true;
            }
        }
        if (ref.size() < 2 || ref[0] != '#') return reject("unknown entity &" + std::string(ref) + ";");
        const bool hex = ref[1] == 'x';
        const std::string_view digits = ref.substr(hex ? 2 : 1);
        std::uint32_t cp = 0;
        const auto [stop, ec] =
            std::from_chars(digits.data(), digits.data() + digits.size(), cp, hex ? 16 : 10);
        if (digits.empty() || ec != std::errc() || stop != digits.data() + digits.size() || cp == 0 ||
            (cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF) {
            return reject("invalid character reference &" + std::string(ref) + ";");
        }
        utf8::appendCodePoint(out, cp);
        pos_ = end + 1;
        return true;
    }

    // The text content of element `tag`, up to and including its end tag.
    std::optional<std::string> content(const Tag& tag) {
        std::string out;
        if (tag.selfClosing) return out;
        while (true) {
            const std::size_t next = text_.find_first_of("<&", pos_);
            if (next == std::string_view::npos) return fail("unterminated <" + std::string(tag.name) + ">");
            appendText(out, text_.substr(pos_, next - pos_));
            pos_ = next;
            if (text_[pos_] == '&') {
                if (!entity(out)) return std::nullopt;
            } else if (lookingAt("<![CDATA[")) {
                const std::size_t end = text_.find("]]>", pos_);
                if (end == std::string_view::npos) return fail("unterminated CDATA section");
                appendText(out, text_.substr(pos_ + 9, end - pos_ - 9));
                pos_ = end + 3;
            } else if (lookingAt("<!--")) {
                if (!skipPast("-->", "comment")) return std::nullopt;
            } else if (lookingAt("</")) {
                if (!endTag(tag.name)) return std::nullopt;
                return out;
            } else {
                return fail("unexpected element inside <" + std::string(tag.name) + ">");
            }
        }
    }

    std::optional<Value> element(const Tag& tag, std::size_t depth) {
        const std::string_view n = tag.name;
        if (n == "dict" || n == "array") {
            if (depth >= maxDepth_)
                return fail("containers are nested more than " + std::to_string(maxDepth_) + " deep");
            return n == "dict" ? dict(tag, depth + 1) : array(tag, depth + 1);
        }
        if (n == "true" || n == "false") {
            const auto text = content(tag);
            if (!text) return std::nullopt;
            if (!trim(*text).empty()) return fail("<" + std::string(n) + "> must be empty");
            return Value(n == "true");
        }
        if (n == "key") return fail("<key> outside a dictionary");
        auto text = content(tag);
        if (!text) return std::nullopt;
        if (n == "string") return Value(std::move(*text));
        if (n == "integer") {
            if (auto v = parseInteger(trim(*text))) return Value(*v);
            return fail("\"" + *text + "\" is not a 64-bit integer");
        }
        if (n == "real") {
            if (auto v = parseReal(trim(*text))) return Value(*v);
            return fail("\"" + *text + "\" is not a real number");
        }
        if (n == "date") {
            if (auto v = parseIsoDate(trim(*text))) return Value(brenvo::Date{*v});
            return fail("\"" + *text + "\" is not a date of the form 2024-01-31T12:00:00Z");
        }
        if (n == "data") {
            if (auto v = decodeBase64(*text)) return Value(plist::Data{std::move(*v)});
            return fail("<data> does not hold valid base64");
        }
        return fail("unknown element <" + std::string(n) + ">");
    }

    std::optional<Value> dict(const Tag& tag, std::size_t depth) {
        Value::Dict members;
        if (tag.selfClosing) return Value(std::move(members));
        while (true) {
            if (!skipMisc(false)) return std::nullopt;
            if (lookingAt("</")) {
                if (!endTag("dict")) return std::nullopt;
                return Value(std::move(members));
            }
            const auto keyTag = startTag();
            if (!keyTag) return std::nullopt;
            if (keyTag->name != "key")
                return fail("expected <key> in a dictionary, found <" + std::string(keyTag->name) + ">");
            auto key = content(*keyTag);
            if (!key || !skipMisc(false)) return std::nullopt;
            if (lookingAt("</")) return fail("the key \"" + *key + "\" has no value");
            const auto valueTag = startTag();
            if (!valueTag) return std::nullopt;
            auto value = element(*valueTag, depth);
            if (!value) return std::nullopt;
            members.push_back({std::move(*key), std::move(*value)});
        }
    }

    std::optional<Value> array(const Tag& tag, std::size_t depth) {
        Value::Array elements;
        if (tag.selfClosing) return Value(std::move(elements));
        while (true) {
            if (!skipMisc(false)) return std::nullopt;
            if (lookingAt("</")) {
                if (!endTag("array")) return std::nullopt;
                return Value(std::move(elements));
            }
            const auto elementTag = startTag();
            if (!elementTag) return std::nullopt;
            auto element = this->element(*elementTag, depth);
            if (!element) return std::nullopt;
            elements.push_back(std::move(*element));
        }
    }

    std::string_view text_;
    std::size_t pos_ = 0;
    std::string* error_;
    std::size_t maxDepth_;
    bool failed_ = false;
};

} // namespace

std::optional<double> parseIsoDate(std::string_view text) {
    // Fields are fixed-width digits; each one after the year is optional, but only in order.
    std::size_t pos = 0;
    auto number = [&](std::size_t width, int& out) {
        if (pos + width > text.size()) return false;
        out = 0;
        for (std::size_t i = 0; i < width; ++i) {
            const char c = text[pos + i];
            if (c < '0' || c > '9') return false;
            out = out * 10 + (c - '0');
        }
        pos += width;
        return true;
    };
    auto field = [&](char separator, int& out) {
        if (pos >= text.size() || text[pos] != separator) return false;
        ++pos;
        return number(2, out);
    };
    int year = 0, month = 1, day = 1, hour = 0, minute = 0, second = 0;
    if (!number(4, year)) return std::nullopt;
    if (field('-', month) && field('-', day) && field('T', hour) && field(':', minute)) field(':', second);
    if (pos >= text.size() || text[pos] != 'Z' || pos + 1 != text.size()) return std::nullopt;

    static constexpr int kDaysInMonth[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    if (month < 1 || month > 12 || day < 1 || day > kDaysInMonth[month - 1] ||
        (month == 2 && day == 29 && !leap) || hour > 23 || minute > 59 || second > 59) {
        return std::nullopt;
    }
    const std::int64_t days = daysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day));
    const double unixSeconds = static_cast<double>(days * 86400 + hour * 3600 + minute * 60 + second);
    return unixSeconds - brenvo::Date::kUnixOffset;
}

std::optional<Value> parseXml(std::string_view xml, std::string* error, std::size_t maxDepth) {
    return XmlParser(xml, error, maxDepth).run();
}

} // namespace brenvo::plist
