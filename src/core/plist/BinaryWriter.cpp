#include "plist/BinaryWriter.h"

#include <cstdint>

#include "util/Utf8.h"

#include <bit>
#include <cerrno>
#include <cstring>

namespace brenvo::plist {

namespace {

constexpr BinaryWriter::Ref kUnset = UINT32_MAX;
// Refs are 4 bytes and the reader keeps UINT32_MAX free as "no object".
constexpr std::uint32_t kMaxObjects = UINT32_MAX - 1;
constexpr std::size_t kTrailerSize = 32;

unsigned bytesFor(std::uint64_t value) {
    unsigned width = 1;
    while (width < 8 && (value >> (8 * width)) != 0)
        ++width;
    return width;
}

bool isAscii(std::string_view bytes) {
    unsigned char any = 0;
    for (char c : bytes)
        any |= static_cast<unsigned char>(c);
    return any < 0x80;
}

} // namespace

BinaryWriter::BinaryWriter(std::string& sink) : stringSink_(&sink) {
    start();
}

BinaryWriter::BinaryWriter(std::FILE* file) : file_(file) {
    start();
}

BinaryWriter::BinaryWriter(ChunkSink sink) : chunkSink_(std::move(sink)) {
    start();
}

void BinaryWriter::start() {
    smallIntegers_.fill(kUnset);
    booleans_.fill(kUnset);
    buffer_.reserve(kFlushThreshold + 4096);
    buffer_.append("bplist00");
    position_ = buffer_.size();
}

BinaryWriter::~BinaryWriter() {
    flushBuffer();
}

std::size_t BinaryWriter::overheadBytes() const {
    std::size_t keyBytes = 0;
    for (const auto& [text, ref] : keys_)
        keyBytes += sizeof(text) + sizeof(ref) + text.capacity() + 32;
    return lengthBlocks_.size() * kBlockSize + lengthBlocks_.capacity() * sizeof(lengthBlocks_[0]) +
           longObjects_.capacity() * sizeof(longObjects_[0]) + keyBytes;
}

void BinaryWriter::fail(int error) {
    if (error_ == 0) error_ = error != 0 ? error : EIO;
}

bool BinaryWriter::setReferenceWidth(unsigned width, std::uint64_t objects) {
    if (objectCount_ > 0 || width < 1 || width > 4) return false;
    const std::uint64_t limit = width == 4 ? kMaxObjects : (std::uint64_t{1} << (8 * width)) - 1;
    if (objects > limit) return false;
    refWidth_ = width;
    maxObjects_ = static_cast<std::uint32_t>(limit);
    return true;
}

bool BinaryWriter::checkRef(Ref ref) {
    if (finished_ || ref >= objectCount_) fail(EINVAL);
    return !failed();
}

BinaryWriter::Ref BinaryWriter::beginObject() {
    if (finished_) fail(EINVAL);
    if (objectCount_ >= maxObjects_) fail(EOVERFLOW);
    objectStart_ = position_;
    return objectCount_;
}

void BinaryWriter::endObject(Ref ref) {
    const std::uint64_t length = position_ - objectStart_;
    const std::size_t block = ref / kBlockSize;
    if (block == lengthBlocks_.size()) lengthBlocks_.push_back(std::make_unique<std::uint8_t[]>(kBlockSize));
    if (length < kLongObject) {
        lengthBlocks_[block][ref % kBlockSize] = static_cast<std::uint8_t>(length);
    } else {
        lengthBlocks_[block][ref % kBlockSize] = kLongObject;
        longObjects_.emplace_back(ref, length);
    }
    ++objectCount_;
    if (buffer_.size() >= kFlushThreshold) flushBuffer();
}

void BinaryWriter::appendUnsigned(std::uint64_t value, unsigned width) {
    char bytes[8];
    for (unsigned i = 0; i < width; ++i)
        bytes[i] = static_cast<char>(value >> (8 * (width - 1 - i)));
    buffer_.append(bytes, width);
    position_ += width;
}

// A marker whose low nibble holds counts up to 14; larger ones follow as an integer object.
void BinaryWriter::appendMarker(std::uint8_t kind, std::uint64_t count) {
    if (count < 15) {
        buffer_.push_back(static_cast<char>(kind << 4 | count));
        ++position_;
        return;
    }
    const unsigned width = std::bit_ceil(bytesFor(count));
    buffer_.push_back(static_cast<char>(kind << 4 | 0xF));
    buffer_.push_back(static_cast<char>(0x10 | std::countr_zero(width)));
    position_ += 2;
    appendUnsigned(count, width);
}

void BinaryWriter::appendDouble(std::uint8_t marker, double value) {
    buffer_.push_back(static_cast<char>(marker));
    ++position_;
    appendUnsigned(std::bit_cast<std::uint64_t>(value), 8);
}

BinaryWriter::Ref BinaryWriter::string(std::string_view bytes) {
    const Ref ref = beginObject();
    if (failed()) return 0;
    if (isAscii(bytes)) {
        appendMarker(0x5, bytes.size());
        buffer_.append(bytes);
        position_ += bytes.size();
    } else {
        const std::u32string codePoints = utf8::decodeEscaped(bytes);
        std::uint64_t units = codePoints.size();
        for (char32_t cp : codePoints)
            units += cp > 0xFFFF;
        appendMarker(0x6, units);
        for (char32_t cp : codePoints) {
            if (cp > 0xFFFF) {
                cp -= 0x10000;
                appendUnsigned(0xD800 + (cp >> 10), 2);
                appendUnsigned(0xDC00 + (cp & 0x3FF), 2);
            } else {
                // Escaped bytes (U+DC80..U+DCFF) go out as the same lone unit.
                appendUnsigned(cp, 2);
            }
        }
    }
    endObject(ref);
    return ref;
}

BinaryWriter::Ref BinaryWriter::key(std::string_view bytes) {
    if (auto found = keys_.find(bytes); found != keys_.end()) return found->second;
    const Ref ref = string(bytes);
    if (!failed()) keys_.emplace(std::string(bytes), ref);
    return ref;
}

BinaryWriter::Ref BinaryWriter::integer(std::int64_t number) {
    Ref* cached = nullptr;
    if (number >= kSmallMin && number <= kSmallMax) {
        cached = &smallIntegers_[static_cast<std::size_t>(number - kSmallMin)];
        if (*cached != kUnset) return *cached;
    }
    const Ref ref = beginObject();
    if (failed()) return 0;
    // 1, 2 and 4-byte integers are unsigned; negative numbers need the signed 8-byte form.
    const unsigned width = number < 0 ? 8 : std::bit_ceil(bytesFor(static_cast<std::uint64_t>(number)));
    buffer_.push_back(static_cast<char>(0x10 | std::countr_zero(width)));
    ++position_;
    appendUnsigned(static_cast<std::uint64_t>(number), width);
    endObject(ref);
    if (cached) *cached = ref;
    return ref;
}

BinaryWriter::Ref BinaryWriter::real(double number) {
    const Ref ref = beginObject();
    if (failed()) return 0;
    appendDouble(0x23, number);
    endObject(ref);
    return ref;
}

BinaryWriter::Ref BinaryWriter::date(double secondsSince2001) {
    const Ref ref = beginObject();
    if (failed()) return 0;
    appendDouble(0x33, secondsSince2001);
    endObject(ref);
    return ref;
}

BinaryWriter::Ref BinaryWriter::boolean(bool flag) {
    Ref& cached = booleans_[flag];
    if (cached != kUnset) return cached;
    const Ref ref = beginObject();
    if (failed()) return 0;
    buffer_.push_back(flag ? '\x09' : '\x08');
    ++position_;
    endObject(ref);
    cached = ref;
    return ref;
}

BinaryWriter::Ref BinaryWriter::data(std::string_view bytes) {
    const Ref ref = beginObject();
    if (failed()) return 0;
    appendMarker(0x4, bytes.size());
    buffer_.append(bytes);
    position_ += bytes.size();
    endObject(ref);
    return ref;
}

BinaryWriter::Ref BinaryWriter::array(std::span<const Ref> elements) {
    for (Ref element : elements) {
        if (!checkRef(element)) return 0;
    }
    const Ref ref = beginObject();
    if (failed()) return 0;
    appendMarker(0xA, elements.size());
    for (Ref element : elements)
        appendUnsigned(element, refWidth_);
    endObject(ref);
    return ref;
}

BinaryWriter::Ref BinaryWriter::dict(std::span<const std::pair<Ref, Ref>> members) {
    for (const auto& [k, v] : members) {
        if (!checkRef(k) || !checkRef(v)) return 0;
    }
    const Ref ref = beginObject();
    if (failed()) return 0;
    appendMarker(0xD, members.size());
    for (const auto& member : members)
        appendUnsigned(member.first, refWidth_);
    for (const auto& member : members)
        appendUnsigned(member.second, refWidth_);
    endObject(ref);
    return ref;
}

bool BinaryWriter::finish(Ref top) {
    while (true)
        if (auto done = finishSome(top, SIZE_MAX)) return *done;
}

std::optional<bool> BinaryWriter::finishSome(Ref top, std::size_t objects) {
    if (!finishing_) {
        if (!checkRef(top)) {
            flushBuffer();
            return false;
        }
        // The first object starts after the 8-byte header.
        finishing_ = Finishing{position_, bytesFor(objectStart_), 8, 0, 0};
    }
    Finishing& f = *finishing_;
    for (; f.ref < objectCount_; ++f.ref) {
        if (objects-- == 0) return std::nullopt;
        appendUnsigned(f.offset, f.offsetWidth);
        std::uint64_t length = lengthBlocks_[f.ref / kBlockSize][f.ref % kBlockSize];
        if (length == kLongObject) length = longObjects_[f.nextLong++].second;
        f.offset += length;
        if (buffer_.size() >= kFlushThreshold) flushBuffer();
    }

    // Trailer: 5 unused bytes, sort version, offset width, reference width, then three 8-byte numbers.
    buffer_.append(6, '\0');
    buffer_.push_back(static_cast<char>(f.offsetWidth));
    buffer_.push_back(static_cast<char>(refWidth_));
    position_ += 8;
    appendUnsigned(objectCount_, 8);
    appendUnsigned(top, 8);
    appendUnsigned(f.tableOffset, 8);
    static_assert(kTrailerSize == 32);

    finished_ = true;
    flushBuffer();
    if (file_ && !failed() && std::fflush(file_) != 0) fail(errno);
    return !failed();
}

void BinaryWriter::flushBuffer() {
    if (buffer_.empty()) return;
    if (!failed()) {
        if (stringSink_) {
            stringSink_->append(buffer_);
        } else if (file_) {
            errno = 0;
            if (std::fwrite(buffer_.data(), 1, buffer_.size(), file_) != buffer_.size()) fail(errno);
        } else if (chunkSink_) {
            errno = 0;
            if (!chunkSink_(buffer_)) fail(errno);
        }
    }
    buffer_.clear();
}

} // namespace brenvo::plist
