#include "plist/PlistValue.h"

#include "plist/XmlPlist.h"

#include <algorithm>

namespace brenvo::plist {

std::optional<bool> Value::boolean() const {
    if (const bool* v = std::get_if<bool>(&data_)) return *v;
    return std::nullopt;
}

std::optional<std::int64_t> Value::integer() const {
    if (const std::int64_t* v = std::get_if<std::int64_t>(&data_)) return *v;
    return std::nullopt;
}

std::optional<double> Value::real() const {
    if (const double* v = std::get_if<double>(&data_)) return *v;
    return std::nullopt;
}

std::optional<brenvo::Date> Value::date() const {
    if (const brenvo::Date* v = std::get_if<brenvo::Date>(&data_)) return *v;
    return std::nullopt;
}

const std::string* Value::string() const {
    return std::get_if<std::string>(&data_);
}

const std::string* Value::data() const {
    const plist::Data* v = std::get_if<plist::Data>(&data_);
    return v ? &v->bytes : nullptr;
}

const Value::Array* Value::array() const {
    return std::get_if<Array>(&data_);
}

const Value::Dict* Value::dict() const {
    return std::get_if<Dict>(&data_);
}

const Value* Value::find(std::string_view key) const {
    const Dict* members = dict();
    if (!members) return nullptr;
    const auto found =
        std::find_if(members->rbegin(), members->rend(), [&](const Member& m) { return m.key == key; });
    return found == members->rend() ? nullptr : &found->value;
}

const std::string* Value::findString(std::string_view key) const {
    const Value* found = find(key);
    return found ? found->string() : nullptr;
}

bool Value::operator==(const Value& other) const {
    return data_ == other.data_;
}

namespace {

using Ref = BinaryReader::Ref;
using Type = BinaryReader::Type;

class Converter {
public:
    Converter(const BinaryReader& reader, std::size_t maxDepth, std::string* error)
        : reader_(reader), maxDepth_(maxDepth),
          // Generous for real documents, whose values take a few times the file's size in memory.
          budget_(16 * 1024 * 1024 + 64 * reader.bytes().size()), error_(error) {}

    std::optional<Value> convert(Ref ref) {
        if (!spend(sizeof(Value))) return std::nullopt;
        switch (reader_.type(ref)) {
        case Type::Null:
            return Value();
        case Type::Bool:
            return Value(*reader_.boolean(ref));
        case Type::Integer:
            if (auto v = reader_.integer(ref)) return Value(*v);
            return fail(ref, "is an integer outside the 64-bit range");
        case Type::Real:
            return Value(*reader_.real(ref));
        case Type::Date:
            return Value(brenvo::Date{*reader_.date(ref)});
        case Type::String:
            if (auto v = reader_.string(ref); v && spend(v->size())) return Value(std::move(*v));
            return failed_ ? std::nullopt : fail(ref, "is a malformed string");
        case Type::Data:
            if (auto v = reader_.data(ref); v && spend(v->size())) return Value(plist::Data{std::move(*v)});
            return failed_ ? std::nullopt : fail(ref, "is malformed data");
        case Type::Array:
        case Type::Dict:
            return container(ref);
        case Type::Other:
            return fail(ref, "is of a kind that is not supported (a UID or a set)");
        case Type::Invalid:
            break;
        }
        return fail(ref, "is malformed");
    }

private:
    std::optional<Value> container(Ref ref) {
        if (path_.size() >= maxDepth_) {
            return fail(ref, "is nested more than " + std::to_string(maxDepth_) + " containers deep");
        }
        if (std::find(path_.begin(), path_.end(), ref) != path_.end()) return fail(ref, "contains itself");
        path_.push_back(ref);
        std::optional<Value> result;
        if (const auto view = reader_.array(ref)) {
            Value::Array elements;
            elements.reserve(view->size());
            for (std::size_t i = 0; i < view->size(); ++i) {
                auto element = convert(view->at(i));
                if (!element) return std::nullopt;
                elements.push_back(std::move(*element));
            }
            result = Value(std::move(elements));
        } else if (const auto members = reader_.dict(ref)) {
            Value::Dict entries;
            entries.reserve(members->size());
            for (std::size_t i = 0; i < members->size(); ++i) {
                auto key = reader_.string(members->key(i));
                if (!key) return fail(members->key(i), "is a dictionary key that is not a string");
                if (!spend(key->size())) return std::nullopt;
                auto value = convert(members->value(i));
                if (!value) return std::nullopt;
                entries.push_back({std::move(*key), std::move(*value)});
            }
            result = Value(std::move(entries));
        } else {
            return fail(ref, "is a malformed container");
        }
        path_.pop_back();
        return result;
    }

    bool spend(std::size_t bytes) {
        if (bytes <= budget_) {
            budget_ -= bytes;
            return true;
        }
        if (!failed_ && error_) *error_ = "the shared objects in the file expand to too much data";
        failed_ = true;
        return false;
    }

    std::optional<Value> fail(Ref ref, const std::string& what) {
        if (!failed_ && error_) *error_ = "object " + std::to_string(ref) + " " + what;
        failed_ = true;
        return std::nullopt;
    }

    const BinaryReader& reader_;
    std::size_t maxDepth_;
    std::size_t budget_;
    std::string* error_;
    std::vector<Ref> path_;
    bool failed_ = false;
};

} // namespace

std::optional<Value> toValue(const BinaryReader& reader, BinaryReader::Ref ref, std::size_t maxDepth,
                             std::string* error) {
    return Converter(reader, maxDepth, error).convert(ref);
}

std::optional<Value> parse(std::string_view bytes, std::string* error) {
    if (bytes.starts_with("bplist")) {
        const auto reader = BinaryReader::open(bytes, error);
        if (!reader) return std::nullopt;
        return toValue(*reader, reader->top(), kDefaultMaxDepth, error);
    }
    return parseXml(bytes, error);
}

} // namespace brenvo::plist
