#include "Scoped.h"
#include "Driven.h"
#include "EventLoop.h"
#include "Preferences.h"
#include "StorageModel.h"
#include "TempTree.h"
#include "TreeText.h"
#include "Unprivileged.h"
#include "platform/Platform.h"

#include <QSignalSpy>
#include <gtest/gtest.h>
#include <filesystem>
#include <thread>

using namespace brenvo;
using brenvo::test::TempTree;
using brenvo::test::waitFor;
using brenvo::test::Driven;

namespace {

// The model as the shell drives it: a change of location starts a scan.

FileNode* child(FileNode* n, std::string_view name) {
    for (FileNode* c : n->children())
        if (c->name() == name) return c;
    return nullptr;
}

} // namespace

TEST(StorageModel, ASecondLocationOvertakesTheFirstCompletely) {
    TempTree first, second;
    for (int i = 0; i < 300; ++i) first.file("a" + std::to_string(i % 10) + "/f" + std::to_string(i), 10);
    second.file("only/b", 10);
    StorageModel model;
    std::vector<std::string> progressPaths, rootPaths;
    QObject::connect(&model, &StorageModel::progressChanged, &model,
                     [&] { progressPaths.push_back(model.progress().currentPath); });
    QObject::connect(&model, &StorageModel::treeChanged, &model, [&] {
        if (model.root()) rootPaths.push_back(model.root()->path());
    });
    // The first location even has a remembered tree ready; it must not show either.
    model.setSnapshotSource([&](const std::string& path) -> std::optional<StorageModel::Remembered> {
        if (path != first.root()) return std::nullopt;
        NodeRef old = FileNode::make(FileNode::Kind::folder, "remembered");
        old->setLocation(path);
        return StorageModel::Remembered{old, Date{0}};
    });

    model.scan(ScanLocation::custom(first.root()));
    EXPECT_TRUE(model.isScanning());
    model.scan(ScanLocation::custom(second.root()));
    ASSERT_TRUE(waitFor([&] { return !model.isScanning(); }));
    ASSERT_TRUE(test::drained(model)); // the first scan's reports have all arrived, and were dropped

    ASSERT_NE(model.root(), nullptr);
    EXPECT_EQ(model.root()->path(), second.root());
    EXPECT_EQ(rootPaths, std::vector<std::string>{second.root()});
    for (const auto& path : progressPaths) EXPECT_FALSE(path.starts_with(first.root())) << path;
    EXPECT_EQ(model.progress().files, 1);
}

TEST(StorageModel, ARememberedTreeShowsAtOnceAndTheScanReplacesIt) {
    TempTree tree;
    tree.file("real.txt", 10);
    StorageModel model;
    std::vector<std::pair<std::string, bool>> seen; // root name, refreshing
    QObject::connect(&model, &StorageModel::treeChanged, &model, [&] {
        if (model.root()) seen.emplace_back(std::string(model.root()->children().empty() ? "" : model.root()->children()[0]->name()), model.isRefreshing());
    });
    model.setSnapshotSource([&](const std::string& path) -> std::optional<StorageModel::Remembered> {
        NodeRef old = FileNode::make(FileNode::Kind::folder, "x");
        old->setLocation(path);
        old->adoptChildren({FileNode::make(FileNode::Kind::file, "remembered.txt")});
        return StorageModel::Remembered{old, Date{1000}};
    });
    model.scan(ScanLocation::custom(tree.root()));
    ASSERT_TRUE(waitFor([&] { return !model.isScanning() && !model.isRefreshing(); }));
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0], (std::pair<std::string, bool>{"remembered.txt", true}));
    EXPECT_EQ(seen[1], (std::pair<std::string, bool>{"real.txt", false}));
    EXPECT_FALSE(model.changesSince());
}

