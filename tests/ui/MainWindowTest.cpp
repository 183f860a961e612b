#include "AppDelegate.h"
#include "EventLoop.h"
#include "FileListModel.h"
#include "FileListView.h"
#include "FilterBar.h"
#include "FolderPage.h"
#include "Preferences.h"
#include "RecentlyDeletedView.h"
#include "UndoBanner.h"
#include "MainWindow.h"
#include "PathBar.h"
#include "ScanningView.h"
#include "Sidebar.h"
#include "StorageModel.h"
#include "DetailsColumn.h"
#include "Driven.h"
#include "Scoped.h"
#include "TempTree.h"
#include "WelcomeView.h"
#include "platform/Platform.h"

#include <QComboBox>
#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QTreeWidget>
#include <filesystem>
#include <QMessageBox>
#include <QPushButton>
#include <QStackedWidget>
#include <QTableView>
#include <QFile>
#include <QTest>
#include <QToolButton>
#include <QTreeWidget>
#include <csignal>
#include <fstream>
#include <map>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

using namespace brenvo;
using brenvo::test::waitFor;

extern char** environ;

namespace {

// Whether a running process has a handler for `signal` (its SigCgt mask in /proc).
bool catchesSignal(pid_t pid, int signal) {
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly)) return false;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("SigCgt:")) return (line.mid(7).trimmed().toULongLong(nullptr, 16) >> (signal - 1)) & 1;
    return false;
}

void saveScreenshot(QWidget& widget, const char* name) {
    QDir().mkpath(QStringLiteral(BRENVO_SCREENSHOT_DIR));
    widget.grab().save(QStringLiteral(BRENVO_SCREENSHOT_DIR "/%1.png").arg(QString::fromLatin1(name)));
}

void click(QTreeWidget* tree, QTreeWidgetItem* row) {
    ASSERT_NE(row, nullptr);
    tree->scrollToItem(row);
    QTest::mouseClick(tree->viewport(), Qt::LeftButton, {}, tree->visualItemRect(row).center());
}

struct Shell {
    StorageModel model;
    MainWindow window{model};
    Shell() {
        window.show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(&window));
        QApplication::setActiveWindow(&window); // keyboard shortcuts need an active window
        EXPECT_TRUE(QTest::qWaitForWindowActive(&window));
    }
    FolderPage* page() { return window.folderPage(); }
};

std::string home() { return platform::profile().home; }

// What a run killed inside its undo window leaves: the crash-safety file and the file itself. No quit
// path runs: the model is dropped the way a killed process drops it.
void crashInsideTheUndoWindow(const std::string& path) {
    StorageModel crashed;
    crashed.deletions().schedule({{path, std::string(lastPathComponent(path)), 5000, false, {}}}, 60, nullptr, nullptr,
                                 nullptr);
}

} // namespace

