#include "TreeBuilder.h"
#include "TreeText.h"
#include "tree/FileNode.h"
#include "tree/NodeArena.h"

#include <gtest/gtest.h>
#include <unordered_set>

using namespace brenvo;
using brenvo::test::treeText;
using brenvo::test::leaf;
using brenvo::test::folder;
using brenvo::test::aggregate;
using Kind = FileNode::Kind;

namespace {

// /a
//   b/ (c.txt 30, d.txt 20)
//   bc.txt 10
//   [aggregate 5 in 2]
NodeRef sample() {
    NodeRef root = folder("a", {folder("b", {leaf("c.txt", 30), leaf("d.txt", 20)}), leaf("bc.txt", 10), aggregate(5, 2)});
    root->setLocation("/a");
    return root;
}

FileNode* child(FileNode* n, std::string_view name) {
    for (FileNode* c : n->children())
        if (c->name() == name) return c;
    return nullptr;
}

} // namespace

TEST(FileNode, FindDescendsByPathComponentsOnly) {
    NodeRef root = sample();
    EXPECT_EQ(root->find("/a"), root.get());
    EXPECT_EQ(root->find("/a/b/d.txt")->size(), 20);
    EXPECT_EQ(root->find("/a/bc.txt")->size(), 10);
    // A textual prefix of a real folder is not that folder.
    EXPECT_EQ(root->find("/a/b/c"), nullptr);
    EXPECT_EQ(root->find("/ab"), nullptr);
    EXPECT_EQ(root->find("/a/"), nullptr);
    // The aggregate has its folder's path but is never found by it.
    EXPECT_EQ(root->find("/a/2 smaller items"), nullptr);
    EXPECT_EQ(root->children().back()->path(), "/a");
    EXPECT_EQ(root->find("/a/b/d.txt")->path(), "/a/b/d.txt");
}

TEST(FileNode, FindWorksBelowTheFileSystemRootAndThroughARenamedNode) {
    NodeRef top = folder("/", {folder("Users", {leaf("x", 1)})});
    top->setLocation("/");
    EXPECT_EQ(top->find("/Users/x")->path(), "/Users/x");

    // A node whose shown name differs from its file name still has its real path.
    NodeRef cloud = folder("iCloud Drive", {leaf("doc.pages", 4)});
    cloud->setLocation("/h/Library/Mobile Documents/com~apple~CloudDocs");
    NodeRef home = folder("h", {folder("Library", {folder("Mobile Documents", {cloud})})});
    home->setLocation("/h");
    FileNode* doc = home->find("/h/Library/Mobile Documents/com~apple~CloudDocs/doc.pages");
    ASSERT_NE(doc, nullptr);
    EXPECT_EQ(doc->path(), "/h/Library/Mobile Documents/com~apple~CloudDocs/doc.pages");
}

TEST(FileNode, RemoveThenReinsertRestoresEveryAncestor) {
    NodeRef root = sample();
    FileNode* b = child(root.get(), "b");
    root->setChange(0);
    b->setChange(-7);
    // The root has a change, b has one, and an absent change must stay absent elsewhere.
    NodeRef c(child(b, "c.txt"));
    const auto before = treeText(*root);

    c->removeFromParent();
    EXPECT_EQ(c->parent(), nullptr);
    EXPECT_EQ(c->path(), "/a/b/c.txt"); // a detached node still knows where it was
    EXPECT_EQ(b->size(), 20);
    EXPECT_EQ(b->itemCount(), 1);
    EXPECT_EQ(b->change(), -37);
    EXPECT_EQ(root->size(), 35);
    EXPECT_EQ(root->itemCount(), 4);
    EXPECT_EQ(root->change(), -30);
    EXPECT_FALSE(child(root.get(), "bc.txt")->change().has_value());

    c->reinsert(b);
    EXPECT_EQ(treeText(*root), before);
    EXPECT_EQ(b->change(), -7);
    EXPECT_EQ(root->change(), 0);
    EXPECT_EQ(c->parent(), b);
    // A second reinsert of an attached node changes nothing.
    c->reinsert(root.get());
    EXPECT_EQ(treeText(*root), before);
}

TEST(FileNode, ReinsertGoesBehindEqualSizesAndBeforeTheAggregate) {
    NodeRef root = folder("r", {leaf("x", 10), leaf("y", 5), aggregate(100, 9)});
    root->setLocation("/r");
    NodeRef same = leaf("z", 10);
    same->reinsert(root.get());
    NodeRef tiny = leaf("t", 1);
    tiny->reinsert(root.get());
    EXPECT_EQ(treeText(*root), "r/ 126 13\n"
                               "  x 10 1\n"
                               "  z 10 1\n"
                               "  y 5 1\n"
                               "  t 1 1\n"
                               "  9 smaller items [+] 100 9\n");
}

TEST(FileNode, ReinsertMayLandAtAnotherIndex) {
    NodeRef root = folder("r", {leaf("x", 10), leaf("y", 10)});
    root->setLocation("/r");
    NodeRef x(root->children()[0]);
    x->removeFromParent();
    x->reinsert(root.get());
    EXPECT_EQ(root->children()[0]->name(), "y");
    EXPECT_EQ(root->children()[1]->name(), "x");
    EXPECT_EQ(root->size(), 20);
}

