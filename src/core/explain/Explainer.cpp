#include "explain/Explainer.h"

#include "explain/RemovedApps.h"
#include "explain/SystemPlaces.h"
#include "format/Formatters.h"
#include "tree/FileNode.h"
#include "util/Paths.h"

#include <algorithm>
#include <ctime>
#include <map>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace brenvo {

namespace {

using Safety = Explanation::Safety;

const std::map<Category, std::set<std::string>>& extensionTable() {
    static const std::map<Category, std::set<std::string>> table = {
        {Category::video, {"mov", "mp4", "m4v", "mkv", "avi", "wmv", "webm", "mpg", "mpeg", "mts", "3gp"}},
        {Category::image, {"jpg", "jpeg", "png", "heic", "heif", "gif", "tif", "tiff", "bmp", "webp", "raw", "cr2",
                           "cr3", "nef", "arw", "dng", "psd"}},
        {Category::audio, {"mp3", "m4a", "aac", "wav", "aiff", "aif", "flac", "ogg", "m4b", "caf"}},
        {Category::archive, {"zip", "rar", "7z", "tar", "gz", "tgz", "bz2", "xz", "xip"}},
        {Category::installer, {"dmg", "pkg", "mpkg", "iso", "exe", "msi"}},
        {Category::document, {"pdf", "doc", "docx", "pages", "xls", "xlsx", "numbers", "ppt", "pptx", "key", "txt",
                              "rtf", "csv", "epub"}},
        {Category::library, {"photoslibrary", "musiclibrary", "tvlibrary", "photolibrary", "aplibrary", "fcpbundle",
                             "logicx", "imovielibrary"}},
    };
    return table;
}

std::string replaceAll(std::string text, std::string_view key, std::string_view value) {
    for (size_t at = text.find(key); at != std::string::npos; at = text.find(key, at + value.size()))
        text.replace(at, key.size(), value);
    return text;
}

// The rules' words, in this system's dialect; values are filled in afterwards so a name is never altered.
struct Words {
    const Profile& profile;
    std::string operator()(std::string_view text) const { return profile.say(text); }
    std::string fill(std::string_view text, std::initializer_list<std::pair<std::string_view, std::string>> values) const {
        std::string out = profile.say(text);
        for (const auto& [key, value] : values) out = replaceAll(std::move(out), key, value);
        return out;
    }
};

// Where the system can't tell: no application is installed or running.
class NoApps : public AppSystem {
public:
    std::optional<std::string> installedLocation(const std::string&) const override { return std::nullopt; }
    std::optional<std::string> runningName(const std::string&) const override { return std::nullopt; }
};


std::string standardFolderSummary(std::string_view name, const Profile& profile) {
    static const std::map<std::string, std::string, std::less<>> texts = {
        {"Downloads", "Your Downloads folder, where browsers and apps save downloaded files. It often collects "
                      "installers and copies of things you no longer need."},
        {"Desktop", "Your Desktop folder: everything shown on your desktop."},
        {"Documents", "Your Documents folder, where many apps save your work."},
        {"Pictures", "Your Pictures folder. Your Photos library usually lives here."},
        {"Movies", "Your Movies folder. Video apps often save projects and exports here."},
        {"Music", "Your Music folder. Your Music library usually lives here."},
    };
    if (auto found = texts.find(name); found != texts.end()) return found->second;
    // Linux keeps videos in "Videos"; the Mac's "Movies" words fit it.
    if (!profile.isMac() && name == "Videos") return "Your Videos folder. Video apps often save projects and exports here.";
    return "This folder.";
}

std::string iCloudDriveSummary(const FileNode& node, const Words& say) {
    const std::string p = say("Your iCloud Drive: files kept in iCloud and shared across your devices.");
    if (node.itemCount() == 0)
        return say("Your iCloud Drive: files kept in iCloud and shared across your devices. It's empty, so it uses "
                   "no space on this Mac.");
    if (node.size() == 0)
        return p + say.fill(" It holds {count} files, all kept only in iCloud, so they use no space on this Mac.",
                            {{"{count}", format::count(node.itemCount())}});
    return p + say.fill(" {size} of it is downloaded to this Mac.", {{"{size}", format::bytes(node.size())}}) +
           Explainer::largestNote(node) + say(" Files kept only in iCloud use no space here.");
}

Explanation installerExplanation(const FileNode& node, const InstalledApp& app, const Words& say) {
    const Profile& profile = say.profile;
    Explanation e;
    e.summary = say.fill("An installer for {name}, which is already installed in your Applications folder.",
                         {{"{name}", app.name}});
    auto parsed = AppCatalog::parseInstallerName(node.name(), profile.extraNoiseWords);
    if (parsed.version && app.version &&
        AppCatalog::compareVersions(*parsed.version, *app.version) == std::strong_ordering::greater) {
        e.suggestion = say.fill("This installer looks newer ({fileVersion}) than the installed {name} ({appVersion}). "
                                "If you meant to update, run it first. After that, it's very likely safe to remove.",
                                {{"{fileVersion}", *parsed.version}, {"{name}", app.name}, {"{appVersion}", *app.version}});
        e.safety = Safety::reviewFirst;
    } else {
        const std::string v = app.version ? " (version " + *app.version + ")" : "";
        e.suggestion = say.fill("{name}{v} is already installed, so this installer is very likely no longer needed. "
                                "You can download it again if you ever need it.",
                                {{"{name}", app.name}, {"{v}", v}});
        e.safety = Safety::ok;
    }
    return e;
}

Explanation describe(const FileNode& node, const ExplainContext& context, const Words& say) {
    const Profile& profile = *context.profile;
    const std::string path = node.path();
    const bool inDownloads = isInside(path, profile.downloadsPath) && path != profile.downloadsPath;
    Explanation e;
    // A file an installed application's entry runs is that application, wherever it lies and whatever its
    // name says: never an installer for itself.
    const bool runsAnApp = node.kind() == FileNode::Kind::file && context.catalog && context.catalog->appRunning(path);
    switch (runsAnApp ? Category::app : Explainer::category(node, profile)) {
    case Category::folder:
        if (node.name() == "node_modules") {
            e.summary = say("Code libraries downloaded for a JavaScript project. The project can usually download "
                            "them again.");
            e.suggestion = say("If you no longer work on this project, this folder is often safe to remove. If you "
                               "do, it will need reinstalling.");
            e.safety = Safety::reviewFirst;
        } else if (node.couldNotRead()) {
            e.summary = say("A folder Brenvo couldn't look inside, so what it holds and its size are unknown.");
            e.safety = Safety::reviewFirst;
            e.safetyNote = say("Deleting a folder deletes everything inside it. Open it first to check.");
        } else {
            e.summary = say.fill("A folder holding {count} files.", {{"{count}", format::count(node.itemCount())}}) +
                        Explainer::largestNote(node);
            e.safety = Safety::reviewFirst;
            e.safetyNote = say("Deleting a folder deletes everything inside it. Open it first to check.");
        }
        break;
    case Category::video:
        e.summary = say("A video. Videos are often the largest personal files on a Mac.");
        if (node.size() >= 500'000'000)
            e.suggestion = say("Watch a few seconds to check what it is. If you want to keep it, external or cloud "
                               "storage frees the space.");
        break;
    case Category::image: e.summary = say("An image file."); break;
    case Category::audio: e.summary = say("An audio file."); break;
    case Category::archive: {
        e.summary = say("A compressed archive: several files packed into one.");
        std::string stem(node.name());
        if (auto dot = stem.rfind('.'); dot != std::string::npos && dot > 0) stem.erase(dot);
        if (const FileNode* parent = node.parent()) {
            for (const FileNode* sibling : parent->children())
                if (sibling->isFolder() && sibling->name() == stem) {
                    e.suggestion = say("A folder with the same name sits next to it, which is probably its unpacked "
                                       "contents. If so, this archive is a duplicate.");
                    break;
                }
        }
        break;
    }
    case Category::installer: {
        std::optional<InstalledApp> app;
        if (context.catalog) app = context.catalog->app(std::string(node.name()));
        if (app) return installerExplanation(node, *app, say);
        e.summary = say("An installer or disk image. These are used once to install an app and are often left "
                        "behind afterwards.");
        if (inDownloads)
            e.suggestion = say("If you've already installed this app, the installer is usually safe to remove. You "
                               "can download it again if you need it.");
        break;
    }
    case Category::document: e.summary = say("A document."); break;
    case Category::app:
        e.summary = say("An app.");
        if (inDownloads)
            e.suggestion = say("Apps normally live in Applications. If you use this one, move it there. If you "
                               "don't, it can probably go.");
        e.safety = Safety::reviewFirst;
        e.safetyNote = say("If you remove an app you still use, you'll need to reinstall it.");
        break;
    case Category::library:
        e.summary = say("A library that an app manages as a single item, such as your Photos or Music library. It "
                        "can hold years of personal media.");
        e.suggestion = say("To free space here, remove things from inside the app that owns it, not from Finder.");
        e.safety = Safety::protected_;
        e.safetyNote = say("Deleting a library deletes everything in it.");
        break;
    case Category::other:
    case Category::aggregate: {
        std::string label = Explainer::kindLabel(node, context);
        std::transform(label.begin(), label.end(), label.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        e.summary = say.fill("A {label}. This app doesn't recognise the type, so open it before deciding.",
                             {{"{label}", label}});
        e.safety = Safety::reviewFirst;
        break;
    }
    }
    return e;
}

void explainICloud(const FileNode& node, Explanation& e, const ExplainContext& context, const Words& say) {
    const std::string path = node.path();
    if (!node.isFolder() && context.cloudState) {
        auto state = context.cloudState(path);
        if (state == FileFacts::CloudState::downloaded && node.size() >= 100'000'000) {
            e.suggestion = say.fill("To free {size} on this Mac but keep it, choose Remove Download. It stays in "
                                    "iCloud and downloads again when you open it.",
                                    {{"{size}", format::bytes(node.size())}});
        } else if (state == FileFacts::CloudState::cloudOnly) {
            e.summary = say("Kept only in iCloud, so it uses no space on this Mac. It downloads when you open it. ") +
                        e.summary;
            e.suggestion.reset();
        }
    }
    if (e.safety != Safety::protected_) {
        if (e.safety == Safety::ok) e.safety = Safety::reviewFirst;
        e.safetyNote = say.fill("This is in iCloud Drive: deleting {it} removes it from iCloud and from all your "
                                "devices.",
                                {{"{it}", node.isFolder() ? "this folder" : "it"}});
    }
}

} // namespace

const char* safetyName(Explanation::Safety safety) {
    switch (safety) {
    case Safety::ok: return "ok";
    case Safety::reviewFirst: return "reviewFirst";
    case Safety::protected_: return "protected";
    }
    return "ok";
}

const char* categoryName(Category category) {
    switch (category) {
    case Category::folder: return "folder";
    case Category::video: return "video";
    case Category::image: return "image";
    case Category::audio: return "audio";
    case Category::archive: return "archive";
    case Category::installer: return "installer";
    case Category::document: return "document";
    case Category::app: return "app";
    case Category::library: return "library";
    case Category::other: return "other";
    case Category::aggregate: return "aggregate";
    }
    return "other";
}

std::optional<int64_t> FileFacts::fullSize(const std::string& path) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) return std::nullopt;
    return static_cast<int64_t>(st.st_size);
}

