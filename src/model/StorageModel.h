#pragma once

#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>

#ifndef Q_MOC_RUN // moc can't parse the C++20 standard headers the engine uses
#include "BackgroundTasks.h"
#include "DeleteFlow.h"
#include "DeletionLog.h"
#include "Listing.h"
#include "Navigation.h"
#include "PreviewState.h"
#include "ScanSession.h"
#include "explain/AppCatalog.h"
#include "explain/Explainer.h"
#include "scan/DiskScanner.h"
#include "scan/ScanLocation.h"
#include "tree/FileNode.h"
#include "util/Date.h"

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>
#endif

namespace brenvo {

// The application's one central state, and the one object screens talk to. It owns the parts that keep
// that state — the scan session (the tree and its life), navigation (place and selection), the listing,
// the preview and the delete flow — and announces every change with its signals. Lives on the main
// thread; background work reaches it only through the main thread, carrying a generation number, and is
// dropped when overtaken.
class StorageModel : public QObject {
    Q_OBJECT
public:
    enum class Page { folder, overview, duplicates, recentlyDeleted };
    using KindFilter = Listing::KindFilter;
    using SizeFilter = Listing::SizeFilter;
    using ListColumn = Listing::ListColumn;
    using ListOrder = Listing::ListOrder;
    using Remembered = ScanSession::Remembered;
    using SnapshotSource = ScanSession::SnapshotSource;
    using Skipped = DiskScanner::Skipped;
    static constexpr size_t kMatchLimit = Listing::kMatchLimit;
    static const std::vector<KindFilter>& kindFilters() { return Listing::kindFilters(); }
    static const std::vector<SizeFilter>& sizeFilters() { return Listing::sizeFilters(); }
    static const char* text(KindFilter filter) { return Listing::text(filter); }
    static const char* label(SizeFilter filter) { return Listing::label(filter); }

    explicit StorageModel(QObject* parent = nullptr);
    ~StorageModel() override;

    // Place and selection.
    const std::optional<ScanLocation>& location() const { return navigation_.location(); }
    // A new value different from the old one is what starts a scan (through the shell).
    void setLocation(std::optional<ScanLocation> location) { navigation_.setLocation(std::move(location)); }
    FileNode* root() const { return session_.root(); }
    FileNode* current() const { return navigation_.current(); }
    // The node at `path` in the tree on show; none when there is no such node (any more).
    FileNode* find(const std::string& path) const { return root() ? root()->find(path) : nullptr; }
    void setCurrent(FileNode* folder) { navigation_.setCurrent(folder); }
    const QSet<quint64>& selection() const { return navigation_.selection(); }
    void setSelection(QSet<quint64> ids) { navigation_.setSelection(std::move(ids)); }
    const std::optional<std::string>& pendingReveal() const { return navigation_.pendingReveal(); }
    int revealToken() const { return navigation_.revealToken(); }
    // Opens a folder as a custom location.
    void explore(const std::string& path) { navigation_.explore(path); }
    // To the enclosing folder, with the folder just left selected.
    void goUp() { navigation_.goUp(); }
    // Shows the item at `path` in its folder, scanning the place that holds it if need be.
    void reveal(const std::string& path) { navigation_.reveal(path); }
    // Moves the selection to the next or previous child of `current` by size, whatever the list shows.
    void selectNeighbour(bool forward) { navigation_.selectNeighbour(forward); }

    // The scan.
    bool isScanning() const { return session_.isScanning(); }
    bool isRefreshing() const { return session_.isRefreshing(); }
    std::optional<Date> scannedAt() const { return session_.scannedAt(); }
    const ScanProgress& progress() const { return session_.progress(); }
    const FolderWatcher& watcher() const { return session_.watcher(); }
    const std::vector<std::string>& changesDuringScan() const { return session_.changesDuringScan(); }
    int scanID() const { return session_.scanID(); }
    std::optional<Date> changesSince() const { return session_.changesSince(); }
    bool isRescanWaiting() const { return session_.isRescanWaiting(); }
    // Remembered copies of the tree written so far, for measuring.
    int snapshotSaves() const { return session_.saver().savesDone(); }
    // Starts or restarts a scan of `location`.
    void scan(const ScanLocation& location) { session_.scan(location); }
    void cancelScan() { session_.cancel(); }
    // Writes the tree on show to the scan cache; called after every change that patches the tree.
    void saveCache() { session_.saveCache(); }
    // A batch of changed paths under `rootPath`: applied now, or held while a scan runs.
    void receiveLiveChanges(std::vector<std::string> paths, const std::string& rootPath) {
        session_.receiveLiveChanges(std::move(paths), rootPath);
    }
    // Brings the tree on show up to date with changed paths, if it is still the tree of `rootPath`.
    void applyLiveChanges(const std::vector<std::string>& paths, const std::string& rootPath) {
        session_.applyLiveChanges(paths, rootPath);
    }
    // Fewer folder watches than the system allows, so tests can run out of them; 0 for the system's limit.
    void setWatchLimit(size_t watches) { session_.setWatchLimit(watches); }
    // Where remembered trees come from: the scan cache, unless a test says otherwise.
    void setSnapshotSource(SnapshotSource source) { session_.setSnapshotSource(std::move(source)); }

