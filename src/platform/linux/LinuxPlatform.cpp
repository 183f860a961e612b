// The Linux side of the platform seam: the home folder, the freedesktop profile, the mount table.
#include "MountTable.h"
#include "platform/Platform.h"
#include "util/Paths.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <sstream>
#include <sys/stat.h>
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

namespace {

// <data folder>/applications for $XDG_DATA_HOME, then each of $XDG_DATA_DIRS in order, as the launchers
// read them. Flatpak and Snap export folders follow when the session didn't name them: their
// applications are installed whether or not this session's environment knows it.
std::vector<std::string> applicationFolders(const std::string& home) {
    std::vector<std::string> dataFolders;
    auto add = [&](std::string folder) {
        while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
        // Relative entries are invalid by the XDG rules and ignored.
        if (folder.empty() || folder.front() != '/') return;
        if (std::find(dataFolders.begin(), dataFolders.end(), folder) == dataFolders.end())
            dataFolders.push_back(std::move(folder));
    };
    std::string dataHome = environment("XDG_DATA_HOME");
    add(!dataHome.empty() && dataHome.front() == '/' ? dataHome : home + "/.local/share");
    std::string dataDirs = environment("XDG_DATA_DIRS");
    if (dataDirs.empty()) dataDirs = "/usr/local/share:/usr/share";
    for (std::size_t start = 0; start <= dataDirs.size();) {
        auto end = dataDirs.find(':', start);
        if (end == std::string::npos) end = dataDirs.size();
        add(dataDirs.substr(start, end - start));
        start = end + 1;
    }
    add(home + "/.local/share/flatpak/exports/share");
    add("/var/lib/flatpak/exports/share");
    add("/var/lib/snapd/desktop");

    std::vector<std::string> folders;
    for (const auto& folder : dataFolders) folders.push_back(folder + "/applications");
    return folders;
}

} // namespace

Profile systemProfile(const std::string& home) {
    Profile profile = Profile::linux(home, readUserDirs(home));
    profile.applicationFolders = applicationFolders(home);
    return profile;
}

namespace {
std::string xdgFolder(const char* variable, const char* fallback) {
    std::string base = environment(variable);
    if (base.empty() || base.front() != '/') base = joinPath(profile().home, fallback);
    return joinPath(base, "brenvo");
}
} // namespace

std::optional<Date> lastOpened(const std::string& path) {
    // A file system mounted without access times can't tell; the rest keep them closely enough.
    std::ifstream in("/proc/self/mountinfo");
    std::stringstream text;
    text << in.rdbuf();
    const MountTable::Entry* best = nullptr;
    auto entries = MountTable::entries(text.str());
    for (const auto& entry : entries) {
        const std::string& point = entry.mountPoint;
        const bool holds = isInside(path, point);
        if (holds && (!best || point.size() >= best->mountPoint.size())) best = &entry;
    }
    if (best && ("," + best->options + ",").find(",noatime,") != std::string::npos) return std::nullopt;
    struct statx st;
    if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_ATIME, &st) != 0 || !(st.stx_mask & STATX_ATIME))
        return std::nullopt;
    return Date::fromTimespec(st.stx_atime.tv_sec, st.stx_atime.tv_nsec);
}

std::string cacheFolder() { return xdgFolder("XDG_CACHE_HOME", ".cache"); }
std::string stateFolder() { return xdgFolder("XDG_STATE_HOME", ".local/state"); }

std::shared_ptr<const MountRules> mountRules() {
    static const auto table = std::make_shared<const MountTable>();
    return table;
}

} // namespace brenvo::platform
