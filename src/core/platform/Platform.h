#pragma once

#include "explain/AppSystem.h"
#include "platform/Profile.h"
#include "scan/DiskScanner.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <memory>
#include <string>
#include <vector>

// The platform seam: what the program asks of the system it runs on. Answered by the platform library
// (src/platform), which the build picks for the system; the engine only declares the questions.
namespace brenvo::platform {

// Demonstration mode: BRENVO_DEMO is set in the environment. Fixed for the life of the process.
bool isDemo();

// The profile in force, chosen once: demonstration mode always has the Mac profile over the demo home;
// otherwise BRENVO_PROFILE=mac|linux (tests point HOME at a fixture), else the running system's own.
const Profile& profile();

// What a scan needs of the system: the profile's package extensions and iCloud path, and the file
// systems not to enter.
ScanEnvironment scanEnvironment();

// A running watch on a folder and everything below it. Destroying it stops it; no handler call follows.
class FolderEvents {
public:
    virtual ~FolderEvents() = default;
};
using FolderEventHandler = std::function<void(std::vector<std::string> paths)>;

// The system-specific answers.
std::string homeDirectory();              // the user's home, real and standardised
Profile systemProfile(const std::string& home);
std::shared_ptr<const MountRules> mountRules();
// How a watch stands, told on the watch's own thread: every folder is watched, or the system has no
// watches left and the watch has ended (whatever it held is given back).
enum class WatchState { ready, exhausted };
struct WatchOptions {
    std::set<std::string> skipped;                  // real paths of folders not to watch, nor anything inside
    std::function<void(WatchState)> onState;        // called once ready, and again if the watches run out
    size_t maxWatches = 0;                          // fewer than the system's limit, for tests; 0: no cap
};
// Starts watching `root`; batches of changed paths (files and folders, in the tree's spelling) arrive
// about once a second on a thread of the watch's own. Nothing when the system can't watch this root.
std::unique_ptr<FolderEvents> watchFolder(const std::string& root, FolderEventHandler handler,
                                          WatchOptions options = {});
// The folders the system says changed since an event id, or nothing when that can't be known (Linux keeps
// no history of file-system events, so it always answers nothing: every place counts as touched).
std::optional<std::set<std::string>> changedFolders(uint64_t sinceEventID, double timeoutSeconds);
// When the item was last opened, as far as the system keeps track; nothing when it doesn't (on Linux the
// access time, unless its file system is mounted without access times).
std::optional<Date> lastOpened(const std::string& path);
// Installed and running applications by identifier, under the profile in force.
std::shared_ptr<const AppSystem> appSystem();
// The same, for `profile`'s application folders.
std::shared_ptr<const AppSystem> appSystem(const Profile& profile);
// Whether the program may read every folder: on a Mac only with Full Disk Access, which is probed by
// opening a file only such a program may open; elsewhere always.
bool hasFullDiskAccess();
// Where the program keeps caches it can rebuild (remembered scans) and records it must not lose.
std::string cacheFolder();
std::string stateFolder();
// Where remembered scans are kept, under the cache folder.
std::string scansFolder();

// The user's other disks: writable, browsable mounts other than "/", in the system's order.
std::vector<std::string> mountedDisks();

} // namespace brenvo::platform
