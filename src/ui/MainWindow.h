#pragma once

#include <QMainWindow>
#include <QPointer>

class QAction;
class QLabel;
class QMessageBox;
class QStackedWidget;

namespace brenvo {

class FolderPage;
class Sidebar;
class StorageModel;

// The main window: the sidebar, the page the model is on, the toolbar and the alerts. It keeps no state of
// the model's; it shows it and calls its operations.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(StorageModel& model, QWidget* parent = nullptr);

    Sidebar* sidebar() const { return sidebar_; }
    FolderPage* folderPage() const { return folderPage_; }
    QStackedWidget* detail() const { return detail_; }
    QAction* scanAgainAction() const { return scanAgain_; }
    QMessageBox* errorAlert() const;

private:
    void showPage();
    void refreshToolbar();
    void refreshTitle();
    void showError();
    QWidget* placeholder(const QString& title);

    StorageModel& model_;
    Sidebar* sidebar_;
    QStackedWidget* detail_;
    FolderPage* folderPage_;
    QWidget* overviewPage_;
    QWidget* duplicatesPage_;
    QWidget* recentlyDeletedPage_;
    QAction* scanAgain_;
    QPointer<QMessageBox> errorAlert_;
};

} // namespace brenvo
