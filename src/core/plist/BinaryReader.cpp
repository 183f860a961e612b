#include "plist/BinaryReader.h"

#include "util/Utf8.h"

#include <bit>
#include <utility>
#include <vector>

namespace brenvo::plist {

namespace {

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;

bool fail(std::string* error, std::string message) {
    if (error) *error = std::move(message);
    return false;
}

} // namespace

std::uint64_t BinaryReader::readUnsigned(std::size_t offset, unsigned width) const {
    std::uint64_t value = 0;
    for (unsigned i = 0; i < width; ++i)
        value = value << 8 | static_cast<unsigned char>(data_[offset + i]);
    return value;
}

std::size_t BinaryReader::offsetOf(Ref ref) const {
    return static_cast<std::size_t>(
        readUnsigned(tableOffset_ + std::size_t{ref} * offsetWidth_, offsetWidth_));
}

BinaryReader::Ref BinaryReader::refAt(std::size_t offset) const {
    return static_cast<Ref>(readUnsigned(offset, refWidth_));
}

std::optional<BinaryReader> BinaryReader::open(std::string_view data, std::string* error) {
    if (data.size() < kHeaderSize + 1 + 1 + kTrailerSize) {
        fail(error, "the file is too short to be a binary property list");
        return std::nullopt;
    }
    if (data.substr(0, kHeaderSize) != "bplist00") {
        fail(error, "the file does not start with \"bplist00\"");
        return std::nullopt;
    }
    BinaryReader reader;
    reader.data_ = data;
    const std::size_t trailer = data.size() - kTrailerSize;
    reader.offsetWidth_ = static_cast<unsigned char>(data[trailer + 6]);
    reader.refWidth_ = static_cast<unsigned char>(data[trailer + 7]);
    const std::uint64_t objects = reader.readUnsigned(trailer + 8, 8);
    const std::uint64_t top = reader.readUnsigned(trailer + 16, 8);
    const std::uint64_t tableOffset = reader.readUnsigned(trailer + 24, 8);

    bool ok = true;
    if (reader.offsetWidth_ < 1 || reader.offsetWidth_ > 8) {
        ok = fail(error, "offset size " + std::to_string(reader.offsetWidth_) + " is not between 1 and 8");
    } else if (reader.refWidth_ < 1 || reader.refWidth_ > 8) {
        ok = fail(error, "reference size " + std::to_string(reader.refWidth_) + " is not between 1 and 8");
    } else if (objects == 0) {
        ok = fail(error, "the file holds no objects");
    } else if (objects >= kNoRef) {
        ok = fail(error, "the file claims " + std::to_string(objects) + " objects, too many to read");
    } else if (top >= objects) {
        ok = fail(error, "the top object " + std::to_string(top) + " is not among the " +
                             std::to_string(objects) + " objects");
    } else if (tableOffset <= kHeaderSize || tableOffset > trailer) {
        ok = fail(error, "the offset table's position " + std::to_string(tableOffset) +
                             " is outside the file's object area");
    } else if (objects > (trailer - tableOffset) / reader.offsetWidth_) {
        ok = fail(error, "an offset table of " + std::to_string(objects) + " entries does not fit the file");
    }
    if (!ok) return std::nullopt;

    reader.objectCount_ = static_cast<std::size_t>(objects);
    reader.top_ = static_cast<Ref>(top);
    reader.tableOffset_ = static_cast<std::size_t>(tableOffset);
    for (std::size_t ref = 0; ref < reader.objectCount_; ++ref) {
        const std::uint64_t offset = reader.offsetOf(static_cast<Ref>(ref));
        if (offset < kHeaderSize || offset >= tableOffset) {
            fail(error, "object " + std::to_string(ref) + " has offset " + std::to_string(offset) +
                            ", outside the file's object area");
            return std::nullopt;
        }
    }
    return reader;
}

std::optional<BinaryReader::Object> BinaryReader::object(Ref ref) const {
    if (ref >= objectCount_) return std::nullopt;
    const std::size_t start = offsetOf(ref);
    const std::size_t end = tableOffset_;
    const auto marker = static_cast<std::uint8_t>(data_[start]);
    const unsigned low = marker & 0xF;
    std::size_t pos = start + 1;

    Object result{Type::Invalid, marker, 0, pos};
    std::size_t unit = 0; // bytes per counted element; 0 for fixed-size objects
    switch (marker >> 4) {
    case 0x0:
        if (marker == 0x00) result.type = Type::Null;
        if (marker == 0x08 || marker == 0x09) result.type = Type::Bool;
        break;
    case 0x1:
        if (low <= 4) result = {Type::Integer, marker, std::size_t{1} << low, pos};
        break;
    case 0x2:
        if (low == 2 || low == 3) result = {Type::Real, marker, std::size_t{1} << low, pos};
        break;
    case 0x3:
        if (low == 3) result = {Type::Date, marker, 8, pos};
        break;
    case 0x4:
        result.type = Type::Data;
        unit = 1;
        break;
    case 0x5:
        result.type = Type::String;
        unit = 1;
        break;
    case 0x6:
        result.type = Type::String;
        unit = 2;
        break;
    case 0x8:
        result = {Type::Other, marker, low + std::size_t{1}, pos};
        break;
    case 0xA:
        result.type = Type::Array;
        unit = refWidth_;
        break;
    case 0xB:
    case 0xC:
        result.type = Type::Other;
        unit = refWidth_;
        break;
    case 0xD:
        result.type = Type::Dict;
        unit = 2 * std::size_t{refWidth_};
        break;
    default:
        break;
    }
    if (result.type == Type::Invalid) return std::nullopt;

    if (unit == 0) {
        // Fixed size: `count` is the payload's length in bytes.
        if (result.count > end - pos) return std::nullopt;
        return result;
    }
    std::uint64_t count = low;
    if (low == 0xF) {
        // The count follows as an integer object of 1, 2, 4 or 8 bytes.
        if (pos >= end) return std::nullopt;
        const auto countMarker = static_cast<std::uint8_t>(data_[pos]);
        if ((countMarker >> 4) != 0x1 || (countMarker & 0xF) > 3) return std::nullopt;
        const unsigned width = 1u << (countMarker & 0xF);
        if (width > end - pos - 1) return std::nullopt;
        count = readUnsigned(pos + 1, width);
        pos += 1 + width;
    }
    if (count > (end - pos) / unit) return std::nullopt;
    result.count = static_cast<std::size_t>(count);
    result.payload = pos;
    return result;
}

BinaryReader::Type BinaryReader::type(Ref ref) const {
    const auto found = object(ref);
    return found ? found->type : Type::Invalid;
}

std::optional<bool> BinaryReader::boolean(Ref ref) const {
    const auto found = object(ref);
    if (!found || found->type != Type::Bool) return std::nullopt;
    return found->marker == 0x09;
}

std::optional<std::int64_t> BinaryReader::integer(Ref ref) const {
    const auto found = object(ref);
    if (!found || found->type != Type::Integer) return std::nullopt;
    const auto width = static_cast<unsigned>(found->count);
    if (width <= 8) {
        // Only the 8-byte form is signed.
        return static_cast<std::int64_t>(readUnsigned(found->payload, width));
    }
    const std::uint64_t high = readUnsigned(found->payload, 8);
    const std::uint64_t low = readUnsigned(found->payload + 8, 8);
    const bool negative = low >> 63;
    if (high != (negative ? ~std::uint64_t{0} : 0)) return std::nullopt;
    return static_cast<std::int64_t>(low);
}

std::optional<double> BinaryReader::real(Ref ref) const {
    const auto found = object(ref);
    if (!found || found->type != Type::Real) return std::nullopt;
    if (found->count == 4) {
        return std::bit_cast<float>(static_cast<std::uint32_t>(readUnsigned(found->payload, 4)));
    }
    return std::bit_cast<double>(readUnsigned(found->payload, 8));
}

std::optional<double> BinaryReader::date(Ref ref) const {
    const auto found = object(ref);
    if (!found || found->type != Type::Date) return std::nullopt;
    return std::bit_cast<double>(readUnsigned(found->payload, 8));
}

std::optional<std::string> BinaryReader::string(Ref ref) const {
    const auto found = object(ref);
    if (!found || found->type != Type::String) return std::nullopt;
    if ((found->marker >> 4) == 0x5) {
        const std::string_view text = data_.substr(found->payload, found->count);
        unsigned char any = 0;
        for (char c : text)
            any |= static_cast<unsigned char>(c);
        if (any >= 0x80) return std::nullopt; // not ASCII, so not what the marker promises
        return std::string(text);
    }
    std::u32string codePoints;
    codePoints.reserve(found->count);
    for (std::size_t i = 0; i < found->count; ++i) {
        const auto unit = static_cast<char32_t>(readUnsigned(found->payload + 2 * i, 2));
        if (unit >= 0xD800 && unit < 0xDC00 && i + 1 < found->count) {
            const auto next = static_cast<char32_t>(readUnsigned(found->payload + 2 * (i + 1), 2));
            if (next >= 0xDC00 && next < 0xE000) {
                codePoints.push_back(0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00));
                ++i;
                continue;
            }
        }
        codePoints.push_back(unit);
    }
    return utf8::encodeEscaped(codePoints);
}

