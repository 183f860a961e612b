#include "Driven.h"
#include "EventLoop.h"
#include "StorageModel.h"
#include "Scoped.h"
#include "TempTree.h"
#include "platform/Platform.h"
#include "tree/FoldedEntries.h"

#include <cstdio>
#include <gtest/gtest.h>

using namespace brenvo;
using brenvo::test::TempTree;
using brenvo::test::waitFor;
using brenvo::test::Driven;
using KindFilter = StorageModel::KindFilter;
using SizeFilter = StorageModel::SizeFilter;

namespace {

NodeRef make(FileNode::Kind kind, std::string_view name, int64_t size) {
    NodeRef n = FileNode::make(kind, name);
    n->setSize(size);
    if (kind == FileNode::Kind::file) n->setItemCount(1);
    return n;
}


std::vector<std::string> names(const std::vector<FileNode*>& nodes) {
    std::vector<std::string> out;
    for (FileNode* n : nodes) out.emplace_back(n->name());
    return out;
}

} // namespace

TEST(Listing, MatchesWalkTheWholeSubtreeSmallestFirstAndStopAtTheLimit) {
    NodeRef root = make(FileNode::Kind::folder, "r", 0);
    root->setLocation("/r");
    NodeRef photos = make(FileNode::Kind::folder, "Photos", 0);
    for (int i = 0; i < 2500; ++i) make(FileNode::Kind::file, "IMG_" + std::to_string(i) + ".jpg", 2500 - i)->reinsert(photos.get());
    photos->reinsert(root.get());
    make(FileNode::Kind::file, "exact.mov", 10'000'000)->reinsert(root.get());
    make(FileNode::Kind::file, "under.mov", 9'999'999)->reinsert(root.get());
    make(FileNode::Kind::aggregate, "4 smaller items", 5)->reinsert(root.get());
    const Profile& profile = platform::profile();

    auto found = StorageModel::matches(*root, "img", KindFilter::all, SizeFilter::any, 2000, profile);
    ASSERT_EQ(found.size(), 2000u);
    EXPECT_EQ(found.front()->name(), "IMG_2499.jpg"); // the smallest of the folder comes first
    EXPECT_EQ(names(StorageModel::matches(*root, "", KindFilter::videos, SizeFilter::over10MB, 2000, profile)),
              std::vector<std::string>{"exact.mov"}); // "over" means at least
    EXPECT_EQ(names(StorageModel::matches(*root, "  PHO\t", KindFilter::folders, SizeFilter::any, 2000, profile)),
              std::vector<std::string>{"Photos"});
    for (FileNode* item : StorageModel::matches(*root, "", KindFilter::all, SizeFilter::any, 5000, profile))
        EXPECT_FALSE(item->isAggregate());
}

TEST(Listing, FiltersSearchTheCurrentFolderAndRememberTheResult) {
    TempTree tree;
    tree.file("a/Report.PDF", 10);
    tree.file("a/b/old report.txt", 10);
    tree.file("c/other.txt", 10);
    Driven d;
    ASSERT_TRUE(d.open(tree.root()));
    StorageModel& model = d.model;
    EXPECT_EQ(model.listItems().size(), 2u);

    model.setSearchText("   ");
    EXPECT_FALSE(model.isFiltering()); // spaces alone are no filter
    model.setSearchText("report");
    EXPECT_TRUE(model.isFiltering());
    auto first = model.listItems();
    EXPECT_EQ(first.size(), 2u);
    model.setSearchText("report ");
    EXPECT_EQ(model.listItems().size(), 2u); // the same items under another key
    model.setCurrent(model.root()->find(tree.path("c")));
    EXPECT_TRUE(model.listItems().empty()); // filters stay; the folder changed
    model.clearFilters();
    EXPECT_EQ(names(model.listItems()), std::vector<std::string>{"other.txt"});
}

TEST(Listing, NeighboursAndGoingUp) {
    TempTree tree;
    tree.file("big", 30000);
    tree.file("mid", 20000);
    tree.file("small", 5000);
    tree.file("empty", 0);
    Driven d;
    ASSERT_TRUE(d.open(tree.root()));
    StorageModel& model = d.model;
    auto id = [&](const char* name) { return model.root()->find(tree.path(name))->id(); };
    model.selectNeighbour(true);
    EXPECT_EQ(model.selection(), QSet<quint64>{id("big")}); // nothing selected: the largest
    model.selectNeighbour(true);
    model.selectNeighbour(true);
    model.selectNeighbour(true); // stays on the last item of non-zero size
    EXPECT_EQ(model.selection(), QSet<quint64>{id("small")});
    model.setSelection({id("big")});
    model.selectNeighbour(false);
    EXPECT_EQ(model.selection(), QSet<quint64>{id("big")});
    EXPECT_FALSE(model.previewURL()); // a closed preview stays closed
    model.toggleQuickLook();
    EXPECT_EQ(model.previewURL(), tree.path("big"));
    model.selectNeighbour(true);
    EXPECT_EQ(model.previewURL(), tree.path("mid")); // an open one follows
    model.toggleQuickLook();
    EXPECT_FALSE(model.previewURL());
}

