#include "DeletionLog.h"
#include "Preferences.h"
#include "Driven.h"
#include "EventLoop.h"
#include "Scoped.h"
#include "TempTree.h"
#include "json/Json.h"
#include "platform/Platform.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace brenvo;
using brenvo::test::TempTree;
using brenvo::test::slurp;
using brenvo::test::waitFor;
using Target = DeletionLog::Target;
using Phase = DeletionLog::Phase;

namespace {

bool exists(const std::string& path) {
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0;
}

struct Outcome {
    bool finished = false;
    std::set<std::string> deleted;
    std::vector<std::string> failures;
    DeletionLog::Finish callback() {
        return [this](const std::set<std::string>& d, const std::vector<std::string>& f) {
            finished = true;
            deleted = d;
            failures = f;
        };
    }
};

struct Fixture {
    TempTree tree, state;
    std::string file() const { return state.path("deleted.json"); }
    Target target(const std::string& relative, bool directory = false) {
        return {tree.path(relative), std::string(lastPathComponent(relative)), 100, directory, {}};
    }
};

} // namespace

TEST(DeletionLog, NothingIsTouchedUntilTheWindowEnds) {
    Fixture f;
    f.tree.file("a/b/c.txt", 10);
    f.tree.file("x.bin", 10);
    DeletionLog log(f.file());
    Outcome outcome;
    log.schedule({f.target("a", true), f.target("x.bin")}, 0.3, nullptr, nullptr, outcome.callback());
    EXPECT_EQ(log.phase(), Phase::waiting);
    EXPECT_TRUE(exists(f.tree.path("a/b/c.txt")));
    // The crash-safety file lists the plan from the moment its window opens.
    auto listed = parseJson(slurp(log.unfinishedFile()));
    ASSERT_TRUE(listed);
    ASSERT_EQ(listed->size(), 2u);
    EXPECT_EQ(listed->asArray()[0].find("url")->asString(), "file://" + f.tree.path("a") + "/");

    ASSERT_TRUE(waitFor([&] { return outcome.finished; }));
    EXPECT_EQ(outcome.deleted, (std::set<std::string>{f.tree.path("a"), f.tree.path("x.bin")}));
    EXPECT_FALSE(exists(f.tree.path("a")));
    EXPECT_FALSE(exists(log.unfinishedFile()));
    ASSERT_EQ(log.items().size(), 2u);
    EXPECT_EQ(log.items().front().originalPath, f.tree.path("x.bin")); // newest first
    EXPECT_EQ(log.phase(), Phase::done);
    EXPECT_EQ(log.recentlyDone()->count, 2);
    EXPECT_EQ(log.recentlyDone()->size, 200);

    // The record survives a restart, ids in upper case.
    DeletionLog again(f.file());
    ASSERT_EQ(again.items().size(), 2u);
    EXPECT_EQ(again.items()[1].name, "a");
    auto record = parseJson(slurp(f.file()));
    const std::string id = record->asArray()[0].find("id")->asString();
    EXPECT_EQ(id, QString::fromStdString(id).toUpper().toStdString());
}

TEST(DeletionLog, UndoDropsThePlanAndASecondDeleteCommitsTheFirst) {
    Fixture f;
    f.tree.file("one", 10);
    f.tree.file("two", 10);
    DeletionLog log(f.file());
    std::vector<std::string> undone;
    log.onUndo = [&](const std::vector<Target>& targets) { undone.push_back(targets.front().name); };
    Outcome first, second;
    bool undoCalled = false;
    log.schedule({f.target("one")}, 5, nullptr, [&] { undoCalled = true; }, first.callback());
    log.schedule({f.target("two")}, 0.5, nullptr, nullptr, second.callback());
    // The first plan is carried out at once; the second window runs its full length.
    ASSERT_TRUE(waitFor([&] { return first.finished; }, 3000));
    EXPECT_FALSE(exists(f.tree.path("one")));
    EXPECT_TRUE(exists(f.tree.path("two")));
    EXPECT_EQ(log.phase(), Phase::waiting);
    log.undoPending();
    log.undoPending(); // a late second click finds nothing
    EXPECT_EQ(undone, std::vector<std::string>{"two"});
    EXPECT_FALSE(log.pending());
    // A later window that has run its course proves the undone one, due earlier, never fired.
    f.tree.file("three", 10);
    Outcome third;
    log.schedule({f.target("three")}, 0.6, nullptr, nullptr, third.callback());
    ASSERT_TRUE(waitFor([&] { return third.finished; }));
    EXPECT_FALSE(second.finished);
    EXPECT_TRUE(exists(f.tree.path("two")));
    EXPECT_FALSE(exists(log.unfinishedFile()));
    EXPECT_FALSE(undoCalled);
}

