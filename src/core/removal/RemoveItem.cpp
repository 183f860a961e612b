// Removal works only through directory descriptors below the item, opened without following links, so a
// link or a folder swapped in mid-walk can never lead it outside the item, and paths of any length and
// names of any bytes work.
#include "removal/RemoveItem.h"

#include "format/Formatters.h"
#include "scan/FileSystem.h"
#include "tree/FileNode.h"
#include "util/Paths.h"

#include <cerrno>
#include <cstdlib>
#include <cstdint>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <vector>

namespace brenvo {

namespace {

// Descriptors one walk holds at once; ancestors further up are closed and reopened through "..", so depth
// is not bounded by the open-file limit and a scan running beside the removal keeps its share.
constexpr size_t kOpenLevels = 64;

// What tells items and mounts apart. A bind mount of the same disk keeps the device number, so the mount
// id (when the kernel gives one) is compared too.
struct Identity {
    uint64_t device = 0;
    uint64_t inode = 0;
    uint64_t mount = 0;
    bool isDirectory = false;

    bool sameItem(const Identity& other) const { return device == other.device && inode == other.inode; }
    bool sameMount(const Identity& other) const { return device == other.device && mount == other.mount; }
};

int identify(int dir, const char* name, int flags, Identity& out) {
    struct statx st;
    if (::statx(dir, name, flags | AT_STATX_SYNC_AS_STAT, STATX_TYPE | STATX_INO | STATX_MNT_ID, &st) != 0)
        return errno;
    out.device = makedev(st.stx_dev_major, st.stx_dev_minor);
    out.inode = st.stx_ino;
    out.mount = (st.stx_mask & STATX_MNT_ID) ? st.stx_mnt_id : 0;
    out.isDirectory = S_ISDIR(st.stx_mode);
    return 0;
}

// The entry itself, never where a link points; an automount point is looked at, not triggered.
int identifyEntry(int dir, const char* name, Identity& out) {
    return identify(dir, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, out);
}

int identifyOpen(int fd, Identity& out) { return identify(fd, "", AT_EMPTY_PATH, out); }

// Every entry of an open folder, each a type byte and a name (see fs::listDirectory). Read whole before
// anything goes, as removing while reading may skip names.
int listEntries(int dir, std::string& out) { return fs::listDirectory(dir, out, true); }

RemovalResult failure(int error) { return {false, error, std::strerror(error)}; }

RemovalResult failure(int error, std::string message) { return {false, error, std::move(message), true}; }


// One folder being walked: its own listing and how far through it the walk is.
struct Level {
    fs::Descriptor fd; // invalid while too far above the deepest level
    Identity identity;
    std::string name; // in its parent
    std::string entries;
    size_t next = 0;
};

// The walk over a folder item. The first pass only looks for other mounts, so nothing is removed when one
// is there; the second removes, checking again in case something was mounted in between.
class Walk {
public:
    enum class Mode { Check, Remove };

    Walk(Mode mode, int parent, const std::string& name, const Identity& target)
        : mode_(mode), parent_(parent), name_(name), target_(target) {}

    std::optional<RemovalResult> run(int targetFd) {
        Level top;
        top.fd = fs::Descriptor(::fcntl(targetFd, F_DUPFD_CLOEXEC, 0));
        if (!top.fd.valid()) return failure(errno);
        // A duplicate shares the reading position, which the previous pass left at the end.
        if (::lseek(top.fd.get(), 0, SEEK_SET) != 0) return failure(errno);
        top.identity = target_;
        top.name = name_;
        if (int e = listEntries(top.fd.get(), top.entries)) return failure(e);
        levels_.push_back(std::move(top));

        while (!levels_.empty()) {
            Level& level = levels_.back();
            if (level.next == level.entries.size()) {
                if (auto problem = leave()) return problem;
                continue;
            }
            const unsigned char type = static_cast<unsigned char>(level.entries[level.next]);
            const char* name = level.entries.data() + level.next + 1;
            level.next += 2 + std::strlen(name);
            if (auto problem = mode_ == Mode::Check ? check(type, name) : remove(type, name)) return problem;
        }
        return std::nullopt;
    }

private:
    int dir() const { return levels_.back().fd.get(); }

    std::string relativePath(const char* name) const {
        std::string out;
        for (size_t i = 1; i < levels_.size(); ++i) out += levels_[i].name + "/";
        return out + name;
    }

