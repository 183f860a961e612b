#pragma once

#include "plist/BinaryReader.h"
#include "util/Date.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace brenvo::plist {

// Containers nested deeper than this are rejected by the readers unless told otherwise, so hostile input
// cannot exhaust the stack.
inline constexpr std::size_t kDefaultMaxDepth = 64;

// Integers of any width become 64-bit values; bool keeps its own constructor.
template <typename T>
concept IntegerType = std::integral<T> && !std::same_as<T, bool>;

// Binary payload of a <data> element or a binary data object, kept apart from strings so that the two
// stay distinguishable.
struct Data {
    std::string bytes;

    bool operator==(const Data&) const = default;
};

// One property-list value, read from an XML or binary property list.
//
// Strings and keys are raw bytes: what came in as UTF-16 with lone surrogates U+DC80..U+DCFF is turned
// back into the bytes 0x80..0xFF, so names that are not valid UTF-8 keep their exact bytes. Dictionaries
// keep their entries in file order; when a key occurs more than once, find() sees the last one, as
// other readers do.
class Value {
public:
    enum class Type : std::uint8_t { Null, Bool, Integer, Real, Date, String, Data, Array, Dict };
    struct Member;
    using Array = std::vector<Value>;
    using Dict = std::vector<Member>;

    // Defined below the class: building the storage needs Member to be complete.
    Value();
    Value(bool flag);
    template <IntegerType T>
    Value(T number);
    Value(double number);
    Value(brenvo::Date date);
    Value(std::string text);
    Value(std::string_view text);
    Value(const char* text);
    Value(plist::Data bytes);
    Value(Array elements);
    Value(Dict members);

    Type type() const { return static_cast<Type>(data_.index()); }
    bool isNull() const { return type() == Type::Null; }

    // Each answers nothing (or null) when the value is of another type; integers and reals are not
    // converted into each other.
    std::optional<bool> boolean() const;
    std::optional<std::int64_t> integer() const;
    std::optional<double> real() const;
    std::optional<brenvo::Date> date() const;
    const std::string* string() const;
    const std::string* data() const;
    const Array* array() const;
    const Dict* dict() const;

    // The value of the last entry named `key`, or null if there is none or this is not a dictionary.
    const Value* find(std::string_view key) const;
    // find(key)->string(), or null.
    const std::string* findString(std::string_view key) const;

    bool operator==(const Value& other) const;

private:
    std::variant<std::monostate, bool, std::int64_t, double, brenvo::Date, std::string, plist::Data, Array,
                 Dict>
        data_;
};

struct Value::Member {
    std::string key;
    Value value;

    bool operator==(const Member&) const = default;
};

inline Value::Value() = default;
inline Value::Value(bool flag) : data_(flag) {}
// Unsigned values above INT64_MAX have no place in a property list value and wrap.
template <IntegerType T>
Value::Value(T number) : data_(static_cast<std::int64_t>(number)) {}
inline Value::Value(double number) : data_(number) {}
inline Value::Value(brenvo::Date date) : data_(date) {}
inline Value::Value(std::string text) : data_(std::move(text)) {}
inline Value::Value(std::string_view text) : data_(std::string(text)) {}
inline Value::Value(const char* text) : data_(std::string(text)) {}
inline Value::Value(plist::Data bytes) : data_(std::move(bytes)) {}
inline Value::Value(Array elements) : data_(std::move(elements)) {}
inline Value::Value(Dict members) : data_(std::move(members)) {}

// The value of object `ref` and everything below it. Fails on malformed objects, UIDs and sets, keys that
// are not strings, containers nested deeper than maxDepth (which also bounds the recursion) and
// containers that contain themselves. Objects referenced many times are copied each time, up to a budget
// proportional to the file's size, so that a small file of shared containers cannot expand without bound.
std::optional<Value> toValue(const BinaryReader& reader, BinaryReader::Ref ref,
                             std::size_t maxDepth = kDefaultMaxDepth, std::string* error = nullptr);

// An XML or binary property list, told apart by the "bplist00" header. On failure returns nothing and,
// if `error` is given, says why.
std::optional<Value> parse(std::string_view bytes, std::string* error = nullptr);

} // namespace brenvo::plist
