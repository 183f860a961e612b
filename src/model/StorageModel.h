#pragma once

#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>

#ifndef Q_MOC_RUN // moc can't parse the C++20 standard headers the engine uses
#include "BackgroundTasks.h"
#include "DeletionLog.h"
#include "FolderWatcher.h"
#include "ScanLocation.h"
#include "explain/AppCatalog.h"
#include "explain/Explainer.h"
#include "scan/DiskScanner.h"
#include "tree/FileNode.h"
#include "util/Date.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <vector>
#endif

namespace brenvo {

// The application's one central state: the tree of the scanned folder, where the user is in it, and the
// life of a scan. Lives on the main thread; screens observe its signals and call its operations, and keep
// no copy of its state. Background work reaches it only through the main thread, carrying the scan's
// generation number, and is dropped when a newer scan has begun.
class StorageModel : public QObject {
    Q_OBJECT
public:
    enum class Page { folder, overview, duplicates, recentlyDeleted };
    enum class KindFilter { all, folders, videos, images, audio, documents, installers, archives, apps };
    enum class SizeFilter : int64_t { any = 0, over10MB = 10'000'000, over100MB = 100'000'000, over1GB = 1'000'000'000 };
    static const std::vector<KindFilter>& kindFilters();
    static const std::vector<SizeFilter>& sizeFilters();
    static const char* text(KindFilter filter);
    static const char* label(SizeFilter filter);

    // A tree remembered from an earlier scan of the same location.
    struct Remembered {
        NodeRef tree;
        Date date;
    };
    // Reads the remembered tree of a location's path, off the main thread.
    using SnapshotSource = std::function<std::optional<Remembered>(const std::string& locationPath)>;
    using Skipped = DiskScanner::Skipped;

    explicit StorageModel(QObject* parent = nullptr);
    ~StorageModel() override;

    const std::optional<ScanLocation>& location() const { return location_; }
    // A new value different from the old one is what starts a scan (through the shell).
    void setLocation(std::optional<ScanLocation> location);
    FileNode* root() const { return root_.get(); }
    FileNode* current() const { return current_.get(); }
    // The node at `path` in the tree on show; none when there is no such node (any more).
    FileNode* find(const std::string& path) const;
    void setCurrent(FileNode* folder);
    const QSet<quint64>& selection() const { return selection_; }
    void setSelection(QSet<quint64> ids);
    bool isScanning() const { return isScanning_; }
    bool isRefreshing() const { return isRefreshing_; }
    std::optional<Date> scannedAt() const { return scannedAt_; }
    const ScanProgress& progress() const { return progress_; }
    const std::optional<QString>& errorMessage() const { return errorMessage_; }
    void clearErrorMessage();
    Page page() const { return page_; }
    void setPage(Page page);
    const std::set<std::string>& hiddenWhilePending() const { return hiddenWhilePending_; }
    DeletionLog& deletions() { return *deletions_; }
    const std::optional<std::string>& pendingReveal() const { return pendingReveal_; }
    int revealToken() const { return revealToken_; }
    bool hasFullDiskAccess() const { return hasFullDiskAccess_; }
    const std::shared_ptr<const AppCatalog>& catalog() const { return catalog_; }
    int revision() const { return revision_; }
    const FolderWatcher& watcher() const { return watcher_; }
    const std::vector<std::string>& changesDuringScan() const { return changesDuringScan_; }
    int scanID() const { return scanID_; }
    std::optional<Date> changesSince() const { return changesSince_; }