    RemovalResult anotherDisk(const char* name) const {
        const char* outcome = mode_ == Mode::Check ? "it was left in place." : "removal stopped there.";
        const std::string where = format::quoted(relativePath(name));
        return failure(EXDEV, format::quoted(name_) + " holds another disk at " + where + "; " + outcome);
    }

    RemovalResult changed() const {
        return failure(EAGAIN, format::quoted(name_) + " changed while it was being removed; removal stopped there.");
    }

    std::optional<RemovalResult> check(unsigned char type, const char* name) {
        if (type != DT_DIR && type != DT_UNKNOWN) return std::nullopt;
        Identity found;
        // What can't be looked at here is met again, and reported, by the removing pass.
        if (identifyEntry(dir(), name, found) != 0 || !found.isDirectory) return std::nullopt;
        if (!found.sameMount(target_)) return anotherDisk(name);
        fs::Descriptor fd;
        if (fs::openDirectoryAt(dir(), name, fd) != 0) return std::nullopt;
        Identity opened;
        if (identifyOpen(fd.get(), opened) != 0) return std::nullopt;
        if (!opened.sameMount(target_)) return anotherDisk(name);
        if (!opened.sameItem(found)) return std::nullopt;
        return descend(std::move(fd), opened, name);
    }

    std::optional<RemovalResult> remove(unsigned char type, const char* name) {
        if (type != DT_DIR) {
            // Linux answers EISDIR for a folder, so an unknown type costs no extra call.
            if (::unlinkat(dir(), name, 0) == 0 || errno == ENOENT) return std::nullopt;
            if (errno != EISDIR) return failure(errno);
        }
        Identity found;
        if (int e = identifyEntry(dir(), name, found))
            return e == ENOENT ? std::nullopt : std::optional(failure(e));
        if (!found.isDirectory) return unlinkEntry(name, 0);
        if (!found.sameMount(target_)) return anotherDisk(name);
        fs::Descriptor fd;
        if (int e = fs::openDirectoryAt(dir(), name, fd)) {
            if (e == ENOENT) return std::nullopt;
            // Replaced by a link or file since it was looked at: that entry is what goes.
            if (e == ELOOP || e == ENOTDIR) return unlinkEntry(name, 0);
            // A folder that can't be read may still be empty.
            if (::unlinkat(dir(), name, AT_REMOVEDIR) == 0) return std::nullopt;
            return failure(e);
        }
        Identity opened;
        if (int e = identifyOpen(fd.get(), opened)) return failure(e);
        if (!opened.sameMount(target_)) return anotherDisk(name);
        if (!opened.sameItem(found)) return changed();
        return descend(std::move(fd), opened, name);
    }

    std::optional<RemovalResult> unlinkEntry(const char* name, int flags) {
        if (::unlinkat(dir(), name, flags) == 0 || errno == ENOENT) return std::nullopt;
        return failure(errno);
    }

    std::optional<RemovalResult> descend(fs::Descriptor fd, const Identity& identity, const char* name) {
        Level level;
        level.fd = std::move(fd);
        level.identity = identity;
        level.name = name;
        if (int e = listEntries(level.fd.get(), level.entries)) return failure(e);
        levels_.push_back(std::move(level));
        if (levels_.size() > kOpenLevels) levels_[levels_.size() - kOpenLevels - 1].fd = fs::Descriptor();
        return std::nullopt;
    }

