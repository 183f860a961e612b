#pragma once

#include "scan/MountRules.h"

#include <map>
#include <mutex>
#include <string>

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

private:
    void reload() const;

    std::string path_;
    mutable std::mutex mutex_;
    mutable std::map<uint64_t, std::string> types_;
    mutable bool loaded_ = false;
};

} // namespace brenvo
