#include "Driven.h"
#include "EventLoop.h"
#include "FileActionsMenu.h"
#include "FileListModel.h"
#include "FileListView.h"
#include "FolderPage.h"
#include "MainWindow.h"
#include "StorageModel.h"
#include "ScopedEnv.h"
#include "TempTree.h"
#include "TreemapView.h"

#include <QApplication>
#include <QDir>
#include <QHeaderView>
#include <QImage>
#include <QScrollBar>
#include <QTest>
#include <QThreadPool>
#include <gtest/gtest.h>

using namespace brenvo;
using brenvo::test::waitFor;

namespace {

struct Page {
    test::ScopedEnv still{"BRENVO_REDUCE_MOTION", "1"}; // screenshots of tiles at rest
    StorageModel model;
    MainWindow window{model};
    explicit Page(QSize size = {1200, 760}) {
        window.resize(size);
        window.show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(&window));
    }
    bool open(const std::string& path) {
        model.explore(path);
        return waitFor([&] { return list()->isVisible() && !model.isRefreshing(); });
    }
    FileListView* list() { return window.folderPage()->list(); }
    QAbstractItemModel* rows() { return list()->model(); }
    QString cell(int row, int column, int role = Qt::DisplayRole) {
        return rows()->index(row, column).data(role).toString();
    }
    int rowNamed(const QString& name) {
        for (int r = 0; r < rows()->rowCount(); ++r)
            if (cell(r, FileListModel::Name) == name) return r;
        return -1;
    }
    void shoot(const char* name) {
        QDir().mkpath(QStringLiteral(BRENVO_SCREENSHOT_DIR));
        // Thumbnails and last-opened dates arrive first.
        QThreadPool::globalInstance()->waitForDone();
        test::drained(model);
        QCoreApplication::processEvents();
        window.grab().save(QStringLiteral(BRENVO_SCREENSHOT_DIR "/%1.png").arg(QString::fromLatin1(name)));
    }
};

void writeImage(const std::string& path, QColor colour) {
    QImage image(640, 400, QImage::Format_RGB32);
    image.fill(colour);
    ASSERT_TRUE(image.save(QString::fromStdString(path), "PNG"));
}

} // namespace

