#include "MountTable.h"

#include <fstream>
#include <set>
#include <sstream>
#include <sys/sysmacros.h>

namespace brenvo {

namespace {
constexpr const char* kLiveViewReason = "This is a live view of the running system, not files on disk.";
}

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
