#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace brenvo {

namespace json_detail {
// Character types would silently print as numbers; they are kept out of the integer overloads so that
// writing one is a compile error instead.
template <typename T>
concept JsonInteger = std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char> &&
                      !std::same_as<T, wchar_t> && !std::same_as<T, char8_t> &&
                      !std::same_as<T, char16_t> && !std::same_as<T, char32_t>;
} // namespace json_detail

// Streams JSON text into a buffer that is handed to the destination whenever it passes kFlushThreshold,
// so a tree of millions of entries never has to exist as one document or one string.
//
// Strings are byte strings: valid UTF-8 is written as is, every other byte as the escape \udcXX
// (U+DC00 + byte), which the parser turns back into that byte.
//
// Nesting mistakes (a value in an object without a key, mismatched ends) are programming errors and are
// caught by assertions. Several top-level values may follow each other; they are separated by newlines.
class JsonWriter {
public:
    enum class Style : std::uint8_t { Compact, Pretty };

    // Receives each chunk of output; returns false if it could not be stored.
    using ChunkSink = std::function<bool(std::string_view chunk)>;

    static constexpr std::size_t kFlushThreshold = 64 * 1024;

    // The FILE is not closed; finish() flushes it.
    explicit JsonWriter(std::FILE* file, Style style = Style::Compact);
    // Output is appended to `sink`, in chunks: it is only complete after finish() or destruction.
    explicit JsonWriter(std::string& sink, Style style = Style::Compact);
    explicit JsonWriter(ChunkSink sink, Style style = Style::Compact);
    // Hands over whatever is still buffered. Call finish() first to learn whether writing succeeded.
    ~JsonWriter();

    JsonWriter(const JsonWriter&) = delete;
    JsonWriter& operator=(const JsonWriter&) = delete;

    void beginObject();
    void endObject();
    void beginArray();
    void endArray();

    void key(std::string_view name);

    void value(std::string_view text);
    void value(const char* text) { value(std::string_view(text)); }
    template <json_detail::JsonInteger T>
    void value(T number) {
        if constexpr (std::is_signed_v<T>) {
            writeSigned(static_cast<std::int64_t>(number));
        } else {
            writeUnsigned(static_cast<std::uint64_t>(number));
        }
    }
    // Shortest text that reads back as the same double. NaN and infinities have no JSON form and are
    // written as null.
    void value(double number);
    void value(bool flag);
    void null();

    template <typename T>
    void field(std::string_view name, const T& v) {
        key(name);
        value(v);
    }

    // Hands all buffered output to the destination (and fflush()es a FILE). Returns false if any write so
    // far has failed, e.g. because the disk is full; error() then tells why. Writing may go on afterwards.
    bool finish();

    bool failed() const { return failed_; }
    // errno of the first failed write (EIO if none was set), 0 while nothing has failed.
    int error() const { return error_; }

private:
    struct Frame {
        bool isObject;
        std::size_t count; // members or elements written so far
    };

    void beforeValue();
    void afterValue();
    void beginContainer(bool isObject, char open);
    void endContainer(bool isObject, char close);
    void newlineAndIndent();
    void appendString(std::string_view text);
    void writeSigned(std::int64_t number);
    void writeUnsigned(std::uint64_t number);
    void flushBuffer();
    void recordFailure(int error);

    std::string buffer_;
    std::vector<Frame> stack_;
    std::FILE* file_ = nullptr;
    std::string* stringSink_ = nullptr;
    ChunkSink chunkSink_;
    Style style_;
    bool afterKey_ = false;
    bool failed_ = false;
    int error_ = 0;
    std::size_t topLevelCount_ = 0;
};

} // namespace brenvo
