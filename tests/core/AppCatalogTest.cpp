#include "explain/AppCatalog.h"
#include "plist/BinaryWriter.h"

#include "TempTree.h"

#include <fstream>
#include <gtest/gtest.h>

using namespace brenvo;

namespace {

void write(test::TempTree& tree, const std::string& relative, const std::string& text, unsigned mode = 0644) {
    tree.file(relative);
    std::ofstream(tree.path(relative), std::ios::binary) << text;
    tree.chmod(relative, mode);
}

std::string xmlInfo(const std::vector<std::pair<std::string, std::string>>& entries) {
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>\n";
    for (const auto& [key, value] : entries) out += "<key>" + key + "</key>" + value + "\n";
    return out + "</dict></plist>\n";
}

std::string binaryInfo(const std::vector<std::pair<std::string, std::string>>& strings) {
    std::string out;
    plist::BinaryWriter writer(out);
    std::vector<std::pair<plist::BinaryWriter::Ref, plist::BinaryWriter::Ref>> members;
    for (const auto& [key, value] : strings) members.emplace_back(writer.key(key), writer.string(value));
    EXPECT_TRUE(writer.finish(writer.dict(members)));
    return out;
}

// The path (or name) of the application an installer is for, if any.
std::optional<std::string> pathFor(const AppCatalog& catalog, const char* installer) {
    auto found = catalog.app(installer);
    return found ? std::optional(found->path) : std::nullopt;
}
std::optional<std::string> nameFor(const AppCatalog& catalog, const char* installer) {
    auto found = catalog.app(installer);
    return found ? std::optional(found->name) : std::nullopt;
}

InstalledApp app(std::string path, std::optional<std::string> bundleID, std::set<std::string> keys) {
    return InstalledApp{std::move(path), "", std::nullopt, std::move(bundleID), std::move(keys)};
}

} // namespace

TEST(AppCatalog, ParsesInstallerNames) {
    const std::vector<std::string> linuxNoise = {"linux", "x86_64", "amd64", "deb", "rpm", "appimage"};
    struct Row {
        const char* file;
        const char* key;
        std::optional<std::string> firstWord, version;
        bool linux = false;
    } rows[] = {
        {"Firefox 121.0.dmg", "firefox", "firefox", "121.0"},
        {"PhotoMill-v2.3.1-arm64-installer.pkg", "photomill", "photomill", "2.3.1"},
        {"Google Chrome (1).dmg", "googlechrome", "google", std::nullopt},
        {"macOS-arm64-1.2.pkg", "", std::nullopt, "1.2"},
        // A lone v is a word, v2 a dotless number, vlc and v2beta words.
        {"Foo v v2 vlc v2beta.dmg", "foovvlcv2beta", "foo", std::nullopt},
        {"Tool-1.2.3..dmg", "tool", "tool", "1.2.3"},
        {"Tool .1.2.dmg", "tool", "tool", std::nullopt},
        {"Zoom 2024 v3 5.17 6.0.dmg", "zoom", "zoom", "5.17"},
        {"mysetup.exe", "mysetup", "mysetup", std::nullopt},
        {"mailsetup.exe", "mail", "mailsetup", std::nullopt},
        {"FooInstaller.dmg", "foo", "fooinstaller", std::nullopt},
        {"Ärzte-App 2.1.dmg", "ärzte", "ärzte", "2.1"},
        {"code_1.85.1-1702462158_amd64.deb", "code", "code", "1.85.1", true},
        {"Foo-linux-x86_64.AppImage", "foolinux", "foo", std::nullopt},
        {"Foo-linux-x86_64.AppImage", "foo", "foo", std::nullopt, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.file);
        auto parsed = AppCatalog::parseInstallerName(row.file, row.linux ? linuxNoise : std::vector<std::string>{});
        EXPECT_EQ(parsed, (InstallerName{row.key, row.firstWord, row.version}));
    }
}

