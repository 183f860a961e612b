#include "TempTree.h"
#include "TreeText.h"
#include "Unprivileged.h"
#include "platform/Platform.h"
#include "scan/DiskScanner.h"
#include "tree/NodeArena.h"

#include <atomic>
#include <chrono>
#include <climits>
#include <gtest/gtest.h>
#include <mutex>
#include <sys/stat.h>
#include <thread>

using namespace brenvo;
using brenvo::test::TempTree;
using brenvo::test::treeText;
using Kind = FileNode::Kind;

namespace {

long long allocated(const std::string& path) {
    struct stat st;
    EXPECT_EQ(lstat(path.c_str(), &st), 0) << path;
    return static_cast<long long>(st.st_blocks) * 512;
}

ScanEnvironment environment(unsigned threads = 0) {
    ScanEnvironment env = platform::scanEnvironment();
    env.threads = threads;
    return env;
}

FileNode* child(FileNode* n, std::string_view name) {
    for (FileNode* c : n->children())
        if (c->name() == name) return c;
    return nullptr;
}

// Every behaviour holds for the serial walk and for parallel walks of several widths.
struct Variant {
    const char* name;
    unsigned threads; // 0: serial
};

class ScanVariants : public ::testing::TestWithParam<Variant> {
protected:
    NodeRef scan(const std::string& path, int maxChildren = 250, const DiskScanner::Skipped& skipped = {},
                 ProgressReport report = {}, std::stop_token stop = {}) {
        DiskScanner scanner(maxChildren, skipped, std::move(report), environment(GetParam().threads));
        return GetParam().threads == 0 ? scanner.scan(path, stop) : scanner.scanInParallel(path, stop);
    }
    // Without root's privileges, so unreadable folders really are unreadable.
    std::string scanUnprivileged(const std::string& path) {
        return test::runUnprivileged([&] { return treeText(*scan(path), 1); });
    }
    TempTree tree;
};

INSTANTIATE_TEST_SUITE_P(Scanner, ScanVariants,
                         ::testing::Values(Variant{"serial", 0}, Variant{"parallel2", 2}, Variant{"parallel5", 5}),
                         [](const ::testing::TestParamInfo<Variant>& param) { return std::string(param.param.name); });

} // namespace

TEST_P(ScanVariants, TotalsMatchAnIndependentCountAndLinksAreNeverFollowed) {
    tree.file("docs/report.txt", 5000);
    tree.file("docs/deep/er/still.bin", 70000);
    tree.file(".hidden/secret", 100);
    tree.file(".profile", 10);
    tree.folder("empty");
    tree.file("big.iso", 300000);
    tree.hardlink("big.iso", "docs/again.iso"); // counted every time
    tree.symlink("big.iso", "link-to-file");
    tree.symlink("docs", "link-to-folder");
    tree.symlink("/nonexistent/target", "dangling");
    tree.symlink("..", "docs/deep/loop");
    tree.file("-leading dash", 1);

    NodeRef root = scan(tree.root());
    EXPECT_EQ(root->size(), test::findAllocatedBytes(tree.root()));
    EXPECT_EQ(root->itemCount(), test::findFileCount(tree.root()));
    EXPECT_EQ(root->itemCount(), 7);
    EXPECT_EQ(root->path(), tree.root());
    EXPECT_EQ(root->kind(), Kind::folder);
    for (const char* link : {"link-to-file", "link-to-folder", "dangling"}) EXPECT_EQ(child(root.get(), link), nullptr);
    EXPECT_EQ(root->find(tree.path("docs/deep/loop")), nullptr);
    EXPECT_NE(child(root.get(), ".hidden"), nullptr);
    EXPECT_NE(child(root.get(), ".profile"), nullptr);
    EXPECT_EQ(root->find(tree.path("docs/again.iso"))->size(), allocated(tree.path("big.iso")));

    FileNode* empty = child(root.get(), "empty");
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->size(), 0);
    EXPECT_EQ(empty->itemCount(), 0);
    EXPECT_TRUE(empty->children().empty());

    // Largest first, and every folder's totals are the sums of its children.
    std::vector<FileNode*> stack{root.get()};
    while (!stack.empty()) {
        FileNode* n = stack.back();
        stack.pop_back();
        int64_t size = 0, count = 0, last = INT64_MAX;
        for (FileNode* c : n->children()) {
            EXPECT_LE(c->size(), last) << c->path();
            EXPECT_EQ(c->parent(), n);
            last = c->size();
            size += c->size();
            count += c->itemCount();
            stack.push_back(c);
        }
        if (!n->children().empty()) {
            EXPECT_EQ(n->size(), size) << n->path();
            EXPECT_EQ(n->itemCount(), count) << n->path();
        }
    }
    struct stat st;
    ASSERT_EQ(lstat(tree.path("docs/report.txt").c_str(), &st), 0);
    EXPECT_NEAR(root->find(tree.path("docs/report.txt"))->modified()->unixSeconds(),
                static_cast<double>(st.st_mtim.tv_sec) + static_cast<double>(st.st_mtim.tv_nsec) * 1e-9, 1e-6);
}

