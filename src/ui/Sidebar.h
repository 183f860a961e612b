#pragma once

#include <QWidget>

#ifndef Q_MOC_RUN
#include "scan/ScanLocation.h"
#include "tree/FileNode.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>
#endif

class QFrame;
class QPushButton;
class QSocketNotifier;
class QTreeWidget;
class QTreeWidgetItem;

namespace brenvo {

class StorageModel;

// What a sidebar row stands for.
struct SidebarItem {
    enum class Kind { location, folder, overview, duplicates, recentlyDeleted };
    Kind kind = Kind::overview;
    std::optional<ScanLocation> location; // for `location`
    NodeRef folder;                       // for `folder`

    bool operator==(const SidebarItem& other) const {
        return kind == other.kind && location == other.location && folder == other.folder;
    }
};

// The places to scan, the tools, and the scanned folder's tree, which follows where the user goes.
class Sidebar : public QWidget {
    Q_OBJECT
public:
    explicit Sidebar(StorageModel& model, QWidget* parent = nullptr);
    ~Sidebar() override;

    const std::optional<SidebarItem>& selection() const { return selection_; }
    void select(std::optional<SidebarItem> item);
    // The row titled `title`, for tests and keyboard paths.
    QTreeWidgetItem* row(const QString& title) const;
    QTreeWidget* tree() const { return tree_; }
    QPushButton* chooseFolderButton() const { return choose_; }
    QFrame* accessCard() const { return accessCard_; }
    // Reads the list of mounted disks again (at start and when volumes come and go).
    void refreshDisks();
    void chooseFolder();

private:
    void rebuild();
    void rebuildFolders();
    void refreshCustomRow();
    QTreeWidgetItem* section(const QString& title);
    QTreeWidgetItem* addRow(QTreeWidgetItem* parent, const QString& title, const char* symbol, SidebarItem item);
    QTreeWidgetItem* addFolderRow(QTreeWidgetItem* parent, FileNode* folder);
    void populate(QTreeWidgetItem* row);
    void showSelection();
    void selectionChangedByUser();
    void reactToSelection();
    void followCurrent();
    void watchMounts();
    QFrame* makeAccessCard();
    QTreeWidgetItem* itemFor(const SidebarItem& item) const;

    StorageModel& model_;
    QTreeWidget* tree_;
    QPushButton* choose_;
    QFrame* accessCard_;
    QSocketNotifier* mounts_ = nullptr;
    int mountTable_ = -1;
    std::optional<SidebarItem> selection_;
    std::set<uint64_t> expanded_; // folder rows that are open
    std::vector<std::string> disks_;
    std::map<QTreeWidgetItem*, SidebarItem> items_;
    QTreeWidgetItem* foldersSection_ = nullptr;
    QTreeWidgetItem* moreSection_ = nullptr;
    QTreeWidgetItem* customRow_ = nullptr;
    bool updating_ = false;
};

} // namespace brenvo
