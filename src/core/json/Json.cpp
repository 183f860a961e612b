#include "json/Json.h"

#include "util/Utf8.h"

#include <cassert>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>
#include <utility>

namespace brenvo {

namespace {

// 2^63 and 2^64 are exact doubles; every double below them converts to the integer type without overflow.
constexpr double kTwoPow63 = 9223372036854775808.0;
constexpr double kTwoPow64 = 18446744073709551616.0;

bool isIntegral(double d) {
    return std::isfinite(d) && std::trunc(d) == d;
}

} // namespace

// --- JsonValue --------------------------------------------------------------------------------------------

JsonValue::Number JsonValue::Number::fromUnsigned(std::uint64_t v) {
    if (v <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        return fromSigned(static_cast<std::int64_t>(v));
    }
    return Number{static_cast<double>(v), 0, v, Kind::Unsigned};
}

bool JsonValue::isInt64() const {
    const auto* n = std::get_if<Number>(&data_);
    if (!n) return false;
    switch (n->kind) {
    case Number::Kind::Signed: return true;
    case Number::Kind::Unsigned: return false;
    case Number::Kind::Double: return isIntegral(n->d) && n->d >= -kTwoPow63 && n->d < kTwoPow63;
    }
    return false;
}

bool JsonValue::isUInt64() const {
    const auto* n = std::get_if<Number>(&data_);
    if (!n) return false;
    switch (n->kind) {
    case Number::Kind::Signed: return n->i >= 0;
    case Number::Kind::Unsigned: return true;
    case Number::Kind::Double: return isIntegral(n->d) && n->d >= 0 && n->d < kTwoPow64;
    }
    return false;
}

bool JsonValue::asBool(bool fallback) const {
    const auto* b = std::get_if<bool>(&data_);
    return b ? *b : fallback;
}

std::int64_t JsonValue::asInt64(std::int64_t fallback) const {
    if (!isInt64()) return fallback;
    const auto& n = std::get<Number>(data_);
    return n.kind == Number::Kind::Signed ? n.i : static_cast<std::int64_t>(n.d);
}

std::uint64_t JsonValue::asUInt64(std::uint64_t fallback) const {
    if (!isUInt64()) return fallback;
    const auto& n = std::get<Number>(data_);
    switch (n.kind) {
    case Number::Kind::Signed: return static_cast<std::uint64_t>(n.i);
    case Number::Kind::Unsigned: return n.u;
    case Number::Kind::Double: return static_cast<std::uint64_t>(n.d);
    }
    return fallback;
}

double JsonValue::asDouble(double fallback) const {
    const auto* n = std::get_if<Number>(&data_);
    return n ? n->d : fallback;
}

const std::string& JsonValue::asString() const {
    static const std::string empty;
    const auto* s = std::get_if<std::string>(&data_);
    return s ? *s : empty;
}

const JsonValue::Array& JsonValue::asArray() const {
    static const Array empty;
    const auto* a = std::get_if<Array>(&data_);
    return a ? *a : empty;
}

const JsonValue::Object& JsonValue::asObject() const {
    static const Object empty;
    const auto* o = std::get_if<Object>(&data_);
    return o ? *o : empty;
}

std::size_t JsonValue::size() const {
    if (const auto* a = std::get_if<Array>(&data_)) return a->size();
    if (const auto* o = std::get_if<Object>(&data_)) return o->size();
    return 0;
}

const JsonValue* JsonValue::find(std::string_view key) const {
    const auto* o = std::get_if<Object>(&data_);
    if (!o) return nullptr;
    for (auto it = o->rbegin(); it != o->rend(); ++it) {
        if (it->key == key) return &it->value;
    }
    return nullptr;
}

JsonValue* JsonValue::find(std::string_view key) {
    return const_cast<JsonValue*>(std::as_const(*this).find(key));
}

JsonValue& JsonValue::append(JsonValue element) {
    if (isNull()) data_ = Array{};
    assert(isArray() && "append() on a value that is not an array");
    auto& elements = std::get<Array>(data_);
    elements.push_back(std::move(element));
    return elements.back();
}

JsonValue& JsonValue::set(std::string_view key, JsonValue v) {
    if (isNull()) data_ = Object{};
    assert(isObject() && "set() on a value that is not an object");
    if (JsonValue* existing = find(key)) {
        *existing = std::move(v);
        return *existing;
    }
    auto& members = std::get<Object>(data_);
    members.push_back(Member{std::string(key), std::move(v)});
    return members.back().value;
}

bool JsonValue::operator==(const JsonValue& other) const {
    if (type() != other.type()) return false;
    switch (type()) {
    case Type::Null: return true;
    case Type::Bool: return asBool() == other.asBool();
    case Type::Number:
        if (isInt64() && other.isInt64()) return asInt64() == other.asInt64();
        if (isUInt64() && other.isUInt64()) return asUInt64() == other.asUInt64();
        return asDouble() == other.asDouble();
    case Type::String: return asString() == other.asString();
    case Type::Array: return asArray() == other.asArray();
    case Type::Object: return asObject() == other.asObject();
    }
    return false;
}

void JsonValue::write(JsonWriter& writer) const {
    switch (type()) {
    case Type::Null: writer.null(); break;
    case Type::Bool: writer.value(std::get<bool>(data_)); break;
    case Type::Number: {
        const auto& n = std::get<Number>(data_);
        switch (n.kind) {
        case Number::Kind::Signed: writer.value(n.i); break;
        case Number::Kind::Unsigned: writer.value(n.u); break;
        case Number::Kind::Double: writer.value(n.d); break;
        }
        break;
    }
    case Type::String: writer.value(std::string_view(std::get<std::string>(data_))); break;
    case Type::Array:
        writer.beginArray();
        for (const JsonValue& element : std::get<Array>(data_)) element.write(writer);
        writer.endArray();
        break;
    case Type::Object:
        writer.beginObject();
        for (const Member& member : std::get<Object>(data_)) {
            writer.key(member.key);
            member.value.write(writer);
        }
        writer.endObject();
        break;
    }
}

std::string toJsonString(const JsonValue& value, JsonWriter::Style style) {
    std::string out;
    {
        JsonWriter writer(out, style);
        value.write(writer);
    }
    return out;
}

// --- Parsing ----------------------------------------------------------------------------------------------

std::string JsonParseError::describe() const {
    return "line " + std::to_string(line) + ", column " + std::to_string(column) + ": " + message;
}

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string describeByte(char c) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte > 0x20 && byte < 0x7F) return std::string("'") + c + "'";
    constexpr char kHex[] = "0123456789ABCDEF";
    return std::string("byte 0x") + kHex[byte >> 4] + kHex[byte & 0x0F];
}

