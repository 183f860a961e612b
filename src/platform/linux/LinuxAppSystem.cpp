// The application seam on Linux: desktop entries say what is installed; /proc and Flatpak's instance
// records say what runs. Under the Mac profile (a fixture home) bundles say what is installed and
// nothing runs, since no Mac application can run here.
#include "explain/AppCatalog.h"
#include "platform/Platform.h"
#include "tree/FileNode.h"
#include "util/Files.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace brenvo::platform {

namespace {

// Files of /proc report no size, so they are read to their end; `limit` bounds what is kept.
std::optional<std::string> readFile(const std::string& path, std::size_t limit = 64 * 1024) {
    int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    struct stat info {};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(fd);
        return std::nullopt;
    }
    std::string out;
    char buffer[4096];
    while (out.size() < limit) {
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n <= 0) break;
        out.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fd);
    if (out.size() > limit) out.resize(limit);
    return out;
}

std::string basename(std::string_view path) { return std::string(lastPathComponent(path)); }

std::optional<std::string> realPath(const std::string& path) {
    char* resolved = ::realpath(path.c_str(), nullptr);
    if (!resolved) return std::nullopt;
    std::string out = resolved;
    std::free(resolved);
    return out;
}

// The names a process started from `program` shows as its executable or first argument: the name as
// written, and that of the file it resolves to (/usr/bin/firefox may be a link into /usr/lib).
std::set<std::string> processNames(const std::string& program) {
    std::set<std::string> names = {basename(program)};
    std::optional<std::string> resolved;
    if (program.find('/') != std::string::npos) {
        resolved = realPath(program);
    } else {
        const char* path = std::getenv("PATH");
        std::string_view folders = path ? path : "/usr/local/bin:/usr/bin:/bin";
        for (std::size_t start = 0; start <= folders.size() && !resolved;) {
            auto end = folders.find(':', start);
            if (end == std::string_view::npos) end = folders.size();
            std::string candidate = joinPath(folders.substr(start, end - start), program);
            if (end > start && ::access(candidate.c_str(), X_OK) == 0) resolved = realPath(candidate);
            start = end + 1;
        }
    }
    if (resolved) names.insert(basename(*resolved));
    return names;
}

// The real user of a process, from its status; /proc/<pid> itself belongs to root when the process
// made itself undumpable.
std::optional<uid_t> processUser(const std::string& processFolder) {
    auto status = readFile(processFolder + "/status");
    if (!status) return std::nullopt;
    auto at = status->find("\nUid:");
    if (at == std::string::npos) return std::nullopt;
    at = status->find_first_not_of(" \t", at + 5);
    if (at == std::string::npos) return std::nullopt;
    unsigned long uid = 0;
    auto [end, error] = std::from_chars(status->data() + at, status->data() + status->size(), uid);
    if (error != std::errc()) return std::nullopt;
    return static_cast<uid_t>(uid);
}

// Whether a process of this user runs one of `names`, by its executable or its first argument.
bool processRunning(const std::set<std::string>& names) {
    const uid_t me = ::getuid();
    for (const auto& pid : folderNames("/proc")) {
        if (pid.empty() || !std::all_of(pid.begin(), pid.end(), [](char c) { return c >= '0' && c <= '9'; })) continue;
        std::string folder = "/proc/" + pid;
        if (processUser(folder) != me) continue;
        char target[4096];
        ssize_t length = ::readlink((folder + "/exe").c_str(), target, sizeof target - 1);
        if (length > 0) {
            std::string_view exe(target, static_cast<std::size_t>(length));
            if (exe.ends_with(" (deleted)")) exe.remove_suffix(10);
            if (names.contains(basename(exe))) return true;
        }
        if (auto cmdline = readFile(folder + "/cmdline", 4096)) {
            std::string argv0 = cmdline->substr(0, cmdline->find('\0'));
            if (!argv0.empty() && names.contains(basename(argv0))) return true;
        }
    }
    return false;
}

std::string runtimeFolder() {
    const char* value = std::getenv("XDG_RUNTIME_DIR");
    if (value && value[0] == '/') return value;
    return "/run/user/" + std::to_string(::getuid());
}

// `name=` of the [Application] group of a Flatpak instance's info file.
std::string instanceApplication(const std::string& info) {
    bool inGroup = false;
    std::size_t start = 0;
    while (start < info.size()) {
        auto end = info.find('\n', start);
        if (end == std::string::npos) end = info.size();
        std::string_view line = std::string_view(info).substr(start, end - start);
        start = end + 1;
        if (line.starts_with('['))
            inGroup = line.starts_with("[Application]");
        else if (inGroup && line.starts_with("name="))
            return std::string(line.substr(5));
    }
    return {};
}

// The sandbox's first process, as bwrap recorded it; instance folders outlive their application until
// flatpak next tidies up, so a folder alone proves nothing.
bool instanceAlive(const std::string& instanceFolder) {
    auto json = readFile(instanceFolder + "/bwrapinfo.json");
    if (!json) return false;
    auto at = json->find("\"child-pid\"");
    if (at == std::string::npos) return false;
    at = json->find_first_of("0123456789", json->find(':', at));
    if (at == std::string::npos) return false;
    long pid = 0;
    auto [end, error] = std::from_chars(json->data() + at, json->data() + json->size(), pid);
    return error == std::errc() && pid > 0 && ::access(("/proc/" + std::to_string(pid)).c_str(), F_OK) == 0;
}

bool flatpakRunning(const std::set<std::string>& appIDs) {
    std::string instances = runtimeFolder() + "/.flatpak";
    for (const auto& instance : folderNames(instances)) {
        std::string folder = joinPath(instances, instance);
        auto info = readFile(folder + "/info");
        if (info && appIDs.contains(instanceApplication(*info)) && instanceAlive(folder)) return true;
    }
    return false;
}

class ProfileAppSystem final : public AppSystem {
public:
    explicit ProfileAppSystem(const Profile& profile) : mac_(profile.isMac()), folders_(profile.applicationFolders) {}

    std::optional<std::string> installedLocation(const std::string& identifier) const override {
        if (mac_) {
            for (const auto& app : AppCatalog::loadBundles(folders_)) {
                if (app.bundleID == identifier && app.path.find("/.Trash/") == std::string::npos && targetExists(app.path))
                    return app.path;
            }
            return std::nullopt;
        }
        auto entry = AppCatalog::findDesktopEntry(folders_, identifier);
        if (entry && entry->usable()) return entry->path;
        return std::nullopt;
    }

    std::optional<std::string> runningName(const std::string& identifier) const override {
        if (mac_) return std::nullopt;
        auto entry = AppCatalog::findDesktopEntry(folders_, identifier);
        std::string name = entry ? entry->name : std::string();
        std::set<std::string> appIDs = {identifier};
        if (entry && entry->flatpakID) appIDs.insert(*entry->flatpakID);
        if (flatpakRunning(appIDs)) return name;
        // A Flatpak entry's program is flatpak itself, which says nothing about which application runs.
        if (entry && !entry->flatpakID && !entry->program.empty() && processRunning(processNames(entry->program)))
            return name;
        return std::nullopt;
    }

private:
    bool mac_;
    std::vector<std::string> folders_;
};

} // namespace

std::shared_ptr<const AppSystem> appSystem(const Profile& profile) {
    return std::make_shared<const ProfileAppSystem>(profile);
}

std::shared_ptr<const AppSystem> appSystem() {
    // Holds only the profile's folders: every answer is looked up afresh.
    static const auto system = appSystem(profile());
    return system;
}

} // namespace brenvo::platform
