#include "ScanSession.h"

#include "MainThread.h"
#include "StorageModel.h"
#include "Text.h"
#include "cache/ScanCache.h"
#include "format/Formatters.h"
#include "live/LiveChangePlan.h"
#include "platform/Platform.h"
#include "scan/FileSystem.h"
#include "util/Paths.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <set>

namespace brenvo {

namespace {

constexpr int kMaxChildren = 250;

// Opens once, for good; waiting ends when it is open or the waiter is asked to stop.
class Latch {
public:
    void open() {
        {
            std::lock_guard lock(mutex_);
            open_ = true;
        }
        opened_.notify_all();
    }
    void wait(std::stop_token stop) {
        std::unique_lock lock(mutex_);
        opened_.wait(lock, stop, [this] { return open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable_any opened_;
    bool open_ = false;
};

bool isFolderOnDisk(const std::string& path) {
    fs::EntryValues values;
    return fs::statPath(path, values) == 0 && values.isDirectory && !values.isSymbolicLink;
}

} // namespace

ScanSession::ScanSession(StorageModel& model)
    : model_(model), saver_(model, [this]() -> std::optional<SnapshotSaver::Tree> {
          if (!root_ || !model_.location()) return std::nullopt;
          return SnapshotSaver::Tree{root_, model_.location()->path(platform::profile()), model_.revision()};
      }) {
    rescanTimer_.setSingleShot(true);
    QObject::connect(&rescanTimer_, &QTimer::timeout, &model_, [this] {
        if (root_ && !isScanning_ && !isRefreshing_) rescanRoot(root_->path());
    });
}

ScanSession::~ScanSession() {
    if (scanTask_) scanTask_->request_stop();
}

void ScanSession::setScanState(bool scanning, bool refreshing) {
    if (isScanning_ == scanning && isRefreshing_ == refreshing) return;
    isScanning_ = scanning;
    isRefreshing_ = refreshing;
    emit model_.scanStateChanged();
}

void ScanSession::scan(const ScanLocation& location) {
    if (scanTask_) scanTask_->request_stop(); // it may run on; scanID keeps it from having any effect
    watcher_.stop();
    rescanTimer_.stop();
    saver_.beforeNewScan();
    ++scanID_;
    const int id = scanID_;
    const std::string url = location.path(platform::profile());
    const std::string resolved = DiskScanner::realPath(url);
    changesDuringScan_.clear();

    QPointer<StorageModel> self(&model_);
    DiskScanner::Skipped skipped = StorageModel::skippedTable();
    // The walk waits until the watches are in place, so no change can fall between the two.
    auto watching = std::make_shared<Latch>();
    std::set<std::string> unwatched;
    for (const auto& [folder, reason] : skipped) unwatched.insert(folder);
    watcher_.watch(
        resolved, std::move(unwatched),
        [self, resolved](std::vector<std::string> paths) {
            postToMain(self, [paths = std::move(paths), resolved](StorageModel& model) mutable {
                model.session_.receiveLiveChanges(std::move(paths), resolved);
            });
        },
        [self, watching, id](FolderWatcher::State state) {
            watching->open();
            postToMain(self, [state, id](StorageModel& model) {
                if (model.session_.scanID_ != id) return;
                model.session_.watcher_.settle(state);
                emit model.scanStateChanged();
            });
        },
        watchLimit_);

    progress_ = ScanProgress{};
    emit model_.progressChanged();
    model_.setErrorMessage(std::nullopt);

    const bool refreshing = root_ && (root_->path() == resolved || root_->path() == url);
    if (refreshing) {
        setScanState(false, true);
    } else {
        root_ = nullptr;
        model_.navigation_.clear();
        setScanState(true, false);
    }
    model_.bumpRevision();

    ScanEnvironment environment = platform::scanEnvironment();
    SnapshotSource remembered = snapshotSource_;
    scanTask_ = model_.tasks_.start([self, id, url, refreshing, skipped = std::move(skipped),
                                     environment = std::move(environment), remembered = std::move(remembered),
                                     watching](std::stop_token stop) {
        // The profile is fixed for the life of the process, so reading it here is safe.
        std::shared_ptr<const AppCatalog> catalog = AppCatalog::load(platform::profile());
        if (!refreshing && remembered) {
            if (auto tree = remembered(url); tree && tree->tree && !stop.stop_requested()) {
                postToMain(self, [tree = std::move(*tree), catalog, id](StorageModel& model) mutable {
                    model.session_.showRemembered(std::move(tree.tree), tree.date, catalog, id);
                });
            }
        }
        auto report = [self, id](const ScanProgress& progress) {
            postToMain(self, [progress, id](StorageModel& model) {
                ScanSession& session = model.session_;
                if (session.scanID_ != id) return;
                session.progress_ = progress;
                emit model.progressChanged();
            });
        };
        DiskScanner scanner(kMaxChildren, skipped, report, environment);
        Outcome outcome;
        watching->wait(stop);
        try {
            outcome.tree = scanner.scanInParallel(url, stop);
        } catch (const ScanCancelled&) {
        } catch (const ScanError& error) {
            outcome.error = format::because("The folder " + format::quoted(lastPathComponent(error.path())) +
                                                " couldn't be opened",
                                            error.what());
        }
        // Still off the main thread, on a tree no one else holds: the marks of growth since the baseline.
        std::optional<Date> baselineDate;
        if (outcome.tree) baselineDate = ScanCache::markChanges(*outcome.tree, url, platform::scansFolder());
        postToMain(self, [outcome = std::move(outcome), catalog, baselineDate, id](StorageModel& model) mutable {
            model.session_.finish(std::move(outcome), catalog, baselineDate, id);
        });
    });
}

void ScanSession::showRemembered(NodeRef tree, Date date, std::shared_ptr<const AppCatalog> catalog, int id) {
    if (id != scanID_ || !isScanning_) return; // a fast real scan already won, or the scan is gone
    root_ = std::move(tree);
    model_.navigation_.keepPlace({}, {});
    model_.setCatalog(std::move(catalog));
    scannedAt_ = date;
    changesSince_ = std::nullopt;
    setScanState(false, true);
    model_.deleteFlow_.hidePendingDeletions(*root_);
    model_.navigation_.applyReveal(false);
    model_.bumpRevision();
}

void ScanSession::finish(Outcome outcome, std::shared_ptr<const AppCatalog> catalog, std::optional<Date> baselineDate,
                         int id) {
    if (id != scanID_) return;
    setScanState(false, false);
    model_.setCatalog(std::move(catalog));
    if (outcome.tree) {
        // Keep the user's place: the same folder and the same selected paths, though every id is new.
        FileNode* current = model_.current();
        const std::string currentPath = current ? current->path() : std::string();
        const std::vector<std::string> selected = model_.navigation_.selectedPaths();
        model_.deleteFlow_.hidePendingDeletions(*outcome.tree);
        root_ = std::move(outcome.tree);
        model_.navigation_.keepPlace(currentPath, selected);
        scannedAt_ = Date::now();
        model_.navigation_.applyReveal(true);
        changesSince_ = baselineDate;

        std::vector<std::string> held;
        held.swap(changesDuringScan_);
        // The walk may or may not have seen these; measuring again is cheap and always right.
        if (!held.empty()) apply(held, root_->path(), true);

        saver_.saveSoon(ScanCache::baselineDue(baselineDate, Date::now()));
        if (root_->couldNotRead()) {
            QString message = QString::fromStdString(platform::profile().say(
                "macOS didn't allow access to \u201c{name}\u201d. You can allow it in System Settings \u2192 Privacy "
                "& Security \u2192 Files and Folders."));
            model_.setErrorMessage(message.replace(QStringLiteral("{name}"), toQString(root_->name())));
        }
    } else if (outcome.error) {
        watcher_.stop();
        changesDuringScan_.clear();
        model_.setErrorMessage(QString::fromStdString(*outcome.error));
    }
    emit model_.scanStateChanged();
    model_.bumpRevision();
}

void ScanSession::cancel() {
    if (scanTask_) scanTask_->request_stop();
    watcher_.stop();
    rescanTimer_.stop();
    changesDuringScan_.clear();
    ++scanID_;
    const bool wasRefreshing = isRefreshing_;
    setScanState(false, false);
    if (!wasRefreshing) model_.setLocation(std::nullopt); // a refresh leaves the tree on show, though unwatched
}

void ScanSession::saveCache() { saver_.request(); }

void ScanSession::receiveLiveChanges(std::vector<std::string> paths, const std::string& rootPath) {
    constexpr size_t kHeldAtMost = 20000;
    if (!isScanning_ && !isRefreshing_) {
        applyLiveChanges(paths, rootPath);
    } else if (changesDuringScan_.size() < kHeldAtMost) {
        changesDuringScan_.insert(changesDuringScan_.end(), std::make_move_iterator(paths.begin()),
                                  std::make_move_iterator(paths.end()));
    }
}

void ScanSession::applyLiveChanges(const std::vector<std::string>& paths, const std::string& rootPath) {
    apply(paths, rootPath, false);
}

void ScanSession::rescanRoot(const std::string& rootPath) {
    if (!isFolderOnDisk(rootPath)) {
        // The place itself went (or is a file now): show the nearest folder that is still there.
        std::string above = rootPath;
        do above = parentPath(above);
        while (!above.empty() && above != "/" && !isFolderOnDisk(above));
        model_.explore(above.empty() ? "/" : above);
        return;
    }
    sinceRootRescan_.start();
    if (const auto& location = model_.location()) scan(*location);
}

void ScanSession::apply(const std::vector<std::string>& paths, const std::string& rootPath, bool replaying) {
    if (!root_ || root_->path() != rootPath) return; // a batch for an older tree
    if (isScanning_ || isRefreshing_) return;
    if (std::find(paths.begin(), paths.end(), rootPath) != paths.end()) {
        // The watcher lost track of what changed. The scan that just finished covers a held batch; otherwise
        // everything is measured again, but not more than once a minute while events keep coming.
        if (!replaying || !isFolderOnDisk(rootPath)) {
            const qint64 since = sinceRootRescan_.isValid() ? sinceRootRescan_.elapsed() : kRootRescanMilliseconds;
            if (since >= kRootRescanMilliseconds || !isFolderOnDisk(rootPath)) {
                rescanRoot(rootPath);
                return;
            }
            if (!rescanTimer_.isActive()) rescanTimer_.start(static_cast<int>(kRootRescanMilliseconds - since));
        }
    }
    NodeRef root = root_;
    LiveChangePlan plan = LiveChangePlan::make(
        paths, rootPath, StorageModel::ignoredFolders(),
        [](const std::string& path) {
            fs::EntryValues values;
            return fs::statPath(path, values) == 0;
        },
        [&root](const std::string& path) { return root->find(path); });

    if (!plan.removed.empty()) {
        FileNode* current = model_.current();
        const std::string currentPath = current ? current->path() : std::string();
        const std::vector<std::string> selected = model_.navigation_.selectedPaths();
        // The nodes are held until every screen has been told, so nothing reads a freed node meanwhile.
        std::vector<NodeRef> gone;
        for (const std::string& path : plan.removed) {
            FileNode* node = root_->find(path);
            if (!node || !node->parent()) continue;
            gone.emplace_back(node);
            node->removeFromParent();
        }
        model_.navigation_.keepPlace(currentPath, selected);
        model_.bumpRevision();
        saveCache();
    }
    for (const std::string& path : plan.remeasure)
        if (FileNode* node = root_->find(path)) remeasure(node);
    for (const auto& added : plan.added) measureAdded(added.path, added.parent);
}

void ScanSession::remeasure(FileNode* node) {
    const uint64_t request = ++nextMeasure_;
    measuring_[request] = NodeRef(node);
    QPointer<StorageModel> self(&model_);
    model_.tasks_.start([self, request, path = node->path(), skipped = StorageModel::skippedTable(),
                         environment = platform::scanEnvironment()](std::stop_token stop) {
        NodeRef fresh;
        try {
            // A link in the place of what was measured is not followed: the old node stays until a scan.
            fs::EntryValues values;
            if (fs::statPath(path, values) == 0 && !values.isSymbolicLink)
                fresh = DiskScanner(kMaxChildren, skipped, {}, environment).scan(path, stop);
        } catch (const std::exception&) {
        }
        postToMain(self, [request, fresh = std::move(fresh)](StorageModel& model) mutable {
            ScanSession& session = model.session_;
            auto found = session.measuring_.find(request);
            if (found == session.measuring_.end()) return;
            NodeRef old = std::move(found->second);
            session.measuring_.erase(found);
            // The tree may have changed meanwhile: only a node still in it is replaced.
            if (fresh && old->parent()) session.applyReplacing(std::move(fresh), old.get());
        });
    });
}

void ScanSession::measureAdded(const std::string& path, const std::string& parent) {
    QPointer<StorageModel> self(&model_);
    model_.tasks_.start([self, path, parent, skipped = StorageModel::skippedTable(),
                         environment = platform::scanEnvironment()](std::stop_token stop) {
        NodeRef fresh;
        try {
            fs::EntryValues values;
            if (fs::statPath(path, values) != 0 || values.isSymbolicLink) return; // links are never shown
            fresh = DiskScanner(kMaxChildren, skipped, {}, environment).scan(path, stop);
        } catch (const std::exception&) {
            return;
        }
        postToMain(self, [path, parent, fresh = std::move(fresh)](StorageModel& model) mutable {
            ScanSession& session = model.session_;
            if (!session.root_) return;
            FileNode* folder = session.root_->find(parent);
            if (!folder || folder->find(path)) return; // another event got there first
            model.deleteFlow_.hidePendingDeletions(*fresh);
            fresh->reinsert(folder);
            model.bumpRevision();
            session.saveCache();
        });
    });
}

void ScanSession::applyReplacing(NodeRef fresh, FileNode* old) {
    // The folder on show and the selection may lie inside the old node: they are found again by path.
    FileNode* current = model_.current();
    const std::string currentPath = current ? current->path() : std::string();
    const std::vector<std::string> selected = model_.navigation_.selectedPaths();
    NodeRef keep(old);
    model_.deleteFlow_.hidePendingDeletions(*fresh);
    old->replace(fresh);
    model_.navigation_.keepPlace(currentPath, selected);
    model_.bumpRevision();
    saveCache();
}

} // namespace brenvo
