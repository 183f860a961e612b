#include "platform/Profile.h"

#include "tree/FileNode.h"

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
    return p;
}

} // namespace brenvo