TEST(Shell, AClickOnAPlaceScansItAndListsWhatItHolds) {
    std::ofstream(home() + "/Downloads/big.iso") << std::string(200000, 'x');
    QDir().mkpath(QString::fromStdString(home() + "/Downloads/photos"));
    std::ofstream(home() + "/Downloads/photos/a.jpg") << std::string(50000, 'x');

    Shell shell;
    EXPECT_EQ(shell.model.page(), StorageModel::Page::overview);
    EXPECT_FALSE(shell.window.scanAgainAction()->isEnabled());
    click(shell.window.sidebar()->tree(), shell.window.sidebar()->row(QStringLiteral("Downloads")));
    EXPECT_EQ(shell.model.page(), StorageModel::Page::folder);
    EXPECT_EQ(shell.window.detail()->currentWidget(), shell.page());
    EXPECT_EQ(shell.page()->currentWidget(), shell.page()->scanningView());
    EXPECT_EQ(shell.page()->scanningView()->headline(), QStringLiteral("Opening Downloads\u2026"));
    saveScreenshot(shell.window, "scanning");

    ASSERT_TRUE(waitFor([&] { return shell.page()->currentWidget() == shell.page()->folderView(); }));
    QTableView* list = shell.page()->list();
    ASSERT_EQ(list->model()->rowCount(), 2);
    EXPECT_EQ(list->model()->index(0, FileListModel::Name).data().toString(), QStringLiteral("big.iso"));
    EXPECT_EQ(shell.window.windowTitle(), QStringLiteral("Downloads"));
    EXPECT_TRUE(shell.window.scanAgainAction()->isEnabled());
    EXPECT_TRUE(shell.page()->pathBar()->totalText().endsWith(QStringLiteral(" in 2 files")));
    // The sidebar's tree of folders follows the scan.
    EXPECT_NE(shell.window.sidebar()->row(QStringLiteral("photos")), nullptr);
    saveScreenshot(shell.window, "folder-list");

    // Into a folder by double-click, out again with Back: the folder left is selected.
    const QRect photos = list->visualRect(list->model()->index(1, FileListModel::Name));
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, photos.center());
    QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, photos.center());
    ASSERT_EQ(shell.model.current()->name(), "photos");
    EXPECT_TRUE(shell.window.sidebar()->selection()->folder == shell.model.current());
    EXPECT_EQ(list->model()->rowCount(), 1);
    shell.page()->pathBar()->backButton()->click();
    EXPECT_EQ(shell.model.current(), shell.model.root());
    ASSERT_EQ(list->selectionModel()->selectedRows().size(), 1);
    EXPECT_EQ(list->selectionModel()->selectedRows()[0].row(), 1);

    // A second click on the place on show doesn't scan it again.
    const int scans = shell.model.scanID();
    click(shell.window.sidebar()->tree(), shell.window.sidebar()->row(QStringLiteral("Overview")));
    click(shell.window.sidebar()->tree(), shell.window.sidebar()->row(QStringLiteral("Downloads")));
    EXPECT_EQ(shell.model.scanID(), scans);
    EXPECT_EQ(shell.page()->currentWidget(), shell.page()->folderView());
}

TEST(Shell, CancelReturnsToIdle) {
    test::TempTree tree;
    for (int i = 0; i < 200; ++i) tree.file("d" + std::to_string(i % 20) + "/f" + std::to_string(i), 10);
    Shell shell;
    shell.model.explore(tree.root());
    EXPECT_EQ(shell.page()->currentWidget(), shell.page()->scanningView());
    ASSERT_NE(shell.window.sidebar()->row(QString::fromStdString(std::string(lastPathComponent(tree.root())))), nullptr);
    shell.page()->scanningView()->cancelButton()->click();
    ASSERT_TRUE(test::drained(shell.model)); // whatever the cancelled scan still sends is dropped
    EXPECT_FALSE(shell.model.isScanning());
    EXPECT_FALSE(shell.model.location().has_value());
    EXPECT_EQ(shell.model.root(), nullptr);
    EXPECT_EQ(shell.page()->currentWidget(), shell.page()->welcomeView());
    EXPECT_FALSE(shell.window.sidebar()->selection().has_value());
    saveScreenshot(shell.window, "welcome");
}

TEST(Shell, AFailedScanIsReportedInAnAlert) {
    Shell shell;
    shell.model.explore("/nonexistent/place");
    ASSERT_TRUE(waitFor([&] { return shell.window.errorAlert() != nullptr && shell.window.errorAlert()->isVisible(); }));
    EXPECT_EQ(shell.window.errorAlert()->windowTitle(), QStringLiteral("Something went wrong"));
    EXPECT_TRUE(shell.window.errorAlert()->text().contains(QStringLiteral("No such file or directory")));
    saveScreenshot(*shell.window.errorAlert(), "error-alert");
    shell.window.errorAlert()->button(QMessageBox::Ok)->click();
    EXPECT_TRUE(waitFor([&] { return !shell.model.errorMessage().has_value(); }));
}

