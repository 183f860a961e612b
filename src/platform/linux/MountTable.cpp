#include "MountTable.h"
#include "util/Paths.h"

#include <fstream>
#include <set>
#include <sstream>
#include <string_view>
#include <unordered_map>
#include <sys/sysmacros.h>

namespace brenvo {

namespace {
constexpr const char* kLiveViewReason = "This is a live view of the running system, not files on disk.";

// mountinfo writes space, tab, newline and backslash in paths as \ooo octal escapes.
std::string decodeOctal(const std::string& field) {
    std::string out;
    out.reserve(field.size());
    for (size_t i = 0; i < field.size(); ++i) {
        auto isOctal = [&](size_t at) { return at < field.size() && field[at] >= '0' && field[at] <= '7'; };
        if (field[i] == '\\' && isOctal(i + 1) && isOctal(i + 2) && isOctal(i + 3)) {
            out += static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 +
                                     (field[i + 3] - '0'));
            i += 3;
        } else {
            out += field[i];
        }
    }
    return out;
}

bool hasOption(std::string_view options, std::string_view wanted) {
    while (!options.empty()) {
        auto comma = options.find(',');
        if (options.substr(0, comma) == wanted) return true;
        if (comma == std::string_view::npos) break;
        options.remove_prefix(comma + 1);
    }
    return false;
}

// File systems that hold memory, images, container layers or services rather than the user's files.
bool isVirtualFileSystem(const std::string& type) {
    static const std::set<std::string> virtualTypes = {
        "tmpfs",      "ramfs",         "overlay",         "overlayfs",
        "aufs",       "squashfs",      "erofs",           "cramfs",
        "nsfs",       "efivarfs",      "rpc_pipefs",      "nfsd",
        "selinuxfs",  "fuse.portal",   "fuse.gvfsd-fuse", "fuse.gvfs-fuse-daemon",
        "fuse.lxcfs", "fuse.snapfuse",
    };
    return MountTable::isPseudoFileSystem(type) || virtualTypes.contains(type);
}

// The system's own places: devices, kernel views, runtime state, boot files, snaps and container storage.
// Removable media mounted under /run/media are the user's.
bool isSystemPlace(const std::string& path) {
    auto within = [&](std::string_view folder) { return isInside(path, folder); };
    if (within("/run/media") && path != "/run/media") return false;
    for (std::string_view folder : {"/proc", "/sys", "/dev", "/run", "/boot", "/snap", "/var/lib/snapd",
                                    "/var/lib/docker", "/var/lib/containers"})
        if (within(folder)) return true;
    return false;
}

} // namespace

MountTable::MountTable(std::string mountInfoPath) : path_(std::move(mountInfoPath)) {}

bool MountTable::isPseudoFileSystem(const std::string& type) {
    static const std::set<std::string> pseudo = {
        "proc",   "sysfs",  "devtmpfs", "devpts",    "cgroup",   "cgroup2",     "debugfs", "tracefs",
        "securityfs", "pstore", "bpf",  "configfs", "fusectl", "mqueue", "hugetlbfs", "autofs", "binfmt_misc",
    };
    return pseudo.contains(type);
}

std::map<uint64_t, std::string> MountTable::parse(const std::string& text) {
    // Each line: id parent major:minor root mountpoint options [optional fields] - type source superoptions
    std::map<uint64_t, std::string> types;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string id, parent, device, field;
        if (!(fields >> id >> parent >> device)) continue;
        auto colon = device.find(':');
        if (colon == std::string::npos) continue;
        unsigned major = 0, minor = 0;
        try {
            major = static_cast<unsigned>(std::stoul(device.substr(0, colon)));
            minor = static_cast<unsigned>(std::stoul(device.substr(colon + 1)));
        } catch (const std::exception&) {
            continue;
        }
        while (fields >> field && field != "-") {
        }
        std::string type;
        if (field != "-" || !(fields >> type)) continue;
        types.emplace(makedev(major, minor), type);
    }
    return types;
}

std::vector<MountTable::Entry> MountTable::entries(const std::string& text) {
    std::vector<Entry> found;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string id, parent, device, root, field;
        Entry entry;
        if (!(fields >> id >> parent >> device >> root >> entry.mountPoint >> entry.options)) continue;
        while (fields >> field && field != "-") {
        }
        if (field != "-" || !(fields >> entry.type >> entry.source)) continue;
        fields >> entry.superOptions;
        entry.mountPoint = decodeOctal(entry.mountPoint);
        entry.source = decodeOctal(entry.source);
        found.push_back(std::move(entry));
    }
    return found;
}

std::vector<std::string> MountTable::disksFrom(const std::string& text,
                                               const std::function<bool(const std::string&)>& isDirectory) {
    std::vector<Entry> all = entries(text);
    std::unordered_map<std::string, size_t> lastAt; // the mount that is visible at each point
    for (size_t i = 0; i < all.size(); ++i)
        lastAt[all[i].mountPoint] = i;
    std::vector<std::string> disks;
    for (size_t i = 0; i < all.size(); ++i) {
        const Entry& mount = all[i];
        if (lastAt[mount.mountPoint] != i || mount.mountPoint == "/" || !mount.mountPoint.starts_with('/'))
            continue;
        if (hasOption(mount.options, "ro") || hasOption(mount.superOptions, "ro")) continue;
        if (isVirtualFileSystem(mount.type) || isSystemPlace(mount.mountPoint)) continue;
        if (!isDirectory(mount.mountPoint)) continue;
        disks.push_back(mount.mountPoint);
    }
    return disks;
}

void MountTable::reload() const {
    std::ifstream in(path_);
    std::stringstream text;
    text << in.rdbuf();
    types_ = parse(text.str());
    loaded_ = true;
}

std::string MountTable::typeOf(uint64_t device) const {
    std::lock_guard lock(mutex_);
    if (!loaded_) reload();
    auto found = types_.find(device);
    if (found == types_.end()) {
        reload(); // mounted since the table was read
        found = types_.find(device);
    }
    return found == types_.end() ? std::string() : found->second;
}

std::optional<std::string> MountTable::reasonNotToEnter(uint64_t device) const {
    if (isPseudoFileSystem(typeOf(device))) return std::string(kLiveViewReason);
    return std::nullopt;
}

} // namespace brenvo
