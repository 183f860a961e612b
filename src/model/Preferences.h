#pragma once

#include <QString>
#include <QStringList>
#include <string>
#include <vector>
#include <string_view>

namespace brenvo {

// The user's settings: seven keys in the per-user store (an INI file under the XDG config folder on
// Linux), each read fresh so a change counts at once. Safe on any thread.
namespace Preferences {

inline constexpr auto kUndoSeconds = "undoSeconds";
inline constexpr auto kWarnBelowGB = "warnBelowGB";
inline constexpr auto kLowSpaceWarnings = "lowSpaceWarnings";
inline constexpr auto kShowInMenuBar = "showInMenuBar";
inline constexpr auto kExcludedFolders = "excludedFolders";
inline constexpr auto kFolderChart = "folderChart";
inline constexpr auto kHasSeenWelcome = "hasSeenWelcome";

// Stores true for the two switches that code outside the screens reads as plain booleans, where an unset
// key would otherwise read as false. Called once at start-up.
void registerDefaults();

// Seconds a deletion can be undone: 5 in demonstration mode, else the stored value if above 0, else 8.
double undoSeconds();
double storedUndoSeconds(); // the raw stored value, 8 when unset; what the settings picker shows
int warnBelowGB();          // 0 or less means automatic
bool lowSpaceWarnings();
bool showInMenuBar();
QStringList excludedFolders();
// The same folders as the file system spells them, for the scanner.
std::vector<std::string> excludedPaths();
QString folderChart(); // "rings" shows rings; anything else the map
bool hasSeenWelcome();

void setUndoSeconds(double seconds);
void setWarnBelowGB(int gigabytes);
void setLowSpaceWarnings(bool on);
void setShowInMenuBar(bool on);
void setExcludedFolders(const QStringList& paths);
void setFolderChart(const QString& chart);
void setHasSeenWelcome(bool seen);

// True when `path` is an excluded folder or lies inside one. Exact strings: "/a/Movies" does not exclude
// "/a/Movies2", and another spelling of the same folder is another entry.
bool isExcluded(std::string_view path);
bool isExcluded(const QString& path);

} // namespace Preferences
} // namespace brenvo