    // Done with the deepest folder: back to its parent, then (when removing) the folder itself goes.
    std::optional<RemovalResult> leave() {
        Level done = std::move(levels_.back());
        levels_.pop_back();
        int parent = parent_;
        if (!levels_.empty()) {
            Level& above = levels_.back();
            if (!above.fd.valid()) {
                // Reopened from below; a folder moved meanwhile would make ".." something else.
                fs::Descriptor fd;
                if (int e = fs::openDirectoryAt(done.fd.get(), "..", fd)) return failure(e);
                Identity opened;
                if (int e = identifyOpen(fd.get(), opened)) return failure(e);
                if (!opened.sameItem(above.identity)) return changed();
                above.fd = std::move(fd);
            }
            parent = above.fd.get();
        }
        done.fd = fs::Descriptor();
        if (mode_ == Mode::Check) return std::nullopt;
        if (::unlinkat(parent, done.name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT) return std::nullopt;
        return failure(errno);
    }

    Mode mode_;
    int parent_;
    const std::string& name_;
    Identity target_;
    std::vector<Level> levels_;
};

RemovalResult changedBefore(const std::string& name) {
    return failure(EAGAIN, format::quoted(name) + " changed before it could be removed; it was left in place.");
}

// The folder holding the item, reached one component at a time without following any link: the paths
// given are real paths, so a link found on the way was put there since, and must not lead elsewhere.
int openParent(const std::string& path, fs::Descriptor& out) {
    if (!path.starts_with('/')) {
        int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0) return errno;
        out = fs::Descriptor(fd);
        return 0;
    }
    fs::Descriptor at;
    if (int e = fs::openDirectoryAt(AT_FDCWD, "/", at)) return e;
    for (size_t pos = 1; pos < path.size();) {
        size_t end = path.find('/', pos);
        if (end == std::string::npos) end = path.size();
        if (end > pos) {
            const std::string component = path.substr(pos, end - pos);
            fs::Descriptor next;
            if (int e = fs::openDirectoryAt(at.get(), component.c_str(), next)) return e;
            at = std::move(next);
        }
        pos = end + 1;
    }
    out = std::move(at);
    return 0;
}

} // namespace

std::optional<ItemIdentity> identifyItem(const std::string& path) {
    Identity found;
    if (identify(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, found) != 0) return std::nullopt;
    return ItemIdentity{found.device, found.inode};
}

std::optional<std::string> refusedRemoval(std::string_view path, const std::vector<std::string>& homes) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    if (path == "/" || (path.starts_with('/') && path.find('/', 1) == std::string_view::npos))
        return format::quoted(path) + " is one of the system's own folders, so it was left in place.";
    for (const std::string& home : homes)
        if (!home.empty() && isInside(home, path))
            return format::quoted(lastPathComponent(path)) + (home == path ? " is a home folder" : " holds a home folder") +
                   ", so it was left in place.";
    return std::nullopt;
}

const std::vector<std::string>& guardedHomes() {
    static const std::vector<std::string> homes = [] {
        std::vector<std::string> found;
        auto add = [&](const char* path) {
            if (!path || !*path) return;
            if (char* real = ::realpath(path, nullptr)) {
                found.emplace_back(real);
                std::free(real);
            }
        };
        add(std::getenv("HOME"));
        if (const passwd* account = ::getpwuid(::geteuid())) add(account->pw_dir);
        return found;
    }();
    return homes;
}

RemovalResult removeItem(const std::string& path, const std::optional<ItemIdentity>& expected) {
    std::string_view trimmed = path;
    while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.remove_suffix(1);
    if (trimmed.empty()) return failure(EINVAL);
    if (auto refused = refusedRemoval(trimmed, guardedHomes())) return failure(EPERM, *refused);
    const size_t slash = trimmed.rfind('/');
    const std::string name(slash == std::string_view::npos ? trimmed : trimmed.substr(slash + 1));
    if (name == "." || name == "..") return failure(EINVAL);
    const std::string parentPath(slash == std::string_view::npos ? std::string_view(".")
                                 : slash == 0                    ? std::string_view("/")
                                                                 : trimmed.substr(0, slash));

    fs::Descriptor parent;
    if (int e = openParent(parentPath, parent)) return failure(e);
    Identity item;
    if (int e = identifyEntry(parent.get(), name.c_str(), item)) return failure(e);
    if (expected && (expected->device != item.device || expected->inode != item.inode)) return changedBefore(name);
    if (!item.isDirectory) {
        if (::unlinkat(parent.get(), name.c_str(), 0) != 0) return failure(errno);
        return {};
    }

    Identity parentIdentity;
    if (int e = identifyOpen(parent.get(), parentIdentity)) return failure(e);
    if (!item.sameMount(parentIdentity))
        return failure(EXDEV, format::quoted(name) + " is another disk; it was left in place.");

    fs::Descriptor target;
    if (int e = fs::openDirectoryAt(parent.get(), name.c_str(), target)) {
        if (e == EACCES && ::unlinkat(parent.get(), name.c_str(), AT_REMOVEDIR) == 0) return {};
        if (e == ELOOP || e == ENOTDIR)
            return changedBefore(name);
        return failure(e);
    }
    // What was opened must be the folder that was looked at, not one swapped in since.
    Identity opened;
    if (int e = identifyOpen(target.get(), opened)) return failure(e);
    if (!opened.sameItem(item) || !opened.sameMount(item))
        return changedBefore(name);

    for (auto mode : {Walk::Mode::Check, Walk::Mode::Remove}) {
        Walk walk(mode, parent.get(), name, opened);
        if (auto problem = walk.run(target.get())) return *problem;
    }
    return {};
}

} // namespace brenvo
