#pragma once

#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

namespace brenvo::test {

// A real folder under the system's temporary folder, made fresh for one test and removed afterwards
// (whatever permissions the test left on it). Relative paths below it may hold any bytes.
class TempTree {
public:
    TempTree();
    ~TempTree();
    TempTree(const TempTree&) = delete;
    TempTree& operator=(const TempTree&) = delete;

    const std::string& root() const { return root_; }
    std::string path(std::string_view relative) const;

    // Each makes missing parent folders first.
    void folder(std::string_view relative);
    void file(std::string_view relative, size_t bytes = 0); // real data, so blocks are allocated
    void symlink(std::string_view target, std::string_view relative);
    void hardlink(std::string_view existing, std::string_view relative);
    void chmod(std::string_view relative, unsigned mode);

private:
    std::string root_;
};

// Allocated bytes of every file below `path` that is not a symbolic link or folder, hard links each
// time, as counted by find(1): an independent check of the scanner's totals.
long long findAllocatedBytes(const std::string& path);
long long findFileCount(const std::string& path);

// A whole file's bytes; empty when it can't be read.
inline std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

} // namespace brenvo::test
