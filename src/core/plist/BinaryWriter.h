#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace brenvo::plist {

// Streams a binary property list ("bplist00") to its destination while it is being built, so that a tree
// of millions of entries never exists twice in memory.
//
// Objects are written the moment they are made and identified by the Ref returned; a container is made
// after its contents, from their Refs. finish() names the top object and writes the offset table and
// trailer. Object references are always 4 bytes wide, so a document holds fewer than 2^32 - 1 objects.
// Per object the writer remembers only the length (one byte for any object shorter than 255 bytes).
//
// Strings are byte strings: pure ASCII is written as an ASCII string, anything else as UTF-16 in which
// each byte outside valid UTF-8 is the lone surrogate U+DC00 + byte, so names read back byte for byte.
//
// Booleans, integers from -1 to 255 and key() strings are written once and shared.
//
// A Ref that this writer did not hand out, or any call after finish(), makes the document fail with
// EINVAL rather than produce a corrupt file.
class BinaryWriter {
public:
    using Ref = std::uint32_t;
    // Receives each chunk of output; returns false if it could not be stored.
    using ChunkSink = std::function<bool(std::string_view chunk)>;

    static constexpr std::size_t kFlushThreshold = 64 * 1024;

    // Output is appended to `sink`, in chunks: it is only complete after finish().
    explicit BinaryWriter(std::string& sink);
    // The FILE is not closed; finish() flushes it.
    explicit BinaryWriter(std::FILE* file);
    explicit BinaryWriter(ChunkSink sink);
    ~BinaryWriter();

    BinaryWriter(const BinaryWriter&) = delete;
    BinaryWriter& operator=(const BinaryWriter&) = delete;

    Ref string(std::string_view bytes);
    // Like string(), but the same text always gives the same object: meant for dictionary keys and other
    // strings drawn from a small set.
    Ref key(std::string_view bytes);
    Ref integer(std::int64_t number);
    Ref real(double number);
    Ref date(double secondsSince2001);
    Ref boolean(bool flag);
    Ref data(std::string_view bytes);
    Ref array(std::span<const Ref> elements);
    Ref dict(std::span<const std::pair<Ref, Ref>> members);

    // Writes the offset table and trailer with `top` as the root and hands over all output (fflush()ing
    // a FILE). Returns false if any write failed or the document was misused; error() then says why.
    bool finish(Ref top);
    // The same a little at a time: at most `objects` entries of the offset table; nothing while there is
    // more to write, then whether it all went well.
    std::optional<bool> finishSome(Ref top, std::size_t objects);
    // Narrower object references for a document known to hold at most `objects` objects: a tree of a
    // million entries needs 3 bytes a reference, not 4. Only before the first object; false if it can't
    // be done, and then the width stays 4. Writing more objects than the width allows fails (EOVERFLOW).
    bool setReferenceWidth(unsigned width, std::uint64_t objects);

    bool failed() const { return error_ != 0; }
    // errno of the first failure (EIO if the sink gave none), 0 while nothing has failed.
    int error() const { return error_; }

    std::uint32_t objectCount() const { return objectCount_; }
    // Bytes produced so far, including what is still buffered.
    std::uint64_t size() const { return position_; }
    // Memory the writer holds for bookkeeping, apart from its output buffer.
    std::size_t overheadBytes() const;

private:
    static constexpr std::size_t kBlockSize = 64 * 1024;
    static constexpr std::uint8_t kLongObject = 0xFF;
    static constexpr std::int64_t kSmallMin = -1;
    static constexpr std::int64_t kSmallMax = 255;

    void start();
    Ref beginObject();
    void endObject(Ref ref);
    void appendMarker(std::uint8_t kind, std::uint64_t count);
    void appendUnsigned(std::uint64_t value, unsigned width);
    void appendDouble(std::uint8_t marker, double value);
    bool checkRef(Ref ref);
    void flushBuffer();
    void fail(int error);

    // One byte of length per object, in blocks so that growing never copies or doubles the table.
    std::vector<std::unique_ptr<std::uint8_t[]>> lengthBlocks_;
    // Objects of kLongObject bytes or more, in the order written: (object, length).
    std::vector<std::pair<Ref, std::uint64_t>> longObjects_;

    std::map<std::string, Ref, std::less<>> keys_;
    std::array<Ref, kSmallMax - kSmallMin + 1> smallIntegers_;
    std::array<Ref, 2> booleans_;

    std::string buffer_;
    std::FILE* file_ = nullptr;
    std::string* stringSink_ = nullptr;
    ChunkSink chunkSink_;

    std::uint64_t position_ = 0;    // output offset of the next byte
    std::uint64_t objectStart_ = 0; // offset of the object being written
    std::uint32_t objectCount_ = 0;
    int error_ = 0;
    bool finished_ = false;
    unsigned refWidth_ = 4;
    std::uint32_t maxObjects_ = UINT32_MAX - 1;
    // Where finishSome stands in the offset table.
    struct Finishing {
        std::uint64_t tableOffset;
        unsigned offsetWidth;
        std::uint64_t offset;
        std::size_t nextLong;
        Ref ref;
    };
    std::optional<Finishing> finishing_;
};

} // namespace brenvo::plist
