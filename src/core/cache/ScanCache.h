#pragma once

#include "cache/ChangeTracker.h"
#include "tree/FileNode.h"
#include "util/Date.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace brenvo {

// The last scan of each location, kept on disk so a folder opens at once with its remembered tree, and an
// older copy, the baseline, to compare sizes with. Per location, sharing one stem: "{stem}.plist" (the
// snapshot), "{stem}-baseline.plist" and "{stem}.summary.json" (the top level only, for the overview).
// Snapshots are binary property lists: {rootPath, date, root}, each node an entry with the keys n k s c
// and, where they apply, m r x ch. Anything unreadable counts as absent, without a word.
namespace ScanCache {

struct Snapshot {
    std::string rootPath;
    Date date;
    NodeRef root;
};

// 24 hex digits: the first 12 bytes of the SHA-256 of the location's standardised path.
std::string stem(std::string_view locationPath);
std::string fileURL(std::string_view locationPath, const std::string& folder, bool baseline);
std::string summaryPath(std::string_view locationPath, const std::string& folder);

// The snapshot record of a tree, streamed to `out` without a second copy of the tree. False on a write
// failure.
bool encodeSnapshot(const FileNode& root, Date date, std::FILE* out);
std::optional<Snapshot> decodeSnapshot(std::string_view data);
std::optional<Snapshot> readSnapshot(const std::string& file);

// The summary record: {date, size, children: [slice…]}, as JSON text.
std::string makeSummary(const FileNode& root, Date date);

// Writes the snapshot (and, unless `baseline`, the summary) of a tree for a location. The encoding happens
// now, on the caller's thread, which owns the tree; the files are replaced atomically on the write queue,
// in the order of the calls, so the last save wins. Failures are silent.
void save(const FileNode& root, std::string_view locationPath, Date date, const std::string& folder, bool baseline);

// The same save, done a few entries at a time, so a thread with an event loop can do other work in
// between. The tree must not change while the save runs: a caller whose tree changed drops the save and
// starts again. A save dropped before its end leaves nothing behind.
class StepwiseSave {
public:
    // `alsoBaseline` writes the same snapshot as the baseline too.
    StepwiseSave(const FileNode& root, std::string locationPath, Date date, std::string folder, bool alsoBaseline);
    ~StepwiseSave();
    StepwiseSave(const StepwiseSave&) = delete;
    StepwiseSave& operator=(const StepwiseSave&) = delete;

    // Goes on through at most `entries` more entries; true once the save is done (handed to the write
    // queue) or has failed.
    bool step(size_t entries);

private:
    struct State;
    std::unique_ptr<State> state_;
};
// Waits for the writes queued so far (tests, and the end of a command-line run).
void waitForWrites();

// The baseline's sizes by path: every folder, and files and packages of at least `minimumFileSize`;
// aggregates and what they folded are not in it. Nothing when there is no readable baseline.
std::optional<std::pair<ChangeTracker::Baseline, Date>> baselineSizes(std::string_view locationPath,
                                                                      const std::string& folder,
                                                                      int64_t minimumFileSize);

// What every finished scan of a location goes through, off the main thread or in the command line: the
// marks of growth since the remembered baseline (answering the baseline's date, if there is one), then
// the snapshot and, when the baseline is missing or a week old, a new baseline.
std::optional<Date> markChanges(FileNode& tree, std::string_view locationPath, const std::string& folder);
// Whether a finished scan becomes the new baseline: when there is none, or it is over a week old.
bool baselineDue(std::optional<Date> baselineDate, Date now);
void remember(const FileNode& tree, std::string_view locationPath, Date now, std::optional<Date> baselineDate,
              const std::string& folder);

} // namespace ScanCache
} // namespace brenvo
