#include "TempTree.h"
#include "explain/Explainer.h"
#include "explain/SystemPlaces.h"
#include "removal/DeleteWords.h"

#include <gtest/gtest.h>
#include <filesystem>
#include <fstream>
#include <map>

using namespace brenvo;
using Kind = FileNode::Kind;
using Safety = Explanation::Safety;

namespace {

// Applications that can't exist on this machine: installed where the map says, running when listed.
class FakeApps : public AppSystem {
public:
    std::map<std::string, std::string> installed;
    std::map<std::string, std::string> running;
    std::optional<std::string> installedLocation(const std::string& id) const override {
        auto found = installed.find(id);
        return found == installed.end() ? std::nullopt : std::optional<std::string>(found->second);
    }
    std::optional<std::string> runningName(const std::string& id) const override {
        auto found = running.find(id);
        return found == running.end() ? std::nullopt : std::optional<std::string>(found->second);
    }
};

const Date kNow = Date::fromUnix(1'763'726'400); // 2025-11-21

// A tree made of paths: "/Users/corin/Downloads/big.mov" = 600 MB and so on, sizes summed upwards.
struct Tree {
    NodeRef root;
    explicit Tree(const std::string& rootPath) {
        root = FileNode::make(Kind::folder, lastPathComponent(rootPath));
        root->setLocation(rootPath);
    }
    FileNode* add(const std::string& relative, int64_t size = 0, Kind kind = Kind::file,
                  std::optional<Date> modified = std::nullopt) {
        FileNode* at = root.get();
        size_t start = 0;
        while (true) {
            size_t slash = relative.find('/', start);
            std::string part = relative.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
            FileNode* next = nullptr;
            for (FileNode* c : at->children())
                if (c->name() == part) next = c;
            if (!next) {
                const bool last = slash == std::string::npos;
                NodeRef made = FileNode::make(last ? kind : Kind::folder, part, last ? modified : std::nullopt);
                if (last) {
                    made->setSize(size);
                    if (kind != Kind::folder) made->setItemCount(1);
                }
                made->reinsert(at);
                next = made.get();
            }
            if (slash == std::string::npos) return next;
            at = next;
            start = slash + 1;
        }
    }
};

struct Mac {
    Profile profile = Profile::mac("/Users/corin");
    FakeApps apps;
    ExplainContext context;
    std::map<std::string, FileFacts::CloudState> cloud;
    Tree tree{"/Users/corin"};
    Mac() {
        context.profile = &profile;
        context.apps = &apps;
        context.now = kNow;
        context.isDeletable = [](const std::string&) { return true; };
        context.cloudState = [this](const std::string& path) -> std::optional<FileFacts::CloudState> {
            auto found = cloud.find(path);
            return found == cloud.end() ? std::nullopt : std::optional(found->second);
        };
        context.catalog = AppCatalog::empty();
    }
    Explanation explain(FileNode* node) { return Explainer::explain(*node, tree.root.get(), context); }
};

} // namespace

TEST(Explainer, GroupsSkippedFoldersAndTheLibraryAreProtected) {
    Mac mac;
    NodeRef group = FileNode::make(Kind::aggregate, "3 smaller items");
    group->setItemCount(1234);
    group->reinsert(mac.tree.add("Library/Caches", 0, Kind::folder));
    auto e = mac.explain(group.get());
    EXPECT_EQ(e.summary, "1,234 files that are each too small to list on their own, added together.");
    EXPECT_EQ(e.safety, Safety::protected_);

    FileNode* skipped = mac.tree.add("Documents", 0, Kind::folder);
    skipped->setSkippedReason("You excluded this folder in Settings, so Brenvo doesn't look inside it.");
    e = mac.explain(skipped); // a skipped standard folder is rule 2
    EXPECT_EQ(e.summary, "You excluded this folder in Settings, so Brenvo doesn't look inside it.");
    EXPECT_EQ(e.safetyNote, "Brenvo won't delete anything from here.");

    e = mac.explain(mac.tree.add("Library/Caches/foo", 100, Kind::folder));
    EXPECT_EQ(e.summary, "Part of your Library folder, where apps keep their settings, caches and data.");
    EXPECT_EQ(e.safety, Safety::protected_);
    EXPECT_EQ(mac.explain(mac.tree.add("Library/Mobile Documents/other/x", 5)).safety, Safety::protected_);
}

TEST(Explainer, TheTrashIsOnlyTheOneInTheHome) {
    Mac mac;
    auto trash = mac.explain(mac.tree.add(".Trash", 10, Kind::folder));
    EXPECT_EQ(trash.summary, "Your Trash. Files here still use space until the Trash is emptied.");
    EXPECT_EQ(trash.safetyNote, "Empty the Trash from Finder.");
    auto elsewhere = mac.explain(mac.tree.add("Projects/.Trash", 10, Kind::folder));
    EXPECT_EQ(elsewhere.summary, "A hidden item. These usually hold settings or data that apps and tools depend on.");
    // A file inside a hidden folder is hidden, whatever its own name.
    EXPECT_EQ(mac.explain(mac.tree.add(".config/app/settings.json", 10)).safety, Safety::protected_);

    Profile linux = Profile::linux("/home/u");
    ExplainContext context = mac.context;
    context.profile = &linux;
    Tree home("/home/u");
    auto e = Explainer::explain(*home.add(".local/share/Trash", 10, Kind::folder), home.root.get(), context);
    EXPECT_EQ(e.safetyNote, "Empty the Trash from your file manager.");
    EXPECT_EQ(e.suggestion, "Open the Trash in your file manager, check nothing there is needed, then choose Empty Trash.");
}

TEST(Explainer, StandardFoldersAndScanRoots) {
    Mac mac;
    FileNode* downloads = mac.tree.add("Downloads", 0, Kind::folder);
    mac.tree.add("Downloads/big.dmg", 300);
    mac.tree.add("Downloads/small.txt", 100);
    auto e = mac.explain(downloads);
    EXPECT_EQ(e.summary, "Your Downloads folder, where browsers and apps save downloaded files. It often collects "
                         "installers and copies of things you no longer need. It holds 2 files. The biggest item is "
                         "\u201c" "big.dmg\u201d at 300 bytes.");
    EXPECT_EQ(e.safetyNote, "This is one of your Mac's standard folders. Look inside it rather than removing the folder.");

    Tree project("/Users/corin/Code/node_modules");
    project.add("a.js", 1);
    auto root = Explainer::explain(*project.root, project.root.get(), mac.context);
    EXPECT_TRUE(root.summary.starts_with("This folder. It holds 1 files.")) << root.summary;

    Profile linux = Profile::linux("/home/u");
    ExplainContext context = mac.context;
    context.profile = &linux;
    Tree home("/home/u");
    auto videos = Explainer::explain(*home.add("Videos", 0, Kind::folder), nullptr, context);
    EXPECT_TRUE(videos.summary.starts_with("Your Videos folder.")) << videos.summary;
    EXPECT_EQ(videos.safetyNote, "This is one of your computer's standard folders. Look inside it rather than removing "
                                 "the folder.");
}

TEST(Explainer, TheSystemsOwnPlacesAndOtherAccountsAreProtected) {
    Mac mac;
    Profile linux = Profile::linux("/home/u");
    ExplainContext context = mac.context;
    context.profile = &linux;
    auto explainAt = [&](const std::string& path, Kind kind = Kind::folder) {
        Tree tree("/");
        return Explainer::explain(*tree.add(path.substr(1), 10, kind), tree.root.get(), context);
    };
    for (const char* path : {"/usr", "/etc", "/home", "/usr/lib", "/var/lib", "/boot", "/opt", "/lib64/ld.so",
                             "/libx32", "/srv/www", "/root", "/snap/core/1", "/data", "/tmp", "/var/log/syslog"}) {
        const Explanation e = explainAt(path);
        EXPECT_EQ(e.safety, Safety::protected_) << path;
        EXPECT_EQ(e.summary, "Part of the operating system, which its package manager looks after.") << path;
    }
    const Explanation other = explainAt("/home/zoe/Videos/film.mkv", Kind::file);
    EXPECT_EQ(other.safety, Safety::protected_);
    EXPECT_EQ(other.summary, "Part of another account's home folder on this computer.");
    EXPECT_EQ(explainAt("/home/zoe").safety, Safety::protected_);

    // What is the user's, in the temporary folder or on another disk, and the places a known spot explains,
    // are judged by the other rules.
    for (const char* path : {"/home/u/film.mkv", "/tmp/build.log", "/media/usb/film.mkv", "/mnt/disk/a.iso",
                             "/var/cache/apt/archives/x.deb", "/var/lib/docker/overlay2"})
        EXPECT_NE(explainAt(path, Kind::file).summary,
                  "Part of the operating system, which its package manager looks after.") << path;
    // A home folder may itself lie in a system folder: inside it, the user's own things are theirs.
    Profile rootHome = Profile::linux("/root");
    context.profile = &rootHome;
    EXPECT_NE(explainAt("/root/Downloads/x.iso", Kind::file).safety, Safety::protected_);
    EXPECT_EQ(explainAt("/home/u/x.iso", Kind::file).summary, "Part of another account's home folder on this computer.");
    // A Snap application's data is protected like the hidden folders of the others, all of it.
    context.profile = &linux;
    for (const char* path : {"/home/u/snap", "/home/u/snap/firefox", "/home/u/snap/firefox/common/profile.db"}) {
        const Explanation e = explainAt(path);
        EXPECT_EQ(e.safety, Safety::protected_) << path;
        EXPECT_EQ(e.summary, "Where Snap applications keep their settings and data, such as saved logins.") << path;
    }
    EXPECT_NE(explainAt("/home/u/snapshots/a.png", Kind::file).safety, Safety::protected_);
    // The Mac's rules keep scans in the home folder and name no such places.
    EXPECT_FALSE(systemPlace("/usr/lib", mac.profile));
}

TEST(Explainer, AFolderThatCouldNotBeReadHasNoKnownSize) {
    Mac mac;
    FileNode* locked = mac.tree.add("Projects/locked", 0, Kind::folder);
    locked->setCouldNotRead(true);
    const Explanation e = mac.explain(locked);
    EXPECT_EQ(e.summary, "A folder Brenvo couldn't look inside, so what it holds and its size are unknown.");
    EXPECT_EQ(e.summary.find("0 files"), std::string::npos);
    // And a deletion of it promises nothing it can't know.
    EXPECT_EQ(DeleteWords::promise(std::nullopt, 8),
              "How much space will be freed is unknown, as Brenvo couldn't look inside everything. Items are deleted for "
              "good, not moved to the Trash, but you'll have 8 seconds to undo.");
    EXPECT_EQ(DeleteWords::promise(0, 0.5).substr(0, 23), "Zero KB will be freed. ");
    EXPECT_TRUE(DeleteWords::promise(0, 0.5).ends_with("you'll have 0.5 seconds to undo."));
    EXPECT_EQ(DeleteWords::question(1, "a.txt"), "Delete \u201c" "a.txt\u201d permanently?");
    EXPECT_EQ(DeleteWords::question(1200, "a.txt"), "Delete 1,200 items permanently?");
}

TEST(Explainer, AFileAnInstalledEntryRunsIsTheAppNotItsInstaller) {
    test::TempTree disk;
    disk.file("Downloads/Obsidian-1.5.3.AppImage", 100);
    disk.file("Applications/Obsidian-1.5.3.AppImage", 100);
    disk.file("Old/Obsidian-1.5.3.AppImage", 100);
    std::filesystem::permissions(disk.path("Downloads/Obsidian-1.5.3.AppImage"), std::filesystem::perms::owner_all);
    disk.folder("applications");
    {
        std::ofstream entry(disk.path("applications/obsidian.desktop"));
        entry << "[Desktop Entry]\nType=Application\nName=Obsidian\nExec=" << disk.path("Downloads/Obsidian-1.5.3.AppImage")
              << " %U\n";
    }
    Mac mac;
    Profile linux = Profile::linux(disk.root());
    ExplainContext context = mac.context;
    context.profile = &linux;
    context.catalog = std::make_shared<AppCatalog>(AppCatalog::loadDesktopEntries({disk.path("applications")}),
                                                   linux.extraNoiseWords);
    Tree home(disk.root());
    // The one the entry runs, in Downloads even: the application, to be looked at before it goes.
    const Explanation running =
        Explainer::explain(*home.add("Downloads/Obsidian-1.5.3.AppImage", 100), home.root.get(), context);
    EXPECT_EQ(running.summary, "An app.");
    EXPECT_EQ(running.safety, Safety::reviewFirst);
    // Another copy of the same file name is an installer for the app that is installed.
    const Explanation copy = Explainer::explain(*home.add("Old/Obsidian-1.5.3.AppImage", 100), home.root.get(), context);
    EXPECT_EQ(copy.summary, "An installer for Obsidian, which is already installed on this computer.");
}

TEST(Explainer, ApplicationHomeFolders) {
    Mac mac;
    FileNode* ollama = mac.tree.add(".ollama", 5'000'000'000, Kind::folder);
    auto e = mac.explain(ollama); // rule 7 before the hidden rule
    EXPECT_EQ(e.summary, "Holds its downloaded AI models. Ollama is no longer installed, so nothing uses it any more.");
    EXPECT_EQ(e.safety, Safety::reviewFirst);

    test::TempTree disk; // an installed application must exist where the system says it is
    disk.folder("Applications/Ollama.app");
    disk.folder(".Trash/Ollama.app");
    mac.apps.installed["com.electron.ollama"] = disk.path("Applications/Ollama.app");
    e = mac.explain(ollama);
    EXPECT_EQ(e.summary, "Holds its downloaded AI models. Ollama still uses it.");
    mac.apps.installed["com.electron.ollama"] = disk.path(".Trash/Ollama.app"); // in the Trash: removed
    EXPECT_EQ(mac.explain(ollama).safety, Safety::reviewFirst);
    EXPECT_NE(mac.explain(ollama).summary.find("no longer installed"), std::string::npos);

    mac.apps.running["com.electron.ollama"] = "Ollama";
    e = mac.explain(ollama);
    EXPECT_EQ(e.summary, "Holds its downloaded AI models, used by Ollama.");
    EXPECT_EQ(e.safetyNote, "Ollama is open. Quit it first, then this can be deleted.");
    EXPECT_EQ(e.safety, Safety::protected_);

    // Inside a listed folder is no longer the folder itself.
    EXPECT_EQ(mac.explain(mac.tree.add(".ollama/models/x", 10)).summary,
              "A hidden item. These usually hold settings or data that apps and tools depend on.");
}

TEST(Explainer, VideosInstallersAndDates) {
    Mac mac;
    auto big = mac.explain(mac.tree.add("Downloads/trip.mov", 600'000'000));
    EXPECT_EQ(big.summary, "A video. Videos are often the largest personal files on a Mac.");
    EXPECT_TRUE(big.suggestion.has_value());
    EXPECT_FALSE(mac.explain(mac.tree.add("Movies/clip.mov", 400'000'000)).suggestion);

    std::vector<InstalledApp> apps(1);
    apps[0].path = "/Applications/Firefox.app";
    apps[0].name = "Firefox";
    apps[0].version = "120.0";
    apps[0].bundleID = "org.mozilla.firefox";
    apps[0].keys = {"firefox"};
    mac.context.catalog = std::make_shared<AppCatalog>(apps);
    auto newer = mac.explain(mac.tree.add("Downloads/Firefox 121.0.dmg", 100));
    EXPECT_EQ(newer.summary, "An installer for Firefox, which is already installed in your Applications folder.");
    EXPECT_EQ(newer.suggestion, "This installer looks newer (121.0) than the installed Firefox (120.0). If you meant to "
                                "update, run it first. After that, it's very likely safe to remove.");
    EXPECT_EQ(newer.safety, Safety::reviewFirst);
    auto older = mac.explain(mac.tree.add("Downloads/Firefox 119.dmg", 100));
    EXPECT_EQ(older.suggestion, "Firefox (version 120.0) is already installed, so this installer is very likely no longer "
                                "needed. You can download it again if you ever need it.");
    EXPECT_EQ(older.safety, Safety::ok);
    auto unknown = mac.explain(mac.tree.add("Downloads/Thing.pkg", 100));
    EXPECT_EQ(unknown.suggestion, "If you've already installed this app, the installer is usually safe to remove. You can "
                                  "download it again if you need it.");

    auto opened = mac.tree.add("Documents/a.pdf", 10, Kind::file, Date::fromUnix(1'600'000'000));
    opened->setLastOpened(Date{kNow.seconds - 400 * 86400.0});
    EXPECT_EQ(mac.explain(opened).summary, "A document. Last opened over a year ago.");
    opened->setLastOpened(Date{kNow.seconds - 7 * 86400.0}); // a recent opening says nothing; the age speaks
    EXPECT_EQ(mac.explain(opened).summary, "A document. Last changed over 5 years ago.");

    mac.context.isDeletable = [](const std::string&) { return false; };
    auto locked = mac.explain(mac.tree.add("Documents/b.txt", 10));
    EXPECT_EQ(locked.safety, Safety::protected_);
    EXPECT_EQ(locked.safetyNote, "Your account doesn't have permission to move this.");
}

TEST(Explainer, ICloudDrive) {
    Mac mac;
    const std::string drive = "Library/Mobile Documents/com~apple~CloudDocs";
    FileNode* video = mac.tree.add(drive + "/x.mov", 600'000'000);
    mac.cloud[video->path()] = FileFacts::CloudState::downloaded;
    auto e = mac.explain(video); // not the Library rule
    EXPECT_EQ(e.summary, "A video. Videos are often the largest personal files on a Mac.");
    EXPECT_EQ(e.suggestion, "To free 600 MB on this Mac but keep it, choose Remove Download. It stays in iCloud and "
                            "downloads again when you open it.");
    EXPECT_EQ(e.safety, Safety::reviewFirst);
    EXPECT_EQ(e.safetyNote, "This is in iCloud Drive: deleting it removes it from iCloud and from all your devices.");

    mac.cloud[video->path()] = FileFacts::CloudState::cloudOnly;
    e = mac.explain(video);
    EXPECT_TRUE(e.summary.starts_with("Kept only in iCloud, so it uses no space on this Mac. It downloads when you open "
                                      "it. A video."));
    EXPECT_FALSE(e.suggestion);

    FileNode* root = mac.tree.root->find("/Users/corin/" + drive);
    auto summary = mac.explain(root).summary;
    EXPECT_TRUE(summary.starts_with("Your iCloud Drive: files kept in iCloud and shared across your devices. 600 MB of "
                                    "it is downloaded to this Mac. The biggest item is"))
        << summary;
}

TEST(Explainer, KindsAndLabels) {
    Mac mac;
    mac.context.typeDescription = [](const std::string& ext) -> std::optional<std::string> {
        if (ext == "sqlite") return "sQLite database";
        if (ext == "6" || ext == "3") return "Manual page";
        return std::nullopt;
    };
    // A number after the last dot is a manual's section only in a manual folder.
    EXPECT_EQ(Explainer::kindLabel(*mac.tree.add("lib/libc.so.6", 10), mac.context), "File");
    EXPECT_EQ(Explainer::kindLabel(*mac.tree.add("share/man/man3/printf.3", 10), mac.context), "Manual page");
    FileNode* other = mac.tree.add("Documents/data.sqlite", 10);
    EXPECT_EQ(Explainer::kindLabel(*other, mac.context), "SQLite database");
    EXPECT_EQ(mac.explain(other).summary, "A sqlite database. This app doesn't recognise the type, so open it before deciding.");
    EXPECT_EQ(Explainer::kindLabel(*mac.tree.add("Documents/x.weird", 1), mac.context), "File");
    EXPECT_EQ(Explainer::category(*mac.tree.add("Documents/Tool.app", 1, Kind::package), mac.profile), Category::app);
    EXPECT_EQ(Explainer::category(*mac.tree.add("Documents/X.bundle", 1, Kind::package), mac.profile), Category::library);
    EXPECT_EQ(Explainer::category(*mac.tree.add("Documents/.bashrc", 1), mac.profile), Category::other);
    Profile linux = Profile::linux("/home/u");
    EXPECT_EQ(Explainer::category(*mac.tree.add("Documents/code_1.85.1_amd64.deb", 1), linux), Category::installer);
    EXPECT_EQ(Explainer::category(*mac.tree.add("Documents/code.deb", 1), mac.profile), Category::other);

    FileNode* zip = mac.tree.add("Documents/photos.zip", 10);
    mac.tree.add("Documents/photos", 0, Kind::folder);
    EXPECT_TRUE(mac.explain(zip).suggestion.has_value());

    Tree quarter("/Users/corin/Q");
    quarter.add("a", 25);
    quarter.add("b", 75);
    EXPECT_EQ(Explainer::largestNote(*quarter.root), " The biggest item is \u201c" "b\u201d at 75 bytes.");
    Tree even("/Users/corin/E");
    for (const char* n : {"a", "b", "c", "d", "e"}) even.add(n, 20);
    EXPECT_EQ(Explainer::largestNote(*even.root), "");
}