    // The list.
    std::vector<FileNode*> listItems() const { return listing_.listItems(); }
    static std::vector<FileNode*> matches(FileNode& folder, std::string_view query, KindFilter kind, SizeFilter size,
                                          size_t limit, const Profile& profile) {
        return Listing::matches(folder, query, kind, size, limit, profile);
    }
    const std::string& searchText() const { return listing_.searchText(); }
    void setSearchText(std::string text) { listing_.setSearchText(std::move(text)); }
    KindFilter kindFilter() const { return listing_.kindFilter(); }
    void setKindFilter(KindFilter filter) { listing_.setKindFilter(filter); }
    SizeFilter sizeFilter() const { return listing_.sizeFilter(); }
    void setSizeFilter(SizeFilter filter) { listing_.setSizeFilter(filter); }
    bool isFiltering() const { return listing_.isFiltering(); }
    void clearFilters() { listing_.clearFilters(); }
    const ListOrder& listOrder() const { return listing_.listOrder(); }
    void setListOrder(ListOrder order) { listing_.setListOrder(order); }
    static void sortRows(std::vector<FileNode*>& items, ListOrder order,
                         const std::function<std::string(const FileNode&)>& kindOf) {
        Listing::sortRows(items, order, kindOf);
    }
    // While filtering, where a found item sits below the current folder ("Photos/2024").
    std::optional<std::string> relativeFolder(const FileNode& node) const { return listing_.relativeFolder(node); }
    // Those of `listItems` that are selected, in list order.
    std::vector<FileNode*> selectedNodes() const { return listing_.selectedNodes(); }
    // Fills in when the items were last opened, once per node, off the main thread.
    void loadLastOpened(const std::vector<FileNode*>& nodes) { listing_.loadLastOpened(nodes); }

    // The preview.
    const std::optional<std::string>& previewURL() const { return preview_.previewURL(); }
    const std::vector<std::string>& previewList() const { return preview_.previewList(); }
    std::vector<std::string> previewItems() const { return preview_.previewItems(); }
    void toggleQuickLook() { preview_.toggle(); }
    void showPreview(std::vector<std::string> paths) { preview_.show(std::move(paths)); }
    void pagePreview(int step) { preview_.page(step); }
    void closePreview() { preview_.close(); }

    // Deleting. The confirmation shows while `pendingDelete` isn't empty; protected items never get there.
    DeletionLog& deletions() { return *deletions_; }
    const std::set<std::string>& hiddenWhilePending() const { return deleteFlow_.hiddenWhilePending(); }
    void requestDelete(const std::vector<FileNode*>& nodes) { deleteFlow_.request(nodes); }
    void confirmDelete() { deleteFlow_.confirm(); }
    void cancelDelete() { deleteFlow_.cancel(); }
    const std::vector<NodeRef>& pendingDelete() const { return deleteFlow_.pendingDelete(); }
    int pendingDeleteSkipped() const { return deleteFlow_.pendingDeleteSkipped(); }
    // Why an item can't be deleted or collected; nothing when it can.
    std::optional<std::string> collectBlockReason(const std::string& path, bool isFolder) const {
        return deleteFlow_.collectBlockReason(path, isFolder);
    }
    bool stillCollectable(const std::string& path) const { return deleteFlow_.stillCollectable(path); }
    // The answer "Delete" to "Finish deleting?".
    void finishUnfinishedDeletions() { deleteFlow_.finishUnfinished(); }
    // Takes items out of the tree on show.
    void forget(const std::vector<std::string>& paths) { deleteFlow_.forget(paths); }

    // The page, errors, and what the items are.
    Page page() const { return page_; }
    void setPage(Page page);
    const std::optional<QString>& errorMessage() const { return errorMessage_; }
    void clearErrorMessage() { setErrorMessage(std::nullopt); }
    bool hasFullDiskAccess() const { return hasFullDiskAccess_; }
    // Checked at start and whenever the application becomes active.
    void refreshFullDiskAccess();
    const std::shared_ptr<const AppCatalog>& catalog() const { return catalog_; }
    int revision() const { return revision_; }
    // Whether work started for the tree (a scan, a measuring, dates) is still running off the main thread.
    bool hasBackgroundWork() { return !tasks_.isIdle(); }
    // Tells the folder-page screens that node contents changed; every patch of the tree calls it.
    void bumpRevision();

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
    // The installed application an installer file is for, remembered per node until the catalogue changes.
    std::optional<InstalledApp> installedApp(const FileNode& node);

    // The rules of a scan, from the profile and the settings.
    static ScanLocation bestLocation(const std::string& path);
    static Skipped skippedTable();
    // Folders whose changes don't matter: the Library and the excluded folders.
    static std::vector<std::string> ignoredFolders();

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
    friend class ScanSession;
    friend class Navigation;
    friend class Listing;
    friend class PreviewState;
    friend class DeleteFlow;

    void setErrorMessage(std::optional<QString> message);
    void setCatalog(std::shared_ptr<const AppCatalog> catalog);

    Page page_ = Page::overview;
    std::optional<QString> errorMessage_;
    bool hasFullDiskAccess_ = true;
    std::shared_ptr<const AppCatalog> catalog_;
    int revision_ = 0;
    std::map<uint64_t, std::optional<InstalledApp>> appMatches_;
    std::optional<InstallerChoice> installerChoice_;
    DeletionLog* deletions_;

    Navigation navigation_{*this};
    ScanSession session_{*this};
    Listing listing_{*this};
    PreviewState preview_{*this};
    DeleteFlow deleteFlow_{*this};
    BackgroundTasks tasks_; // last: its end waits for the tasks, while everything above still exists
};

} // namespace brenvo