TEST(DeletionLog, RefusedAndVanishedTargetsAreReported) {
    Fixture f;
    f.tree.file("kept", 10);
    f.tree.file("gone", 10);
    DeletionLog log(f.file());
    Outcome refused;
    log.schedule({f.target("kept")}, 0.1, [](const std::vector<Target>&) { return std::vector<Target>{}; }, nullptr,
                 refused.callback());
    ASSERT_TRUE(waitFor([&] { return refused.finished; }));
    EXPECT_TRUE(refused.deleted.empty());
    ASSERT_EQ(refused.failures.size(), 1u);
    EXPECT_EQ(refused.failures[0], "\u201ckept\u201d: skipped because it's no longer safe to delete (for example, its app is open).");
    EXPECT_EQ(log.recentlyDone()->count, 0);
    EXPECT_TRUE(exists(f.tree.path("kept")));

    Outcome vanished;
    log.schedule({f.target("gone")}, 0.2, nullptr, nullptr, vanished.callback());
    std::remove(f.tree.path("gone").c_str()); // someone else removed it during the window
    ASSERT_TRUE(waitFor([&] { return vanished.finished; }));
    EXPECT_TRUE(vanished.failures.empty()); // gone is gone: neither a failure nor unsafe
    EXPECT_EQ(vanished.deleted, std::set<std::string>{f.tree.path("gone")});

    // Saved anew under the same name during the window (as editors do): not what was chosen, so it stays.
    f.tree.file("draft.txt", 10);
    Outcome replaced;
    log.schedule({f.target("draft.txt")}, 0.2, nullptr, nullptr, replaced.callback());
    f.tree.file("draft.txt.new", 20);
    std::rename(f.tree.path("draft.txt.new").c_str(), f.tree.path("draft.txt").c_str());
    ASSERT_TRUE(waitFor([&] { return replaced.finished; }));
    ASSERT_EQ(replaced.failures.size(), 1u);
    EXPECT_EQ(replaced.failures[0], "\u201cdraft.txt\u201d changed before it could be removed; it was left in place.");
    EXPECT_TRUE(exists(f.tree.path("draft.txt")));
    EXPECT_TRUE(log.items().empty());
}

TEST(DeletionLog, AStartFindsWhatAnEarlierRunLeftUndone) {
    Fixture f;
    f.tree.file("still-here", 10);
    std::ofstream(f.state.path("unfinished-deletions.json"))
        << R"([{"url":"file://)" << f.tree.path("still-here") << R"(","name":"still-here","size":10},)"
        << R"({"url":"file://)" << f.tree.path("long-gone") << R"(","name":"long-gone","size":5}])";
    {
        DeletionLog log(f.file());
        ASSERT_EQ(log.unfinished().size(), 1u); // what is gone was finished, or removed by the user
        EXPECT_EQ(log.unfinished()[0].name, "still-here");
        EXPECT_EQ(parseJson(slurp(log.unfinishedFile()))->size(), 1u);
        Outcome outcome;
        log.finishUnfinished(outcome.callback());
        ASSERT_TRUE(waitFor([&] { return outcome.finished; }));
        EXPECT_FALSE(exists(f.tree.path("still-here")));
        EXPECT_FALSE(exists(log.unfinishedFile()));
    }

    // A damaged file lists nothing that will ever be deleted, and is removed.
    f.tree.file("innocent", 10);
    std::ofstream(f.state.path("unfinished-deletions.json"))
        << R"([{"url":"file://)" << f.tree.path("innocent") << R"(","name":"innocent"}])"; // no size
    {
        DeletionLog damaged(f.file());
        EXPECT_TRUE(damaged.unfinished().empty());
        EXPECT_FALSE(exists(damaged.unfinishedFile()));
        EXPECT_TRUE(exists(f.tree.path("innocent")));
        EXPECT_TRUE(exists(damaged.unfinishedFile() + ".damaged")); // set aside, not destroyed
    }

    // A damaged history shows nothing but survives beside the next one.
    std::ofstream(f.file()) << R"([{"id":"not-a-uuid"}])";
    DeletionLog history(f.file());
    EXPECT_TRUE(history.items().empty());
    EXPECT_EQ(slurp(f.file() + ".damaged"), R"([{"id":"not-a-uuid"}])");
}

