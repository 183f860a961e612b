#pragma once

#include <QStackedWidget>

class QTableView;

namespace brenvo {

class FileListModel;
class FilterBar;
class PathBar;
class TreemapView;
class ScanningView;
class StorageModel;
class WelcomeView;

// The folder page: the progress screen while a scan has nothing to show, the welcome before any place is
// chosen, and otherwise the path bar over the folder's contents.
class FolderPage : public QStackedWidget {
    Q_OBJECT
public:
    explicit FolderPage(StorageModel& model, QWidget* parent = nullptr);

    ScanningView* scanningView() const { return scanning_; }
    WelcomeView* welcomeView() const { return welcome_; }
    QWidget* folderView() const { return folder_; }
    PathBar* pathBar() const { return pathBar_; }
    FilterBar* filterBar() const { return filterBar_; }
    QTableView* list() const { return list_; }
    TreemapView* map() const { return map_; }

private:
    void choose();
    void open(const QModelIndex& index);
    void showSelection();
    void takeSelection();

    StorageModel& model_;
    ScanningView* scanning_;
    WelcomeView* welcome_;
    QWidget* folder_;
    PathBar* pathBar_;
    FilterBar* filterBar_;
    QTableView* list_;
    TreemapView* map_;
    FileListModel* rows_;
    bool syncing_ = false;
};

} // namespace brenvo
