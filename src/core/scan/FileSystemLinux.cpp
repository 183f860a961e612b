// The scanner's file-system calls on Linux: statx and getdents64 relative to directory descriptors, so
// that names are raw bytes and paths may be longer than PATH_MAX.
#include "scan/FileSystem.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace brenvo::fs {

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    if (this != &other) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = other.release();
    }
    return *this;
}

Descriptor::~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
}

namespace {

constexpr unsigned kMask = STATX_TYPE | STATX_MODE | STATX_BLOCKS | STATX_SIZE | STATX_MTIME;
constexpr int kStatFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_SYNC_AS_STAT;

void fill(const struct statx& st, EntryValues& out) {
    const mode_t mode = st.stx_mode;
    out.isDirectory = S_ISDIR(mode);
    out.isSymbolicLink = S_ISLNK(mode);
    out.allocatedSize = (st.stx_mask & STATX_BLOCKS)
                            ? std::optional<int64_t>(static_cast<int64_t>(st.stx_blocks) * 512)
                            : std::nullopt;
    out.logicalSize =
        (st.stx_mask & STATX_SIZE) ? std::optional<int64_t>(static_cast<int64_t>(st.stx_size)) : std::nullopt;
    out.modified = (st.stx_mask & STATX_MTIME)
                       ? std::optional<Date>(Date::fromTimespec(st.stx_mtime.tv_sec, st.stx_mtime.tv_nsec))
                       : std::nullopt;
    out.device = makedev(st.stx_dev_major, st.stx_dev_minor);
}

// Splits an absolute path into the folder to open and the last name, for paths too long for one call.
int openParentOf(std::string_view path, Descriptor& parent, std::string& last) {
    auto slash = path.rfind('/');
    if (slash == std::string_view::npos) return ENOENT;
    last.assign(path.substr(slash + 1));
    return openDirectoryPath(slash == 0 ? std::string_view("/") : path.substr(0, slash), parent);
}

} // namespace

int statAt(int dir, const char* name, EntryValues& out) {
    struct statx st;
    if (::statx(dir, name, kStatFlags, kMask, &st) != 0) return errno;
    fill(st, out);
    return 0;
}

int statPath(std::string_view path, EntryValues& out) {
    std::string text(path);
    int err = statAt(AT_FDCWD, text.c_str(), out);
    if (err != ENAMETOOLONG) return err;
    Descriptor parent;
    std::string last;
    if (int e = openParentOf(path, parent, last)) return e;
    return statAt(parent.get(), last.c_str(), out);
}

int openDirectoryAt(int dir, const char* name, Descriptor& out) {
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
    int fd = ::openat(dir, name, flags);
    if (fd < 0) return errno;
    out = Descriptor(fd);
    return 0;
}

int openDirectoryPath(std::string_view path, Descriptor& out) {
    std::string text(path);
    int err = openDirectoryAt(AT_FDCWD, text.c_str(), out);
    if (err != ENAMETOOLONG) return err;
    // Walk the components one by one; each step is short.
    Descriptor at;
    if (int e = openDirectoryAt(AT_FDCWD, "/", at)) return e;
    size_t pos = 0;
    while (pos < text.size()) {
        while (pos < text.size() && text[pos] == '/') ++pos;
        size_t end = text.find('/', pos);
        if (end == std::string::npos) end = text.size();
        if (end == pos) break;
        std::string component = text.substr(pos, end - pos);
        Descriptor next;
        if (int e = openDirectoryAt(at.get(), component.c_str(), next)) return e;
        at = std::move(next);
        pos = end;
    }
    out = std::move(at);
    return 0;
}

int listDirectory(int dir, std::string& names, bool withTypes) {
    names.clear();
    alignas(8) char buffer[32 * 1024];
    while (true) {
        long n = ::syscall(SYS_getdents64, dir, buffer, sizeof buffer);
        if (n < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        if (n == 0) return 0;
        for (long offset = 0; offset < n;) {
            // struct linux_dirent64: d_ino, d_off, d_reclen, d_type, d_name
            unsigned short reclen;
            std::memcpy(&reclen, buffer + offset + 16, sizeof reclen);
            const char type = buffer[offset + 18];
            const char* name = buffer + offset + 19;
            offset += reclen;
            if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0))) continue;
            if (withTypes) names.push_back(type);
            names.append(name, std::strlen(name) + 1);
        }
    }
}

void raiseDescriptorLimit() {
    struct rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

} // namespace brenvo::fs
