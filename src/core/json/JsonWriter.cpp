#include "json/JsonWriter.h"

#include "util/Utf8.h"

#include <cassert>
#include <cerrno>
#include <charconv>
#include <concepts>
#include <cmath>
#include <utility>

namespace brenvo {

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

void appendHexByte(std::string& out, unsigned char byte) {
    out.push_back(kHexDigits[byte >> 4]);
    out.push_back(kHexDigits[byte & 0x0F]);
}

} // namespace

JsonWriter::JsonWriter(std::FILE* file, Style style) : file_(file), style_(style) {
    buffer_.reserve(kFlushThreshold + kFlushThreshold / 4);
}

JsonWriter::JsonWriter(std::string& sink, Style style) : stringSink_(&sink), style_(style) {
    buffer_.reserve(kFlushThreshold + kFlushThreshold / 4);
}

JsonWriter::JsonWriter(ChunkSink sink, Style style) : chunkSink_(std::move(sink)), style_(style) {
    buffer_.reserve(kFlushThreshold + kFlushThreshold / 4);
}

JsonWriter::~JsonWriter() {
    flushBuffer();
}

void JsonWriter::beginObject() {
    beginContainer(true, '{');
}

void JsonWriter::endObject() {
    endContainer(true, '}');
}

void JsonWriter::beginArray() {
    beginContainer(false, '[');
}

void JsonWriter::endArray() {
    endContainer(false, ']');
}

void JsonWriter::key(std::string_view name) {
    assert(!stack_.empty() && stack_.back().isObject && "key() outside an object");
    assert(!afterKey_ && "key() twice without a value");
    Frame& frame = stack_.back();
    if (frame.count++ > 0) buffer_.push_back(',');
    if (style_ == Style::Pretty) newlineAndIndent();
    appendString(name);
    buffer_.push_back(':');
    if (style_ == Style::Pretty) buffer_.push_back(' ');
    afterKey_ = true;
}

void JsonWriter::value(std::string_view text) {
    beforeValue();
    appendString(text);
    afterValue();
}

void JsonWriter::value(double number) {
    if (!std::isfinite(number)) {
        null();
        return;
    }
    beforeValue();
    char text[32];
    const auto result = std::to_chars(text, text + sizeof text, number);
    buffer_.append(text, result.ptr);
    afterValue();
}

void JsonWriter::value(bool flag) {
    beforeValue();
    buffer_.append(flag ? "true" : "false");
    afterValue();
}

void JsonWriter::null() {
    beforeValue();
    buffer_.append("null");
    afterValue();
}

namespace {
void appendInteger(std::string& out, std::integral auto number) {
    char text[24];
    out.append(text, std::to_chars(text, text + sizeof text, number).ptr);
}
} // namespace

void JsonWriter::writeSigned(std::int64_t number) {
    beforeValue();
    appendInteger(buffer_, number);
    afterValue();
}

void JsonWriter::writeUnsigned(std::uint64_t number) {
    beforeValue();
    appendInteger(buffer_, number);
    afterValue();
}

bool JsonWriter::finish() {
    flushBuffer();
    if (file_ && !failed_) {
        if (std::fflush(file_) != 0 || std::ferror(file_)) recordFailure(errno);
    }
    return !failed_;
}

void JsonWriter::beforeValue() {
    if (stack_.empty()) {
        // Compact values would run into each other; pretty ones already end with a newline.
        if (topLevelCount_ > 0 && style_ == Style::Compact) buffer_.push_back('\n');
        return;
    }
    Frame& frame = stack_.back();
    if (frame.isObject) {
        assert(afterKey_ && "value in an object without a key");
        afterKey_ = false;
        return;
    }
    if (frame.count++ > 0) buffer_.push_back(',');
    if (style_ == Style::Pretty) newlineAndIndent();
}

void JsonWriter::afterValue() {
    if (stack_.empty()) {
        ++topLevelCount_;
        if (style_ == Style::Pretty) buffer_.push_back('\n');
    }
    if (buffer_.size() >= kFlushThreshold) flushBuffer();
}

void JsonWriter::beginContainer(bool isObject, char open) {
    beforeValue();
    buffer_.push_back(open);
    stack_.push_back(Frame{isObject, 0});
}

void JsonWriter::endContainer([[maybe_unused]] bool isObject, char close) {
    assert(!stack_.empty() && stack_.back().isObject == isObject && "mismatched end of container");
    assert(!afterKey_ && "object ended after a key without a value");
    const std::size_t count = stack_.back().count;
    stack_.pop_back();
    if (style_ == Style::Pretty && count > 0) newlineAndIndent();
    buffer_.push_back(close);
    afterValue();
}

void JsonWriter::newlineAndIndent() {
    buffer_.push_back('\n');
    buffer_.append(2 * stack_.size(), ' ');
}

void JsonWriter::appendString(std::string_view text) {
    buffer_.push_back('"');
    std::size_t runStart = 0;
    std::size_t pos = 0;
    while (pos < text.size()) {
        const auto c = static_cast<unsigned char>(text[pos]);
        if (c >= 0x20 && c < 0x80 && c != '"' && c != '\\') {
            ++pos;
            continue;
        }
        if (c >= 0x80) {
            const std::size_t length = utf8::sequenceLength(text, pos);
            if (length > 0) {
                pos += length;
                continue;
            }
        }
        buffer_.append(text.data() + runStart, pos - runStart);
        buffer_.push_back('\\');
        switch (c) {
        case '"': buffer_.push_back('"'); break;
        case '\\': buffer_.push_back('\\'); break;
        case '\n': buffer_.push_back('n'); break;
        case '\t': buffer_.push_back('t'); break;
        case '\r': buffer_.push_back('r'); break;
        case '\b': buffer_.push_back('b'); break;
        case '\f': buffer_.push_back('f'); break;
        default:
            // Other control characters, and bytes outside valid UTF-8 as U+DC00 + byte.
            buffer_.append(c < 0x80 ? "u00" : "udc");
            appendHexByte(buffer_, c);
            break;
        }
        runStart = ++pos;
    }
    buffer_.append(text.data() + runStart, pos - runStart);
    buffer_.push_back('"');
}

void JsonWriter::flushBuffer() {
    if (buffer_.empty()) return;
    if (failed_) {
        // The output is already incomplete; carrying on would only produce a corrupt file.
        buffer_.clear();
        return;
    }
    if (stringSink_) {
        stringSink_->append(buffer_);
    } else if (chunkSink_) {
        errno = 0;
        if (!chunkSink_(buffer_)) recordFailure(errno);
    } else if (file_) {
        errno = 0;
        if (std::fwrite(buffer_.data(), 1, buffer_.size(), file_) != buffer_.size()) recordFailure(errno);
    }
    buffer_.clear();
}

void JsonWriter::recordFailure(int error) {
    if (failed_) return;
    failed_ = true;
    error_ = error != 0 ? error : EIO;
}

} // namespace brenvo
