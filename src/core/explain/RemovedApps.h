#pragma once

#include "explain/AppSystem.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What applications leave behind once they are gone: here, the well-known folders in the home that no
// uninstall cleans, and the tests of whether anything still uses one.
namespace brenvo::RemovedApps {

struct AppHomeFolder {
    std::string name;                  // the product, as shown
    std::vector<std::string> apps;     // identifiers of the applications that use the folder
    std::vector<std::string> commands; // command-line tools that use it
    std::vector<std::string> paths;    // relative to the home folder
    std::string contents;              // what it holds, to follow "Holds "
};

const std::vector<AppHomeFolder>& homeFolders();

// Where command-line tools are installed, in the order they are looked for.
std::vector<std::string> commandFolders(const std::string& home);

// True unless an application of `folder` (other than `ignoring`) is installed or running, or one of its
// commands is an executable file in `commandFolders`. Cheaper tests first.
bool isLeftOver(const AppHomeFolder& folder, const std::optional<std::string>& ignoring,
                const std::vector<std::string>& commandFolders, const AppSystem& system);

// The system knows where the application is, it still exists there, and not in a Trash: an application
// in the Trash counts as removed, though the system still knows it.
bool isInstalled(const std::string& identifier, const AppSystem& system);

// The table's entry for exactly `path`, a folder right in `home`'s listed places; nothing for anything
// inside one.
const AppHomeFolder* listedFolder(std::string_view path, std::string_view home);

// The shown name of the first of the folder's applications that runs; the folder's name when it has none.
std::optional<std::string> runningApp(const AppHomeFolder& folder, const AppSystem& system);

// The name of the first of the folder's applications that is installed: a bundle's file name without
// its extension, a desktop entry's Name.
std::optional<std::string> installedApp(const AppHomeFolder& folder, const AppSystem& system);

} // namespace brenvo::RemovedApps
