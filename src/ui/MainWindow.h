#pragma once

#include <QMainWindow>
#include <QPointer>

#include <functional>

class QAction;
class QLabel;
class QAbstractButton;
class QMessageBox;
class QStackedWidget;

namespace brenvo {

class FolderPage;
class InspectorView;
class PreviewWindow;
class RecentlyDeletedView;
class UndoBanner;
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
    QAction* detailsAction() const { return details_; }
    InspectorView* inspector() const { return inspector_; }
    PreviewWindow* previewWindow() const { return preview_; }
    QMessageBox* errorAlert() const;
    QMessageBox* deleteConfirmation() const;
    QMessageBox* finishDeletingAlert() const;
    QMessageBox* installerAlert() const;
    UndoBanner* undoBanner() const { return banner_; }
    RecentlyDeletedView* recentlyDeletedView() const { return recentlyDeletedPage_; }

private:
    void showPage();
    void refreshToolbar();
    void refreshTitle();
    void showError();
    void confirmDeletion();
    void offerToFinishDeleting();
    void askAboutInstaller();
    void whenAnswered(QMessageBox* box, QAbstractButton* yes, std::function<void()> accepted,
                      std::function<void()> declined);
    QWidget* placeholder(const QString& title);

    StorageModel& model_;
    Sidebar* sidebar_;
    QStackedWidget* detail_;
    FolderPage* folderPage_;
    QWidget* overviewPage_;
    QWidget* duplicatesPage_;
    RecentlyDeletedView* recentlyDeletedPage_;
    UndoBanner* banner_ = nullptr;
    QAction* scanAgain_;
    QAction* details_;
    InspectorView* inspector_;
    PreviewWindow* preview_;
    QPointer<QMessageBox> errorAlert_;
    QPointer<QMessageBox> confirmation_;
    QPointer<QMessageBox> finishDeleting_;
    QPointer<QMessageBox> installer_;
};

} // namespace brenvo
