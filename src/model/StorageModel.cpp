#include "StorageModel.h"

#include "MainThread.h"
#include "Preferences.h"
#include "Text.h"
#include "cache/ScanCache.h"
#include "explain/RemovedApps.h"
#include "format/Formatters.h"
#include "format/TextMatch.h"
#include "live/LiveChangePlan.h"
#include "platform/Platform.h"
#include "scan/FileSystem.h"
#include "util/Paths.h"

#include <QMimeDatabase>
#include <fcntl.h>
#include <unordered_map>
#include <unistd.h>

namespace brenvo {

namespace {

constexpr int kMaxChildren = 250;
constexpr double kBaselineMaxAge = 604800; // seconds: a week

QString say(const char* text) { return QString::fromStdString(platform::profile().say(text)); }

} // namespace

StorageModel::StorageModel(QObject* parent)
    : QObject(parent), deletions_(new DeletionLog(DeletionLog::defaultFile(), this)), catalog_(AppCatalog::empty()) {
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
        if (isBelow(path, place.path(profile))) return place;
    }
    const bool inHome = isBelow(path, profile.home);
    const bool inLibrary = isInside(path, profile.libraryPath);
    if (inHome && !inLibrary) return ScanLocation::home();
    return ScanLocation::custom(parentPath(path));
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
    SnapshotSource remembered = snapshotSource_;
    scanTask_ = tasks_.start([self, id, url, refreshing, skipped = std::move(skipped),
                              environment = std::move(environment),
                              remembered = std::move(remembered)](std::stop_token stop) {
        // The profile is fixed for the life of the process, so reading it here is safe.
        std::shared_ptr<const AppCatalog> catalog = AppCatalog::load(platform::profile());
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
        if (outcome.tree) baselineDate = markChanges(*outcome.tree, url);
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
    appMatches_.clear();
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
    appMatches_.clear();
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

        if (location_) remember(*root_, location_->path(), Date::now(), baselineDate);
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
    if (root_ && location_) ScanCache::save(*root_, location_->path(), Date::now(), scansFolder(), false);
}

std::optional<Date> StorageModel::markChanges(FileNode& tree, const std::string& url) {
    auto baseline = ScanCache::baselineSizes(url, scansFolder(), ChangeTracker::kMinimumNewSize);
    if (!baseline) return std::nullopt;
    ChangeTracker::apply(baseline->first, tree, ChangeTracker::kMinimumNewSize);
    return baseline->second;
}

void StorageModel::remember(FileNode& tree, const std::string& url, Date now, std::optional<Date> baselineDate) {
    const std::string folder = scansFolder();
    ScanCache::save(tree, url, now, folder, false);
    if (!baselineDate || now.seconds - baselineDate->seconds > kBaselineMaxAge) ScanCache::save(tree, url, now, folder, true);
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
    if (std::find(paths.begin(), paths.end(), rootPath) != paths.end() && location_) {
        scan(*location_); // the watcher lost track of what changed: measure everything again
        return;
    }
    LiveChangePlan plan = LiveChangePlan::make(
        paths, rootPath, ignoredFolders(),
        [](const std::string& path) {
            fs::EntryValues values;
            return fs::statPath(path, values) == 0;
        },
        [&root](const std::string& path) { return root->find(path); });

    if (!plan.removed.empty()) {
        // The nodes are held until every screen has been told, so nothing reads a freed node meanwhile.
        std::vector<NodeRef> gone;
        QSet<quint64> selection = selection_;
        bool moved = false;
        for (const std::string& path : plan.removed) {
            FileNode* node = root_->find(path);
            if (!node || !node->parent()) continue;
            gone.emplace_back(node);
            selection.remove(node->id());
            if (current_ && (current_.get() == node || isBelow(current_->path(), path))) {
                current_ = NodeRef(node->parent());
                moved = true;
            }
            node->removeFromParent();
        }
        bumpRevision();
        if (moved) emit currentChanged();
        setSelection(std::move(selection));
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
    tasks_.start([self, request, path = node->path(), skipped = skippedTable(),
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
    tasks_.start([self, path, parent, skipped = skippedTable(),
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
    if (!deletions_->pending()) return;
    for (const auto& target : deletions_->pending()->targets) {
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
            if (child->isFolder() && isBelow(wanted, child->path())) {
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

const std::vector<StorageModel::KindFilter>& StorageModel::kindFilters() {
    static const std::vector<KindFilter> all = {KindFilter::all,       KindFilter::folders,   KindFilter::videos,
                                                KindFilter::images,    KindFilter::audio,     KindFilter::documents,
                                                KindFilter::installers, KindFilter::archives, KindFilter::apps};
    return all;
}

const std::vector<StorageModel::SizeFilter>& StorageModel::sizeFilters() {
    static const std::vector<SizeFilter> all = {SizeFilter::any, SizeFilter::over10MB, SizeFilter::over100MB,
                                                SizeFilter::over1GB};
    return all;
}

const char* StorageModel::text(KindFilter filter) {
    switch (filter) {
    case KindFilter::all: return "All Kinds";
    case KindFilter::folders: return "Folders";
    case KindFilter::videos: return "Videos";
    case KindFilter::images: return "Images";
    case KindFilter::audio: return "Audio";
    case KindFilter::documents: return "Documents";
    case KindFilter::installers: return "Installers";
    case KindFilter::archives: return "Archives";
    case KindFilter::apps: return "Apps";
    }
    return "";
}

const char* StorageModel::label(SizeFilter filter) {
    switch (filter) {
    case SizeFilter::any: return "Any Size";
    case SizeFilter::over10MB: return "Over 10 MB";
    case SizeFilter::over100MB: return "Over 100 MB";
    case SizeFilter::over1GB: return "Over 1 GB";
    }
    return "";
}

namespace {

std::optional<Category> accepted(StorageModel::KindFilter filter) {
    using K = StorageModel::KindFilter;
    switch (filter) {
    case K::all: return std::nullopt;
    case K::folders: return Category::folder;
    case K::videos: return Category::video;
    case K::images: return Category::image;
    case K::audio: return Category::audio;
    case K::documents: return Category::document;
    case K::installers: return Category::installer;
    case K::archives: return Category::archive;
    case K::apps: return Category::app;
    }
    return std::nullopt;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

} // namespace

void StorageModel::setSearchText(std::string text) {
    if (searchText_ == text) return;
    searchText_ = std::move(text);
    emit filtersChanged();
}

void StorageModel::setKindFilter(KindFilter filter) {
    if (kindFilter_ == filter) return;
    kindFilter_ = filter;
    emit filtersChanged();
}

void StorageModel::setSizeFilter(SizeFilter filter) {
    if (sizeFilter_ == filter) return;
    sizeFilter_ = filter;
    emit filtersChanged();
}

bool StorageModel::isFiltering() const {
    return !trimmed(searchText_).empty() || kindFilter_ != KindFilter::all || sizeFilter_ != SizeFilter::any;
}

void StorageModel::clearFilters() {
    searchText_.clear();
    kindFilter_ = KindFilter::all;
    sizeFilter_ = SizeFilter::any;
    emit filtersChanged();
}

std::vector<FileNode*> StorageModel::matches(FileNode& folder, std::string_view query, KindFilter kind,
                                             SizeFilter size, size_t limit, const Profile& profile) {
    const CaseInsensitiveQuery wanted(trimmed(query));
    const auto category = accepted(kind);
    const auto minimum = static_cast<int64_t>(size);
    std::vector<FileNode*> found;
    auto children = folder.children();
    std::vector<FileNode*> stack(children.begin(), children.end());
    // Children are held largest first and the stack pops from the end: each folder's smallest come first.
    while (!stack.empty()) {
        FileNode* item = stack.back();
        stack.pop_back();
        if (found.size() >= limit) break;
        if (item->isFolder()) stack.insert(stack.end(), item->children().begin(), item->children().end());
        if (item->isAggregate()) continue;
        if (!wanted.empty() && !wanted.foundIn(item->name())) continue;
        if (category && Explainer::category(*item, profile) != *category) continue;
        if (item->size() < minimum) continue;
        found.push_back(item);
    }
    return found;
}

std::vector<FileNode*> StorageModel::listItems() const {
    if (!current_) return {};
    if (!isFiltering()) {
        auto children = current_->children();
        return {children.begin(), children.end()};
    }
    ListKey key{current_->id(), searchText_, kindFilter_, sizeFilter_, revision_};
    if (listCache_ && listCache_->first == key) return listCache_->second;
    auto found = matches(*current_, searchText_, kindFilter_, sizeFilter_, kMatchLimit, platform::profile());
    listCache_.emplace(std::move(key), found);
    return found;
}

void StorageModel::setListOrder(ListOrder order) {
    if (order == listOrder_) return;
    listOrder_ = order;
    emit listOrderChanged();
}

void StorageModel::sortRows(std::vector<FileNode*>& items, ListOrder order,
                            const std::function<std::string(const FileNode&)>& kindOf) {
    // Compare as "ascending"; the direction flips the arguments, so ties keep their order either way.
    auto sortBy = [&](auto less) {
        if (order.ascending)
            std::stable_sort(items.begin(), items.end(), [&](FileNode* a, FileNode* b) { return less(a, b); });
        else
            std::stable_sort(items.begin(), items.end(), [&](FileNode* a, FileNode* b) { return less(b, a); });
    };
    switch (order.column) {
    case ListColumn::name:
        sortBy([](FileNode* a, FileNode* b) { return format::standardCompare(a->name(), b->name()) < 0; });
        break;
    case ListColumn::size: sortBy([](FileNode* a, FileNode* b) { return a->size() < b->size(); }); break;
    case ListColumn::change:
        sortBy([](FileNode* a, FileNode* b) { return a->changeSortKey() < b->changeSortKey(); });
        break;
    case ListColumn::modified:
        sortBy([](FileNode* a, FileNode* b) { return a->modifiedSortKey() < b->modifiedSortKey(); });
        break;
    case ListColumn::lastOpened:
        sortBy([](FileNode* a, FileNode* b) { return a->lastOpenedSortKey() < b->lastOpenedSortKey(); });
        break;
    case ListColumn::kind: {
        // Each label once, not once per comparison.
        std::unordered_map<const FileNode*, std::string> kinds;
        for (FileNode* item : items) kinds.emplace(item, kindOf(*item));
        sortBy([&](FileNode* a, FileNode* b) { return format::standardCompare(kinds[a], kinds[b]) < 0; });
        break;
    }
    }
}

std::optional<std::string> StorageModel::relativeFolder(const FileNode& node) const {
    const FileNode* parent = node.parent();
    if (!current_ || !parent || parent == current_.get()) return std::nullopt;
    const std::string folder = parent->path();
    std::string base = current_->path();
    if (!base.ends_with('/')) base += '/'; // "/" itself already ends in one
    return folder.starts_with(base) ? folder.substr(base.size()) : folder;
}

FileNode* StorageModel::find(const std::string& path) const { return root_ ? root_->find(path) : nullptr; }

std::vector<FileNode*> StorageModel::selectedNodes() const {
    std::vector<FileNode*> selected;
    for (FileNode* item : listItems())
        if (selection_.contains(item->id())) selected.push_back(item);
    return selected;
}

void StorageModel::selectNeighbour(bool forward) {
    if (!current_) return;
    std::vector<FileNode*> children;
    for (FileNode* child : current_->children())
        if (child->size() > 0) children.push_back(child);
    if (children.empty()) return;
    std::stable_sort(children.begin(), children.end(), [](FileNode* a, FileNode* b) { return a->size() > b->size(); });
    size_t target = 0;
    auto found = std::find_if(children.begin(), children.end(), [&](FileNode* c) { return selection_.contains(c->id()); });
    if (found != children.end()) {
        const size_t i = static_cast<size_t>(found - children.begin());
        target = forward ? std::min(i + 1, children.size() - 1) : (i == 0 ? 0 : i - 1);
    }
    setSelection({children[target]->id()});
    if (!previewURL_) return; // a closed preview stays closed
    if (children[target]->isAggregate()) {
        previewURL_.reset();
    } else {
        previewList_ = {children[target]->path()};
        previewURL_ = previewList_.front();
    }
    emit previewChanged();
}

std::vector<std::string> StorageModel::previewItems() const {
    std::vector<std::string> paths;
    for (FileNode* item : selectedNodes())
        if (!item->isAggregate()) paths.push_back(item->path());
    return paths;
}

void StorageModel::toggleQuickLook() {
    if (previewURL_) {
        previewURL_.reset();
    } else {
        auto items = previewItems();
        if (items.empty()) return;
        previewList_ = std::move(items);
        previewURL_ = previewList_.front();
    }
    emit previewChanged();
}

void StorageModel::showPreview(std::vector<std::string> paths) {
    if (paths.empty()) return;
    previewList_ = std::move(paths);
    previewURL_ = previewList_.front();
    emit previewChanged();
}

void StorageModel::pagePreview(int step) {
    if (!previewURL_ || previewList_.empty()) return;
    const auto at = std::find(previewList_.begin(), previewList_.end(), *previewURL_);
    const auto last = static_cast<std::ptrdiff_t>(previewList_.size()) - 1;
    const std::ptrdiff_t from = at == previewList_.end() ? 0 : at - previewList_.begin();
    const std::ptrdiff_t to = std::clamp<std::ptrdiff_t>(from + step, 0, last);
    if (at != previewList_.end() && to == from) return;
    previewURL_ = previewList_[static_cast<size_t>(to)];
    emit previewChanged();
}

void StorageModel::closePreview() {
    if (!previewURL_) return;
    previewURL_.reset();
    emit previewChanged();
}

void StorageModel::reveal(const std::string& path) {
    setPage(Page::folder);
    pendingReveal_ = path;
    if (root_ && isBelow(path, root_->path()) && root_->find(path)) {
        applyReveal(true);
        return;
    }
    ScanLocation target = bestLocation(path);
    if (location_ == target && root_) {
        // While a refresh runs the item may yet appear, so the reveal stays pending.
        applyReveal(!isRefreshing_);
        return;
    }
    setLocation(std::move(target));
}

void StorageModel::loadLastOpened(const std::vector<FileNode*>& nodes) {
    std::vector<NodeRef> asked;
    std::vector<std::string> paths;
    for (FileNode* node : nodes) {
        if (node->lastOpenedLoaded() || (node->kind() != FileNode::Kind::file && node->kind() != FileNode::Kind::package))
            continue;
        node->setLastOpenedLoaded(true);
        asked.emplace_back(node);
        paths.push_back(node->path());
    }
    if (asked.empty()) return;
    const uint64_t request = ++nextMeasure_;
    lastOpenedRequests_[request] = std::move(asked);
    QPointer<StorageModel> self(this);
    tasks_.start([self, request, paths = std::move(paths)](std::stop_token) {
        std::vector<std::optional<Date>> dates;
        dates.reserve(paths.size());
        for (const std::string& path : paths) dates.push_back(platform::lastOpened(path));
        postToMain(self, [request, dates = std::move(dates)](StorageModel& model) {
            auto found = model.lastOpenedRequests_.find(request);
            if (found == model.lastOpenedRequests_.end()) return;
            for (size_t i = 0; i < found->second.size() && i < dates.size(); ++i)
                found->second[i]->setLastOpened(dates[i]);
            model.lastOpenedRequests_.erase(found);
            model.bumpRevision();
        });
    });
}

void StorageModel::forget(const std::vector<std::string>& paths) {
    if (!root_) return;
    for (const std::string& path : paths)
        if (FileNode* node = root_->find(path)) node->removeFromParent();
    bumpRevision();
    saveCache();
}

ExplainContext StorageModel::explainContext(std::shared_ptr<const AppCatalog> catalog) {
    ExplainContext context;
    context.profile = &platform::profile();
    context.catalog = std::move(catalog);
    static const std::shared_ptr<const AppSystem> apps = platform::appSystem();
    context.apps = apps.get();
    static const std::vector<std::string> commands = RemovedApps::commandFolders(platform::profile().home);
    context.commandFolders = commands;
    context.typeDescription = [](const std::string& extension) -> std::optional<std::string> {
        static const QMimeDatabase types;
        const QMimeType type = types.mimeTypeForFile(QStringLiteral("x.") + QString::fromStdString(extension),
                                                     QMimeDatabase::MatchExtension);
        if (!type.isValid() || type.isDefault() || type.comment().isEmpty()) return std::nullopt;
        return type.comment().toStdString();
    };
    context.demo = platform::isDemo();
    context.now = Date::now();
    return context;
}

Explanation StorageModel::explain(const FileNode& node) const {
    return Explainer::explain(node, root_.get(), explainContext(catalog_));
}

namespace {
bool isProtected(const Explanation& e) { return e.safety == Explanation::Safety::protected_; }
} // namespace

void StorageModel::requestDelete(const std::vector<FileNode*>& nodes) {
    std::vector<NodeRef> allowed;
    for (FileNode* node : nodes)
        if (!isProtected(explain(*node))) allowed.emplace_back(node);
    pendingDeleteSkipped_ = static_cast<int>(nodes.size() - allowed.size());
    pendingDelete_ = std::move(allowed);
    emit pendingDeleteChanged();
}

void StorageModel::cancelDelete() {
    pendingDelete_.clear();
    emit pendingDeleteChanged();
}

void StorageModel::confirmDelete() {
    std::vector<NodeRef> chosen = std::move(pendingDelete_);
    pendingDelete_.clear();
    emit pendingDeleteChanged();
    // An item inside another chosen one goes with it.
    std::vector<NodeRef> nodes;
    for (const NodeRef& node : chosen) {
        const std::string path = node->path();
        const bool inside = std::any_of(chosen.begin(), chosen.end(), [&](const NodeRef& other) {
            return other != node && isBelow(path, other->path());
        });
        if (!inside) nodes.push_back(node);
    }
    if (nodes.empty()) return;
    NodeRef scanRootAtStart = root_;
    // The space shows as freed at once, though nothing on disk is touched until the window ends.
    auto pairs = std::make_shared<std::vector<std::pair<NodeRef, NodeRef>>>();
    std::vector<DeletionLog::Target> targets;
    QSet<quint64> selection = selection_;
    for (const NodeRef& node : nodes) {
        targets.push_back({node->path(), std::string(node->name()), node->size(), node->kind() != FileNode::Kind::file, {}});
        if (FileNode* parent = node->parent()) {
            pairs->emplace_back(node, NodeRef(parent));
            selection.remove(node->id());
            node->removeFromParent();
        }
    }
    setSelection(std::move(selection));
    bumpRevision();

    QPointer<StorageModel> self(this);
    auto undo = [self, pairs, scanRootAtStart] {
        if (!self) return;
        if (self->root_ == scanRootAtStart)
            for (auto& [node, parent] : *pairs) node->reinsert(parent.get());
        self->bumpRevision();
    };
    auto finish = [self, pairs, scanRootAtStart](const std::set<std::string>& deleted,
                                                 const std::vector<std::string>& failures) {
        if (!self) return;
        StorageModel& model = *self;
        for (const std::string& path : deleted) model.hiddenWhilePending_.erase(path);
        // What failed comes back where it was, if that folder is still in the tree on show; otherwise only a
        // scan can show it again.
        bool rescan = model.root_ != scanRootAtStart && !failures.empty();
        if (model.root_ == scanRootAtStart) {
            for (auto& [node, parent] : *pairs) {
                if (deleted.contains(node->path())) continue;
                if (parent.get() == model.root_.get() || model.root_->find(parent->path()) == parent.get())
                    node->reinsert(parent.get());
                else
                    rescan = true;
            }
        }
        if (rescan && model.location_) model.scan(*model.location_);
        model.bumpRevision();
        model.saveCache();
        if (!failures.empty()) {
            std::string message = "Some items couldn't be deleted, so they're still there.";
            for (const std::string& failure : failures) message += "\n" + failure;
            model.setErrorMessage(QString::fromStdString(message));
        }
    };
    // When the window ends, an item that became unsafe meanwhile (its app was opened, say) is skipped.
    auto verify = [self](const std::vector<DeletionLog::Target>& planned) {
        if (!self) return planned;
        std::vector<DeletionLog::Target> fit;
        for (const auto& target : planned)
            if (!self->collectBlockReason(target.path, target.isDirectory)) fit.push_back(target);
        return fit;
    };
    deletions_->schedule(std::move(targets), DeletionLog::windowSeconds(), std::move(verify), std::move(undo),
                         std::move(finish));
}

std::optional<std::string> StorageModel::collectBlockReason(const std::string& path, bool isFolder) const {
    FileNode* node = root_ ? root_->find(path) : nullptr;
    NodeRef standIn;
    if (!node) {
        standIn = FileNode::make(isFolder ? FileNode::Kind::folder : FileNode::Kind::file, lastPathComponent(path));
        standIn->setLocation(path);
        node = standIn.get();
    }
    Explanation e = explain(*node);
    if (!isProtected(e)) return std::nullopt;
    return e.safetyNote.value_or("It's protected.");
}

bool StorageModel::stillCollectable(const std::string& path) const {
    fs::EntryValues values;
    if (!platform::isDemo() && fs::statPath(path, values) != 0) return false;
    return !collectBlockReason(path, false).has_value();
}

void StorageModel::finishUnfinishedDeletions() {
    QPointer<StorageModel> self(this);
    deletions_->finishUnfinished([self](const std::set<std::string>& deleted, const std::vector<std::string>& failures) {
        if (!self) return;
        self->forget(std::vector<std::string>(deleted.begin(), deleted.end()));
        if (!failures.empty()) {
            std::string message = "Some items couldn't be deleted.";
            for (const std::string& failure : failures) message += "\n" + failure;
            self->setErrorMessage(QString::fromStdString(message));
        }
    });
}

void StorageModel::openInDefaultApp(FileNode& node) {
    if (node.isAggregate()) {
        emit revealRequested(node.path());
        return;
    }
    if (auto app = installedApp(node)) {
        installerChoice_ = InstallerChoice{NodeRef(&node), *app};
        emit installerChoiceChanged();
        return;
    }
    emit openRequested(node.path());
}

void StorageModel::clearInstallerChoice() {
    installerChoice_.reset();
    emit installerChoiceChanged();
}

bool StorageModel::InstallerChoice::installerIsNewer() const {
    auto parsed = AppCatalog::parseInstallerName(installer->name(), platform::profile().extraNoiseWords);
    return parsed.version && app.version &&
           AppCatalog::compareVersions(*parsed.version, *app.version) == std::strong_ordering::greater;
}

std::string StorageModel::InstallerChoice::message() const {
    const Profile& profile = platform::profile();
    const std::string base =
        app.version ? profile.say("Version " + *app.version + " is in your Applications folder.")
                    : profile.say("It's in your Applications folder.");
    auto parsed = AppCatalog::parseInstallerName(installer->name(), profile.extraNoiseWords);
    if (!parsed.version) return base + " Do you want to open it, or run this installer anyway?";
    if (installerIsNewer())
        return base + " This installer has a newer version (" + *parsed.version + "), so you can install it to update.";
    return base + " This installer is version " + *parsed.version + ", so installing it won't give you anything newer.";
}

std::optional<InstalledApp> StorageModel::installedApp(const FileNode& node) {
    if (auto memo = appMatches_.find(node.id()); memo != appMatches_.end()) return memo->second;
    std::optional<InstalledApp> app;
    if (!node.isAggregate() && Explainer::category(node, platform::profile()) == Category::installer && catalog_)
        app = catalog_->app(std::string(node.name()));
    appMatches_[node.id()] = app;
    return app;
}

} // namespace brenvo