TEST(AppCatalog, ComparesVersionsAsNumbers) {
    using O = std::strong_ordering;
    struct Row {
        const char *a, *b;
        O expected;
    } rows[] = {
        {"1.10", "1.9", O::greater},     {"1.9", "1.10", O::less},    {"2.0", "2", O::equal},
        {"2", "2.0.0", O::equal},        {"10b2", "10", O::equal},    {"10b2", "9.9", O::greater},
        {"beta", "0", O::equal},         {"1..2", "1.2", O::equal},   {"1.2", "1.2.1", O::less},
        {"99999999999999999999", "0", O::equal}, // too long for 64 bits
        {"1.\u0662", "1.0", O::equal},   // digits of another script don't parse
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.a) + " vs " + row.b);
        EXPECT_EQ(AppCatalog::compareVersions(row.a, row.b), row.expected);
    }
}

TEST(AppCatalog, NormalizesToLowerCaseLettersAndNumbers) {
    EXPECT_EQ(AppCatalog::normalize("Google Chrome (Beta) 2"), "googlechromebeta2");
    EXPECT_EQ(AppCatalog::normalize("ÄRZTE-App"), "ärzteapp");
    EXPECT_EQ(AppCatalog::normalize("Ｆｏｏ \u0661\u0662"), "ｆｏｏ\u0661\u0662");
    EXPECT_EQ(AppCatalog::normalize("a\xff" "b\xc3"), "ab");
}

TEST(AppCatalog, MatchesOnlyOneIdentity) {
    AppCatalog catalog({
        app("/Applications/Firefox.app", "org.mozilla.firefox", {"firefox"}),
        app("/home/Applications/Firefox.app", "org.mozilla.firefox", {"firefox"}),
        app("/Applications/Mail Pro.app", "com.a.mailpro", {"mailpro", "mail"}),
        app("/Applications/MailPro Lite.app", "com.b.mailpro", {"mailpro"}),
        app("/Applications/Notion.app", "notion.id", {"notion"}),
        app("/Applications/Zed.app", "dev.zed", {"zed"}),
        app("/Applications/Tool.app", std::nullopt, {"tool"}),
        app("/Volumes/Tool.app", std::nullopt, {"tool"}),
    });
    auto path = [&](const char* installer) { return pathFor(catalog, installer); };
    EXPECT_EQ(path("Firefox 121.0.dmg"), "/Applications/Firefox.app"); // two copies, one answer
    // Ambiguous by the whole key; the first word then decides on its own.
    EXPECT_EQ(path("Mail Pro.dmg"), "/Applications/Mail Pro.app");
    EXPECT_EQ(path("MailPro 2.0.dmg"), std::nullopt);
    EXPECT_EQ(path("Notion Enhanced 2.0.dmg"), "/Applications/Notion.app");
    EXPECT_EQ(path("Zed Preview.dmg"), std::nullopt); // a three-letter first word isn't trusted
    EXPECT_EQ(path("Tool.dmg"), std::nullopt);        // without identifiers, paths tell apart
    EXPECT_EQ(path("macOS-arm64-1.2.pkg"), std::nullopt);
}