TEST(FileList, CellsSayWhatIsKnownAndNothingMore) {
    test::TempTree tree;
    tree.file("grew.bin", 3'000'000);
    tree.file("shrank.bin", 1'000'000);
    tree.file("nudged.bin", 2'000'000);
    tree.file("fresh.bin", 2'000'000);
    tree.file("locked/inside", 10);
    Page page;
    ASSERT_TRUE(page.open(tree.root()));
    FileNode* root = page.model.root();
    root->find(tree.path("grew.bin"))->setChange(1'500'000);
    root->find(tree.path("shrank.bin"))->setChange(-1'000'000);
    root->find(tree.path("nudged.bin"))->setChange(999'999);
    FileNode* fresh = root->find(tree.path("fresh.bin"));
    fresh->setChange(2'000'000);
    fresh->setIsNew(true);
    FileNode* locked = root->find(tree.path("locked"));
    locked->setCouldNotRead(true);
    page.model.forget({tree.path("locked/inside")}); // also redraws the rows

    EXPECT_EQ(page.cell(page.rowNamed(QStringLiteral("nudged.bin")), FileListModel::Change), QString()); // under 1 MB
    const int shrank = page.rowNamed(QStringLiteral("shrank.bin"));
    EXPECT_FALSE(page.cell(shrank, FileListModel::Change).isEmpty());
    EXPECT_EQ(page.cell(shrank, FileListModel::Change, Qt::ToolTipRole),
              QStringLiteral("Change in size since the last baseline scan"));
    const int freshRow = page.rowNamed(QStringLiteral("fresh.bin"));
    EXPECT_EQ(page.cell(freshRow, FileListModel::Change), QStringLiteral("New"));
    EXPECT_EQ(page.cell(freshRow, FileListModel::Change, Qt::ToolTipRole), QStringLiteral("New since the last baseline scan"));
    EXPECT_EQ(page.cell(page.rowNamed(QStringLiteral("locked")), FileListModel::Size), QStringLiteral("\u2014"));
    EXPECT_FALSE(page.cell(freshRow, FileListModel::Kind).isEmpty());
    EXPECT_FALSE(page.cell(freshRow, FileListModel::Modified).isEmpty());
    const double share = page.rows()->index(page.rowNamed(QStringLiteral("grew.bin")), FileListModel::Share)
                             .data(FileListModel::ShareRole).toDouble();
    EXPECT_GT(share, 0.3);
    EXPECT_LT(share, 0.5);
}

TEST(FileList, HeadersSortTheRowsAndTheOrderOutlivesTheFolder) {
    test::TempTree tree;
    tree.file("b/inner.txt", 50'000);
    tree.file("a.txt", 10'000);
    tree.file("c.txt", 90'000);
    Page page;
    ASSERT_TRUE(page.open(tree.root()));
    EXPECT_EQ(page.cell(0, FileListModel::Name), QStringLiteral("c.txt")); // largest first to begin with

    QHeaderView* header = page.list()->horizontalHeader();
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
                      QPoint(header->sectionViewportPosition(FileListModel::Name) + 20, header->height() / 2));
    EXPECT_EQ(page.model.listOrder().column, StorageModel::ListColumn::name);
    const bool ascending = page.model.listOrder().ascending;
    EXPECT_EQ(page.cell(0, FileListModel::Name), ascending ? QStringLiteral("a.txt") : QStringLiteral("c.txt"));

    // The share column has no order: a click there changes nothing.
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
                      QPoint(header->sectionViewportPosition(FileListModel::Share) + 20, header->height() / 2));
    EXPECT_EQ(page.model.listOrder().column, StorageModel::ListColumn::name);
    EXPECT_EQ(header->sortIndicatorSection(), int(FileListModel::Name));

    // Never opened sorts as the oldest: below everything when the newest come first.
    page.model.setListOrder({StorageModel::ListColumn::lastOpened, false});
    page.model.root()->find(tree.path("a.txt"))->setLastOpened(Date::fromUnix(1'700'000'000));
    page.model.root()->find(tree.path("c.txt"))->setLastOpened(std::nullopt);
    page.model.root()->find(tree.path("c.txt"))->setLastOpenedLoaded(true);
    page.model.bumpRevision();
    EXPECT_EQ(page.cell(0, FileListModel::Name), QStringLiteral("a.txt"));
    const int unknown = page.rowNamed(QStringLiteral("c.txt"));
    EXPECT_EQ(page.cell(unknown, FileListModel::LastOpened), QString());
    EXPECT_FALSE(page.cell(unknown, FileListModel::LastOpened, Qt::ToolTipRole).isEmpty());

    // Into a folder and back: the order stays.
    page.model.setCurrent(page.model.root()->find(tree.path("b")));
    page.model.setCurrent(page.model.root());
    EXPECT_EQ(header->sortIndicatorSection(), int(FileListModel::LastOpened));
}

TEST(FileList, FoundItemsShowTheirFolderAndSelectionComesIntoView) {
    test::TempTree tree;
    for (int i = 0; i < 120; ++i) tree.file("deep/er/photo " + std::to_string(i) + ".jpg", 10000 + i * 5000);
    tree.file("photo top.jpg", 10);
    Page page;
    ASSERT_TRUE(page.open(tree.root()));
    page.model.setSearchText("photo");
    ASSERT_EQ(page.rows()->rowCount(), 121);
    const int top = page.rowNamed(QStringLiteral("photo top.jpg"));
    EXPECT_FALSE(page.rows()->index(top, 0).data(FileListModel::RelativeFolderRole).isValid());
    const int deep = page.rowNamed(QStringLiteral("photo 7.jpg"));
    EXPECT_EQ(page.rows()->index(deep, 0).data(FileListModel::RelativeFolderRole).toString(), QStringLiteral("deep/er"));
    EXPECT_EQ(page.list()->verticalHeader()->defaultSectionSize(), FileListView::kFoundRowHeight);

    // A selection made elsewhere (the map, a reveal) brings its row on screen.
    page.model.setListOrder({StorageModel::ListColumn::size, false});
    FileNode* smallest = page.model.root()->find(tree.path("photo top.jpg"));
    page.model.setSelection({smallest->id()});
    EXPECT_TRUE(waitFor([&] {
        const QRect shown = page.list()->visualRect(page.rows()->index(page.rowNamed(QStringLiteral("photo top.jpg")), 0));
        return page.list()->viewport()->rect().intersects(shown) && page.list()->verticalScrollBar()->value() > 0;
    }));

    // Another search starts at the top.
    page.model.setSearchText("photo 1");
    EXPECT_TRUE(waitFor([&] { return page.list()->verticalScrollBar()->value() == 0; }));
    page.shoot("folder-search");
}

TEST(FileList, ThePageAtSeveralSizes) {
    test::TempTree tree;
    tree.folder("Pictures");
    writeImage(tree.path("Pictures/sunset.png"), QColor(220, 120, 40));
    writeImage(tree.path("Pictures/sea.png"), QColor(40, 110, 200));
    tree.file("Movies/holiday.mp4", 3'000'000);
    tree.file("Movies/clip.mov", 1'200'000);
    tree.file("Downloads/setup.deb", 900'000);
    tree.file("Downloads/photos.zip", 600'000);
    for (int i = 0; i < 30; ++i) tree.file("Documents/report " + std::to_string(i) + ".pdf", 10'000 + i * 3000);
    tree.file("notes.txt", 20'000);
    Page page;
    ASSERT_TRUE(page.open(tree.root()));
    page.model.setSelection({page.model.root()->find(tree.path("Movies"))->id()});
    page.shoot("folder-page");
    page.model.setCurrent(page.model.root()->find(tree.path("Pictures")));
    page.model.setSelection({page.model.root()->find(tree.path("Pictures/sea.png"))->id()});
    page.shoot("folder-pictures");
    page.model.setCurrent(page.model.root()->find(tree.path("Documents")));
    page.list()->selectAll();
    page.shoot("folder-multiple");
    for (QSize size : {QSize(960, 560), QSize(1600, 1000)}) {
        page.window.resize(size);
        page.model.setCurrent(page.model.root());
        page.shoot(size.width() == 960 ? "folder-small" : "folder-large");
        // However narrow, the name keeps its room and the map its tiles.
        EXPECT_GE(page.list()->horizontalHeader()->sectionSize(FileListModel::Name), 180);
        EXPECT_FALSE(page.window.folderPage()->map()->currentLayout().tiles.empty());
    }
}

TEST(FileList, AFreshScanKeepsThePlaceAndStaleActionsFindTheNewTree) {
    test::TempTree tree;
    for (int i = 0; i < 80; ++i) tree.file("inner/f" + std::to_string(i), 5000 + i * 4096);
    for (int i = 0; i < 60; ++i) tree.file("g" + std::to_string(i), 4096 + i * 4096);
    Page page;
    ASSERT_TRUE(page.open(tree.root()));
    page.list()->verticalScrollBar()->setValue(page.list()->verticalScrollBar()->maximum());
    const int scrolled = page.list()->verticalScrollBar()->value();
    ASSERT_GT(scrolled, 0);
    auto goInside = FileActionsMenu::primaryAction(page.model, page.model.find(tree.path("inner")), QStringLiteral("Open folder"));

    // Scan Again: every node is new, the folder on show isn't.
    FileNode* before = page.model.root();
    page.window.scanAgainAction()->trigger();
    ASSERT_TRUE(waitFor([&] { return !page.model.isRefreshing() && page.model.root() != before; }));
    page.list()->doItemsLayout();
    EXPECT_EQ(page.list()->verticalScrollBar()->value(), scrolled);

    // The action offered before the scan acts on the folder of the tree on show now.
    goInside.run();
    ASSERT_NE(page.model.current(), nullptr);
    EXPECT_EQ(page.model.current(), page.model.find(tree.path("inner")));
    EXPECT_EQ(page.model.current()->parent(), page.model.root());
}