TEST_P(ScanVariants, WideFoldersFoldTheirSmallestIntoALastAggregate) {
    for (int i = 0; i < 3; ++i) tree.file("exact/f" + std::to_string(i), 1);
    for (int i = 0; i < 4; ++i) tree.file("over/f" + std::to_string(i), 1);
    tree.file("w/big", 400000);
    for (int i = 0; i < 5; ++i) tree.file("w/small" + std::to_string(i), 300000);
    tree.file("w/sub/inside", 1);
    NodeRef root = scan(tree.root(), 3);

    FileNode* exact = child(root.get(), "exact");
    EXPECT_EQ(exact->children().size(), 3u);
    EXPECT_FALSE(exact->children().back()->isAggregate());
    FileNode* over = child(root.get(), "over");
    ASSERT_EQ(over->children().size(), 3u);
    FileNode* tail = over->children().back();
    EXPECT_TRUE(tail->isAggregate());
    EXPECT_EQ(tail->name(), "2 smaller items");
    EXPECT_EQ(tail->itemCount(), 2);
    EXPECT_EQ(tail->path(), over->path());
    EXPECT_FALSE(tail->modified());
    EXPECT_EQ(over->itemCount(), 4);
    EXPECT_EQ(over->size(), test::findAllocatedBytes(tree.path("over")));

    // The aggregate stays last even when it is the largest; folded folders go with all they held.
    FileNode* w = child(root.get(), "w");
    ASSERT_EQ(w->children().size(), 3u);
    EXPECT_EQ(w->children()[0]->name(), "big");
    tail = w->children()[2];
    EXPECT_TRUE(tail->isAggregate());
    EXPECT_EQ(tail->name(), "5 smaller items");
    EXPECT_GT(tail->size(), w->children()[0]->size());
    EXPECT_EQ(w->find(tree.path("w/sub/inside")), nullptr);
    EXPECT_EQ(w->itemCount(), 7);
}

TEST_P(ScanVariants, SerialAndParallelWalksBuildTheSameTree) {
    // Many equal sizes: the order among them is the listing order, whoever walked which folder.
    for (int d = 0; d < 12; ++d)
        for (int f = 0; f < 40; ++f)
            tree.file("d" + std::to_string(d) + "/sub" + std::to_string(f % 3) + "/f" + std::to_string(f), f % 4 * 5000);
    NodeRef expected = DiskScanner(20, {}, {}, environment()).scan(tree.root());
    NodeRef root = scan(tree.root(), 20);
    EXPECT_EQ(treeText(*root), treeText(*expected));
}

TEST_P(ScanVariants, PackagesKeepTheirTotalsButNoChildren) {
    tree.file("Tools.app/Contents/MacOS/tool", 9000);
    tree.file("Tools.app/Contents/Resources/icon.icns", 3000);
    tree.symlink("Contents/MacOS/tool", "Tools.app/alias");
    tree.file("Notes.BUNDLE/data", 10);
    NodeRef root = scan(tree.root());
    FileNode* app = child(root.get(), "Tools.app");
    ASSERT_NE(app, nullptr);
    EXPECT_EQ(app->kind(), Kind::package);
    EXPECT_TRUE(app->children().empty());
    EXPECT_EQ(app->itemCount(), 2);
    EXPECT_EQ(app->size(), test::findAllocatedBytes(tree.path("Tools.app")));
    EXPECT_EQ(child(root.get(), "Notes.BUNDLE")->kind(), Kind::package);

    NodeRef packageRoot = scan(tree.path("Tools.app"));
    EXPECT_EQ(packageRoot->kind(), Kind::package);
    EXPECT_TRUE(packageRoot->children().empty());
    EXPECT_EQ(packageRoot->size(), app->size());
    EXPECT_EQ(packageRoot->itemCount(), 2);
}