TEST(DeletionLog, OnlyOneProcessAtATimeWritesTheRecord) {
    Fixture f;
    f.tree.file("wanted", 10);
    auto owner = std::make_unique<DeletionLog>(f.file());
    Outcome first;
    owner->schedule({f.target("wanted")}, 60, nullptr, nullptr, first.callback());
    const std::string listed = slurp(owner->unfinishedFile());

    // A second one, as another process would get while the first runs: it reads, and changes nothing.
    DeletionLog second(f.file());
    EXPECT_TRUE(second.isShared());
    EXPECT_TRUE(second.unfinished().empty());
    Outcome refused;
    second.schedule({f.target("wanted")}, 0, nullptr, nullptr, refused.callback());
    ASSERT_TRUE(refused.finished);
    EXPECT_EQ(refused.failures, std::vector<std::string>{DeletionLog::kSharedMessage});
    second.clearRecord();
    EXPECT_EQ(slurp(owner->unfinishedFile()), listed);
    EXPECT_TRUE(exists(f.tree.path("wanted")));

    // Once the first is gone, the next one owns the record and finds the plan it left.
    owner.reset();
    DeletionLog next(f.file());
    EXPECT_FALSE(next.isShared());
    ASSERT_EQ(next.unfinished().size(), 1u);
    EXPECT_EQ(next.unfinished()[0].name, "wanted");
}

TEST(DeletionLog, QuittingInsideAWindowCarriesThePlanThrough) {
    Fixture f;
    f.tree.file("doomed/x", 10);
    {
        DeletionLog log(f.file());
        Outcome outcome;
        log.schedule({f.target("doomed", true)}, 30, nullptr, nullptr, outcome.callback());
        log.commitBeforeQuitting();
        EXPECT_FALSE(exists(f.tree.path("doomed")));
        EXPECT_FALSE(outcome.finished); // no callback at quit
        ASSERT_EQ(log.items().size(), 1u);
    }
    // The file still lists the quit's targets; the next start keeps only those that failed: none.
    DeletionLog next(f.file());
    EXPECT_EQ(next.items().size(), 1u);
    EXPECT_TRUE(next.unfinished().empty());
    EXPECT_FALSE(exists(next.unfinishedFile()));
}

TEST(DeleteFlow, TheTreeShowsTheSpaceFreedAndUndoPutsItBack) {
    TempTree tree;
    tree.file("big.iso", 200000);
    tree.file("docs/a.txt", 5000);
    test::Driven d;
    ASSERT_TRUE(d.open(tree.root()));
    StorageModel& model = d.model;
    const int64_t total = model.root()->size();
    FileNode* iso = model.root()->find(tree.path("big.iso"));
    const int64_t isoSize = iso->size();
    model.requestDelete({iso, model.root()}); // the scan root is protected
    ASSERT_EQ(model.pendingDelete().size(), 1u);
    EXPECT_EQ(model.pendingDeleteSkipped(), 1);
    test::ScopedUndoSeconds window(30);
    model.confirmDelete();
    EXPECT_TRUE(model.pendingDelete().empty());
    EXPECT_EQ(model.root()->size(), total - isoSize); // freed at once on screen
    EXPECT_EQ(model.root()->find(tree.path("big.iso")), nullptr);
    EXPECT_TRUE(exists(tree.path("big.iso")));          // but not on disk
    model.deletions().undoPending();
    EXPECT_EQ(model.root()->size(), total);
    EXPECT_NE(model.root()->find(tree.path("big.iso")), nullptr);

    window.set(0.2);
    model.requestDelete({model.root()->find(tree.path("docs"))});
    model.confirmDelete();
    ASSERT_TRUE(waitFor([&] { return model.deletions().phase() == Phase::done; }));
    EXPECT_FALSE(exists(tree.path("docs")));
    EXPECT_EQ(model.root()->find(tree.path("docs")), nullptr);
    EXPECT_FALSE(model.errorMessage());
}

