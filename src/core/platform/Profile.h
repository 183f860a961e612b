#pragma once

#if defined(linux)
#error "Build in standard C++ mode (-std=c++20): GNU mode defines the word 'linux' as a macro"
#endif

#include <map>
#include <string_view>
#include <utility>
#include <string>
#include <vector>

namespace brenvo {

// The facts about the user's system that the program's rules read as data: where the home folder's
// special places are, and which folders count as packages. The Mac profile holds the Mac's own layout;
// the Linux profile holds the freedesktop one. Demonstration mode always uses the Mac profile.
struct Profile {
    enum class Kind { mac, linux };

    Kind kind = Kind::linux;
    std::string home;            // standardised real path, no trailing slash
    std::string libraryPath;     // the app-data folder a scan skips; empty where there is none
    std::string iCloudDrivePath; // shown as "iCloud Drive"; it exists only on a Mac
    std::string trashPath;
    std::string snapDataPath; // where Snap applications keep their data ("~/snap"); empty on the Mac
    std::string downloadsPath;
    std::string desktopPath;
    std::string documentsPath;
    std::vector<std::string> standardFolders; // the home and its well-known folders
    std::vector<std::string> packageExtensions;
    // Installer files beyond the Mac's own kinds (dmg, pkg, …), and words in installer names that say
    // nothing about the application.
    std::vector<std::string> extraInstallerExtensions;
    std::vector<std::string> extraNoiseWords;
    // The operating system's own places, never offered for removal: folders whose whole inside belongs to
    // the system (a name ending in "*" stands for every top-level folder it starts), the places inside
    // them that a known spot manages and explains instead, and the folder of the accounts' home folders.
    // Empty on the Mac, whose rules keep the scan in the home folder.
    std::vector<std::string> systemFolders;
    std::vector<std::string> systemFolderExceptions;
    std::string usersFolder;
    // Where applications are found: application folders on the Mac, desktop-entry folders on Linux.
    std::vector<std::string> applicationFolders;
    // The program's words that name Mac things, and what this system calls them instead: whole sentences
    // and short phrases, replaced wherever they occur. Empty on the Mac.
    std::vector<std::pair<std::string, std::string>> dialect;

    static Profile mac(const std::string& home);
    // `userDirs` maps XDG names (DESKTOP, DOCUMENTS, DOWNLOAD, MUSIC, PICTURES, VIDEOS, PUBLICSHARE,
    // TEMPLATES) to absolute paths; a missing name takes its usual folder in the home.
    static Profile linux(const std::string& home, const std::map<std::string, std::string>& userDirs = {});

    bool isMac() const { return kind == Kind::mac; }
    // `text` in this system's words. Templates go through here before their values are filled in, so a
    // file that happens to be called "Finder" keeps its name.
    std::string say(std::string_view text) const;
};

// The folders both profiles treat as packages: measured whole, shown as one item.
const std::vector<std::string>& packageExtensions();

} // namespace brenvo