TEST(AppCatalog, LoadsBundlesFromApplicationFolders) {
    test::TempTree tree;
    write(tree, "Applications/Firefox.app/Contents/Info.plist",
          xmlInfo({{"CFBundleIdentifier", "<string>org.mozilla.firefox</string>"},
                   {"CFBundleName", "<string>Firefox</string>"},
                   {"CFBundleShortVersionString", "<string>121.0</string>"}}));
    write(tree, "home/Applications/Firefox.app/Contents/Info.plist",
          xmlInfo({{"CFBundleIdentifier", "<string>org.mozilla.firefox</string>"}}));
    write(tree, "Applications/Vendor/Photo Mill.app/Contents/Info.plist",
          binaryInfo({{"CFBundleIdentifier", "com.photomill.app"},
                      {"CFBundleDisplayName", "PhotoMill Studio"},
                      {"CFBundleShortVersionString", "2.3.1"}}));
    tree.folder("Applications/Vendor/Deeper/Hidden.app");
    write(tree, "Applications/Utilities/Terminal.app/Contents/Info.plist",
          xmlInfo({{"CFBundleIdentifier", "<string>com.apple.Terminal</string>"},
                   {"CFBundleShortVersionString", "<integer>5</integer>"}}));
    write(tree, "Applications/Broken.app/Contents/Info.plist", "<plist><dict><key>");
    tree.folder("Applications/X.app");
    tree.folder("Applications/Äö.app");
    tree.folder("Applications/Lower.APP");
    tree.folder("Applications/Locked");
    tree.chmod("Applications/Locked", 0);

    Profile profile = Profile::mac(tree.path("home"));
    profile.applicationFolders = {tree.path("Applications"), tree.path("Applications/Utilities"),
                                  tree.path("home/Applications"), tree.path("missing")};
    auto catalog = AppCatalog::load(profile);
    std::vector<std::string> names;
    for (const auto& found : catalog->apps()) names.push_back(found.name);
    // Utilities is listed on its own and as a child; Deeper is too deep; the extension is case-sensitive.
    EXPECT_EQ(names, (std::vector<std::string>{"Broken", "Firefox", "Terminal", "Photo Mill", "X", "Äö", "Firefox"}));
    ASSERT_EQ(catalog->apps().size(), 7u);

    const auto& broken = catalog->apps()[0];
    EXPECT_EQ(broken.keys, (std::set<std::string>{"broken"}));
    EXPECT_FALSE(broken.bundleID || broken.version);
    const auto& firefox = catalog->apps()[1];
    EXPECT_EQ(firefox.path, tree.path("Applications/Firefox.app"));
    EXPECT_EQ(firefox.bundleID, "org.mozilla.firefox");
    EXPECT_EQ(firefox.version, "121.0");
    EXPECT_EQ(firefox.keys, (std::set<std::string>{"firefox"}));
    const auto& terminal = catalog->apps()[2];
    EXPECT_EQ(terminal.keys, (std::set<std::string>{"terminal"}));
    EXPECT_EQ(terminal.version, std::nullopt); // not text
    const auto& photoMill = catalog->apps()[3];
    EXPECT_EQ(photoMill.keys, (std::set<std::string>{"photomill", "photomillstudio"})); // ".app" adds nothing
    EXPECT_EQ(photoMill.version, "2.3.1");
    EXPECT_TRUE(catalog->apps()[4].keys.empty()); // one letter
    EXPECT_TRUE(catalog->apps()[5].keys.empty()); // two characters, though four bytes

    EXPECT_EQ(pathFor(*catalog, "Firefox 121.0.dmg"), firefox.path);
    EXPECT_EQ(nameFor(*catalog, "PhotoMill-v2.3.1-arm64-installer.pkg"), "Photo Mill");
}

