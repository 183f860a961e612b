#include "TreeBuilder.h"
#include "TreeText.h"
#include "cache/ChangeTracker.h"
#include "live/LiveChangePlan.h"

#include <gtest/gtest.h>
#include <set>

using namespace brenvo;
using Kind = FileNode::Kind;
using Added = LiveChangePlan::Added;
using Paths = std::vector<std::string>;

namespace {

NodeRef file(std::string_view name, int64_t size) { return test::leaf(name, size); }
using test::folder;

// /r: a.txt, sub/(b.txt, deep/c.txt), 1 folded item
NodeRef sampleTree() {
    NodeRef aggregate = FileNode::make(Kind::aggregate, "1 smaller items");
    NodeRef root = folder("r", {file("a.txt", 10), folder("sub", {file("b.txt", 5), folder("deep", {file("c.txt", 1)})}),
                                aggregate});
    root->setLocation("/r");
    return root;
}

struct Disk {
    NodeRef root = sampleTree();
    std::set<std::string> onDisk{"/r/a.txt", "/r/sub", "/r/sub/b.txt", "/r/sub/deep", "/r/sub/deep/c.txt"};

    LiveChangePlan plan(const Paths& paths, const Paths& ignoring = {}) {
        return LiveChangePlan::make(
            paths, "/r", ignoring, [&](const std::string& p) { return onDisk.contains(p); },
            [&](const std::string& p) { return root->find(p); });
    }
};

} // namespace

TEST(LiveChangePlan, ChangedItemsAreMeasuredAnewInPlace) {
    Disk disk;
    auto plan = disk.plan({"/r", "/r/a.txt", "/r/sub/b.txt", "/r/sub/b.txt"});
    EXPECT_EQ(plan.remeasure, (Paths{"/r/a.txt", "/r/sub/b.txt"})); // the root itself is never planned
    EXPECT_TRUE(plan.removed.empty());
    EXPECT_TRUE(plan.added.empty());

    // A busy folder is measured once, with nothing below it handled again.
    plan = disk.plan({"/r/sub/deep/c.txt", "/r/sub", "/r/sub/b.txt"});
    EXPECT_EQ(plan.remeasure, Paths{"/r/sub"});
}

TEST(LiveChangePlan, NewItemsMeasureTheDeepestKnownFolder) {
    Disk disk;
    disk.onDisk.insert({"/r/new.txt", "/r/sub/new.txt", "/r/x", "/r/x/y", "/r/x/y/z.txt", "/r/x/y/w.txt"});
    auto plan = disk.plan({"/r/new.txt", "/r/x/y/z.txt", "/r/x/y/w.txt", "/r/x"});
    EXPECT_TRUE(plan.remeasure.empty());
    // Below the root: added alone; an unknown folder tree comes in once, from its top.
    EXPECT_EQ(plan.added, (std::vector<Added>{{"/r/new.txt", "/r"}, {"/r/x", "/r"}}));

    plan = disk.plan({"/r/sub/new.txt"});
    EXPECT_EQ(plan.remeasure, Paths{"/r/sub"});
    EXPECT_TRUE(plan.added.empty());

    // A folded item has no node of its own: its folder is measured anew.
    disk.onDisk.insert("/r/sub/deep/folded.bin");
    plan = disk.plan({"/r/sub/deep/folded.bin"});
    EXPECT_EQ(plan.remeasure, Paths{"/r/sub/deep"});
}

TEST(LiveChangePlan, RemovalsKeepOutermostOrderAndYieldToRemeasuring) {
    Disk disk;
    disk.onDisk = {"/r/a.txt", "/r/sub", "/r/sub/b.txt"};
    auto plan = disk.plan({"/r/sub/deep/c.txt", "/r/sub/deep", "/r/gone-unseen"});
    EXPECT_EQ(plan.removed, (Paths{"/r/sub/deep", "/r/sub/deep/c.txt"}));

    plan = disk.plan({"/r/sub/deep", "/r/sub/b.txt", "/r/sub"});
    EXPECT_EQ(plan.remeasure, Paths{"/r/sub"});
    EXPECT_TRUE(plan.removed.empty()); // inside the folder being measured anyway
}

