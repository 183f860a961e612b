#include "TempTree.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace brenvo::test {

namespace {

void check(bool ok, const std::string& what) {
    if (!ok) throw std::runtime_error(what + ": " + std::strerror(errno));
}

std::string shellQuote(const std::string& text) {
    std::string out = "'";
    for (char c : text) {
        if (c == '\'')
            out += "'\\''";
        else
            out += c;
    }
    return out + "'";
}

long long runAndSum(const std::string& command) {
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) throw std::runtime_error("can't run " + command);
    long long total = 0, value = 0;
    while (std::fscanf(pipe, "%lld", &value) == 1) total += value;
    pclose(pipe);
    return total;
}

} // namespace

TempTree::TempTree() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/brenvo-test-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back(0);
    check(mkdtemp(buffer.data()) != nullptr, "mkdtemp");
    char* real = realpath(buffer.data(), nullptr);
    root_ = real;
    std::free(real);
    ::chmod(root_.c_str(), 0755); // so a test may walk it without root's privileges
}

TempTree::~TempTree() {
    // GNU chmod and rm walk relative to directory descriptors, so deep trees and bad names go too.
    std::string quoted = shellQuote(root_);
    std::string command = "chmod -R u+rwx " + quoted + " 2>/dev/null; rm -rf " + quoted;
    if (std::system(command.c_str()) != 0) ADD_FAILURE() << "could not remove " << root_;
}

std::string TempTree::path(std::string_view relative) const {
    return relative.empty() ? root_ : root_ + "/" + std::string(relative);
}

// Makes every folder on the way to `relative` (its last component excluded) relative to descriptors, so
// paths longer than PATH_MAX work.
static int openParent(const std::string& root, std::string_view relative, std::string& last) {
    int fd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY);
    check(fd >= 0, "open " + root);
    size_t pos = 0;
    while (true) {
        size_t slash = relative.find('/', pos);
        if (slash == std::string_view::npos) {
            last.assign(relative.substr(pos));
            return fd;
        }
        std::string part(relative.substr(pos, slash - pos));
        if (::mkdirat(fd, part.c_str(), 0755) != 0 && errno != EEXIST) check(false, "mkdir " + part);
        int next = ::openat(fd, part.c_str(), O_RDONLY | O_DIRECTORY);
        ::close(fd);
        check(next >= 0, "open " + part);
        fd = next;
        pos = slash + 1;
    }
}

void TempTree::folder(std::string_view relative) {
    std::string last;
    int fd = openParent(root_, relative, last);
    if (::mkdirat(fd, last.c_str(), 0755) != 0 && errno != EEXIST) check(false, "mkdir " + last);
    ::close(fd);
}

void TempTree::file(std::string_view relative, size_t bytes) {
    std::string last;
    int dir = openParent(root_, relative, last);
    int fd = ::openat(dir, last.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ::close(dir);
    check(fd >= 0, "create " + last);
    std::vector<char> data(std::min<size_t>(bytes, 1 << 20), 'x');
    for (size_t left = bytes; left > 0;) {
        ssize_t n = ::write(fd, data.data(), std::min(left, data.size()));
        check(n > 0, "write " + last);
        left -= static_cast<size_t>(n);
    }
    ::close(fd);
}

void TempTree::symlink(std::string_view target, std::string_view relative) {
    std::string last;
    int dir = openParent(root_, relative, last);
    std::string to(target);
    check(::symlinkat(to.c_str(), dir, last.c_str()) == 0, "symlink " + last);
    ::close(dir);
}

void TempTree::hardlink(std::string_view existing, std::string_view relative) {
    check(::link(path(existing).c_str(), path(relative).c_str()) == 0, "link " + std::string(relative));
}

void TempTree::chmod(std::string_view relative, unsigned mode) {
    check(::chmod(path(relative).c_str(), mode) == 0, "chmod " + std::string(relative));
}

long long findAllocatedBytes(const std::string& path) {
    return 512 * runAndSum("find " + shellQuote(path) + " -type f -printf '%b\\n'");
}

long long findFileCount(const std::string& path) {
    return runAndSum("find " + shellQuote(path) + " -type f -printf '1\\n'");
}

} // namespace brenvo::test