TEST(StorageModel, ARefreshKeepsThePlaceAndTheSelectionByPath) {
    TempTree tree;
    tree.file("docs/a.txt", 5000);
    tree.file("docs/b.txt", 100);
    tree.file("top.txt", 10);
    Driven d;
    d.model.setLocation(ScanLocation::custom(tree.root()));
    ASSERT_TRUE(d.idle());
    FileNode* docs = child(d.model.root(), "docs");
    d.model.setCurrent(docs);
    d.model.setSelection({child(docs, "b.txt")->id()});
    const quint64 oldId = child(docs, "b.txt")->id();

    d.model.scan(*d.model.location());
    EXPECT_TRUE(d.model.isRefreshing());
    EXPECT_FALSE(d.model.isScanning());
    EXPECT_EQ(d.model.current(), docs); // the tree stays on show meanwhile
    ASSERT_TRUE(d.idle());

    ASSERT_NE(d.model.current(), docs);
    EXPECT_EQ(d.model.current()->path(), tree.path("docs"));
    FileNode* b = child(d.model.current(), "b.txt");
    ASSERT_NE(b, nullptr);
    EXPECT_NE(b->id(), oldId);
    EXPECT_EQ(d.model.selection(), QSet<quint64>{b->id()});
    EXPECT_TRUE(d.model.scannedAt().has_value());

    // A folder that is gone by the next scan falls back to the root.
    std::filesystem::remove_all(tree.path("docs"));
    d.model.scan(*d.model.location());
    ASSERT_TRUE(d.idle());
    EXPECT_EQ(d.model.current(), d.model.root());
    EXPECT_TRUE(d.model.selection().isEmpty());
}

TEST(StorageModel, ALocationReachedThroughALinkCountsAsARefresh) {
    TempTree tree;
    tree.file("real/x", 10);
    tree.symlink("real", "alias");
    Driven d;
    d.model.setLocation(ScanLocation::custom(tree.path("alias")));
    ASSERT_TRUE(d.idle());
    EXPECT_EQ(d.model.root()->path(), tree.path("real"));
    d.model.scan(*d.model.location());
    EXPECT_TRUE(d.model.isRefreshing());
    ASSERT_TRUE(d.idle());
}

TEST(StorageModel, CancellingDropsEverythingStillOnItsWay) {
    TempTree tree;
    tree.file("x", 10);
    Driven d;
    std::atomic<bool> asked{false};
    d.model.setSnapshotSource([&](const std::string& path) -> std::optional<StorageModel::Remembered> {
        asked = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(300)); // a slow disk
        NodeRef old = FileNode::make(FileNode::Kind::folder, "late");
        old->setLocation(path);
        return StorageModel::Remembered{old, Date{0}};
    });
    QSignalSpy trees(&d.model, &StorageModel::treeChanged);
    d.model.setLocation(ScanLocation::custom(tree.root()));
    ASSERT_TRUE(waitFor([&] { return asked.load(); }));
    d.model.cancelScan();
    EXPECT_FALSE(d.model.isScanning());
    EXPECT_FALSE(d.model.location().has_value());
    trees.clear();
    ASSERT_TRUE(d.drained());
    EXPECT_EQ(d.model.root(), nullptr);
    EXPECT_EQ(trees.count(), 0);
    EXPECT_FALSE(d.model.watcher().isWatching());

    // Cancelling a refresh keeps the tree and the location.
    d.model.setSnapshotSource({});
    d.model.setLocation(ScanLocation::custom(tree.root()));
    ASSERT_TRUE(d.idle());
    d.model.scan(*d.model.location());
    d.model.cancelScan();
    ASSERT_TRUE(d.drained());
    EXPECT_NE(d.model.root(), nullptr);
    EXPECT_TRUE(d.model.location().has_value());
}