TEST(LiveChangePlan, IgnoredFoldersAndForeignPathsChangeNothing) {
    Disk disk;
    disk.onDisk.insert("/r/sub/new.txt");
    auto plan = disk.plan({"/r/sub/new.txt", "/r/sub", "/other/x", "/rx/y"}, {"/r/sub"});
    EXPECT_TRUE(plan.remeasure.empty());
    EXPECT_TRUE(plan.removed.empty());
    EXPECT_TRUE(plan.added.empty());
}

TEST(LiveChangePlan, EventPathsAndTouches) {
    EXPECT_EQ(normalizeEventPath("/a/b/"), "/a/b");
    EXPECT_EQ(normalizeEventPath("/"), "/");
    EXPECT_EQ(normalizeEventPath("/System/Volumes/Data/Users/x/"), "/Users/x");
    EXPECT_TRUE(touches(std::nullopt, "/anything"));
    EXPECT_TRUE(touches(std::set<std::string>{"/a/b"}, "/a"));
    EXPECT_TRUE(touches(std::set<std::string>{"/a"}, "/a/b"));
    EXPECT_TRUE(touches(std::set<std::string>{"/a/b"}, "/a/b/"));
    EXPECT_FALSE(touches(std::set<std::string>{"/a/bc"}, "/a/b"));
    EXPECT_FALSE(touches(std::set<std::string>{}, "/a"));
}

TEST(ChangeTracker, MarksGrowthAndWhatIsNew) {
    NodeRef root = folder("r", {folder("same", {file("f", 400)}), folder("fresh", {file("big", 3'000'000), file("small", 10)}),
                                folder("tiny", {file("t", 10)}), file("grown.iso", 1'500'000),
                                FileNode::make(Kind::aggregate, "3 smaller items")});
    root->setLocation("/r");
    ChangeTracker::Baseline baseline{{"/r", 1'000'000}, {"/r/same", 400}, {"/r/grown.iso", 1'000'000},
                                     {"/r/3 smaller items", 1}};
    ChangeTracker::apply(baseline, *root);
    EXPECT_EQ(root->change(), root->size() - 1'000'000);
    EXPECT_EQ(root->find("/r/same")->change(), 0); // unchanged is 0, not absent
    EXPECT_FALSE(root->find("/r/same")->isNew());
    FileNode* fresh = root->find("/r/fresh");
    EXPECT_TRUE(fresh->isNew());
    EXPECT_EQ(fresh->change(), fresh->size());
    EXPECT_TRUE(root->find("/r/fresh/big")->isNew());
    EXPECT_FALSE(root->find("/r/fresh/small")->change()); // small files are never marked
    EXPECT_FALSE(root->find("/r/tiny")->change());
    EXPECT_EQ(root->find("/r/grown.iso")->change(), 500'000);
    EXPECT_FALSE(root->children().back()->change()); // aggregates never
}

TEST(ChangeTracker, Labels) {
    EXPECT_EQ(ChangeTracker::label(-5'000'000, false), "\u22125 MB");
    EXPECT_EQ(ChangeTracker::label(5'000'000, false), "+5 MB");
    EXPECT_EQ(ChangeTracker::label(0, false), "\u2212Zero KB");
    EXPECT_EQ(ChangeTracker::label(-3, true), "New");
    EXPECT_EQ(ChangeTracker::label(INT64_MIN, false), "\u22129.22 EB");
}

TEST(Paths, InsideBelowAndParent) {
    EXPECT_TRUE(isInside("/a/b", "/a/b"));
    EXPECT_FALSE(isBelow("/a/b", "/a/b"));
    EXPECT_TRUE(isBelow("/a/b/c", "/a/b"));
    EXPECT_FALSE(isInside("/a/bc", "/a/b")); // a shared prefix is not a folder
    EXPECT_TRUE(isBelow("/x", "/"));
    EXPECT_FALSE(isBelow("/", "/"));
    EXPECT_FALSE(isInside("/a", "")); // a place a profile doesn't have holds nothing
    EXPECT_FALSE(isBelow("/a", ""));
    EXPECT_EQ(parentPath("/a/b"), "/a");
    EXPECT_EQ(parentPath("/a"), "/");
    EXPECT_EQ(parentPath("/"), "");
    EXPECT_EQ(parentPath("name"), "");
}