class Parser {
public:
    explicit Parser(std::string_view text) : text_(text) {}

    std::optional<JsonValue> run(JsonParseError* error) {
        constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
        if (text_.starts_with(kByteOrderMark)) pos_ = kByteOrderMark.size();
        JsonValue result;
        skipWhitespace();
        bool ok = parseValue(result, 0);
        if (ok) {
            skipWhitespace();
            if (pos_ < text_.size()) ok = fail(pos_, "unexpected " + describeByte(text_[pos_]) +
                                                         " after the end of the JSON value");
        }
        if (ok) return result;
        if (error) {
            error->offset = errorOffset_;
            error->message = std::move(errorMessage_);
            error->line = 1;
            std::size_t lineStart = 0;
            for (std::size_t i = 0; i < errorOffset_; ++i) {
                if (text_[i] == '\n') {
                    ++error->line;
                    lineStart = i + 1;
                }
            }
            error->column = errorOffset_ - lineStart + 1;
        }
        return std::nullopt;
    }

private:
    bool fail(std::size_t offset, std::string message) {
        errorOffset_ = offset;
        errorMessage_ = std::move(message);
        return false;
    }

    bool atEnd() const { return pos_ >= text_.size(); }

    void skipWhitespace() {
        while (pos_ < text_.size()) {
            const char c = text_[pos_];
            if (c != ' ' && c != '\n' && c != '\r' && c != '\t') break;
            ++pos_;
        }
    }

    bool parseValue(JsonValue& out, std::size_t depth) {
        if (atEnd()) return fail(pos_, "expected a value, found the end of the text");
        switch (text_[pos_]) {
        case '{': return parseObject(out, depth + 1);
        case '[': return parseArray(out, depth + 1);
        case '"': {
            std::string s;
            if (!parseString(s)) return false;
            out = JsonValue(std::move(s));
            return true;
        }
        case 't': return parseLiteral("true", JsonValue(true), out);
        case 'f': return parseLiteral("false", JsonValue(false), out);
        case 'n': return parseLiteral("null", JsonValue(), out);
        default:
            if (text_[pos_] == '-' || isDigit(text_[pos_])) return parseNumber(out);
            return fail(pos_, "expected a value, found " + describeByte(text_[pos_]));
        }
    }

