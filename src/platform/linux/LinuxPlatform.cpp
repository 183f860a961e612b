// The Linux side of the platform seam: the home folder, the freedesktop profile, the mount table.
#include "MountTable.h"
#include "platform/Platform.h"

#include <cstdlib>
#include <fstream>
#include <pwd.h>
#include <unistd.h>

namespace brenvo::platform {

namespace {

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

// XDG_*_DIR="$HOME/Name" lines of user-dirs.dirs; a relative or unreadable entry is left out.
std::map<std::string, std::string> readUserDirs(const std::string& home) {
    std::string config = environment("XDG_CONFIG_HOME");
    if (config.empty() || config.front() != '/') config = home + "/.config";
    std::ifstream in(config + "/user-dirs.dirs");
    std::map<std::string, std::string> dirs;
    std::string line;
    while (std::getline(in, line)) {
        if (!line.starts_with("XDG_")) continue;
        auto eq = line.find("_DIR=\"");
        auto close = line.rfind('"');
        if (eq == std::string::npos || close <= eq + 6) continue;
        std::string key = line.substr(4, eq - 4);
        std::string value = line.substr(eq + 6, close - eq - 6);
        if (value.starts_with("$HOME"))
            value = home + value.substr(5);
        else if (value.empty() || value.front() != '/')
            continue;
        while (value.size() > 1 && value.back() == '/') value.pop_back();
        dirs[key] = value;
    }
    return dirs;
}

} // namespace

std::string homeDirectory() {
    std::string home = environment("HOME");
    if (home.empty()) {
        if (const passwd* entry = getpwuid(getuid())) home = entry->pw_dir;
    }
    return DiskScanner::realPath(home.empty() ? std::string(1, '/') : home);
}

Profile systemProfile(const std::string& home) { return Profile::linux(home, readUserDirs(home)); }

namespace {
std::string xdgFolder(const char* variable, const char* fallback) {
    std::string base = environment(variable);
    if (base.empty() || base.front() != '/') base = joinPath(profile().home, fallback);
    return joinPath(base, "brenvo");
}
} // namespace

std::string cacheFolder() { return xdgFolder("XDG_CACHE_HOME", ".cache"); }
std::string stateFolder() { return xdgFolder("XDG_STATE_HOME", ".local/state"); }

std::shared_ptr<const MountRules> mountRules() {
    static const auto table = std::make_shared<const MountTable>();
    return table;
}

} // namespace brenvo::platform