bool BinaryReader::stringEquals(Ref ref, std::string_view bytes) const {
    const auto found = object(ref);
    if (!found || found->type != Type::String) return false;
    if ((found->marker >> 4) == 0x5) {
        // An ASCII object equal to `bytes` is only well formed if `bytes` is ASCII too.
        if (data_.substr(found->payload, found->count) != bytes) return false;
        unsigned char any = 0;
        for (char c : bytes)
            any |= static_cast<unsigned char>(c);
        return any < 0x80;
    }
    const auto text = string(ref);
    return text && *text == bytes;
}

std::optional<std::string> BinaryReader::data(Ref ref) const {
    const auto found = object(ref);
    if (!found || found->type != Type::Data) return std::nullopt;
    return std::string(data_.substr(found->payload, found->count));
}

std::optional<std::size_t> BinaryReader::containerRefs(Ref ref, Type type, std::size_t* count) const {
    const auto found = object(ref);
    if (!found || found->type != type) return std::nullopt;
    const std::size_t refs = type == Type::Dict ? 2 * found->count : found->count;
    for (std::size_t i = 0; i < refs; ++i) {
        if (readUnsigned(found->payload + i * refWidth_, refWidth_) >= objectCount_) return std::nullopt;
    }
    *count = found->count;
    return found->payload;
}

