#include "platform/Profile.h"

#include "tree/FileNode.h"

#include <algorithm>

namespace brenvo {

const std::vector<std::string>& packageExtensions() {
    static const std::vector<std::string> list = {
        "app",         "bundle",       "framework",     "plugin",      "kext",      "appex",
        "xpc",         "qlgenerator",  "mdimporter",    "prefpane",    "saver",     "component",
        "photoslibrary", "musiclibrary", "tvlibrary",   "photolibrary", "aplibrary", "fcpbundle",
        "logicx",      "imovielibrary", "sparsebundle", "xcodeproj",   "xcworkspace", "xcarchive",
        "playground",  "rtfd",         "pages",         "numbers",     "key",       "band",
        "docset",      "lrlibrary",    "lrdata",
    };
    return list;
}

Profile Profile::mac(const std::string& home) {
    Profile p;
    p.kind = Kind::mac;
    p.home = home;
    p.libraryPath = joinPath(home, "Library");
    p.iCloudDrivePath = joinPath(home, "Library/Mobile Documents/com~apple~CloudDocs");
    p.trashPath = joinPath(home, ".Trash");
    p.downloadsPath = joinPath(home, "Downloads");
    p.desktopPath = joinPath(home, "Desktop");
    p.documentsPath = joinPath(home, "Documents");
    p.applicationFolders = {"/Applications", "/Applications/Utilities", joinPath(home, "Applications")};
    p.standardFolders.push_back(home);
    for (const char* name :
         {"Desktop", "Documents", "Downloads", "Library", "Pictures", "Music", "Movies", "Applications", "Public"})
        p.standardFolders.push_back(joinPath(home, name));
    p.packageExtensions = brenvo::packageExtensions();
    return p;
}

Profile Profile::linux(const std::string& home, const std::map<std::string, std::string>& userDirs) {
    Profile p;
    p.kind = Kind::linux;
    p.home = home;
    // No iCloud on Linux: the path keeps the Mac shape, and nothing will ever be found there.
    p.iCloudDrivePath = joinPath(home, "Library/Mobile Documents/com~apple~CloudDocs");
    p.trashPath = joinPath(home, ".local/share/Trash");
    p.snapDataPath = joinPath(home, "snap");
    auto dir = [&](const char* key, const char* fallback) {
        auto found = userDirs.find(key);
        return found != userDirs.end() ? found->second : joinPath(home, fallback);
    };
    p.downloadsPath = dir("DOWNLOAD", "Downloads");
    p.desktopPath = dir("DESKTOP", "Desktop");
    p.documentsPath = dir("DOCUMENTS", "Documents");
    p.standardFolders = {home,
                         p.desktopPath,
                         p.documentsPath,
                         p.downloadsPath,
                         dir("MUSIC", "Music"),
                         dir("PICTURES", "Pictures"),
                         dir("VIDEOS", "Videos"),
                         dir("PUBLICSHARE", "Public"),
                         dir("TEMPLATES", "Templates")};
    p.packageExtensions = brenvo::packageExtensions();
    p.systemFolders = {"/usr", "/etc",  "/boot", "/bin", "/sbin", "/lib*", "/var", "/opt", "/srv",
                       "/root", "/snap", "/proc", "/sys",  "/dev", "/run"};
    p.systemFolderExceptions = {"/var/lib/flatpak", "/var/lib/snapd/snaps", "/var/lib/docker", "/var/log/journal",
                                "/var/cache/apt/archives", "/home/linuxbrew/.linuxbrew/Cellar"};
    p.usersFolder = "/home";
    p.extraInstallerExtensions = {"deb", "rpm", "appimage", "flatpakref", "flatpak", "snap", "run"};
    p.extraNoiseWords = {"linux", "x86_64", "amd64", "deb", "rpm", "appimage", "flatpak", "snap", "gtk", "qt"};
    // The usual XDG data folders, the user's own first so their entries hide the system's; the system's
    // profile takes them from XDG_DATA_HOME and XDG_DATA_DIRS instead.
    p.applicationFolders = {joinPath(home, ".local/share/applications"),
                            "/usr/local/share/applications",
                            "/usr/share/applications",
                            joinPath(home, ".local/share/flatpak/exports/share/applications"),
                            "/var/lib/flatpak/exports/share/applications",
                            "/var/lib/snapd/desktop/applications"};
    // A sentence is replaced whole before any phrase inside it (sorted below).
    p.dialect = {
        {"macOS didn't allow access to \u201c{name}\u201d. You can allow it in System Settings \u2192 Privacy & "
         "Security \u2192 Files and Folders.",
         "You don't have permission to look inside \u201c{name}\u201d."},
        {"macOS didn't allow this app to look inside, so the size may be too small.",
         "Brenvo wasn't allowed to look inside, so the size may be too small."},
        {"macOS has no record of this being opened.", "There's no record of this being opened."},
        {"Remove the app and the files it keeps in your Library",
         "Remove the app and the files it keeps in your home folder"},
        {"Empty the Trash from Finder.", "Empty the Trash from your file manager."},
        {"Hidden files, your Library folder and the insides of apps and Photos libraries are left out.",
         "Hidden files and the insides of apps and photo libraries are left out."},
        {"Quick Look", "Preview"},
        {"Show free space in the menu bar", "Show free space in the system tray"},
        {"Ask from Finder", "Ask from your file manager"},
        {"Open the Trash in Finder", "Open the Trash in your file manager"},
        {"which is already installed in your Applications folder", "which is already installed on this computer"},
        {"It's in your Applications folder.", "It's installed on this computer."},
        {"is in your Applications folder.", "is installed on this computer."},
        {"in Finder", "in your file manager"},
        {"from Finder", "from your file manager"},
        {"on a Mac", "on a computer"},
        {"fill up a Mac", "fill up a computer"},
        {"your Mac's", "your computer's"},
        {"Reveal in Finder", "Show in Folder"},
        {"Show in Finder", "Show in Folder"},
        {"Open in Finder", "Open in File Manager"},
        {"this Mac", "this computer"},
        {"your Mac", "your computer"},
        {"Your Mac", "Your computer"},
    };
    // Longer phrases go first whatever their place above, so "Reveal in Finder" is never cut short by
    // "in Finder".
    std::stable_sort(p.dialect.begin(), p.dialect.end(),
                     [](const auto& a, const auto& b) { return a.first.size() > b.first.size(); });
    return p;
}

std::string Profile::say(std::string_view text) const {
    std::string out(text);
    for (const auto& [mac, here] : dialect) {
        for (size_t at = out.find(mac); at != std::string::npos; at = out.find(mac, at + here.size()))
            out.replace(at, mac.size(), here);
    }
    return out;
}

} // namespace brenvo
