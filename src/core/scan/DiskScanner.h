#pragma once

#include "scan/MountRules.h"
#include "scan/ScanProgress.h"
#include "tree/FileNode.h"

#include <map>
#include <memory>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <vector>

namespace brenvo {

// A scan that could not start: the root is missing, unreadable or nothing a scan can measure.
// Why a scan couldn't start. The reason is a phrase without a final period (the system's words for an
// error, or ours), to be put into a sentence by format::because.
class ScanError : public std::runtime_error {
public:
    ScanError(std::string path, int code, const std::string& reason)
        : std::runtime_error(reason), path_(std::move(path)), code_(code) {}
    const std::string& path() const { return path_; }
    int code() const { return code_; } // errno, or 0 when no system call failed
private:
    std::string path_;
    int code_;
};

class ScanCancelled : public std::exception {
public:
    const char* what() const noexcept override { return "The scan was cancelled."; }
};

// What a scan needs to know of the system it runs on; the model fills it from the active profile.
struct ScanEnvironment {
    std::vector<std::string> packageExtensions; // a folder with one of these extensions is a package
    std::string iCloudDrivePath;                // the folder shown as "iCloud Drive"
    std::shared_ptr<const MountRules> mounts;   // file systems not to enter; none means enter all
    unsigned threads = 0;                       // workers of a parallel scan; 0: sixteen per core, 16 to 64
};

// Walks one folder into a tree of sizes. Sizes are allocated bytes; symbolic links are neither followed
// nor counted nor shown; hard links count every time. Folders wider than `maxChildren` fold their
// smallest entries into one aggregate node; packages keep their totals but no children.
class DiskScanner {
public:
    using Skipped = std::map<std::string, std::string>; // folder path → reason shown

    DiskScanner(int maxChildren, const Skipped& skipped = {}, ProgressReport report = {},
                ScanEnvironment environment = {});

    // A serial walk on the calling thread.
    NodeRef scan(const std::string& path, std::stop_token stop = {});
    // The same walk spread over worker threads; blocks until it ends. The result is the same tree a serial
    // scan gives. A stop request fails it with ScanCancelled, never a partial tree.
    NodeRef scanInParallel(const std::string& path, std::stop_token stop = {});

    // Resolves links and "." parts, and drops the data-volume prefix so a folder has one spelling.
    static std::string realPath(const std::string& path);

    int maxChildren() const { return maxChildren_; }
    const Skipped& skipped() const { return skipped_; }

private:
    NodeRef run(const std::string& path, std::stop_token stop, unsigned threads);

    int maxChildren_;
    Skipped skipped_;
    ProgressReport report_;
    ScanEnvironment environment_;
};

} // namespace brenvo
