// Remembered scans are saved a slice at a time, once changes have settled, and never lost at quit.
#include "Driven.h"
#include "EventLoop.h"
#include "SnapshotSaver.h"
#include "TempTree.h"
#include "cache/ScanCache.h"
#include "platform/Platform.h"

#include <QCoreApplication>
#include <filesystem>
#include <gtest/gtest.h>

using namespace brenvo;
using brenvo::test::TempTree;
using brenvo::test::waitFor;

namespace {

// A tree of `files` files in folders of a hundred, made in memory.
NodeRef wideTree(const std::string& path, int files) {
    NodeRef root = FileNode::make(FileNode::Kind::folder, "root");
    root->setLocation(path);
    for (int f = 0; f < files / 100; ++f) {
        NodeRef folder = FileNode::make(FileNode::Kind::folder, "d" + std::to_string(f));
        std::vector<NodeRef> children;
        for (int i = 0; i < 100; ++i) {
            NodeRef file = FileNode::make(FileNode::Kind::file, "f" + std::to_string(i));
            file->setSize(4096);
            file->setItemCount(1);
            children.push_back(file);
        }
        folder->adoptChildren(std::move(children));
        folder->setSize(409600);
        folder->setItemCount(100);
        folder->reinsert(root.get());
    }
    return root;
}

struct Saving {
    QObject context;
    NodeRef root;
    std::string location = "/brenvo-test/saved-place";
    int revision = 0;
    SnapshotSaver saver{context, [this]() -> std::optional<SnapshotSaver::Tree> {
                            if (!root) return std::nullopt;
                            return SnapshotSaver::Tree{root, location, revision};
                        }};
    std::optional<ScanCache::Snapshot> saved() {
        ScanCache::waitForWrites();
        return ScanCache::readSnapshot(ScanCache::fileURL(location, platform::scansFolder(), false));
    }
    bool savedOnce(int before) { return waitFor([&] { return saver.savesDone() == before + 1 && saver.isIdle(); }); }
};

} // namespace

TEST(SnapshotSaver, ManyChangesMakeOneSaveAndATreeChangedMeanwhileIsSavedAsItIsNow) {
    std::filesystem::create_directories(platform::scansFolder());
    Saving s;
    s.root = wideTree(s.location, 20'000);
    for (int i = 0; i < 20; ++i) s.saver.request();
    ASSERT_TRUE(s.savedOnce(0));
    auto first = s.saved();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->root->size(), s.root->size());

    // The tree changes after the save began: what is written is the tree as it is when it ends.
    s.saver.saveSoon(false);
    NodeRef late = FileNode::make(FileNode::Kind::file, "late.bin");
    late->setSize(1'000'000);
    late->reinsert(s.root.get());
    ++s.revision;
    ASSERT_TRUE(s.savedOnce(1));
    auto second = s.saved();
    ASSERT_TRUE(second);
    EXPECT_NE(second->root->find(s.location + "/late.bin"), nullptr);
    EXPECT_EQ(second->root->size(), s.root->size());
}

TEST(SnapshotSaver, QuittingWritesWhatWasWaitingAndABaselineWhenDue) {
    std::filesystem::create_directories(platform::scansFolder());
    Saving s;
    s.location = "/brenvo-test/quitting";
    s.root = wideTree(s.location, 1000);
    std::filesystem::remove(ScanCache::fileURL(s.location, platform::scansFolder(), true));
    s.saver.saveSoon(true);
    s.saver.flush(); // at once, before any slice ran
    EXPECT_EQ(s.saver.savesDone(), 1);
    EXPECT_TRUE(s.saver.isIdle());
    ASSERT_TRUE(s.saved());
    EXPECT_TRUE(ScanCache::readSnapshot(ScanCache::fileURL(s.location, platform::scansFolder(), true)));

    // Nothing waiting: nothing written.
    s.saver.flush();
    EXPECT_EQ(s.saver.savesDone(), 1);
    // A change waiting for quiet is written by the end of the saver, as by a quit.
    {
        Saving ending;
        ending.location = s.location;
        ending.root = wideTree(s.location, 200);
        ending.saver.request();
    }
    auto saved = s.saved();
    ASSERT_TRUE(saved);
    EXPECT_EQ(saved->root->itemCount(), 200);
}

TEST(SnapshotSaver, LiveChangesOnShowReachTheRememberedScan) {
    TempTree tree;
    tree.file("a.bin", 4000);
    test::Driven d;
    ASSERT_TRUE(d.open(tree.root()));
    ASSERT_TRUE(waitFor([&] { return d.model.watcher().isWatching(); })); // changes arrive by themselves
    tree.file("b.bin", 9000);
    ASSERT_TRUE(waitFor([&] { return d.model.find(tree.path("b.bin")) != nullptr; }));
    // Once things are quiet, the remembered scan has it.
    ASSERT_TRUE(waitFor([&] {
        ScanCache::waitForWrites();
        auto snapshot = ScanCache::readSnapshot(ScanCache::fileURL(tree.root(), platform::scansFolder(), false));
        return snapshot && snapshot->root->find(tree.path("b.bin"));
    }));
}
