#include "explain/RemovedApps.h"

#include "explain/AppCatalog.h"
#include "tree/FileNode.h"
#include "util/Files.h"

#include <algorithm>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace brenvo::RemovedApps {

namespace {

// A directory with the executable bit is no command.
bool isExecutableFile(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && !S_ISDIR(info.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

// The system's answer can be stale: the application may have been deleted or moved to the Trash.
std::optional<std::string> installedAt(const std::string& identifier, const AppSystem& system) {
    auto location = system.installedLocation(identifier);
    if (location && targetExists(*location) && location->find("/.Trash/") == std::string::npos) return location;
    return std::nullopt;
}

} // namespace

const std::vector<AppHomeFolder>& homeFolders() {
    // Mac bundle identifiers first (a suggestion names the first); the Linux desktop ids follow.
    static const std::vector<AppHomeFolder> table = {
        {"LM Studio", {"ai.elementlabs.lmstudio", "ai.elementlabs.bionic"}, {"lms"}, {".lmstudio", ".cache/lm-studio"},
         "its downloaded AI models, chats and settings"},
        {"Ollama", {"com.electron.ollama"}, {"ollama"}, {".ollama"}, "its downloaded AI models"},
        {"Visual Studio Code", {"com.microsoft.VSCode", "com.microsoft.VSCodeInsiders", "code", "code-insiders",
                                "com.visualstudio.code", "code_code"}, {}, {".vscode", ".vscode-insiders"},
         "its extensions"},
        {"Cursor", {"com.todesktop.230313mzl4w4u92", "cursor"}, {}, {".cursor"}, "its extensions and settings"},
        {"Windsurf", {"com.exafunction.windsurf", "windsurf"}, {}, {".windsurf", ".codeium"}, "its extensions and settings"},
        {"Docker Desktop", {"com.docker.docker", "docker-desktop"}, {"docker", "colima", "podman"}, {".docker"},
         "its settings and command-line plug-ins"},
        {"Android Studio", {"com.google.android.studio", "android-studio", "jetbrains-studio", "com.google.AndroidStudio"}, {"adb", "emulator"}, {".android"},
         "its emulators (virtual devices) and settings"},
        {"Codex", {"com.openai.codex"}, {"codex"}, {".codex"}, "its sessions, logs and sign-in"},
    };
    return table;
}

std::vector<std::string> commandFolders(const std::string& home) {
    // The Linux places come after the Mac's; neither exists on the other system.
    std::vector<std::string> folders = {"/opt/homebrew/bin", "/usr/local/bin", "/usr/bin", "/snap/bin",
                                        "/home/linuxbrew/.linuxbrew/bin", "/var/lib/flatpak/exports/bin"};
    for (const char* relative : {".local/bin", ".npm-global/bin", ".bun/bin", ".volta/bin", ".cargo/bin", "bin"})
        folders.push_back(joinPath(home, relative));
    // Each Node version nvm installed keeps its own global commands.
    std::string nvm = joinPath(home, ".nvm/versions/node");
    for (const auto& version : folderNames(nvm)) folders.push_back(joinPath(joinPath(nvm, version), "bin"));
    return folders;
}


bool isInstalled(const std::string& identifier, const AppSystem& system) {
    return installedAt(identifier, system).has_value();
}

bool isLeftOver(const AppHomeFolder& folder, const std::optional<std::string>& ignoring,
                const std::vector<std::string>& commandFolders, const AppSystem& system) {
    auto counted = [&](const std::string& identifier) { return identifier != ignoring; };
    for (const auto& identifier : folder.apps) {
        if (counted(identifier) && isInstalled(identifier, system)) return false;
    }
    // One started from somewhere other than the usual places.
    for (const auto& identifier : folder.apps) {
        if (counted(identifier) && system.runningName(identifier)) return false;
    }
    for (const auto& command : folder.commands) {
        for (const auto& commandFolder : commandFolders) {
            if (isExecutableFile(joinPath(commandFolder, command))) return false;
        }
    }
    return true;
}

const AppHomeFolder* listedFolder(std::string_view path, std::string_view home) {
    if (!path.starts_with(home) || path.substr(home.size()).size() < 2 || path[home.size()] != '/') return nullptr;
    std::string_view relative = path.substr(home.size() + 1);
    for (const auto& folder : homeFolders()) {
        if (std::find(folder.paths.begin(), folder.paths.end(), relative) != folder.paths.end()) return &folder;
    }
    return nullptr;
}

std::optional<std::string> runningApp(const AppHomeFolder& folder, const AppSystem& system) {
    for (const auto& identifier : folder.apps) {
        if (auto name = system.runningName(identifier)) return name->empty() ? folder.name : *name;
    }
    return std::nullopt;
}

std::optional<std::string> installedApp(const AppHomeFolder& folder, const AppSystem& system) {
    for (const auto& identifier : folder.apps) {
        auto installed = installedAt(identifier, system);
        if (!installed) continue;
        const std::string& location = *installed;
        std::string_view file = lastPathComponent(location);
        // A desktop entry's file name is only its id; its Name is what users know it by.
        if (file.ends_with(".desktop")) {
            auto entry = AppCatalog::readDesktopEntry(location, std::string(file.substr(0, file.size() - 8)));
            if (entry && !entry->name.empty()) return entry->name;
        }
        auto dot = file.rfind('.');
        return std::string(dot == std::string_view::npos || dot == 0 ? file : file.substr(0, dot));
    }
    return std::nullopt;
}

} // namespace brenvo::RemovedApps
