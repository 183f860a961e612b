#pragma once

#include "util/Date.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace brenvo::fs {

// What the scanner needs to know of one entry, fetched without following a symbolic link.
struct EntryValues {
    bool isDirectory = false;
    bool isSymbolicLink = false;
    std::optional<int64_t> allocatedSize; // bytes the file system gave the item
    std::optional<int64_t> logicalSize;   // the item's length
    std::optional<Date> modified;
    uint64_t device = 0;

    // A file's size in the tree: allocated bytes, the length only when those are unknown, else 0.
    int64_t fileSize() const { return allocatedSize.value_or(logicalSize.value_or(0)); }
};

// An open directory descriptor, closed on destruction.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    ~Descriptor();
    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    int release() {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }

private:
    int fd_ = -1;
};

// Values of `name` inside the open directory `dir`; errno on failure.
int statAt(int dir, const char* name, EntryValues& out);
// Values of an absolute path of any length.
int statPath(std::string_view path, EntryValues& out);
// Opens a directory below `dir` without following a symbolic link; errno on failure.
int openDirectoryAt(int dir, const char* name, Descriptor& out);
// Opens a directory by absolute path of any length (longer than PATH_MAX included).
int openDirectoryPath(std::string_view path, Descriptor& out);

// Every name in an open directory, "." and ".." left out, as NUL-terminated strings one after another in
// `names`; `withTypes` puts each entry's type byte (DT_*, DT_UNKNOWN on some file systems) before its name.
// All or nothing: errno on failure, and `names` is then meaningless.
int listDirectory(int dir, std::string& names, bool withTypes = false);

// Raises the open-file limit to the hard limit: a deep walk keeps one descriptor per level.
void raiseDescriptorLimit();

} // namespace brenvo::fs