TEST(Listing, RevealLandsOnTheItemOrOnWhatFoldedIt) {
    TempTree tree;
    for (int i = 0; i < 260; ++i) tree.file("many/f" + std::to_string(i), 50000);
    tree.file("many/tiny", 0); // the smallest of 261: surely folded
    tree.file("deep/er/target.txt", 10);
    Driven d;
    ASSERT_TRUE(d.open(tree.root()));
    StorageModel& model = d.model;
    model.reveal(tree.path("deep/er/target.txt"));
    EXPECT_EQ(model.current()->path(), tree.path("deep/er"));
    EXPECT_EQ(model.selection(), QSet<quint64>{model.current()->find(tree.path("deep/er/target.txt"))->id()});
    EXPECT_FALSE(model.pendingReveal());

    // A folded item comes out of its "smaller items" row, in the tree on show.
    const int scans = model.scanID();
    model.reveal(tree.path("many/tiny"));
    EXPECT_FALSE(model.pendingReveal());
    EXPECT_EQ(model.scanID(), scans);
    EXPECT_EQ(model.current()->path(), tree.path("many"));
    ASSERT_NE(model.find(tree.path("many/tiny")), nullptr);
    EXPECT_EQ(model.selection(), QSet<quint64>{model.find(tree.path("many/tiny"))->id()});
}

TEST(Listing, ForgettingAndLastOpened) {
    TempTree tree;
    tree.file("keep", 10);
    tree.file("drop", 10);
    Driven d;
    ASSERT_TRUE(d.open(tree.root()));
    StorageModel& model = d.model;
    const int revision = model.revision();
    model.forget({tree.path("drop")});
    EXPECT_EQ(model.root()->find(tree.path("drop")), nullptr);
    EXPECT_GT(model.revision(), revision);

    FileNode* keep = model.root()->find(tree.path("keep"));
    model.loadLastOpened({keep, model.root()});
    EXPECT_TRUE(keep->lastOpenedLoaded());
    EXPECT_FALSE(model.root()->lastOpenedLoaded()); // folders are never asked about
    ASSERT_TRUE(waitFor([&] { return keep->lastOpened().has_value(); }));
}

