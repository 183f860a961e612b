#pragma once

#include "platform/Profile.h"

#include <compare>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace brenvo {

// One installed application: a Mac application bundle or a Linux desktop entry.
struct InstalledApp {
    std::string path; // the bundle, or the desktop-entry file
    // What users are shown: the bundle's file name without its extension, or the entry's Name.
    std::string name;
    std::optional<std::string> version;
    std::optional<std::string> bundleID; // the bundle identifier, or the desktop-file id without ".desktop"
    // The normalized names it answers to, each longer than 2 characters; possibly none.
    std::set<std::string> keys;
    // The file the entry runs, when it names one by its real path (an AppImage, a program in the home
    // folder); empty for a bundle, a bare command name or a Flatpak.
    std::string program;
};

// What an installer's file name says about its application.
struct InstallerName {
    std::string key; // normalized; empty when the name holds nothing but noise and versions
    std::optional<std::string> firstWord;
    std::optional<std::string> version;

    bool operator==(const InstallerName&) const = default;
};

// A desktop entry's [Desktop Entry] group, as far as applications are concerned.
struct DesktopEntry {
    std::string id;   // the desktop-file id without ".desktop": "kde4/foo.desktop" gives "kde4-foo"
    std::string path; // the file as found in its applications folder
    std::string name; // the unlocalised Name
    std::string icon; // Icon: a theme icon's name or a picture's path
    bool application = false; // Type=Application
    bool hidden = false;      // Hidden=true: the entry counts as deleted
    bool missingProgram = false; // TryExec or an absolute Exec program that isn't there
    // The program Exec starts (a path or a bare name, any `env VAR=…` prefix skipped); for a Flatpak
    // entry the flatpak command itself.
    std::string program;
    std::optional<std::string> flatpakID; // the Flatpak application this entry starts
    std::optional<std::string> version;   // from Flatpak's metadata, where found

    // An application the user has installed.
    bool usable() const { return application && !hidden && !missingProgram; }
};

// An immutable snapshot of the installed applications, taken at the start of each scan, and the means of
// telling which of them an installer file is for. Matching is conservative: an ambiguous name matches
// nothing, since a wrong answer would call a needed file safe to remove.
class AppCatalog {
public:
    AppCatalog() = default;
    // `extraNoiseWords` are the system's words in installer names beyond noiseWords().
    explicit AppCatalog(std::vector<InstalledApp> apps, std::vector<std::string> extraNoiseWords = {});

    static std::shared_ptr<const AppCatalog> empty();
    // The applications of `profile`: bundles in its application folders on the Mac, desktop entries on
    // Linux. Never fails: an unreadable folder just contributes nothing.
    static std::shared_ptr<const AppCatalog> load(const Profile& profile);

    const std::vector<InstalledApp>& apps() const { return apps_; } // in discovery order

    // The one installed application an installer file is for, or nothing when none or several fit.
    std::optional<InstalledApp> app(std::string_view installerName) const;
    // The installed application whose entry runs the file at `path` (a real path): that file is the
    // application itself, not an installer for it.
    std::optional<InstalledApp> appRunning(std::string_view path) const;

    static InstallerName parseInstallerName(std::string_view fileName,
                                            const std::vector<std::string>& extraNoiseWords = {});
    // Numeric, piece by piece: 1.10 is after 1.9, and 2 equals 2.0.0.
    static std::strong_ordering compareVersions(std::string_view a, std::string_view b);
    // Lower case, letters and numbers only; bytes that aren't UTF-8 are dropped.
    static std::string normalize(std::string_view text);

    static const std::set<std::string>& noiseWords();
    static const std::set<std::string>& genericBundleSuffixes();

    // The loaders behind load(), and what the application seam shares with them.
    // `.app` bundles in `folders` and one level of subfolders, each path once.
    static std::vector<InstalledApp> loadBundles(const std::vector<std::string>& folders);
    static InstalledApp readBundle(const std::string& path);
    // Usable desktop entries below `folders`; an id found once hides every later file with that id.
    static std::vector<InstalledApp> loadDesktopEntries(const std::vector<std::string>& folders);
    // The first file with desktop-file id `id` in `folders`, whatever it holds; nothing when none reads.
    static std::optional<DesktopEntry> findDesktopEntry(const std::vector<std::string>& folders,
                                                        std::string_view id);
    // `folder` is the applications folder the entry was found in, which tells a Flatpak export's
    // installation. Nothing when the file can't be read or has no [Desktop Entry] group.
    static std::optional<DesktopEntry> readDesktopEntry(const std::string& path, std::string id,
                                                        const std::string& folder = {});
    static InstalledApp installedApp(const DesktopEntry& entry);

private:
    static std::optional<InstalledApp> unique(const std::vector<const InstalledApp*>& matches);

    std::vector<InstalledApp> apps_;
    std::vector<std::string> extraNoiseWords_;
};

} // namespace brenvo
