#pragma once

#include "json/JsonWriter.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace brenvo {

// A parsed or hand-built JSON document.
//
// Strings and keys are raw bytes: \udc80..\udcff escapes in the text stand for the bytes 0x80..0xFF, so
// names that are not valid UTF-8 survive a round trip exactly. Objects keep their members in order;
// when a key occurs more than once, lookups see the last one.
//
// A number remembers whether it was written as an integer, so 64-bit sizes and ids are not squeezed
// through a double. The as*() accessors return the fallback when the value is of another type (or, for
// the integer ones, not exactly representable) rather than guessing.
class JsonValue {
public:
    enum class Type : std::uint8_t { Null, Bool, Number, String, Array, Object };
    struct Member;
    using Array = std::vector<JsonValue>;
    using Object = std::vector<Member>;

    // Defined below the class: building the storage needs Member to be complete.
    JsonValue();
    JsonValue(std::nullptr_t);
    JsonValue(bool flag);
    template <json_detail::JsonInteger T>
    JsonValue(T number);
    JsonValue(double number);
    JsonValue(const char* text);
    JsonValue(std::string_view text);
    JsonValue(std::string text);
    JsonValue(Array elements);
    JsonValue(Object members);

    static JsonValue makeArray();
    static JsonValue makeObject();

    Type type() const { return static_cast<Type>(data_.index()); }
    bool isNull() const { return type() == Type::Null; }
    bool isBool() const { return type() == Type::Bool; }
    bool isNumber() const { return type() == Type::Number; }
    bool isString() const { return type() == Type::String; }
    bool isArray() const { return type() == Type::Array; }
    bool isObject() const { return type() == Type::Object; }
    // Numbers with an integral value that the type holds exactly, however they were written (3, 3.0, 3e0).
    bool isInt64() const;
    bool isUInt64() const;

    bool asBool(bool fallback = false) const;
    std::int64_t asInt64(std::int64_t fallback = 0) const;
    std::uint64_t asUInt64(std::uint64_t fallback = 0) const;
    // Any number; integers beyond 2^53 are rounded.
    double asDouble(double fallback = 0) const;
    // The empty string / array / object for values of another type.
    const std::string& asString() const;
    const Array& asArray() const;
    const Object& asObject() const;

    // Elements of an array or members of an object; 0 for anything else.
    std::size_t size() const;

    // The value of the last member named `key`, or null if there is none or this is not an object.
    const JsonValue* find(std::string_view key) const;
    JsonValue* find(std::string_view key);

    // Builders. A null value first becomes an empty array / object; on any other type these assert.
    JsonValue& append(JsonValue element);
    // Replaces the member that find(key) would return, or adds one at the end.
    JsonValue& set(std::string_view key, JsonValue v);

    // Structural equality; numbers compare by value (1 == 1.0), objects member by member in order.
    bool operator==(const JsonValue& other) const;

    void write(JsonWriter& writer) const;

private:
    struct Number {
        enum class Kind : std::uint8_t { Signed, Unsigned, Double };

        static Number fromSigned(std::int64_t v) {
            return Number{static_cast<double>(v), v, 0, Kind::Signed};
        }
        static Number fromUnsigned(std::uint64_t v);
        static Number fromDouble(double v) { return Number{v, 0, 0, Kind::Double}; }

        double d;
        std::int64_t i;
        std::uint64_t u; // only for values above INT64_MAX; smaller ones are Signed
        Kind kind;
    };

    std::variant<std::monostate, bool, Number, std::string, Array, Object> data_;
};

struct JsonValue::Member {
    std::string key;
    JsonValue value;

    bool operator==(const Member&) const = default;
};

inline JsonValue::JsonValue() = default;
inline JsonValue::JsonValue(std::nullptr_t) {}
inline JsonValue::JsonValue(bool flag) : data_(flag) {}
template <json_detail::JsonInteger T>
JsonValue::JsonValue(T number) {
    if constexpr (std::is_signed_v<T>) {
        data_ = Number::fromSigned(static_cast<std::int64_t>(number));
    } else {
        data_ = Number::fromUnsigned(static_cast<std::uint64_t>(number));
    }
}
inline JsonValue::JsonValue(double number) : data_(Number::fromDouble(number)) {}
inline JsonValue::JsonValue(const char* text) : data_(std::string(text)) {}
inline JsonValue::JsonValue(std::string_view text) : data_(std::string(text)) {}
inline JsonValue::JsonValue(std::string text) : data_(std::move(text)) {}
inline JsonValue::JsonValue(Array elements) : data_(std::move(elements)) {}
inline JsonValue::JsonValue(Object members) : data_(std::move(members)) {}

inline JsonValue JsonValue::makeArray() {
    return JsonValue(Array{});
}

inline JsonValue JsonValue::makeObject() {
    return JsonValue(Object{});
}

struct JsonParseError {
    std::size_t offset = 0; // in bytes from the start of the text
    std::size_t line = 0;   // 1-based
    std::size_t column = 0; // 1-based, in bytes
    std::string message;

    // "line L, column C: message"
    std::string describe() const;
};

// Containers nested deeper than this are rejected, so hostile input cannot exhaust the stack.
inline constexpr std::size_t kJsonMaxDepth = 512;

// Strict RFC 8259. A leading UTF-8 byte order mark is skipped. Invalid UTF-8 inside strings is kept byte
// for byte. In \u escapes a surrogate pair gives its code point, a lone \udc80..\udcff the byte 0x80..0xFF,
// and any other lone surrogate U+FFFD. Numbers too large for a double are rejected; ones too small to
// represent become zero. On failure returns nullopt and, if `error` is given, fills it in.
std::optional<JsonValue> parseJson(std::string_view text, JsonParseError* error = nullptr);

inline void writeJson(const JsonValue& value, JsonWriter& writer) {
    value.write(writer);
}

std::string toJsonString(const JsonValue& value, JsonWriter::Style style = JsonWriter::Style::Compact);

} // namespace brenvo