TEST(Shell, SigtermQuitsThroughTheOrderlyPath) {
    test::TempTree tree;
    tree.file("x", 10);
    std::string program = BRENVO_APP_PATH;
    std::string folder = tree.root();
    char* argv[] = {program.data(), folder.data(), nullptr};
    pid_t pid;
    ASSERT_EQ(posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv, environ), 0);
    // Up, and its SIGTERM handler in place: the kernel lists the signal as caught.
    ASSERT_TRUE(waitFor([&] { return catchesSignal(pid, SIGTERM); }, 60000));
    ASSERT_EQ(kill(pid, SIGTERM), 0);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(Shell, ASecondScanShowsWhatGrewSinceTheFirst) {
    test::TempTree tree;
    tree.file("old.bin", 1'500'000);
    tree.file("small.txt", 10);
    Shell shell;
    shell.model.explore(tree.root());
    ASSERT_TRUE(waitFor([&] { return shell.page()->currentWidget() == shell.page()->folderView(); }));
    EXPECT_EQ(shell.page()->pathBar()->changeText(), QString()); // the first scan is the baseline

    tree.file("new.iso", 2'500'000);
    tree.file("old.bin", 3'000'000);
    shell.window.scanAgainAction()->trigger();
    EXPECT_TRUE(shell.model.isRefreshing());
    ASSERT_TRUE(waitFor([&] { return !shell.model.isRefreshing(); }));
    QAbstractItemModel* rows = shell.page()->list()->model();
    std::map<QString, QString> changes;
    for (int r = 0; r < rows->rowCount(); ++r)
        changes[rows->index(r, FileListModel::Name).data().toString()] = rows->index(r, FileListModel::Change).data().toString();
    EXPECT_EQ(changes[QStringLiteral("new.iso")], QStringLiteral("New"));
    EXPECT_TRUE(changes[QStringLiteral("old.bin")].startsWith(QStringLiteral("+1.5"))) << changes[QStringLiteral("old.bin")].toStdString();
    EXPECT_EQ(changes[QStringLiteral("small.txt")], QString());
    EXPECT_TRUE(shell.page()->pathBar()->changeText().startsWith(QStringLiteral("+4 MB since "))) << shell.page()->pathBar()->changeText().toStdString();
    saveScreenshot(shell.window, "changes");
}

TEST(Shell, SearchingAFolderListsMatchesFromEveryLevel) {
    test::TempTree tree;
    tree.file("2024/Holiday Photo.jpg", 90000);
    tree.file("2024/sub/photo-2.JPG", 50000);
    tree.file("notes.txt", 10);
    Shell shell;
    shell.model.explore(tree.root());
    ASSERT_TRUE(waitFor([&] { return shell.page()->currentWidget() == shell.page()->folderView(); }));
    FilterBar* bar = shell.page()->filterBar();
    EXPECT_TRUE(bar->clearButton()->isHidden());
    QTest::keyClicks(bar->searchField(), QStringLiteral("PHOTO"));
    QAbstractItemModel* rows = shell.page()->list()->model();
    ASSERT_EQ(rows->rowCount(), 2);
    EXPECT_FALSE(bar->clearButton()->isHidden());
    EXPECT_TRUE(bar->matchText()->text().startsWith(QStringLiteral("2 matches in \u201c"))) << bar->matchText()->text().toStdString();
    bar->kindPicker()->setCurrentIndex(bar->kindPicker()->findText(QStringLiteral("Images")));
    EXPECT_EQ(rows->rowCount(), 2);
    bar->sizePicker()->setCurrentIndex(bar->sizePicker()->findText(QStringLiteral("Over 10 MB")));
    EXPECT_EQ(rows->rowCount(), 0);
    bar->sizePicker()->setCurrentIndex(0);
    saveScreenshot(shell.window, "search");
    bar->clearButton()->click();
    EXPECT_EQ(bar->searchField()->text(), QString());
    EXPECT_EQ(rows->rowCount(), 2); // the folder's own children again: 2024 and notes.txt
    EXPECT_FALSE(shell.model.isFiltering());
}

