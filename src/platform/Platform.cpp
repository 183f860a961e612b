#include "platform/Platform.h"

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>
#include <string_view>

namespace brenvo::platform {

namespace {
constexpr const char* kDemoHome = "/Users/corin";
}

bool isDemo() {
    return std::getenv("BRENVO_DEMO") != nullptr;
}

const Profile& profile() {
    static const Profile chosen = [] {
        const char* requested = std::getenv("BRENVO_PROFILE");
        std::string_view name = requested ? requested : "";
        if (isDemo()) return Profile::mac(kDemoHome);
        if (name == "mac") return Profile::mac(homeDirectory());
        if (name == "linux") return Profile::linux(homeDirectory());
        return systemProfile(homeDirectory());
    }();
    return chosen;
}

ScanEnvironment scanEnvironment() {
    ScanEnvironment env;
    env.packageExtensions = profile().packageExtensions;
    env.iCloudDrivePath = profile().iCloudDrivePath;
    env.mounts = mountRules();
    return env;
}

std::string scansFolder() { return cacheFolder() + "/Scans"; }

bool hasFullDiskAccess() {
    if (isDemo() || !profile().isMac()) return true;
    // Never read: opening it is the whole test.
    const int fd = ::open("/Library/Application Support/com.apple.TCC/TCC.db", O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    ::close(fd);
    return true;
}

} // namespace brenvo::platform