std::optional<BinaryReader::ArrayView> BinaryReader::array(Ref ref) const {
    ArrayView view;
    const auto refs = containerRefs(ref, Type::Array, &view.count_);
    if (!refs) return std::nullopt;
    view.reader_ = this;
    view.refs_ = *refs;
    return view;
}

std::optional<BinaryReader::DictView> BinaryReader::dict(Ref ref) const {
    DictView view;
    const auto refs = containerRefs(ref, Type::Dict, &view.count_);
    if (!refs) return std::nullopt;
    view.reader_ = this;
    view.refs_ = *refs;
    return view;
}

BinaryReader::Ref BinaryReader::ArrayView::at(std::size_t i) const {
    return i < count_ ? reader_->refAt(refs_ + i * reader_->refWidth_) : kNoRef;
}

BinaryReader::Ref BinaryReader::DictView::key(std::size_t i) const {
    return i < count_ ? reader_->refAt(refs_ + i * reader_->refWidth_) : kNoRef;
}

BinaryReader::Ref BinaryReader::DictView::value(std::size_t i) const {
    return i < count_ ? reader_->refAt(refs_ + (count_ + i) * reader_->refWidth_) : kNoRef;
}

BinaryReader::Ref BinaryReader::DictView::find(std::string_view wanted) const {
    for (std::size_t i = count_; i-- > 0;) {
        if (reader_->stringEquals(key(i), wanted)) return value(i);
    }
    return kNoRef;
}

bool BinaryReader::isTree(Ref root, std::size_t maxDepth) const {
    std::vector<std::uint8_t> seen((objectCount_ + 7) / 8);
    std::vector<std::pair<Ref, std::size_t>> pending{{root, 1}};
    while (!pending.empty()) {
        const auto [ref, depth] = pending.back();
        pending.pop_back();
        const Type kind = type(ref);
        if (kind == Type::Invalid) return false;
        if (kind != Type::Array && kind != Type::Dict) continue;
        std::uint8_t& bits = seen[ref / 8];
        const auto bit = static_cast<std::uint8_t>(1u << (ref % 8));
        if (depth > maxDepth || (bits & bit)) return false;
        bits |= bit;
        // Each container is expanded at most once, so `pending` never outgrows the file's references.
        if (kind == Type::Array) {
            const auto view = array(ref);
            if (!view) return false;
            for (std::size_t i = 0; i < view->size(); ++i)
                pending.emplace_back(view->at(i), depth + 1);
        } else {
            const auto view = dict(ref);
            if (!view) return false;
            for (std::size_t i = 0; i < view->size(); ++i) {
                pending.emplace_back(view->key(i), depth + 1);
                pending.emplace_back(view->value(i), depth + 1);
            }
        }
    }
    return true;
}

} // namespace brenvo::plist
