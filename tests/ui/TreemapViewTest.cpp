#include "Driven.h"
#include "EventLoop.h"
#include "FolderPage.h"
#include "MainWindow.h"
#include "StorageModel.h"
#include "ScopedEnv.h"
#include "TempTree.h"
#include "TreeBuilder.h"
#include "TreemapView.h"
#include "Words.h"

#include <QAccessible>
#include <QTest>
#include <gtest/gtest.h>

using namespace brenvo;
using brenvo::test::folder;
using brenvo::test::leaf;
using brenvo::test::waitFor;

namespace {

NodeRef folderOf(int count, int64_t sizeOfZeroth = 0) {
    std::vector<NodeRef> items;
    for (int i = 0; i < count; ++i) items.push_back(leaf("f" + std::to_string(i), sizeOfZeroth ? sizeOfZeroth : 1000 - i));
    NodeRef root = folder("r", std::move(items));
    root->setLocation("/r");
    return root;
}

} // namespace

TEST(TreemapView, ASelectedItemIsNeverHiddenInTheMoreTile) {
    NodeRef root = folderOf(100);
    FileNode* fiftieth = root->children()[49];
    auto layout = TreemapView::layout(root.get(), {fiftieth->id()}, QSizeF(800, 500));
    ASSERT_EQ(layout.tiles.size(), 25u); // 24 items and the "more" tile
    EXPECT_EQ(layout.hiddenCount, 76);
    bool found = false, has24th = false;
    for (const auto& tile : layout.tiles) {
        found |= tile.node == fiftieth;
        has24th |= tile.node == root->children()[23];
    }
    EXPECT_TRUE(found);
    EXPECT_FALSE(has24th); // pushed out to keep the count
    EXPECT_EQ(layout.tiles.back().node, nullptr);

    EXPECT_EQ(TreemapView::layout(folderOf(24).get(), {}, QSizeF(800, 500)).tiles.size(), 24u); // no "more" tile
    NodeRef zeros = folder("z", {leaf("a", 0), leaf("b", 0)});
    EXPECT_TRUE(TreemapView::layout(zeros.get(), {}, QSizeF(800, 500)).tiles.empty());
}

TEST(TreemapView, ClicksSelectAndDoubleClicksGoIn) {
    test::TempTree tree;
    tree.file("movies/a.mov", 400000);
    tree.file("movies/b.mov", 100000);
    tree.file("notes.txt", 50000);
    StorageModel model;
    MainWindow window(model);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    model.explore(tree.root());
    FolderPage* page = window.folderPage();
    ASSERT_TRUE(waitFor([&] { return page->currentWidget() == page->folderView(); }));
    TreemapView* map = page->map();
    ASSERT_GE(map->currentLayout().tiles.size(), 2u);
    const TreemapView::Tile first = map->currentLayout().tiles.front(); // the layout is redone on every change
    ASSERT_EQ(first.node->name(), "movies");
    const QPoint centre(static_cast<int>(first.rect.x + first.rect.width / 2), static_cast<int>(first.rect.y + first.rect.height / 2));
    QTest::mouseClick(map, Qt::LeftButton, {}, centre);
    EXPECT_EQ(model.selection(), QSet<quint64>{first.node->id()});
    window.grab().save(QStringLiteral(BRENVO_SCREENSHOT_DIR "/folder-map.png"));
    QTest::mouseDClick(map, Qt::LeftButton, {}, centre);
    EXPECT_EQ(model.current()->name(), "movies");
    EXPECT_EQ(map->currentLayout().tiles.size(), 2u);
}

TEST(TreemapView, AChosenTileWigglesUnlessTheDesktopAsksForCalm) {
    test::TempTree tree;
    tree.file("big.bin", 400000);
    tree.file("small.bin", 100000);
    test::Driven driven;
    StorageModel& model = driven.model;
    TreemapView map(model);
    map.resize(600, 400);
    map.show();
    ASSERT_TRUE(driven.open(tree.root()));
    FileNode* big = model.root()->find(tree.path("big.bin"));
    FileNode* small = model.root()->find(tree.path("small.bin"));

    test::ScopedEnv motion("BRENVO_REDUCE_MOTION", "0");
    model.setSelection({big->id()});
    ASSERT_TRUE(map.isWiggling(big->id()));
    ASSERT_TRUE(waitFor([&] { return !map.isWiggling(big->id()); }));
    EXPECT_EQ(map.angle(big->id()), 0); // it comes to rest straight

    // A fresh scan brings the same item under a new id: no new choice, no new wiggle.
    model.scan(*model.location());
    ASSERT_TRUE(driven.idle());
    ASSERT_TRUE(driven.drained());
    big = model.root()->find(tree.path("big.bin"));
    small = model.root()->find(tree.path("small.bin"));
    EXPECT_FALSE(map.isWiggling(big->id()));
    EXPECT_EQ(map.angle(big->id()), 0);

    motion.set("1");
    model.setSelection({small->id()});
    EXPECT_FALSE(map.isWiggling(small->id()));
    EXPECT_EQ(map.angle(small->id()), 0);
    // A grey icon gives no colour: a plain file keeps its category's colour.
    EXPECT_FALSE(map.tint(*small));

    // Each tile is an item of the map for assistive technology, labelled as its tooltip is.
    QAccessibleInterface* list = QAccessible::queryAccessibleInterface(&map);
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(list->childCount(), static_cast<int>(map.currentLayout().tiles.size()));
    QStringList labels;
    for (int i = 0; i < list->childCount(); ++i) {
        QAccessibleInterface* tile = list->child(i);
        ASSERT_NE(tile, nullptr);
        EXPECT_EQ(list->indexOfChild(tile), i);
        labels << tile->text(QAccessible::Name);
    }
    EXPECT_TRUE(labels.contains(QStringLiteral("small.bin \u2014 %1, selected").arg(sizeText(small->size()))))
        << labels.join(QLatin1Char('|')).toStdString();
    EXPECT_TRUE(labels.contains(QStringLiteral("big.bin \u2014 %1").arg(sizeText(big->size()))));
}
