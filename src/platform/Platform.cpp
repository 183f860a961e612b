#include "platform/Platform.h"

#include <cstdlib>
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

} // namespace brenvo::platform