    bool parseLiteral(std::string_view word, JsonValue literal, JsonValue& out) {
        if (text_.substr(pos_, word.size()) != word) {
            return fail(pos_, "invalid literal; expected '" + std::string(word) + "'");
        }
        pos_ += word.size();
        out = std::move(literal);
        return true;
    }

    bool checkDepth(std::size_t depth) {
        if (depth <= kJsonMaxDepth) return true;
        return fail(pos_, "containers nested deeper than " + std::to_string(kJsonMaxDepth) + " levels");
    }

    bool parseArray(JsonValue& out, std::size_t depth) {
        if (!checkDepth(depth)) return false;
        ++pos_; // '['
        JsonValue::Array elements;
        skipWhitespace();
        if (!atEnd() && text_[pos_] == ']') {
            ++pos_;
            out = JsonValue(std::move(elements));
            return true;
        }
        while (true) {
            skipWhitespace();
            if (!parseValue(elements.emplace_back(), depth)) return false;
            skipWhitespace();
            if (atEnd()) return fail(pos_, "unterminated array: expected ',' or ']'");
            const char c = text_[pos_++];
            if (c == ']') break;
            if (c != ',') return fail(pos_ - 1, "expected ',' or ']' after an array element, found " +
                                                    describeByte(c));
        }
        out = JsonValue(std::move(elements));
        return true;
    }

    bool parseObject(JsonValue& out, std::size_t depth) {
        if (!checkDepth(depth)) return false;
        ++pos_; // '{'
        JsonValue::Object members;
        skipWhitespace();
        if (!atEnd() && text_[pos_] == '}') {
            ++pos_;
            out = JsonValue(std::move(members));
            return true;
        }
        while (true) {
            skipWhitespace();
            if (atEnd()) return fail(pos_, "unterminated object: expected a key");
            if (text_[pos_] != '"') {
                return fail(pos_, "expected a string as object key, found " + describeByte(text_[pos_]));
            }
            JsonValue::Member& member = members.emplace_back();
            if (!parseString(member.key)) return false;
            skipWhitespace();
            if (atEnd() || text_[pos_] != ':') return fail(pos_, "expected ':' after an object key");
            ++pos_;
            skipWhitespace();
            if (!parseValue(member.value, depth)) return false;
            skipWhitespace();
            if (atEnd()) return fail(pos_, "unterminated object: expected ',' or '}'");
            const char c = text_[pos_++];
            if (c == '}') break;
            if (c != ',') return fail(pos_ - 1, "expected ',' or '}' after an object member, found " +
                                                    describeByte(c));
        }
        out = JsonValue(std::move(members));
        return true;
    }

    // Four hex digits at pos_, or -1.
    long readHex4() const {
        if (text_.size() - pos_ < 4) return -1;
        long v = 0;
        for (std::size_t i = 0; i < 4; ++i) {
            const int h = hexValue(text_[pos_ + i]);
            if (h < 0) return -1;
            v = v * 16 + h;
        }
        return v;
    }

    bool parseString(std::string& out) {
        const std::size_t start = pos_;
        ++pos_; // '"'
        while (true) {
            // Copy runs of ordinary bytes in one go; bytes >= 0x80 are kept as they are, valid or not.
            const std::size_t runStart = pos_;
            while (pos_ < text_.size()) {
                const auto c = static_cast<unsigned char>(text_[pos_]);
                if (c == '"' || c == '\\' || c < 0x20) break;
                ++pos_;
            }
            out.append(text_.data() + runStart, pos_ - runStart);
            if (atEnd()) return fail(start, "unterminated string");
            const char c = text_[pos_];
            if (c == '"') {
                ++pos_;
                return true;
            }
            if (c != '\\') {
                return fail(pos_, "control character (" + describeByte(c) + ") in a string must be escaped");
            }
            if (!parseEscape(out)) return false;
        }
    }