TEST(Listing, RowsSortByTheChosenColumnAndKeepTiesInPlace) {
    using Column = StorageModel::ListColumn;
    NodeRef a = make(FileNode::Kind::file, "file 10.txt", 300);
    NodeRef b = make(FileNode::Kind::file, "File 9.txt", 100);
    NodeRef c = make(FileNode::Kind::folder, "apps", 300);
    NodeRef d = make(FileNode::Kind::file, "zeta.bin", 200);
    b->setChange(-2'000'000);
    d->setChange(5'000'000);
    a->setLastOpened(Date::fromUnix(1'700'000'000));
    c->setLastOpened(Date::fromUnix(1'600'000'000));
    const std::vector<FileNode*> original{a.get(), b.get(), c.get(), d.get()};
    auto sorted = [&](Column column, bool ascending) {
        std::vector<FileNode*> rows = original;
        StorageModel::sortRows(rows, {column, ascending}, [](const FileNode& n) {
            return n.isFolder() ? std::string("Folder") : std::string("Document");
        });
        return names(rows);
    };
    using Names = std::vector<std::string>;
    // Names in the order a person expects: case aside, numbers by value.
    EXPECT_EQ(sorted(Column::name, true), (Names{"apps", "File 9.txt", "file 10.txt", "zeta.bin"}));
    // Equal sizes keep their order in both directions.
    EXPECT_EQ(sorted(Column::size, false), (Names{"file 10.txt", "apps", "zeta.bin", "File 9.txt"}));
    EXPECT_EQ(sorted(Column::size, true), (Names{"File 9.txt", "zeta.bin", "file 10.txt", "apps"}));
    // No change counts as none: between growth and shrinkage.
    EXPECT_EQ(sorted(Column::change, false), (Names{"zeta.bin", "file 10.txt", "apps", "File 9.txt"}));
    // Never opened is the oldest: last when newest come first.
    EXPECT_EQ(sorted(Column::lastOpened, false), (Names{"file 10.txt", "apps", "File 9.txt", "zeta.bin"}));
    EXPECT_EQ(sorted(Column::kind, true), (Names{"file 10.txt", "File 9.txt", "zeta.bin", "apps"}));
}

TEST(Listing, FoundItemsNameTheirFolderBelowTheCurrentOne) {
    TempTree tree;
    tree.file("Photos/2024/May/beach.jpg", 10);
    tree.file("Photos/top.jpg", 10);
    Driven d;
    ASSERT_TRUE(d.open(tree.root()));
    StorageModel& model = d.model;
    FileNode* photos = model.root()->find(tree.path("Photos"));
    ASSERT_TRUE(photos);
    model.setCurrent(photos);
    EXPECT_EQ(model.relativeFolder(*model.root()->find(tree.path("Photos/2024/May/beach.jpg"))),
              std::optional<std::string>("2024/May"));
    EXPECT_EQ(model.relativeFolder(*model.root()->find(tree.path("Photos/top.jpg"))), std::nullopt);
    EXPECT_EQ(model.relativeFolder(*model.root()), std::nullopt); // no parent

    // The list's order is the model's, so it outlives the list and the folder.
    bool told = false;
    QObject::connect(&model, &StorageModel::listOrderChanged, [&] { told = true; });
    model.setListOrder({StorageModel::ListColumn::name, true});
    model.setCurrent(model.root());
    EXPECT_TRUE(told);
    EXPECT_EQ(model.listOrder().column, StorageModel::ListColumn::name);
}

TEST(Listing, PreviewPagesThroughItsItemsAndStopsAtTheEnds) {
    TempTree tree;
    tree.file("big", 30000);
    tree.file("mid", 20000);
    tree.file("small", 5000);
    Driven d;
    ASSERT_TRUE(d.open(tree.root()));
    StorageModel& model = d.model;
    model.pagePreview(1); // nothing previewed: nothing to page
    EXPECT_FALSE(model.previewURL());
    QSet<quint64> all;
    for (FileNode* child : model.root()->children()) all.insert(child->id());
    model.setSelection(all);
    model.toggleQuickLook();
    ASSERT_EQ(model.previewList(), (std::vector<std::string>{tree.path("big"), tree.path("mid"), tree.path("small")}));
    int changes = 0;
    QObject::connect(&model, &StorageModel::previewChanged, &model, [&] { ++changes; });
    model.pagePreview(1);
    EXPECT_EQ(model.previewURL(), tree.path("mid"));
    model.pagePreview(5);
    EXPECT_EQ(model.previewURL(), tree.path("small"));
    model.pagePreview(1); // at the end already: no change to announce
    EXPECT_EQ(changes, 2);
    model.pagePreview(-1);
    model.pagePreview(-1);
    model.pagePreview(-1);
    EXPECT_EQ(model.previewURL(), tree.path("big"));
    EXPECT_EQ(model.previewList().size(), 3u); // paging never changes the list
    EXPECT_EQ(model.selection(), all);
}

TEST(Listing, WhatAWideFolderFoldedAwayIsFoundAndBecomesAnItem) {
    TempTree tree;
    for (int i = 0; i < 600; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "wide/f%06d.%s", i, i % 3 == 0 ? "jpg" : "txt");
        tree.file(name, 100 + static_cast<size_t>(i) * 50);
    }
    Driven d;
    ASSERT_TRUE(d.open(tree.root()));
    StorageModel& model = d.model;
    FileNode* wide = model.find(tree.path("wide"));
    ASSERT_NE(wide, nullptr);
    ASSERT_EQ(wide->children().size(), 250u); // 249 and "351 smaller items"
    ASSERT_EQ(model.find(tree.path("wide/f000123.jpg")), nullptr);
    const int64_t rootSize = model.root()->size(), wideCount = wide->itemCount();

    // Searching finds a folded file, as an item of its own in its folder; no total changes.
    model.setSearchText("f000123");
    std::vector<FileNode*> found = model.listItems();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0]->path(), tree.path("wide/f000123.jpg"));
    EXPECT_EQ(found[0]->parent(), wide);
    EXPECT_EQ(model.find(tree.path("wide/f000123.jpg")), found[0]);
    EXPECT_EQ(model.root()->size(), rootSize);
    EXPECT_EQ(wide->itemCount(), wideCount);
    EXPECT_EQ(wide->children().back()->itemCount(), 350);
    EXPECT_EQ(shownName(*wide->children().back()), "350 smaller items");

    // The kind and size filters read folded entries too.
    model.clearFilters();
    model.setSearchText("f0001");
    model.setKindFilter(KindFilter::images);
    for (FileNode* item : model.listItems()) EXPECT_TRUE(std::string(item->name()).ends_with(".jpg")) << item->name();
    EXPECT_EQ(model.listItems().size(), 33u); // f000102…f000198, every third
    model.clearFilters();

    // Such an item is deleted, and undone, like any other.
    test::ScopedUndoSeconds window(30);
    model.requestDelete({model.find(tree.path("wide/f000123.jpg"))});
    ASSERT_EQ(model.pendingDelete().size(), 1u);
    model.confirmDelete();
    EXPECT_EQ(model.find(tree.path("wide/f000123.jpg")), nullptr);
    EXPECT_LT(model.root()->size(), rootSize);
    model.deletions().undoPending();
    EXPECT_NE(model.find(tree.path("wide/f000123.jpg")), nullptr);
    EXPECT_EQ(model.root()->size(), rootSize);

    // A reveal of a folded path lands on the item itself.
    model.reveal(tree.path("wide/f000007.txt"));
    EXPECT_FALSE(model.pendingReveal());
    FileNode* revealed = model.find(tree.path("wide/f000007.txt"));
    ASSERT_NE(revealed, nullptr);
    EXPECT_EQ(model.current(), wide);
    EXPECT_EQ(model.selection(), QSet<quint64>{revealed->id()});
    EXPECT_EQ(model.root()->size(), rootSize);
}
