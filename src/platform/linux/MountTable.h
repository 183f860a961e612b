#pragma once

#include "scan/MountRules.h"

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace brenvo {

// The kernel's table of mounted file systems, read from /proc/self/mountinfo. Kernel pseudo file systems
// (proc, sysfs, …) are live views of the running system, not files on disk: a walk does not enter them.
class MountTable : public MountRules {
public:
    explicit MountTable(std::string mountInfoPath = "/proc/self/mountinfo");

    std::optional<std::string> reasonNotToEnter(uint64_t device) const override;
    // The file-system type of a device, or empty when no mount has it.
    std::string typeOf(uint64_t device) const;

    static bool isPseudoFileSystem(const std::string& type);
    // Parses mountinfo text into device → file-system type.
    static std::map<uint64_t, std::string> parse(const std::string& text);

    // One line of mountinfo, in the kernel's order.
    struct Entry {
        std::string mountPoint; // octal escapes (\040 for a space) decoded
        std::string type;
        std::string source;
        std::string options;      // per-mount options, comma-separated
        std::string superOptions; // the file system's own options
    };
    static std::vector<Entry> entries(const std::string& text);

    // The mounts a user would browse as disks of their own: writable, not "/", not a live view, memory,
    // image or container layer, not under the system's own folders, and a directory (isDirectory answers
    // for a mount point). Where mounts stack on one point only the last, the visible one, counts.
    static std::vector<std::string> disksFrom(const std::string& text,
                                              const std::function<bool(const std::string&)>& isDirectory);

private:
    void reload() const;

    std::string path_;
    mutable std::mutex mutex_;
    mutable std::map<uint64_t, std::string> types_;
    mutable bool loaded_ = false;
};

} // namespace brenvo