    bool parseEscape(std::string& out) {
        const std::size_t escapeStart = pos_;
        ++pos_; // '\\'
        if (atEnd()) return fail(escapeStart, "unterminated string");
        const char c = text_[pos_++];
        switch (c) {
        case '"': out.push_back('"'); return true;
        case '\\': out.push_back('\\'); return true;
        case '/': out.push_back('/'); return true;
        case 'b': out.push_back('\b'); return true;
        case 'f': out.push_back('\f'); return true;
        case 'n': out.push_back('\n'); return true;
        case 'r': out.push_back('\r'); return true;
        case 't': out.push_back('\t'); return true;
        case 'u': break;
        default: return fail(escapeStart, "invalid escape '\\" + std::string(1, c) + "' in a string");
        }
        const long unit = readHex4();
        if (unit < 0) return fail(escapeStart, "invalid \\u escape: expected four hex digits");
        pos_ += 4;
        auto cp = static_cast<char32_t>(unit);
        if (cp >= 0xD800 && cp <= 0xDBFF) {
            // A high surrogate only means something together with a low one right after it.
            if (text_.substr(pos_, 2) == "\\u") {
                pos_ += 2;
                const long low = readHex4();
                if (low >= 0xDC00 && low <= 0xDFFF) {
                    pos_ += 4;
                    const auto lowBits = static_cast<char32_t>(low) - 0xDC00;
                    utf8::appendCodePoint(out, 0x10000 + ((cp - 0xD800) << 10) + lowBits);
                    return true;
                }
                pos_ -= 2; // not a pair: the next escape stands on its own
            }
            cp = utf8::kReplacement;
        } else if (cp >= utf8::kEscapeBase + 0x80 && cp <= utf8::kEscapeBase + 0xFF) {
            out.push_back(static_cast<char>(cp - utf8::kEscapeBase));
            return true;
        }
        utf8::appendCodePoint(out, cp); // other lone low surrogates come out as U+FFFD
        return true;
    }

    bool parseNumber(JsonValue& out) {
        const std::size_t start = pos_;
        const bool negative = text_[pos_] == '-';
        if (negative) ++pos_;
        if (atEnd() || !isDigit(text_[pos_])) return fail(pos_, "expected a digit after '-'");

        // Decimal position of the first significant digit relative to the point, so that a value that
        // does not fit a double can be told apart as too large or merely too small.
        long magnitude = 0;
        bool seenSignificant = false;
        if (text_[pos_] == '0') {
            ++pos_;
            if (!atEnd() && isDigit(text_[pos_])) return fail(start, "numbers must not have leading zeros");
        } else {
            seenSignificant = true;
            while (!atEnd() && isDigit(text_[pos_])) {
                ++pos_;
                ++magnitude;
            }
        }
        bool integral = true;
        if (!atEnd() && text_[pos_] == '.') {
            integral = false;
            ++pos_;
            if (atEnd() || !isDigit(text_[pos_])) {
                return fail(pos_, "expected a digit after the decimal point");
            }
            while (!atEnd() && isDigit(text_[pos_])) {
                if (!seenSignificant) {
                    if (text_[pos_] != '0') seenSignificant = true;
                    else --magnitude;
                }
                ++pos_;
            }
        }
        long exponent = 0;
        if (!atEnd() && (text_[pos_] == 'e' || text_[pos_] == 'E')) {
            integral = false;
            ++pos_;
            bool negativeExponent = false;
            if (!atEnd() && (text_[pos_] == '+' || text_[pos_] == '-')) {
                negativeExponent = text_[pos_] == '-';
                ++pos_;
            }
            if (atEnd() || !isDigit(text_[pos_])) return fail(pos_, "expected a digit in the exponent");
            while (!atEnd() && isDigit(text_[pos_])) {
                if (exponent < 1'000'000) exponent = exponent * 10 + (text_[pos_] - '0');
                ++pos_;
            }
            if (negativeExponent) exponent = -exponent;
        }

        const char* first = text_.data() + start;
        const char* last = text_.data() + pos_;
        if (integral) {
            if (last - first == 2 && negative && first[1] == '0') {
                out = JsonValue(-0.0); // an integer would lose the sign
                return true;
            }
            std::int64_t i;
            if (std::from_chars(first, last, i).ec == std::errc()) {
                out = JsonValue(i);
                return true;
            }
            std::uint64_t u;
            if (!negative && std::from_chars(first, last, u).ec == std::errc()) {
                out = JsonValue(u);
                return true;
            }
        }
        double d;
        const auto result = std::from_chars(first, last, d);
        if (result.ec == std::errc::result_out_of_range) {
            if (!seenSignificant || magnitude + exponent <= 0) {
                d = negative ? -0.0 : 0.0;
            } else {
                return fail(start, "number is too large");
            }
        } else if (result.ec != std::errc() || result.ptr != last) {
            return fail(start, "invalid number");
        }
        out = JsonValue(d);
        return true;
    }

    std::string_view text_;
    std::size_t pos_ = 0;
    std::size_t errorOffset_ = 0;
    std::string errorMessage_;
};

} // namespace

std::optional<JsonValue> parseJson(std::string_view text, JsonParseError* error) {
    return Parser(text).run(error);
}

} // namespace brenvo