TEST(Shell, DeletingAsksFirstThenCountsDownAndCanBeUndone) {
    test::TempTree tree;
    tree.file("old-installer.iso", 300000);
    tree.file("notes.txt", 10);
    test::ScopedUndoSeconds window(30);
    Shell shell;
    shell.model.explore(tree.root());
    ASSERT_TRUE(waitFor([&] { return shell.page()->currentWidget() == shell.page()->folderView(); }));
    QTableView* list = shell.page()->list();
    list->setFocus();
    list->selectRow(0);
    QTest::keyClick(list, Qt::Key_Delete);
    QMessageBox* confirm = shell.window.deleteConfirmation();
    ASSERT_NE(confirm, nullptr);
    EXPECT_EQ(confirm->text(), QStringLiteral("Delete \u201cold-installer.iso\u201d permanently?"));
    EXPECT_TRUE(confirm->informativeText().endsWith(QStringLiteral("you'll have 30 seconds to undo.")))
        << confirm->informativeText().toStdString();
    saveScreenshot(*confirm, "delete-confirmation");
    for (QAbstractButton* b : confirm->buttons())
        if (b->text() == QStringLiteral("Delete")) b->click();
    UndoBanner* banner = shell.window.undoBanner();
    ASSERT_TRUE(waitFor([&] { return banner->isVisible(); }));
    EXPECT_TRUE(banner->title().startsWith(QStringLiteral("\u201cold-installer.iso\u201d deleted \u00b7 ")));
    EXPECT_TRUE(banner->announcement().endsWith(QStringLiteral("Undo is available for 30 seconds, press Control Z.")));
    EXPECT_EQ(list->model()->rowCount(), 1);
    ASSERT_TRUE(waitFor([&] { return shell.window.inspector()->isUpToDate(); })); // drawn once the question went
    EXPECT_EQ(shell.window.inspector()->route(), QStringLiteral("folder"));
    saveScreenshot(shell.window, "undo-banner");
    QApplication::setActiveWindow(&shell.window); // back from the dialog
    QTest::keyClick(list, Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(list->model()->rowCount(), 2);
    EXPECT_FALSE(banner->isVisible());

    // Again, and this time the window runs out.
    window.set(0.2);
    list->selectRow(0);
    QTest::keyClick(list, Qt::Key_Delete);
    for (QAbstractButton* b : shell.window.deleteConfirmation()->buttons())
        if (b->text() == QStringLiteral("Delete")) b->click();
    ASSERT_TRUE(waitFor([&] { return banner->title().startsWith(QStringLiteral("Freed ")); }));
    EXPECT_FALSE(std::filesystem::exists(tree.path("old-installer.iso")));
    shell.model.setPage(StorageModel::Page::recentlyDeleted);
    RecentlyDeletedView* page = shell.window.recentlyDeletedView();
    EXPECT_EQ(page->rows()->topLevelItemCount(), 1);
    EXPECT_TRUE(page->summary()->text().startsWith(QStringLiteral("1 items \u00b7 ")));
    saveScreenshot(shell.window, "recently-deleted");
    page->clearButton()->click();
    EXPECT_TRUE(shell.model.deletions().items().empty());
}

TEST(Shell, AStartAfterACrashAsksToFinishDeleting) {
    test::TempTree tree;
    tree.file("left-behind.bin", 5000);
    crashInsideTheUndoWindow(tree.path("left-behind.bin"));
    Shell shell;
    ASSERT_TRUE(waitFor([&] { return shell.window.finishDeletingAlert() && shell.window.finishDeletingAlert()->isVisible(); }));
    EXPECT_EQ(shell.window.finishDeletingAlert()->text(),
              QStringLiteral("Brenvo was closed before it finished deleting \u201cleft-behind.bin\u201d (5 KB). They're still "
                             "on your computer. Delete them now? This can't be undone."));
    saveScreenshot(*shell.window.finishDeletingAlert(), "finish-deleting");
    for (QAbstractButton* b : shell.window.finishDeletingAlert()->buttons())
        if (b->text() == QStringLiteral("Delete")) b->click();
    ASSERT_TRUE(waitFor([&] { return !std::filesystem::exists(tree.path("left-behind.bin")); }));
}

TEST(Shell, SmallerItemsRowsTheBannerTheSpinnerAndTheSmallestWindow) {
    test::TempTree tree;
    for (int i = 0; i < 260; ++i) tree.file("f" + std::to_string(i), 10 + static_cast<size_t>(i));
    Shell shell;
    shell.model.explore(tree.root());
    ASSERT_TRUE(waitFor([&] { return shell.page()->currentWidget() == shell.page()->folderView(); }));

    // A double-click on the "smaller items" row shows its folder in the file manager.
    std::vector<std::string> shown;
    QObject::connect(&shell.model, &StorageModel::revealRequested, &shell.model,
                     [&](const std::string& path) { shown.push_back(path); });
    QTableView* list = shell.page()->list();
    int group = -1;
    for (int r = 0; r < list->model()->rowCount(); ++r)
        if (list->model()->index(r, 0).data().toString().endsWith(QStringLiteral("smaller items"))) group = r;
    ASSERT_GE(group, 0);
    list->scrollTo(list->model()->index(group, 0));
    list->doItemsLayout();
    const QPoint at = list->visualRect(list->model()->index(group, 0)).center();
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, at);
    QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, at);
    EXPECT_EQ(shown, std::vector<std::string>{shell.model.root()->path()});

    // While a fresh scan runs behind the last one, the status turns.
    shell.model.scan(*shell.model.location());
    EXPECT_TRUE(shell.page()->pathBar()->isSpinning());
    ASSERT_TRUE(waitFor([&] { return !shell.model.isRefreshing(); }));
    EXPECT_FALSE(shell.page()->pathBar()->isSpinning());

    // The undo banner sits across the window's foot, not over one column.
    test::ScopedUndoSeconds window(30);
    shell.model.requestDelete({shell.model.find(tree.path("f259"))});
    shell.model.confirmDelete();
    UndoBanner* banner = shell.window.undoBanner();
    ASSERT_TRUE(waitFor([&] { return banner->isVisible(); }));
    EXPECT_EQ(banner->parentWidget(), &shell.window);
    EXPECT_NEAR(banner->geometry().center().x(), shell.window.rect().center().x(), 2);
    EXPECT_GT(banner->geometry().bottom(), shell.window.height() - 40);
    shell.model.deletions().undoPending();

    // At its smallest the window still shows the path bar's totals whole.
    shell.window.resize(shell.window.minimumSize());
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(shell.window.minimumSize(), QSize(960, 560));
    saveScreenshot(shell.window, "folder-smallest-window");
}

