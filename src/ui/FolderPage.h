#pragma once

#include <QStackedWidget>

class QLabel;

namespace brenvo {

class FileListView;
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
    FileListView* list() const { return list_; }
    TreemapView* map() const { return map_; }
    QWidget* chart() const { return charts_->currentWidget(); }

private:
    void choose();
    void showChart(const QString& chart);

    StorageModel& model_;
    ScanningView* scanning_;
    WelcomeView* welcome_;
    QWidget* folder_;
    PathBar* pathBar_;
    FilterBar* filterBar_;
    FileListView* list_;
    QStackedWidget* charts_;
    TreemapView* map_;
    QLabel* rings_;
};

} // namespace brenvo