TEST_P(ScanVariants, AFileOrALinkAsTheRoot) {
    tree.file("one.txt", 6000);
    tree.symlink("real", "alias");
    tree.file("real/inner", 10);
    tree.symlink("missing", "broken");

    NodeRef file = scan(tree.path("one.txt"));
    EXPECT_EQ(file->kind(), Kind::file);
    EXPECT_EQ(file->size(), allocated(tree.path("one.txt")));
    EXPECT_EQ(file->itemCount(), 1);
    EXPECT_EQ(file->path(), tree.path("one.txt"));

    // A link as the root is resolved first, so its target is what gets measured.
    NodeRef viaLink = scan(tree.path("alias"));
    EXPECT_EQ(viaLink->path(), tree.path("real"));
    EXPECT_EQ(viaLink->name(), "real");
    EXPECT_EQ(viaLink->itemCount(), 1);

    EXPECT_THROW(scan(tree.path("broken")), ScanError);
    try {
        scan(tree.path("nothing-here"));
        FAIL();
    } catch (const ScanError& error) {
        EXPECT_EQ(error.code(), ENOENT);
        EXPECT_STREQ(error.what(), "No such file or directory");
    }
}

TEST_P(ScanVariants, SkippedFoldersAreNotEnteredExceptAsTheRoot) {
    tree.file("keep/a", 100);
    tree.file("skip/b", 100);
    tree.file("skip/inner/c", 100);
    tree.symlink("skip", "skip-alias");
    DiskScanner::Skipped skipped{{tree.path("skip-alias"), "Not here."}, {tree.path("keep/a"), "Files are never skipped."}};

    NodeRef root = scan(tree.root(), 250, skipped);
    FileNode* skip = child(root.get(), "skip");
    ASSERT_NE(skip, nullptr); // found through the real path of the key
    EXPECT_EQ(skip->skippedReason(), "Not here.");
    EXPECT_EQ(skip->size(), 0);
    EXPECT_EQ(skip->itemCount(), 0);
    EXPECT_TRUE(skip->children().empty());
    EXPECT_FALSE(root->find(tree.path("keep/a"))->skippedReason());
    EXPECT_EQ(root->itemCount(), 1);

    NodeRef skippedRoot = scan(tree.path("skip"), 250, {{tree.path("skip"), "x"}, {tree.path("skip/inner"), "y"}});
    EXPECT_FALSE(skippedRoot->skippedReason());
    EXPECT_EQ(child(skippedRoot.get(), "inner")->skippedReason(), "y");
    EXPECT_EQ(skippedRoot->itemCount(), 1);
}

TEST(DiskScanner, TwoSkippedKeysWithOneRealPathAreOneFolder) {
    TempTree tree;
    tree.file("x/inside", 5000);
    tree.symlink("x", "y");
    NodeRef root = DiskScanner(250, {{tree.path("x"), "a"}, {tree.path("y"), "b"}}).scan(tree.root());
    FileNode* x = root->find(tree.path("x"));
    ASSERT_NE(x, nullptr);
    EXPECT_EQ(x->skippedReason(), "b"); // the later spelling's reason
    EXPECT_EQ(x->size(), 0);
}

