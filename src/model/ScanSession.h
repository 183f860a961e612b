#pragma once

#include <QElapsedTimer>
#include <QTimer>

#ifndef Q_MOC_RUN
#include "FolderWatcher.h"
#include "SnapshotSaver.h"
#include "explain/AppCatalog.h"
#include "scan/DiskScanner.h"
#include "scan/ScanLocation.h"
#include "tree/FileNode.h"
#include "util/Date.h"

#include <functional>
#include <map>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>
#endif

namespace brenvo {

class StorageModel;

// The life of a scan: the walk off the main thread, a remembered tree shown meanwhile, progress, the
// watcher, and the live changes that keep the tree on show up to date afterwards. A part of StorageModel,
// which announces its changes.
class ScanSession {
public:
    struct Remembered {
        NodeRef tree;
        Date date;
    };
    // Reads the remembered tree of a location's path, off the main thread.
    using SnapshotSource = std::function<std::optional<Remembered>(const std::string& locationPath)>;
    // A lost batch of events (the root's own path) rescans the root at most this often.
    static constexpr int kRootRescanMilliseconds = 60'000;

    explicit ScanSession(StorageModel& model);
    ~ScanSession();

    FileNode* root() const { return root_.get(); }
    bool isScanning() const { return isScanning_; }
    bool isRefreshing() const { return isRefreshing_; }
    std::optional<Date> scannedAt() const { return scannedAt_; }
    const ScanProgress& progress() const { return progress_; }
    const FolderWatcher& watcher() const { return watcher_; }
    const std::vector<std::string>& changesDuringScan() const { return changesDuringScan_; }
    int scanID() const { return scanID_; }
    std::optional<Date> changesSince() const { return changesSince_; }
    bool isRescanWaiting() const { return rescanTimer_.isActive(); }
    const SnapshotSaver& saver() const { return saver_; }

    void scan(const ScanLocation& location);
    void cancel();
    void saveCache();
    void receiveLiveChanges(std::vector<std::string> paths, const std::string& rootPath);
    void applyLiveChanges(const std::vector<std::string>& paths, const std::string& rootPath);
    void setSnapshotSource(SnapshotSource source) { snapshotSource_ = std::move(source); }
    // Fewer watches than the system allows, for tests of running out; 0 for the system's limit.
    void setWatchLimit(size_t watches) { watchLimit_ = watches; }
    // Drops the tree with the place it came from.
    void clearTree() { root_ = nullptr; }
    void setRoot(NodeRef root) { root_ = std::move(root); }

private:
    struct Outcome {
        NodeRef tree;
        std::optional<std::string> error; // a failure's words; none with a tree or a cancellation
    };

    void showRemembered(NodeRef tree, Date date, std::shared_ptr<const AppCatalog> catalog, int id);
    void finish(Outcome outcome, std::shared_ptr<const AppCatalog> catalog, std::optional<Date> baselineDate, int id);
    void apply(const std::vector<std::string>& paths, const std::string& rootPath, bool replaying);
    void rescanRoot(const std::string& rootPath);
    void remeasure(FileNode* node);
    void measureAdded(const std::string& path, const std::string& parent);
    void applyReplacing(NodeRef fresh, FileNode* old);
    void setScanState(bool scanning, bool refreshing);

    StorageModel& model_;
    NodeRef root_;
    bool isScanning_ = false;
    bool isRefreshing_ = false;
    std::optional<Date> scannedAt_;
    ScanProgress progress_;
    std::optional<std::stop_source> scanTask_;
    FolderWatcher watcher_;
    std::vector<std::string> changesDuringScan_;
    int scanID_ = 0;
    std::optional<Date> changesSince_;
    SnapshotSource snapshotSource_;
    // Nodes being measured anew off the main thread, by request number: only this thread touches them.
    std::map<uint64_t, NodeRef> measuring_;
    uint64_t nextMeasure_ = 0;
    size_t watchLimit_ = 0;
    SnapshotSaver saver_; // after the tree it saves, so its last save at the end still finds it
    QElapsedTimer sinceRootRescan_;
    QTimer rescanTimer_;
};

} // namespace brenvo