    // Starts or restarts a scan of `location`.
    void scan(const ScanLocation& location);
    void cancelScan();
    // Writes the tree on show to the scan cache; called after every change that patches the tree.
    void saveCache();
    // A batch of changed paths under `rootPath`: applied now, or held while a scan runs.
    void receiveLiveChanges(std::vector<std::string> paths, const std::string& rootPath);
    // Brings the tree on show up to date with changed paths, if it is still the tree of `rootPath`.
    void applyLiveChanges(const std::vector<std::string>& paths, const std::string& rootPath);
    // Opens a folder as a custom location.
    void explore(const std::string& path);
    // To the enclosing folder, with the folder just left selected.
    void goUp();
    // What the folder page lists: the children of `current`, or while filtering the matches anywhere below
    // it (at most 2000), remembered until the folder, the filters or the tree change.
    std::vector<FileNode*> listItems() const;
    static constexpr size_t kMatchLimit = 2000;
    // Items below `folder` that pass the filters, smallest of each folder first, at most `limit`.
    static std::vector<FileNode*> matches(FileNode& folder, std::string_view query, KindFilter kind, SizeFilter size,
                                          size_t limit, const Profile& profile);
    const std::string& searchText() const { return searchText_; }
    void setSearchText(std::string text);
    KindFilter kindFilter() const { return kindFilter_; }
    void setKindFilter(KindFilter filter);
    SizeFilter sizeFilter() const { return sizeFilter_; }
    void setSizeFilter(SizeFilter filter);
    bool isFiltering() const;
    void clearFilters();
    // The order the list shows its rows in: a column and a direction. Kept here so it outlives the list and
    // the folder.
    enum class ListColumn { name, size, change, kind, modified, lastOpened };
    struct ListOrder {
        ListColumn column = ListColumn::size;
        bool ascending = false;
        bool operator==(const ListOrder&) const = default;
    };
    const ListOrder& listOrder() const { return listOrder_; }
    void setListOrder(ListOrder order);
    // `items` in `order`, stable; `kindOf` gives the text the kind column shows.
    static void sortRows(std::vector<FileNode*>& items, ListOrder order,
                         const std::function<std::string(const FileNode&)>& kindOf);
    // While filtering, where a found item sits below the current folder ("Photos/2024"); nothing for a
    // direct child.
    std::optional<std::string> relativeFolder(const FileNode& node) const;
    // Those of `listItems` that are selected, in list order.
    std::vector<FileNode*> selectedNodes() const;
    // Moves the selection to the next or previous child of `current` by size, whatever the list shows.
    void selectNeighbour(bool forward);
    const std::optional<std::string>& previewURL() const { return previewURL_; }
    const std::vector<std::string>& previewList() const { return previewList_; }
    std::vector<std::string> previewItems() const;
    void toggleQuickLook();
    // Opens the preview on `paths`, at the first.
    void showPreview(std::vector<std::string> paths);
    // Moves the preview `step` items along previewList, stopping at either end.
    void pagePreview(int step);
    void closePreview();
    // Shows the item at `path` in its folder, scanning the place that holds it if need be.
    void reveal(const std::string& path);
    // Fills in when the items were last opened, once per node, off the main thread.
    void loadLastOpened(const std::vector<FileNode*>& nodes);
    // Takes items out of the tree on show.
    void forget(const std::vector<std::string>& paths);
    // Deleting. The confirmation shows while `pendingDelete` isn't empty; protected items never get there.
    void requestDelete(const std::vector<FileNode*>& nodes);
    void confirmDelete();
    void cancelDelete();
    const std::vector<NodeRef>& pendingDelete() const { return pendingDelete_; }
    int pendingDeleteSkipped() const { return pendingDeleteSkipped_; }
    // Why an item can't be deleted or collected; nothing when it can.
    std::optional<std::string> collectBlockReason(const std::string& path, bool isFolder) const;
    bool stillCollectable(const std::string& path) const;
    // The answer "Delete" to "Finish deleting?".
    void finishUnfinishedDeletions();

    // Opening an item: a group of small files shows its folder; an installer for an application that is
    // already installed asks first (`installerChoice`); anything else opens in its application. The
    // screens carry the request out.
    struct InstallerChoice {
        NodeRef installer;
        InstalledApp app;
        std::string message() const;
        bool installerIsNewer() const;
    };
    void openInDefaultApp(FileNode& node);
    // Shows the item selected in its folder, in the file manager.
    void showInFolder(const std::string& path) { emit revealRequested(path); }
    const std::optional<InstallerChoice>& installerChoice() const { return installerChoice_; }
    void clearInstallerChoice();

    // What the item is, what could be done about it and whether it may go, in this system's words.
    Explanation explain(const FileNode& node) const;
    // The system's answers the explanations read, around a given catalogue.
    static ExplainContext explainContext(std::shared_ptr<const AppCatalog> catalog);
    // The installed application an installer file is for, remembered per node until the catalogue changes.
    std::optional<InstalledApp> installedApp(const FileNode& node);
    // Checked at start and whenever the application becomes active.
    void refreshFullDiskAccess();
    // Tells the folder-page screens that node contents changed; every patch of the tree calls it.
    void bumpRevision();