bool isDeletableFile(const std::string& path) {
    struct stat item, folder;
    if (::lstat(path.c_str(), &item) != 0) return false;
    const std::string parent = parentPath(path);
    if (parent.empty() || ::access(parent.c_str(), W_OK | X_OK) != 0 || ::stat(parent.c_str(), &folder) != 0) return false;
    if (folder.st_mode & S_ISVTX) {
        const uid_t me = ::geteuid();
        return me == 0 || item.st_uid == me || folder.st_uid == me;
    }
    return true;
}

namespace Explainer {

std::string pathExtension(std::string_view name) {
    auto dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return {};
    std::string ext(name.substr(dot + 1));
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return ext;
}

Category category(const FileNode& node, const Profile& profile) { return category(node.kind(), node.name(), profile); }

Category category(FileNode::Kind kind, std::string_view name, const Profile& profile) {
    if (kind == FileNode::Kind::folder) return Category::folder;
    if (kind == FileNode::Kind::aggregate) return Category::aggregate;
    const std::string ext = pathExtension(name);
    if (ext == "app") return Category::app;
    for (const auto& [category, extensions] : extensionTable())
        if (extensions.contains(ext)) return category;
    if (std::find(profile.extraInstallerExtensions.begin(), profile.extraInstallerExtensions.end(), ext) !=
        profile.extraInstallerExtensions.end())
        return Category::installer;
    return kind == FileNode::Kind::package ? Category::library : Category::other;
}

std::string kindLabel(const FileNode& node, const ExplainContext& context) {
    switch (category(node, *context.profile)) {
    case Category::folder: return "Folder";
    case Category::archive: return "Archive";
    case Category::installer: return "Installer";
    case Category::app: return "App";
    case Category::aggregate: return "Group";
    default: break;
    }
    const std::string ext = pathExtension(node.name());
    // A number after the last dot names a manual page's section only in a manual folder ("man3");
    // elsewhere it is a version, as in "libc.so.6".
    const bool numbered = !ext.empty() && std::all_of(ext.begin(), ext.end(), [](char c) { return c >= '0' && c <= '9'; });
    const bool inManual = node.parent() && node.parent()->name().starts_with("man");
    if (!ext.empty() && context.typeDescription && (!numbered || inManual)) {
        if (auto description = context.typeDescription(ext); description && !description->empty()) {
            (*description)[0] = static_cast<char>(std::toupper(static_cast<unsigned char>((*description)[0])));
            return *description;
        }
    }
    return node.kind() == FileNode::Kind::package ? "Bundle" : "File";
}

std::string largestNote(const FileNode& node) {
    const FileNode* biggest = nullptr;
    for (const FileNode* child : node.children())
        if (!child->isAggregate()) {
            biggest = child;
            break;
        }
    if (!biggest || node.size() < 1) return {};
    if (static_cast<double>(biggest->size()) / static_cast<double>(node.size()) < 0.25) return {};
    return " The biggest item is " + format::quoted(biggest->name()) + " at " + format::bytes(biggest->size()) + ".";
}

int wholeYears(Date then, Date now) {
    auto local = [](Date d) {
        std::time_t t = static_cast<std::time_t>(d.unixSeconds());
        std::tm tm{};
        localtime_r(&t, &tm);
        return tm;
    };
    const std::tm a = local(then), b = local(now);
    int years = b.tm_year - a.tm_year;
    auto rest = [](const std::tm& t) {
        return std::make_tuple(t.tm_mon, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec);
    };
    if (rest(b) < rest(a)) --years;
    return years;
}

static std::optional<std::string> yearsNote(std::optional<Date> date, Date now, const char* verb) {
    if (!date) return std::nullopt;
    const int years = wholeYears(*date, now);
    if (years < 1) return std::nullopt;
    if (years == 1) return std::string("Last ") + verb + " over a year ago.";
    return std::string("Last ") + verb + " over " + std::to_string(years) + " years ago.";
}

std::optional<std::string> openedNote(std::optional<Date> date, Date now) { return yearsNote(date, now, "opened"); }
std::optional<std::string> ageNote(std::optional<Date> date, Date now) { return yearsNote(date, now, "changed"); }

Explanation explain(const FileNode& node, const FileNode* scanRoot, const ExplainContext& context) {
    const Profile& profile = *context.profile;
    const Words say{profile};
    const std::string path = withoutDataVolumePrefix(node.path());
    const bool inICloud = isInside(path, profile.iCloudDrivePath);

    if (node.isAggregate()) // 1
        return {say.fill("{count} files that are each too small to list on their own, added together.",
                         {{"{count}", format::count(node.itemCount())}}),
                std::nullopt, Safety::protected_, say("Open the folder in Finder to look through these individually.")};
    if (auto reason = node.skippedReason()) // 2
        return {std::string(*reason), std::nullopt, Safety::protected_, say("Brenvo won't delete anything from here.")};
    if (isInside(path, profile.libraryPath) && !inICloud) // 3
        return {say("Part of your Library folder, where apps keep their settings, caches and data."), std::nullopt,
                Safety::protected_,
                say("Removing items here can break apps or lose data. For the parts that are safe to clear, like app "
                    "caches, tick them on the Overview.")};
    const FileNode* parent = node.parent();
    const bool isTrash = profile.isMac() ? node.name() == ".Trash" && parent && parent->path() == profile.home
                                         : path == profile.trashPath;
    if (isTrash) // 4
        return {say("Your Trash. Files here still use space until the Trash is emptied."),
                say("Open the Trash in Finder, check nothing there is needed, then choose Empty Trash."),
                Safety::protected_, say("Empty the Trash from Finder.")};
    if (path == profile.iCloudDrivePath) { // 5
        Explanation e{iCloudDriveSummary(node, say), std::nullopt, Safety::protected_,
                      say("Deleting from iCloud Drive deletes from iCloud and every device, so look inside rather "
                          "than removing the folder.")};
        if (node.size() > 1'000'000'000)
            e.suggestion = say("To free space without losing anything, right-click big files here and choose Remove "
                               "Download. They stay in iCloud and download again when you open them.");
        return e;
    }
    if (&node == scanRoot || path == profile.home || // 6
        std::find(profile.standardFolders.begin(), profile.standardFolders.end(), path) != profile.standardFolders.end())
        return {say(standardFolderSummary(node.name(), profile)) +
                    say.fill(" It holds {count} files.", {{"{count}", format::count(node.itemCount())}}) +
                    largestNote(node),
                std::nullopt, Safety::protected_,
                say("This is one of your Mac's standard folders. Look inside it rather than removing the folder.")};
    if (auto place = systemPlace(path, profile)) { // the system's own places and other accounts'
        if (*place == SystemPlace::otherUser)
            return {say("Part of another account's home folder on this computer."), std::nullopt, Safety::protected_,
                    say("It belongs to someone else, so Brenvo leaves it alone.")};
        return {say("Part of the operating system, which its package manager looks after."), std::nullopt,
                Safety::protected_,
                say("Removing it could stop the computer from starting or working, so Brenvo leaves it alone.")};
    }
    if (auto folder = RemovedApps::listedFolder(path, profile.home)) { // 7
        static const NoApps none;
        const AppSystem& apps = context.apps ? *context.apps : static_cast<const AppSystem&>(none);
        if (auto running = RemovedApps::runningApp(*folder, apps))
            return {say.fill("Holds {contents}, used by {r}.", {{"{contents}", folder->contents}, {"{r}", *running}}),
                    std::nullopt, Safety::protected_,
                    say.fill("{r} is open. Quit it first, then this can be deleted.", {{"{r}", *running}})};
        if (RemovedApps::isLeftOver(*folder, std::nullopt, context.commandFolders, apps))
            return {say.fill("Holds {contents}. {name} is no longer installed, so nothing uses it any more.",
                             {{"{contents}", folder->contents}, {"{name}", folder->name}}),
                    say.fill("If you won't reinstall {name}, deleting this frees the space.", {{"{name}", folder->name}}),
                    Safety::reviewFirst,
                    say.fill("If you reinstall {name} later, it starts fresh without these.", {{"{name}", folder->name}})};
        const std::string owner = RemovedApps::installedApp(*folder, apps).value_or("A command-line tool");
        return {say.fill("Holds {contents}. {o} still uses it.", {{"{contents}", folder->contents}, {"{o}", owner}}),
                say.fill("To free the space, remove what you don't need inside {o}, or uninstall it and delete this "
                         "with it.",
                         {{"{o}", owner}}),
                Safety::reviewFirst,
                say.fill("{o} is installed: deleting this resets it, and you'd have to download or set up {contents} "
                         "again.",
                         {{"{o}", owner}, {"{contents}", folder->contents}})};
    }
    // Snap applications keep their settings and data, saved logins included, in plain folders.
    if (isInside(path, profile.snapDataPath)) // 8, for the data of Snap applications
        return {say("Where Snap applications keep their settings and data, such as saved logins."), std::nullopt,
                Safety::protected_,
                say("Removing it loses that app's settings and data; uninstalling the app removes it properly.")};
    // A component that starts with "." follows a slash.
    if (node.name().starts_with(".") || path.find("/.") != std::string::npos) // 8
        return {say("A hidden item. These usually hold settings or data that apps and tools depend on."), std::nullopt,
                Safety::protected_,
                say("Hidden items are left alone because removing them can break things in ways that are hard to "
                    "notice.")};

    Explanation e = describe(node, context, say); // 9
    const bool deletable = context.isDeletable ? context.isDeletable(path) : isDeletableFile(path);
    if (!context.demo && !deletable) {
        e.safety = Safety::protected_;
        e.safetyNote = say("Your account doesn't have permission to move this.");
    }
    auto dateNote = openedNote(node.lastOpened(), context.now);
    if (!dateNote) dateNote = ageNote(node.modified(), context.now);
    if (dateNote) e.summary += " " + *dateNote;
    if (inICloud) explainICloud(node, e, context, say);
    return e;
}

} // namespace Explainer
} // namespace brenvo
