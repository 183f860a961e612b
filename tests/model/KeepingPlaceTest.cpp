// The user's place (the folder on show, the selection, items waiting for a confirmation) survives every way
// the tree on show is replaced: a refresh, a folder measured again, a folder that turns into a file or goes.
#include "Driven.h"
#include "EventLoop.h"
#include "Scoped.h"
#include "StorageModel.h"
#include "TempTree.h"

#include <QSignalSpy>
#include <filesystem>
#include <gtest/gtest.h>

using namespace brenvo;
using brenvo::test::Driven;
using brenvo::test::TempTree;
using brenvo::test::waitFor;

namespace {

FileNode* aggregateOf(FileNode* folder) {
    for (FileNode* c : folder->children())
        if (c->isAggregate()) return c;
    return nullptr;
}

// Waits until the node at `path` is a different node from `old` (it was measured again).
bool replaced(StorageModel& model, const std::string& path, const FileNode* old) {
    return waitFor([&] { return model.find(path) && model.find(path) != old; });
}

} // namespace

TEST(KeepingPlace, AFolderMeasuredAgainAboveTheOneOnShowKeepsThePlace) {
    TempTree tree;
    tree.file("Downloads/sub/a.bin", 4000);
    tree.file("Downloads/sub/b.bin", 100);
    tree.file("Downloads/other.bin", 10);
    Driven d;
    ASSERT_TRUE(d.open(tree.root()));
    FileNode* oldDownloads = d.model.find(tree.path("Downloads"));
    d.model.setCurrent(d.model.find(tree.path("Downloads/sub")));
    d.model.setSelection({d.model.find(tree.path("Downloads/sub/b.bin"))->id()});

    // A file landing in Downloads has the whole of Downloads measured again.
    tree.file("Downloads/new.bin", 9000);
    d.model.applyLiveChanges({tree.path("Downloads/new.bin")}, d.model.root()->path());
    ASSERT_TRUE(replaced(d.model, tree.path("Downloads"), oldDownloads));

    // The folder on show is the one in the tree, not a detached copy.
    FileNode* sub = d.model.find(tree.path("Downloads/sub"));
    ASSERT_NE(sub, nullptr);
    EXPECT_EQ(d.model.current(), sub);
    EXPECT_EQ(d.model.selection(), QSet<quint64>{d.model.find(tree.path("Downloads/sub/b.bin"))->id()});
    d.model.goUp();
    EXPECT_EQ(d.model.current(), d.model.find(tree.path("Downloads")));
    d.model.goUp();
    EXPECT_EQ(d.model.current(), d.model.root());
}

TEST(KeepingPlace, ARefreshKeepsASelectedSmallerItemsRow) {
    TempTree tree;
    for (int i = 0; i < 260; ++i) tree.file("many/f" + std::to_string(i), 10 + static_cast<size_t>(i));
    Driven d;
    ASSERT_TRUE(d.open(tree.root()));
    d.model.setCurrent(d.model.find(tree.path("many")));
    FileNode* aggregate = aggregateOf(d.model.current());
    ASSERT_NE(aggregate, nullptr);
    d.model.setSelection({aggregate->id()});

    d.model.scan(*d.model.location());
    ASSERT_TRUE(d.idle());
    FileNode* fresh = aggregateOf(d.model.current());
    ASSERT_NE(fresh, nullptr);
    EXPECT_NE(fresh, aggregate);
    EXPECT_EQ(d.model.selection(), QSet<quint64>{fresh->id()});
}

TEST(KeepingPlace, TheFolderOnShowTurnedIntoAFileOrGoneMovesUp) {
    TempTree tree;
    tree.file("a/b/inside.bin", 4000);
    tree.file("a/keep.bin", 10);
    Driven d;
    ASSERT_TRUE(d.open(tree.root()));
    d.model.setCurrent(d.model.find(tree.path("a/b")));
    FileNode* oldB = d.model.find(tree.path("a/b"));

    std::filesystem::remove_all(tree.path("a/b"));
    tree.file("a/b", 5000);
    d.model.applyLiveChanges({tree.path("a/b")}, d.model.root()->path());
    ASSERT_TRUE(replaced(d.model, tree.path("a/b"), oldB));
    EXPECT_EQ(d.model.find(tree.path("a/b"))->kind(), FileNode::Kind::file);
    EXPECT_EQ(d.model.current(), d.model.find(tree.path("a")));

    // Live updates go on from there.
    tree.file("a/later.bin", 3000);
    d.model.applyLiveChanges({tree.path("a/later.bin")}, d.model.root()->path());
    ASSERT_TRUE(waitFor([&] { return d.model.find(tree.path("a/later.bin")) != nullptr; }));

    // The scanned folder itself gone: the page moves to the nearest folder that is still there.
    TempTree outer;
    outer.file("place/x.bin", 10);
    Driven e;
    ASSERT_TRUE(e.open(outer.path("place")));
    std::filesystem::remove_all(outer.path("place"));
    e.model.applyLiveChanges({outer.path("place")}, e.model.root()->path());
    ASSERT_TRUE(e.idle());
    ASSERT_TRUE(e.model.location().has_value());
    EXPECT_EQ(*e.model.location(), ScanLocation::custom(outer.root()));
    ASSERT_NE(e.model.root(), nullptr);
    EXPECT_EQ(e.model.root()->path(), outer.root());
    EXPECT_FALSE(e.model.errorMessage());
}

