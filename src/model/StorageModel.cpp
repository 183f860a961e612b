#include "StorageModel.h"

#include "MainThread.h"
#include "Preferences.h"
#include "Text.h"
#include "cache/ScanCache.h"
#include "live/LiveChangePlan.h"
#include "platform/Platform.h"
#include "scan/FileSystem.h"

#include <fcntl.h>
#include <unistd.h>

namespace brenvo {

namespace {

constexpr int kMaxChildren = 250;
constexpr double kBaselineMaxAge = 604800; // seconds: a week

QString say(const char* text) { return QString::fromStdString(platform::profile().say(text)); }

} // namespace

StorageModel::StorageModel(QObject* parent)
    : QObject(parent), deletions_(new DeletionLog(this)), catalog_(AppCatalog::empty()) {
    hasFullDiskAccess_ = checkFullDiskAccess();
    snapshotSource_ = [](const std::string& locationPath) -> std::optional<Remembered> {
        auto snapshot = ScanCache::readSnapshot(ScanCache::fileURL(locationPath, scansFolder(), false));
        if (!snapshot) return std::nullopt;
        return Remembered{std::move(snapshot->root), snapshot->date};
    };
    // An undone deletion whose items were cut out of a newer tree can only come back by a new scan.
    QPointer<StorageModel> self(this);
    deletions_->onUndo = [self](const std::vector<DeletionLog::Target>& targets) {
        if (!self) return;
        bool hidden = false;
        for (const auto& target : targets) hidden |= self->hiddenWhilePending_.erase(target.path) > 0;
        if (hidden && self->location_) self->scan(*self->location_);
    };
}

StorageModel::~StorageModel() {
    if (scanTask_) scanTask_->request_stop();
}

void StorageModel::setLocation(std::optional<ScanLocation> location) {
    if (location_ == location) return;
    location_ = std::move(location);
    emit locationChanged();
}

void StorageModel::setCurrent(FileNode* folder) {
    if (current_.get() == folder) return;
    current_ = NodeRef(folder);
    emit currentChanged();
}

void StorageModel::setSelection(QSet<quint64> ids) {
    if (selection_ == ids) return;
    selection_ = std::move(ids);
    emit selectionChanged();
}

void StorageModel::clearErrorMessage() { setErrorMessage(std::nullopt); }

void StorageModel::setErrorMessage(std::optional<QString> message) {
    if (errorMessage_ == message) return;
    errorMessage_ = std::move(message);
    emit errorMessageChanged();
}

void StorageModel::setPage(Page page) {
    if (page_ == page) return;
    page_ = page;
    emit pageChanged();
}

void StorageModel::setScanState(bool scanning, bool refreshing) {
    if (isScanning_ == scanning && isRefreshing_ == refreshing) return;
    isScanning_ = scanning;
    isRefreshing_ = refreshing;
    emit scanStateChanged();
}

void StorageModel::bumpRevision() {
    ++revision_;
    emit treeChanged();
}

void StorageModel::replaceTree(NodeRef root, FileNode* current) {
    root_ = std::move(root);
    current_ = NodeRef(current);
    emit currentChanged();
}

bool StorageModel::checkFullDiskAccess() {
    if (platform::isDemo() || !platform::profile().isMac()) return true;
    // A file only a program with Full Disk Access may open; it is never read.
    int fd = ::open("/Library/Application Support/com.apple.TCC/TCC.db", O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    ::close(fd);
    return true;
}

void StorageModel::refreshFullDiskAccess() {
    const bool access = checkFullDiskAccess();
    if (access == hasFullDiskAccess_) return;
    hasFullDiskAccess_ = access;
    emit scanStateChanged();
}

std::string StorageModel::scansFolder() { return joinPath(platform::cacheFolder(), "Scans"); }

StorageModel::Skipped StorageModel::skippedTable() {
    Skipped skipped;
    const Profile& profile = platform::profile();
    if (!profile.libraryPath.empty())
        skipped[profile.libraryPath] = profile.say(
            "Your Library folder holds app data and settings. The Overview explains the parts that matter, so it "
            "isn't counted here.");
    for (const QString& folder : Preferences::excludedFolders())
        skipped[toBytes(folder)] = "You excluded this folder in Settings, so Brenvo doesn't look inside it.";
    return skipped;
}

ScanLocation StorageModel::bestLocation(const std::string& path) {
    const Profile& profile = platform::profile();
    for (const ScanLocation& place : {ScanLocation::downloads(), ScanLocation::desktop(), ScanLocation::documents(),
                                      ScanLocation::iCloudDrive()}) {
        if (path.starts_with(place.path(profile) + "/")) return place;
    }
    const bool inHome = path.starts_with(profile.home + "/");
    const bool inLibrary = !profile.libraryPath.empty() &&
                           (path == profile.libraryPath || path.starts_with(profile.libraryPath + "/"));
    if (inHome && !inLibrary) return ScanLocation::home();
    auto slash = path.rfind('/');
    return ScanLocation::custom(slash == 0 ? std::string("/") : path.substr(0, slash));
}

void StorageModel::explore(const std::string& path) {
    setPage(Page::folder);
    setLocation(ScanLocation::custom(path));
}

void StorageModel::scan(const ScanLocation& location) {
    if (scanTask_) scanTask_->request_stop(); // it may run on; scanID keeps it from having any effect
    watcher_.stop();
    ++scanID_;
    const int id = scanID_;
    const std::string url = location.path();
    const std::string resolved = DiskScanner::realPath(url);
    changesDuringScan_.clear();

    QPointer<StorageModel> self(this);
    watcher_.watch(resolved, [self, resolved](std::vector<std::string> paths) {
        postToMain(self, [paths = std::move(paths), resolved](StorageModel& model) mutable {
            model.receiveLiveChanges(std::move(paths), resolved);
        });
    });

    Skipped skipped = skippedTable();
    progress_ = ScanProgress{};
    emit progressChanged();
    setErrorMessage(std::nullopt);

    const bool refreshing = root_ && (root_->path() == resolved || root_->path() == url);
    if (refreshing) {
        setScanState(false, true);
    } else {
        root_ = nullptr;
        current_ = nullptr;
        emit currentChanged();
        setSelection({});
        setScanState(true, false);
    }
    bumpRevision();

    ScanEnvironment environment = platform::scanEnvironment();
    std::vector<std::string> appFolders = {"/Applications", "/Applications/Utilities",
                                           joinPath(platform::profile().home, "Applications")};
    SnapshotSource remembered = snapshotSource_;
    scanTask_ = tasks_.start([self, id, url, refreshing, skipped = std::move(skipped),
                              environment = std::move(environment), appFolders = std::move(appFolders),
                              remembered = std::move(remembered)](std::stop_token stop) {
        std::shared_ptr<const AppCatalog> catalog = AppCatalog::load(appFolders);
        if (!refreshing && remembered) {
            if (auto tree = remembered(url); tree && tree->tree && !stop.stop_requested()) {
                postToMain(self, [tree = std::move(*tree), catalog, id](StorageModel& model) mutable {
                    model.showRemembered(std::move(tree.tree), tree.date, catalog, id);
                });
            }
        }
        auto report = [self, id](const ScanProgress& progress) {
            postToMain(self, [progress, id](StorageModel& model) {
                if (model.scanID_ != id) return;
                model.progress_ = progress;
                emit model.progressChanged();
            });
        };
        DiskScanner scanner(kMaxChildren, skipped, report, environment);
        ScanOutcome outcome;
        try {
            outcome.tree = scanner.scanInParallel(url, stop);
        } catch (const ScanCancelled&) {
        } catch (const ScanError& error) {
            std::string name(lastPathComponent(error.path()));
            outcome.error = "The folder \u201c" + name + "\u201d couldn't be opened: " + error.what() + ".";
        }
        // Still off the main thread, on a tree no one else holds: the marks of growth since the baseline.
        std::optional<Date> baselineDate;
        if (auto baseline = ScanCache::baselineSizes(url, scansFolder(), ChangeTracker::kMinimumNewSize)) {
            baselineDate = baseline->second;
            if (outcome.tree) ChangeTracker::apply(baseline->first, *outcome.tree, ChangeTracker::kMinimumNewSize);
        }
        postToMain(self, [outcome = std::move(outcome), catalog, baselineDate, id](StorageModel& model) mutable {
            model.finishScan(std::move(outcome), catalog, baselineDate, id);
        });
    });
}

void StorageModel::showRemembered(NodeRef tree, Date date, std::shared_ptr<const AppCatalog> catalog, int id) {
    if (id != scanID_ || !isScanning_) return; // a fast real scan already won, or the scan is gone
    FileNode* top = tree.get();
    replaceTree(std::move(tree), top);
    setSelection({});
    catalog_ = std::move(catalog);
    scannedAt_ = date;
    changesSince_ = std::nullopt;
    setScanState(false, true);
    hidePendingDeletions(*root_);
    applyReveal(false);
    bumpRevision();
}

void StorageModel::finishScan(ScanOutcome outcome, std::shared_ptr<const AppCatalog> catalog,
                              std::optional<Date> baselineDate, int id) {
    if (id != scanID_) return;
    setScanState(false, false);
    catalog_ = std::move(catalog);
    if (outcome.tree) {
        // Keep the user's place: the same folder and the same selected paths, though every id is new.
        const std::string currentPath = current_ ? current_->path() : std::string();
        std::set<std::string> selectedPaths;
        for (FileNode* item : listItems())
            if (selection_.contains(item->id())) selectedPaths.insert(item->path());

        NodeRef fresh = std::move(outcome.tree);
        hidePendingDeletions(*fresh);
        FileNode* place = currentPath.empty() ? nullptr : fresh->find(currentPath);
        FileNode* top = fresh.get();
        replaceTree(std::move(fresh), place ? place : top);
        QSet<quint64> selected;
        for (FileNode* child : current_->children())
            if (!child->isAggregate() && selectedPaths.contains(child->path())) selected.insert(child->id());
        setSelection(std::move(selected));
        scannedAt_ = Date::now();
        applyReveal(true);
        changesSince_ = baselineDate;

        std::vector<std::string> held;
        held.swap(changesDuringScan_);
        // The walk may or may not have seen these; measuring again is cheap and always right.
        if (!held.empty()) applyLiveChanges(held, root_->path());

        if (location_) {
            const bool baselineDue = !baselineDate || Date::now().seconds - baselineDate->seconds > kBaselineMaxAge;
            writeCache(*root_, baselineDue);
        }
        if (root_->couldNotRead()) {
            QString message = say("macOS didn't allow access to \u201c{name}\u201d. You can allow it in System "
                                  "Settings \u2192 Privacy & Security \u2192 Files and Folders.");
            setErrorMessage(message.replace(QStringLiteral("{name}"), toQString(root_->name())));
        }
    } else if (outcome.error) {
        watcher_.stop();
        changesDuringScan_.clear();
        setErrorMessage(QString::fromStdString(*outcome.error));
    }
    emit scanStateChanged();
    bumpRevision();
}

void StorageModel::cancelScan() {
    if (scanTask_) scanTask_->request_stop();
    watcher_.stop();
    changesDuringScan_.clear();
    ++scanID_;
    const bool wasRefreshing = isRefreshing_;
    setScanState(false, false);
    if (!wasRefreshing) setLocation(std::nullopt); // a refresh leaves the tree on show, though unwatched
}

void StorageModel::saveCache() {
    if (root_ && location_) writeCache(*root_, false);
}

void StorageModel::writeCache(FileNode& tree, bool baselineToo) {
    const std::string folder = scansFolder();
    const std::string url = location_->path();
    const Date now = Date::now();
    ScanCache::save(tree, url, now, folder, false);
    if (baselineToo) ScanCache::save(tree, url, now, folder, true);
}

void StorageModel::receiveLiveChanges(std::vector<std::string> paths, const std::string& rootPath) {
    constexpr size_t kHeldAtMost = 20000;
    if (!isScanning_ && !isRefreshing_) {
        applyLiveChanges(paths, rootPath);
    } else if (changesDuringScan_.size() < kHeldAtMost) {
        changesDuringScan_.insert(changesDuringScan_.end(), std::make_move_iterator(paths.begin()),
                                  std::make_move_iterator(paths.end()));
    }
}

std::vector<std::string> StorageModel::ignoredFolders() const {
    std::vector<std::string> ignoring;
    if (!platform::profile().libraryPath.empty()) ignoring.push_back(platform::profile().libraryPath);
    for (const QString& folder : Preferences::excludedFolders()) ignoring.push_back(toBytes(folder));
    return ignoring;
}

void StorageModel::applyLiveChanges(const std::vector<std::string>& paths, const std::string& rootPath) {
    if (!root_ || root_->path() != rootPath) return; // a batch for an older tree
    if (isScanning_ || isRefreshing_) return;
    NodeRef root = root_;
    LiveChangePlan plan = LiveChangePlan::make(
        paths, rootPath, ignoredFolders(),
        [](const std::string& path) {
            fs::EntryValues values;
            return fs::statPath(path, values) == 0;
        },
        [&root](const std::string& path) { return root->find(path); });

    if (!plan.removed.empty()) {
        for (const std::string& path : plan.removed) {
            FileNode* node = root_->find(path);
            if (!node || !node->parent()) continue;
            if (selection_.contains(node->id())) {
                QSet<quint64> still = selection_;
                still.remove(node->id());
                setSelection(std::move(still));
            }
            if (current_ && (current_.get() == node || isBelow(current_->path(), path))) {
                current_ = NodeRef(node->parent());
                emit currentChanged();
            }
            node->removeFromParent();
        }
        bumpRevision();
        saveCache();
    }
    for (const std::string& path : plan.remeasure)
        if (FileNode* node = root_->find(path)) remeasure(node);
    for (const auto& added : plan.added) measureAdded(added.path, added.parent);
}

void StorageModel::remeasure(FileNode* node) {
    const uint64_t request = ++nextMeasure_;
    measuring_[request] = NodeRef(node);
    QPointer<StorageModel> self(this);
    tasks_.start([self, request, path = node->path(), environment = platform::scanEnvironment()](std::stop_token) {
        NodeRef fresh;
        try {
            fresh = DiskScanner(kMaxChildren, {}, {}, environment).scan(path);
        } catch (const std::exception&) {
        }
        postToMain(self, [request, fresh = std::move(fresh)](StorageModel& model) mutable {
            auto found = model.measuring_.find(request);
            if (found == model.measuring_.end()) return;
            NodeRef old = std::move(found->second);
            model.measuring_.erase(found);
            // The tree may have changed meanwhile: only a node still in it is replaced.
            if (fresh && old->parent()) model.applyReplacing(std::move(fresh), old.get());
        });
    });
}

void StorageModel::measureAdded(const std::string& path, const std::string& parent) {
    QPointer<StorageModel> self(this);
    tasks_.start([self, path, parent, environment = platform::scanEnvironment()](std::stop_token) {
        NodeRef fresh;
        try {
            fresh = DiskScanner(kMaxChildren, {}, {}, environment).scan(path);
        } catch (const std::exception&) {
            return;
        }
        postToMain(self, [path, parent, fresh = std::move(fresh)](StorageModel& model) mutable {
            if (!model.root_) return;
            FileNode* folder = model.root_->find(parent);
            if (!folder || folder->find(path)) return; // another event got there first
            model.hidePendingDeletions(*fresh);
            fresh->reinsert(folder);
            model.bumpRevision();
            model.saveCache();
        });
    });
}

void StorageModel::applyReplacing(NodeRef fresh, FileNode* old) {
    NodeRef keep(old);
    hidePendingDeletions(*fresh);
    const bool selected = selection_.contains(old->id());
    old->replace(fresh);
    if (current_.get() == old) {
        current_ = fresh;
        emit currentChanged();
    }
    if (selected) {
        QSet<quint64> ids = selection_;
        ids.remove(old->id());
        ids.insert(fresh->id());
        setSelection(std::move(ids));
    }
    bumpRevision();
    saveCache();
}

void StorageModel::hidePendingDeletions(FileNode& tree) {
    for (const auto& target : deletions_->pending()) {
        FileNode* node = tree.find(target.path);
        if (node && node->parent()) {
            node->removeFromParent();
            hiddenWhilePending_.insert(target.path);
        }
    }
}

void StorageModel::applyReveal(bool final) {
    if (!pendingReveal_ || !root_) return;
    const std::string wanted = *pendingReveal_;
    FileNode* found = root_->find(wanted);
    if (found && found->parent()) {
        current_ = NodeRef(found->parent());
        emit currentChanged();
        setSelection({found->id()});
        ++revealToken_;
        if (final) pendingReveal_.reset();
        emit revealed();
        return;
    }
    if (!final) return;
    pendingReveal_.reset();
    // Go as deep as the tree allows; the item itself was folded into a "smaller items" node.
    FileNode* at = root_.get();
    for (bool stepped = true; stepped;) {
        stepped = false;
        for (FileNode* child : at->children()) {
            if (child->isFolder() && wanted.starts_with(child->path() + "/")) {
                at = child;
                stepped = true;
                break;
            }
        }
    }
    current_ = NodeRef(at);
    emit currentChanged();
    QSet<quint64> aggregates;
    for (FileNode* child : at->children())
        if (child->isAggregate()) aggregates.insert(child->id());
    setSelection(std::move(aggregates));
    ++revealToken_;
    emit revealed();
}

void StorageModel::goUp() {
    if (!current_ || !current_->parent()) return;
    NodeRef left = current_;
    current_ = NodeRef(left->parent());
    emit currentChanged();
    setSelection({left->id()});
}

std::vector<FileNode*> StorageModel::listItems() const {
    if (!current_) return {};
    auto children = current_->children();
    return {children.begin(), children.end()};
}

} // namespace brenvo