TEST(StorageModel, FailuresAndUnreadableRootsReachTheUser) {
    Driven d;
    d.model.setLocation(ScanLocation::custom("/nonexistent/brenvo"));
    ASSERT_TRUE(d.idle());
    EXPECT_EQ(d.model.root(), nullptr);
    ASSERT_TRUE(d.model.errorMessage().has_value());
    EXPECT_EQ(d.model.errorMessage()->toStdString(),
              "The folder \u201c" "brenvo\u201d couldn't be opened: No such file or directory.");
    EXPECT_FALSE(d.model.watcher().isWatching());
    // Our own reasons read the same: one sentence, one final period.
    TempTree links;
    links.symlink(links.path("nowhere"), "dangling");
    d.model.setLocation(ScanLocation::custom(links.path("dangling")));
    ASSERT_TRUE(d.idle());
    ASSERT_TRUE(d.model.errorMessage().has_value());
    EXPECT_EQ(d.model.errorMessage()->toStdString(), "The folder \u201c" "dangling\u201d couldn't be opened: It is a "
                                                     "symbolic link to an item that can't be reached.");

    // A root that can't be listed is shown, saved and watched like any tree, with the message.
    TempTree tree;
    tree.file("locked/secret", 10);
    tree.chmod("locked", 0);
    const std::string locked = tree.path("locked");
    std::string outcome = [&] {
        test::ScopedUnprivileged nobody;
        Driven child;
        child.model.setLocation(ScanLocation::custom(locked));
        if (!child.idle() || !child.model.root()) return std::string("no tree");
        return child.model.errorMessage().value_or(QString()).toStdString() + "|" +
               (child.model.root()->couldNotRead() ? "unread" : "read") + "|" +
               (child.model.watcher().isWatching() ? "watching" : "not watching");
    }();
    EXPECT_EQ(outcome, "You don't have permission to look inside \u201clocked\u201d.|unread|watching");
}

TEST(StorageModel, GoingUpSelectsTheFolderJustLeft) {
    TempTree tree;
    tree.file("a/b/c", 10);
    Driven d;
    d.model.setLocation(ScanLocation::custom(tree.root()));
    ASSERT_TRUE(d.idle());
    FileNode* b = d.model.root()->find(tree.path("a/b"));
    d.model.setCurrent(b);
    d.model.goUp();
    EXPECT_EQ(d.model.current()->path(), tree.path("a"));
    EXPECT_EQ(d.model.selection(), QSet<quint64>{b->id()});
    d.model.goUp();
    d.model.goUp(); // at the root: nothing
    EXPECT_EQ(d.model.current(), d.model.root());
}

TEST(StorageModel, BestLocationAndTheSkippedTable) {
    const std::string home = platform::profile().home;
    EXPECT_EQ(StorageModel::bestLocation(home + "/Downloads/x.iso"), ScanLocation::downloads());
    EXPECT_EQ(StorageModel::bestLocation(home + "/Documents/a/b.txt"), ScanLocation::documents());
    EXPECT_EQ(StorageModel::bestLocation(home + "/Music/song.mp3"), ScanLocation::home());
    EXPECT_EQ(StorageModel::bestLocation(home + "/Downloads"), ScanLocation::home());
    EXPECT_EQ(StorageModel::bestLocation("/srv/data/file"), ScanLocation::custom("/srv/data"));
    EXPECT_EQ(StorageModel::bestLocation("/top"), ScanLocation::custom("/"));

    // One folder excluded under three spellings, and one that isn't there: one key, and a scan that runs.
    TempTree tree;
    tree.file("x/big.bin", 50000);
    tree.file("y.bin", 10);
    tree.symlink(tree.path("x"), "link-to-x");
    test::ScopedExcludedFolders excluded({QString::fromStdString(tree.path("x")),
                                          QString::fromStdString(tree.path("x") + "/"),
                                          QString::fromStdString(tree.path("link-to-x")), QStringLiteral("/nowhere/at/all")});
    auto skipped = StorageModel::skippedTable();
    ASSERT_EQ(skipped.size(), 1u); // no Library folder on Linux
    EXPECT_EQ(skipped[tree.path("x")], "You excluded this folder in Settings, so Brenvo doesn't look inside it.");
    Driven d;
    ASSERT_TRUE(d.open(tree.root()));
    FileNode* x = d.model.find(tree.path("x"));
    ASSERT_NE(x, nullptr);
    EXPECT_EQ(x->size(), 0);
    EXPECT_TRUE(x->skippedReason().has_value());
}