TEST(KeepingPlace, LostEventsRescanAtMostOnceAMinuteAndNeverFromAReplay) {
    TempTree tree;
    tree.file("x.bin", 10);
    Driven d;
    ASSERT_TRUE(d.open(tree.root()));
    const std::string root = d.model.root()->path();

    // A batch held during a refresh that names the root is covered by that refresh.
    d.model.scan(*d.model.location());
    d.model.receiveLiveChanges({root, tree.path("x.bin")}, root);
    ASSERT_TRUE(d.idle());
    const int afterReplay = d.model.scanID();
    EXPECT_FALSE(d.model.isRefreshing());
    EXPECT_FALSE(d.model.isRescanWaiting());

    // Lost events rescan once; more of them within the minute wait for it.
    d.model.applyLiveChanges({root}, root);
    EXPECT_EQ(d.model.scanID(), afterReplay + 1);
    ASSERT_TRUE(d.idle());
    for (int i = 0; i < 5; ++i) d.model.applyLiveChanges({root}, root);
    EXPECT_EQ(d.model.scanID(), afterReplay + 1);
    EXPECT_FALSE(d.model.isRefreshing());
    EXPECT_TRUE(d.model.isRescanWaiting());
    // The other paths of such a batch are still applied meanwhile.
    tree.file("meanwhile.bin", 2000);
    d.model.applyLiveChanges({root, tree.path("meanwhile.bin")}, root);
    ASSERT_TRUE(waitFor([&] { return d.model.find(tree.path("meanwhile.bin")) != nullptr; }));
    EXPECT_EQ(d.model.scanID(), afterReplay + 1);
}

TEST(KeepingPlace, ADeleteConfirmedAfterARescanTakesTheItemsOffTheTreeOnShow) {
    TempTree tree;
    tree.file("going.bin", 9000);
    tree.file("staying.bin", 10);
    Driven d;
    ASSERT_TRUE(d.open(tree.root()));
    test::ScopedUndoSeconds window(30);
    d.model.requestDelete({d.model.find(tree.path("going.bin"))});
    ASSERT_EQ(d.model.pendingDelete().size(), 1u);

    // The tree is replaced while the confirmation is open.
    d.model.scan(*d.model.location());
    ASSERT_TRUE(d.idle());
    d.model.confirmDelete();
    EXPECT_EQ(d.model.find(tree.path("going.bin")), nullptr);
    ASSERT_TRUE(d.model.deletions().pending().has_value());
    EXPECT_EQ(d.model.deletions().pending()->targets.size(), 1u);

    // Undo brings it back into the tree on show; a second delete then works.
    d.model.deletions().undoPending();
    ASSERT_NE(d.model.find(tree.path("going.bin")), nullptr);
    window.set(0.05);
    d.model.requestDelete({d.model.find(tree.path("going.bin"))});
    d.model.confirmDelete();
    ASSERT_TRUE(waitFor([&] { return d.model.deletions().phase() == DeletionLog::Phase::done; }));
    EXPECT_FALSE(std::filesystem::exists(tree.path("going.bin")));
    EXPECT_FALSE(d.model.errorMessage());
}

TEST(KeepingPlace, AnItemRemovedByAnotherProgramMeanwhileIsNotCalledUnsafe) {
    TempTree tree;
    tree.file("vanishing.bin", 9000);
    tree.file("real.bin", 9000);
    Driven d;
    ASSERT_TRUE(d.open(tree.root()));
    test::ScopedUndoSeconds window(30);
    d.model.requestDelete({d.model.find(tree.path("vanishing.bin")), d.model.find(tree.path("real.bin"))});
    d.model.confirmDelete();
    std::filesystem::remove(tree.path("vanishing.bin"));
    d.model.deletions().deleteNow();
    ASSERT_TRUE(waitFor([&] { return d.model.deletions().phase() == DeletionLog::Phase::done; }));
    EXPECT_FALSE(d.model.errorMessage()) << d.model.errorMessage()->toStdString();
    EXPECT_FALSE(std::filesystem::exists(tree.path("real.bin")));
    EXPECT_EQ(d.model.find(tree.path("vanishing.bin")), nullptr); // not put back either
    // Only what Brenvo deleted is recorded.
    std::set<std::string> recorded;
    for (const auto& item : d.model.deletions().items()) recorded.insert(item.originalPath);
    EXPECT_TRUE(recorded.contains(tree.path("real.bin")));
    EXPECT_FALSE(recorded.contains(tree.path("vanishing.bin")));
}
