#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace brenvo::plist {

// Random access to a binary property list ("bplist00") held in memory, e.g. a mapped file, which must
// outlive the reader and its views.
//
// open() checks the header, trailer and offset table; every accessor then checks the object it reads
// (marker, counts, extent inside the object area, references) and answers nothing for a wrong type or
// anything malformed. No count read from the file is trusted before it has been checked against the
// bytes that would have to hold it, so hostile input can neither make the reader read out of bounds nor
// make it allocate more than the file's size.
//
// References may form cycles or share containers; following them is the caller's business. isTree()
// checks that a walk from a root is finite and visits each container once.
class BinaryReader {
public:
    using Ref = std::uint32_t;
    // Never a valid object; every accessor answers nothing for it.
    static constexpr Ref kNoRef = UINT32_MAX;

    enum class Type : std::uint8_t {
        Invalid, // no such object, or malformed
        Null,
        Bool,
        Integer,
        Real,
        Date,
        Data,
        String,
        Array,
        Dict,
        Other, // well formed but not supported here: UIDs, sets, ordered sets
    };

    class ArrayView {
    public:
        std::size_t size() const { return count_; }
        // kNoRef when i is out of range.
        Ref at(std::size_t i) const;

    private:
        friend class BinaryReader;
        const BinaryReader* reader_ = nullptr;
        std::size_t refs_ = 0; // offset of the first reference
        std::size_t count_ = 0;
    };

    class DictView {
    public:
        std::size_t size() const { return count_; }
        // kNoRef when i is out of range.
        Ref key(std::size_t i) const;
        Ref value(std::size_t i) const;
        // The value of the last entry whose key is the string `key`, or kNoRef.
        Ref find(std::string_view key) const;

    private:
        friend class BinaryReader;
        const BinaryReader* reader_ = nullptr;
        std::size_t refs_ = 0;
        std::size_t count_ = 0;
    };

    // Nothing if `data` is not a well-formed binary property list; `error` then says why.
    static std::optional<BinaryReader> open(std::string_view data, std::string* error = nullptr);
    // The reader keeps pointing into the data, so a temporary string would leave it dangling.
    static std::optional<BinaryReader> open(std::string&& data, std::string* error = nullptr) = delete;

    Ref top() const { return top_; }
    std::size_t objectCount() const { return objectCount_; }
    std::string_view bytes() const { return data_; }

    Type type(Ref ref) const;

    std::optional<bool> boolean(Ref ref) const;
    // Any integer object whose value fits 64 signed bits (1, 2 and 4-byte ones are unsigned; 16-byte ones
    // come from writers that store values above INT64_MAX that way).
    std::optional<std::int64_t> integer(Ref ref) const;
    // 4 or 8-byte reals.
    std::optional<double> real(Ref ref) const;
    // Seconds since 2001-01-01 00:00:00 UTC.
    std::optional<double> date(Ref ref) const;
    // Bytes: ASCII strings as they are, UTF-16 ones with surrogate pairs combined and lone surrogates
    // U+DC80..U+DCFF turned back into the bytes 0x80..0xFF (other lone surrogates become U+FFFD).
    std::optional<std::string> string(Ref ref) const;
    // Whether `ref` is a string whose bytes (as string() gives them) are `bytes`; cheaper for ASCII.
    bool stringEquals(Ref ref, std::string_view bytes) const;
    std::optional<std::string> data(Ref ref) const;
    // Every reference inside is checked against the object count before the view is handed out.
    std::optional<ArrayView> array(Ref ref) const;
    std::optional<DictView> dict(Ref ref) const;

    // Whether every object reachable from `root` is well formed and every array and dictionary among
    // them is reached by exactly one reference, at most maxDepth containers deep (the root is at depth
    // 1): then walking the tree ends, visits no container twice and nests no deeper than maxDepth. Uses
    // one bit per object.
    bool isTree(Ref root, std::size_t maxDepth) const;

private:
    struct Object {
        Type type;
        std::uint8_t marker;
        std::size_t count;   // payload elements (bytes, UTF-16 units, references, entries)
        std::size_t payload; // offset of the payload
    };

    BinaryReader() = default;

    std::uint64_t readUnsigned(std::size_t offset, unsigned width) const;
    std::size_t offsetOf(Ref ref) const;
    Ref refAt(std::size_t offset) const;
    std::optional<Object> object(Ref ref) const;
    std::optional<std::size_t> containerRefs(Ref ref, Type type, std::size_t* count) const;

    std::string_view data_;
    std::size_t objectCount_ = 0;
    std::size_t tableOffset_ = 0; // also the end of the object area
    Ref top_ = kNoRef;
    unsigned offsetWidth_ = 0;
    unsigned refWidth_ = 0;
};

} // namespace brenvo::plist