TEST(DeleteFlow, ARescanInsideTheWindowStillHidesWhatIsGoing) {
    TempTree tree;
    tree.file("going.bin", 9000);
    tree.file("staying.bin", 10);
    test::Driven d;
    ASSERT_TRUE(d.open(tree.root()));
    StorageModel& model = d.model;
    test::ScopedUndoSeconds window(30);
    model.requestDelete({model.root()->find(tree.path("going.bin"))});
    model.confirmDelete();
    model.scan(*model.location());
    ASSERT_TRUE(d.idle());
    EXPECT_EQ(model.root()->find(tree.path("going.bin")), nullptr); // cut from the new tree too
    EXPECT_TRUE(model.hiddenWhilePending().contains(tree.path("going.bin")));
    // Undo after the tree changed: only a fresh scan can show it again.
    model.deletions().undoPending();
    EXPECT_TRUE(model.isRefreshing());
    ASSERT_TRUE(d.idle());
    EXPECT_NE(model.root()->find(tree.path("going.bin")), nullptr);
}

TEST(DeleteFlow, OpeningAnInstallerForAnInstalledAppAsksFirst) {
    const std::string home = platform::profile().home;
    std::filesystem::create_directories(home + "/.local/share/applications");
    std::ofstream(home + "/.local/share/applications/org.mozilla.firefox.desktop")
        << "[Desktop Entry]\nType=Application\nName=Firefox\nExec=firefox %u\n";
    TempTree tree;
    tree.file("Firefox 121.0.deb", 10);
    tree.file("Thing 2.0.deb", 10);
    tree.file("notes.txt", 10);
    test::Driven d;
    ASSERT_TRUE(d.open(tree.root()));
    StorageModel& model = d.model;
    std::vector<std::string> opened;
    QObject::connect(&model, &StorageModel::openRequested, &model, [&](const std::string& p) { opened.push_back(p); });

    model.openInDefaultApp(*model.root()->find(tree.path("Firefox 121.0.deb")));
    ASSERT_TRUE(model.installerChoice().has_value());
    EXPECT_EQ(model.installerChoice()->app.name, "Firefox");
    EXPECT_FALSE(model.installerChoice()->installerIsNewer()); // the app has no version to compare with
    EXPECT_EQ(model.installerChoice()->message(), "It's installed on this computer. This installer is version 121.0, so "
                                                  "installing it won't give you anything newer.");
    model.clearInstallerChoice();
    model.openInDefaultApp(*model.root()->find(tree.path("Thing 2.0.deb")));
    model.openInDefaultApp(*model.root()->find(tree.path("notes.txt")));
    EXPECT_FALSE(model.installerChoice());
    EXPECT_EQ(opened, (std::vector<std::string>{tree.path("Thing 2.0.deb"), tree.path("notes.txt")}));
}

TEST(DeletionLog, TheSamePathDeletedTwiceOverTimeIsRecordedTwice) {
    Fixture f;
    DeletionLog log(f.file());
    for (int round = 0; round < 2; ++round) {
        f.tree.file("again.txt", 10);
        Outcome outcome;
        log.schedule({f.target("again.txt")}, 0.05, nullptr, nullptr, outcome.callback());
        ASSERT_TRUE(waitFor([&] { return outcome.finished; }));
        EXPECT_EQ(outcome.deleted.size(), 1u);
    }
    ASSERT_EQ(log.items().size(), 2u);
    EXPECT_EQ(log.items()[0].originalPath, log.items()[1].originalPath);
    EXPECT_NE(log.items()[0].id, log.items()[1].id);
}