TEST(Shell, QuestionsDismissedWithEscapeOrTheTitleBarLeaveNothingBehind) {
    test::TempTree tree;
    tree.file("a.bin", 5000);
    tree.file("b.bin", 5000);
    Shell shell;
    shell.model.explore(tree.root());
    ASSERT_TRUE(waitFor([&] { return shell.page()->currentWidget() == shell.page()->folderView(); }));

    // The delete confirmation: Escape, then the window's close button, each cancel it.
    for (bool escape : {true, false}) {
        shell.model.requestDelete({shell.model.find(tree.path("a.bin"))});
        QPointer<QMessageBox> confirm = shell.window.deleteConfirmation();
        ASSERT_TRUE(confirm && confirm->isVisible());
        if (escape)
            QTest::keyClick(confirm, Qt::Key_Escape);
        else
            confirm->close();
        ASSERT_TRUE(waitFor([&] { return !confirm; }));
        EXPECT_TRUE(shell.model.pendingDelete().empty());
        EXPECT_FALSE(shell.model.deletions().pending());
        EXPECT_NE(shell.model.find(tree.path("a.bin")), nullptr);
    }
}

TEST(Shell, FinishDeletingDismissedKeepsTheFilesAndAsksNoMore) {
    test::TempTree tree;
    tree.file("left-behind.bin", 5000);
    crashInsideTheUndoWindow(tree.path("left-behind.bin"));
    Shell shell;
    ASSERT_TRUE(waitFor([&] { return shell.window.finishDeletingAlert() && shell.window.finishDeletingAlert()->isVisible(); }));
    QPointer<QMessageBox> alert = shell.window.finishDeletingAlert();
    QTest::keyClick(alert, Qt::Key_Escape);
    ASSERT_TRUE(waitFor([&] { return !alert; }));
    EXPECT_TRUE(shell.model.deletions().unfinished().empty());
    EXPECT_TRUE(std::filesystem::exists(tree.path("left-behind.bin")));
    StorageModel next; // a later start asks nothing
    EXPECT_TRUE(next.deletions().unfinished().empty());
}

TEST(Shell, QuittingInsideAnUndoWindowCarriesTheDeletionThrough) {
    test::TempTree tree;
    tree.file("going/x.bin", 5000);
    StorageModel model;
    AppDelegate delegate;
    model.deletions().schedule({{tree.path("going"), "going", 5000, true, {}}}, 60, nullptr, nullptr, nullptr);
    delegate.applicationWillTerminate(); // what Quit, the last window closing and SIGTERM all end in
    EXPECT_FALSE(std::filesystem::exists(tree.path("going")));
    ASSERT_FALSE(model.deletions().items().empty());
    EXPECT_EQ(model.deletions().items().front().originalPath, tree.path("going"));
}