TEST_P(ScanVariants, UnreadableFoldersAreMarkedAndTheScanGoesOn) {
    tree.file("open/a", 3000);
    tree.file("locked/hidden-away", 3000);
    tree.file("locked-too/x", 1);
    tree.chmod("locked", 0);
    tree.chmod("locked-too", 0311); // may be entered, not listed
    tree.file("listed-only/big.bin", 40000);
    tree.chmod("listed-only", 0744); // may be listed, not entered: names without sizes
    const std::string text = scanUnprivileged(tree.root());
    const long long a = allocated(tree.path("open/a"));
    const std::string openLine = "  open/ " + std::to_string(a) + " 1\n";
    EXPECT_NE(text.find(openLine), std::string::npos) << text;
    EXPECT_NE(text.find("  locked/ 0 0 !\n"), std::string::npos) << text;
    EXPECT_NE(text.find("  locked-too/ 0 0 !\n"), std::string::npos) << text;
    EXPECT_NE(text.find("  listed-only/ 0 0 !\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("hidden-away"), std::string::npos) << text;

    // A root that can't be listed is a result, not a failure.
    EXPECT_EQ(scanUnprivileged(tree.path("locked")), "locked/ 0 0 !\n");
    EXPECT_EQ(scanUnprivileged(tree.path("listed-only")), "listed-only/ 0 0 !\n");
}

TEST_P(ScanVariants, NamesAreKeptAsTheirRawBytes) {
    const std::string odd[] = {"caf\xe9.txt", "line\nbreak", "--help", "\xff\xfe", "tab\there", "emoji \xf0\x9f\x93\x81"};
    for (const auto& name : odd) tree.file(name, 10);
    NodeRef root = scan(tree.root());
    for (const auto& name : odd) {
        FileNode* n = child(root.get(), name);
        ASSERT_NE(n, nullptr) << name;
        EXPECT_EQ(n->path(), tree.path(name));
        EXPECT_EQ(root->find(tree.path(name)), n);
    }
}

TEST_P(ScanVariants, TreesDeeperThanPathMaxAreWalked) {
    std::string relative;
    const std::string part(60, 'd');
    while (relative.size() < 2 * PATH_MAX) relative += part + "/";
    tree.file(relative + "bottom", 4096);
    NodeRef root = scan(tree.root());
    const std::string deep = tree.path(relative + "bottom");
    ASSERT_GT(deep.size(), static_cast<size_t>(PATH_MAX));
    FileNode* bottom = root->find(deep);
    ASSERT_NE(bottom, nullptr);
    EXPECT_EQ(bottom->path(), deep);
    EXPECT_EQ(root->itemCount(), 1);
    EXPECT_GT(root->size(), 0);

    // Scanning the deep folder itself, by a path no single system call accepts.
    NodeRef inner = scan(tree.path(relative.substr(0, relative.size() - 1)));
    EXPECT_EQ(inner->itemCount(), 1);
    EXPECT_EQ(inner->size(), root->size());
}

TEST_P(ScanVariants, CancellingNeverReturnsAPartialTree) {
    for (int d = 0; d < 40; ++d)
        for (int f = 0; f < 50; ++f) tree.file("d" + std::to_string(d) + "/f" + std::to_string(f));
    const long long before = NodeArena::liveNodes();

    std::stop_source early;
    early.request_stop();
    EXPECT_THROW(scan(tree.root(), 250, {}, {}, early.get_token()), ScanCancelled);

    // Stopped from the first progress report, in the middle of the walk.
    std::stop_source midway;
    std::atomic<int> reports{0};
    auto report = [&](const ScanProgress&) {
        if (reports++ == 0) midway.request_stop();
    };
    EXPECT_THROW(scan(tree.root(), 250, {}, report, midway.get_token()), ScanCancelled);
    EXPECT_GE(reports.load(), 1);
    EXPECT_EQ(NodeArena::liveNodes(), before); // nothing of the abandoned walk is left behind
}

TEST_P(ScanVariants, ProgressIsThrottledAndTheLastReportHasTheTotals) {
    for (int d = 0; d < 30; ++d)
        for (int f = 0; f < 100; ++f) tree.file("d" + std::to_string(d) + "/f" + std::to_string(f), 10);
    std::mutex mutex;
    std::vector<ScanProgress> seen;
    auto report = [&](const ScanProgress& p) {
        std::lock_guard lock(mutex);
        seen.push_back(p);
    };
    const auto started = std::chrono::steady_clock::now();
    NodeRef root = scan(tree.root(), 250, {}, report);
    const auto elapsed = std::chrono::steady_clock::now() - started;
    ASSERT_GE(seen.size(), 2u);
    // 3,000 files, yet only the first, one per 0.1 s (of a coarse clock) and the final one.
    EXPECT_LE(seen.size(), 2 + static_cast<size_t>(elapsed / std::chrono::milliseconds(90))) << seen.size();
    EXPECT_EQ(seen.front().files, 1); // the first file reports at once
    for (size_t i = 1; i + 1 < seen.size(); ++i)
        EXPECT_TRUE(seen[i].currentPath.starts_with(tree.root() + "/d")) << seen[i].currentPath;
    const ScanProgress& last = seen.back();
    EXPECT_EQ(last.files, root->itemCount());
    EXPECT_EQ(last.bytes, root->size());
    if (GetParam().threads > 0) {
        EXPECT_EQ(last.currentPath, "");
    }
}

TEST(DiskScanner, RealPathResolvesAndDropsTheDataVolumePrefix) {
    TempTree tree;
    tree.folder("a/b");
    tree.symlink("a/b", "ln");
    EXPECT_EQ(DiskScanner::realPath(tree.path("ln")), tree.path("a/b"));
    EXPECT_EQ(DiskScanner::realPath(tree.path("a/./b/../b")), tree.path("a/b"));
    EXPECT_EQ(DiskScanner::realPath("/System/Volumes/Data/Users/x"), "/Users/x");
    EXPECT_EQ(DiskScanner::realPath("/System/Volumes/Data"), "/System/Volumes/Data");
    EXPECT_EQ(DiskScanner::realPath("/System/Volumes/Database/x"), "/System/Volumes/Database/x");
}

TEST(DiskScanner, KernelFileSystemsAreNotEntered) {
    DiskScanner scanner(250, {}, {}, environment(2));
    NodeRef proc = scanner.scanInParallel("/proc");
    EXPECT_EQ(proc->skippedReason(), "This is a live view of the running system, not files on disk.");
    EXPECT_TRUE(proc->children().empty());
    EXPECT_EQ(proc->size(), 0);
}