TEST(FileNode, ReplaceCarriesChangeOnlyWhereOneExisted) {
    NodeRef root = sample();
    root->setChange(100);
    FileNode* b = child(root.get(), "b");
    NodeRef oldB(b);

    NodeRef fresh = folder("b", {leaf("c.txt", 80)});
    b->replace(fresh);
    EXPECT_FALSE(fresh->change().has_value()); // b had none
    EXPECT_EQ(fresh->parent(), root.get());
    EXPECT_EQ(root->children()[0], fresh.get()); // same index, order not restored
    EXPECT_EQ(root->size(), 95);
    EXPECT_EQ(root->itemCount(), 4);
    EXPECT_EQ(root->change(), 130);
    EXPECT_EQ(oldB->parent(), nullptr);
    EXPECT_EQ(oldB->path(), "/a/b");

    fresh->setChange(0);
    fresh->setIsNew(true);
    NodeRef again = folder("b", {leaf("c.txt", 60)});
    fresh->replace(again);
    EXPECT_EQ(again->change(), -20); // a change of 0 is real: it moves by the difference
    EXPECT_TRUE(again->isNew());
    EXPECT_EQ(root->change(), 110);
    EXPECT_EQ(root->find("/a/b/c.txt")->size(), 60);
}

TEST(FileNode, MutatorsOnARootOrAStrangerDoNothing) {
    NodeRef root = sample();
    const auto before = treeText(*root);
    root->replace(leaf("z", 1));
    root->removeFromParent();
    EXPECT_EQ(treeText(*root), before);
    NodeRef stranger = leaf("s", 3);
    stranger->removeFromParent();
    EXPECT_EQ(stranger->size(), 3);
}

TEST(FileNode, IdsAreFreshAndEqualityIsIdentity) {
    std::unordered_set<uint64_t> ids;
    std::vector<NodeRef> keep;
    for (int i = 0; i < 10000; ++i) {
        keep.push_back(leaf("same", 1));
        EXPECT_TRUE(ids.insert(keep.back()->id()).second);
    }
    keep.clear();
    // Memory of freed nodes comes back, but never their ids.
    for (int i = 0; i < 10000; ++i) EXPECT_TRUE(ids.insert(leaf("same", 1)->id()).second);
    NodeRef a = leaf("n", 1), b = leaf("n", 1);
    EXPECT_FALSE(a == b);
    EXPECT_TRUE(a == NodeRef(a.get()));
}

TEST(FileNode, SortKeysPutAbsentValuesLowest) {
    NodeRef n = FileNode::make(Kind::file, "f", Date{50});
    EXPECT_EQ(n->modifiedSortKey(), Date{50});
    EXPECT_EQ(leaf("g", 1)->modifiedSortKey(), Date::distantPast());
    EXPECT_EQ(n->lastOpenedSortKey(), Date::distantPast());
    n->setLastOpened(Date{7});
    EXPECT_EQ(n->lastOpenedSortKey(), Date{7});
    EXPECT_EQ(n->changeSortKey(), 0);
    n->setChange(-5);
    EXPECT_EQ(n->changeSortKey(), -5);
    // An aggregate never carries a date.
    EXPECT_FALSE(FileNode::make(Kind::aggregate, "3 smaller items", Date{1})->modified());
}

TEST(FileNode, HeldNodesOutliveTheirTreeAndNothingLeaks) {
    const long long before = NodeArena::liveNodes();
    NodeRef kept;
    {
        NodeRef root = sample();
        kept = NodeRef(root->find("/a/b"));
    }
    // The rest of the tree is gone; the held folder keeps its subtree and its path.
    EXPECT_EQ(NodeArena::liveNodes(), before + 3);
    EXPECT_EQ(kept->parent(), nullptr);
    EXPECT_EQ(kept->path(), "/a/b");
    EXPECT_EQ(kept->find("/a/b/c.txt")->size(), 30);
    kept = nullptr;
    EXPECT_EQ(NodeArena::liveNodes(), before);
}

TEST(FileNode, AVeryDeepTreeIsFreedWithoutRecursion) {
    const long long before = NodeArena::liveNodes();
    {
        NodeRef root = FileNode::make(Kind::folder, "d");
        root->setLocation("/d");
        FileNode* at = root.get();
        for (int i = 0; i < 300000; ++i) {
            NodeRef next = FileNode::make(Kind::folder, "d");
            FileNode* raw = next.get();
            at->adoptChildren({next});
            at = raw;
        }
    }
    EXPECT_EQ(NodeArena::liveNodes(), before);
}

TEST(FileNodeDeathTest, SizeOverflowStopsTheProgram) {
    NodeRef root = folder("r", {leaf("big", INT64_MAX - 1)});
    NodeRef more = leaf("more", 2);
    EXPECT_DEATH(more->reinsert(root.get()), "overflow");
    NodeRef low = folder("r", {leaf("x", 1)});
    low->setChange(INT64_MIN);
    NodeRef x(low->children()[0]);
    EXPECT_DEATH(x->removeFromParent(), "overflow");
}