TEST(StorageModel, TheTreeFollowsTheDiskWhileItIsOnShow) {
    TempTree tree;
    tree.file("keep/a.txt", 10000);
    tree.file("doomed/inner/x.bin", 10000);
    tree.file("grow.log", 100);
    Driven d;
    d.model.setLocation(ScanLocation::custom(tree.root()));
    ASSERT_TRUE(d.idle());
    ASSERT_TRUE(waitFor([&] { return d.model.watcher().isWatching(); })); // every folder has its watch

    FileNode* inner = d.model.root()->find(tree.path("doomed/inner"));
    d.model.setCurrent(inner);
    const int64_t before = d.model.root()->size();

    tree.file("keep/new.txt", 40000);                           // new in a subfolder: the folder is measured again
    tree.file("fresh-in-root.bin", 20000);                        // new directly in the root: added alone
    tree.file("grow.log", 300000);                                // grown in place
    std::filesystem::rename(tree.path("keep/a.txt"), tree.path("keep/b.txt"));
    std::filesystem::remove_all(tree.path("doomed"));             // the folder on show goes away

    auto root = [&] { return d.model.root(); };
    ASSERT_TRUE(waitFor([&] {
        return root()->find(tree.path("fresh-in-root.bin")) && root()->find(tree.path("keep/new.txt")) &&
               root()->find(tree.path("keep/b.txt")) && !root()->find(tree.path("keep/a.txt")) &&
               !root()->find(tree.path("doomed")) && root()->find(tree.path("grow.log"))->size() >= 300000;
    })) << test::treeText(*root());
    EXPECT_EQ(d.model.current(), d.model.root()); // moved out of the vanished folder
    EXPECT_EQ(root()->itemCount(), 4);
    int64_t sum = 0;
    for (FileNode* c : root()->children()) sum += c->size();
    EXPECT_EQ(root()->size(), sum);
    EXPECT_NE(root()->size(), before);
    EXPECT_EQ(root()->find(tree.path("keep"))->itemCount(), 2);
}

TEST(StorageModel, WatchesAreForWhatTheScanEntersAndRunningOutIsKnown) {
    TempTree tree;
    tree.file("a/x.bin", 10);
    tree.file("excluded/one/x.bin", 10);
    tree.file("excluded/two/x.bin", 10);
    test::ScopedExcludedFolders excluded({QString::fromStdString(tree.path("excluded"))});
    // Two watches are enough for the root and "a": the excluded folders take none.
    Driven d;
    d.model.setWatchLimit(2);
    ASSERT_TRUE(d.open(tree.root()));
    ASSERT_TRUE(waitFor([&] { return d.model.watcher().state() != FolderWatcher::State::starting; }));
    EXPECT_TRUE(d.model.watcher().isWatching());

    // One more folder than the watches allow: live updates are known to be off, and the next scan tries again.
    tree.file("b/c/x.bin", 10);
    d.model.scan(*d.model.location());
    ASSERT_TRUE(d.idle());
    ASSERT_TRUE(waitFor([&] { return d.model.watcher().state() == FolderWatcher::State::exhausted; }));
    EXPECT_FALSE(d.model.watcher().isWatching());
    d.model.setWatchLimit(0);
    d.model.scan(*d.model.location());
    ASSERT_TRUE(d.idle());
    ASSERT_TRUE(waitFor([&] { return d.model.watcher().isWatching(); }));
}

TEST(StorageModel, ChangesDuringAScanAreHeldAndReplayed) {
    TempTree tree;
    tree.file("x", 10);
    Driven d;
    d.model.setLocation(ScanLocation::custom(tree.root()));
    ASSERT_TRUE(d.idle());
    d.model.scan(*d.model.location());
    ASSERT_TRUE(d.model.isRefreshing());
    tree.file("late.bin", 5000);
    d.model.receiveLiveChanges({tree.path("late.bin")}, tree.root());
    EXPECT_EQ(d.model.changesDuringScan().size(), 1u);
    ASSERT_TRUE(d.idle());
    EXPECT_TRUE(d.model.changesDuringScan().empty());
    ASSERT_TRUE(waitFor([&] { return d.model.root()->find(tree.path("late.bin")) != nullptr; }));
    // A batch for a root that is no longer on show changes nothing.
    tree.file("other.bin", 5000);
    d.model.applyLiveChanges({tree.path("other.bin")}, "/elsewhere");
    ASSERT_TRUE(d.drained());
    EXPECT_EQ(d.model.root()->find(tree.path("other.bin")), nullptr);

    // The watcher names the root when it lost events: nothing short of measuring again will do.
    d.model.applyLiveChanges({tree.root()}, tree.root());
    EXPECT_TRUE(d.model.isRefreshing());
    ASSERT_TRUE(d.idle());
    EXPECT_NE(d.model.root()->find(tree.path("other.bin")), nullptr);
}