TEST(AppCatalog, LoadsDesktopEntries) {
    test::TempTree tree;
    const std::string user = "home/.local/share/applications/", system = "usr/share/applications/",
                      flatpak = "var/lib/flatpak/exports/share/applications/";
    const std::string code = tree.path("usr/share/code/code"), obsidian = tree.path("home/My Apps/Obsidian.AppImage");
    write(tree, "usr/share/code/code", "", 0755);
    write(tree, "home/My Apps/Obsidian.AppImage", "", 0755);
    write(tree, system + "code.desktop",
          "[Desktop Entry]\nName=Visual Studio Code\nName[de]=Visual Studio Code (de)\nExec=" + code +
              " --unity-launch %F\nType=Application\nNoDisplay=true\n[Desktop Action new]\nName=New Window\n");
    write(tree, system + "kde4/okular.desktop", "# comment\n[Desktop Entry]\nType = Application\nName=Okular\nExec=okular %U\n");
    write(tree, system + "gone.desktop", "[Desktop Entry]\nType=Application\nName=Gone\nExec=" + tree.path("nope") + "\n");
    write(tree, system + "link.desktop", "[Desktop Entry]\nType=Link\nName=Site\nURL=https://example.com\n");
    write(tree, system + "garbage.desktop", "\xff\xfe garbage\n");
    write(tree, user + "org.gnome.Evince.desktop", "[Desktop Entry]\nHidden=true\n");
    write(tree, system + "org.gnome.Evince.desktop", "[Desktop Entry]\nType=Application\nName=Document Viewer\nExec=evince\n");
    write(tree, user + "obsidian.desktop",
          "[Desktop Entry]\nType=Application\nName=Obsidian\nExec=env DESKTOPINTEGRATION=1 \"" + obsidian + "\" %U\n");
    write(tree, flatpak + "org.mozilla.firefox.desktop",
          "[Desktop Entry]\nType=Application\nName=Firefox\nExec=/usr/bin/flatpak run --branch=stable --arch=x86_64 "
          "--command=firefox --file-forwarding org.mozilla.firefox @@u %u @@\n");
    write(tree, "var/lib/flatpak/app/org.mozilla.firefox/current/active/files/share/metainfo/org.mozilla.firefox.metainfo.xml",
          "<component><releases>\n<release version=\"121.0\" date=\"2023-12-19\"/><release version=\"120.0\"/>"
          "</releases></component>");

    const std::vector<std::string> folders = {tree.path(user), tree.path(system), tree.path(flatpak)};
    Profile profile = Profile::linux(tree.path("home"));
    profile.applicationFolders = folders;
    auto catalog = AppCatalog::load(profile);
    std::vector<std::string> ids;
    for (const auto& found : catalog->apps()) ids.push_back(found.bundleID.value_or("?"));
    // The user's Hidden entry deletes the system's; a missing program or another type isn't an application.
    EXPECT_EQ(ids, (std::vector<std::string>{"obsidian", "code", "kde4-okular", "org.mozilla.firefox"}));
    ASSERT_EQ(ids.size(), 4u);

    const auto& obsidianApp = catalog->apps()[0];
    EXPECT_EQ(obsidianApp.path, tree.path(user + "obsidian.desktop"));
    EXPECT_EQ(obsidianApp.keys, (std::set<std::string>{"obsidian"}));
    const auto& codeApp = catalog->apps()[1];
    EXPECT_EQ(codeApp.name, "Visual Studio Code");
    EXPECT_EQ(codeApp.keys, (std::set<std::string>{"visualstudiocode", "code"}));
    EXPECT_EQ(codeApp.version, std::nullopt);
    EXPECT_EQ(catalog->apps()[2].keys, (std::set<std::string>{"kde4okular", "okular"}));
    const auto& firefox = catalog->apps()[3];
    EXPECT_EQ(firefox.keys, (std::set<std::string>{"firefox"}));
    EXPECT_EQ(firefox.version, "121.0");

    EXPECT_EQ(pathFor(*catalog, "code_1.85.1-1702462158_amd64.deb"), codeApp.path);
    EXPECT_EQ(nameFor(*catalog, "Obsidian-1.5.3.AppImage"), "Obsidian");

    auto evince = AppCatalog::findDesktopEntry(folders, "org.gnome.Evince");
    ASSERT_TRUE(evince);
    EXPECT_TRUE(evince->hidden);
    auto okular = AppCatalog::findDesktopEntry(folders, "kde4-okular");
    ASSERT_TRUE(okular);
    EXPECT_EQ(okular->path, tree.path(system + "kde4/okular.desktop"));
    auto flatpakEntry = AppCatalog::findDesktopEntry(folders, "org.mozilla.firefox");
    ASSERT_TRUE(flatpakEntry);
    EXPECT_EQ(flatpakEntry->flatpakID, "org.mozilla.firefox");
    EXPECT_FALSE(AppCatalog::findDesktopEntry(folders, "okular"));
}