    // The location under which a path is found: a usual place, the home folder, or the folder holding it.
    static ScanLocation bestLocation(const std::string& path);
    static bool checkFullDiskAccess();
    // The folders a scan doesn't enter, with the reason shown: the profile's Library folder and the
    // excluded folders of the settings (whose reason wins for a path in both).
    static Skipped skippedTable();
    // The folder remembered scans are kept in.
    static std::string scansFolder();
    // What every finished scan of a location goes through, off the main thread or in the command line: the
    // marks of growth since the remembered baseline (its date, if there is one), then the snapshot and, when
    // the baseline is missing or a week old, a new baseline.
    static std::optional<Date> markChanges(FileNode& tree, const std::string& url);
    static void remember(FileNode& tree, const std::string& url, Date now, std::optional<Date> baselineDate);

    // Where remembered trees come from: the scan cache, unless a test says otherwise.
    void setSnapshotSource(SnapshotSource source) { snapshotSource_ = std::move(source); }

signals:
    void locationChanged();
    void pageChanged();
    void currentChanged();
    void selectionChanged();
    void scanStateChanged(); // isScanning, isRefreshing, scannedAt, changesSince
    void progressChanged();
    void treeChanged(); // root or revision
    void errorMessageChanged();
    void revealed();
    void filtersChanged();
    void pendingDeleteChanged();
    void installerChoiceChanged();
    void openRequested(const std::string& path);
    void revealRequested(const std::string& path);
    void previewChanged();
    void listOrderChanged();

private:
    struct ScanOutcome {
        NodeRef tree;
        std::optional<std::string> error; // a failure's words; none with a tree or a cancellation
    };

    void showRemembered(NodeRef tree, Date date, std::shared_ptr<const AppCatalog> catalog, int id);
    void finishScan(ScanOutcome outcome, std::shared_ptr<const AppCatalog> catalog,
                    std::optional<Date> baselineDate, int id);
    void applyReveal(bool final);
    void remeasure(FileNode* node);
    void measureAdded(const std::string& path, const std::string& parent);
    void applyReplacing(NodeRef fresh, FileNode* old);
    std::vector<std::string> ignoredFolders() const;
    void hidePendingDeletions(FileNode& tree);
    void setScanState(bool scanning, bool refreshing);
    void setErrorMessage(std::optional<QString> message);
    void replaceTree(NodeRef root, FileNode* current);

    std::optional<ScanLocation> location_;
    NodeRef root_;
    NodeRef current_;
    QSet<quint64> selection_;
    bool isScanning_ = false;
    bool isRefreshing_ = false;
    std::optional<Date> scannedAt_;
    ScanProgress progress_;
    std::optional<QString> errorMessage_;
    Page page_ = Page::overview;
    std::set<std::string> hiddenWhilePending_;
    DeletionLog* deletions_;
    std::optional<std::string> pendingReveal_;
    int revealToken_ = 0;
    bool hasFullDiskAccess_ = true;
    std::shared_ptr<const AppCatalog> catalog_;
    int revision_ = 0;
    std::optional<std::stop_source> scanTask_;
    FolderWatcher watcher_;
    std::vector<std::string> changesDuringScan_;
    int scanID_ = 0;
    std::optional<Date> changesSince_;
    std::string searchText_;
    KindFilter kindFilter_ = KindFilter::all;
    SizeFilter sizeFilter_ = SizeFilter::any;
    struct ListKey {
        uint64_t folder = 0;
        std::string query;
        KindFilter kind = KindFilter::all;
        SizeFilter size = SizeFilter::any;
        int revision = 0;
        bool operator==(const ListKey&) const = default;
    };
    mutable std::optional<std::pair<ListKey, std::vector<FileNode*>>> listCache_;
    ListOrder listOrder_;
    std::optional<std::string> previewURL_;
    std::vector<std::string> previewList_;
    std::map<uint64_t, std::optional<InstalledApp>> appMatches_;
    std::map<uint64_t, std::vector<NodeRef>> lastOpenedRequests_;
    std::vector<NodeRef> pendingDelete_;
    int pendingDeleteSkipped_ = 0;
    std::optional<InstallerChoice> installerChoice_;

    // Nodes being measured anew off the main thread, by request number: only this thread touches them.
    std::map<uint64_t, NodeRef> measuring_;
    uint64_t nextMeasure_ = 0;

    SnapshotSource snapshotSource_;
    BackgroundTasks tasks_; // last: its end waits for the tasks, while everything above still exists
};

} // namespace brenvo
