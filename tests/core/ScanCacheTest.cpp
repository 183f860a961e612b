#include "TempTree.h"
#include "TreeText.h"
#include "cache/ScanCache.h"
#include "json/Json.h"
#include "platform/Platform.h"
#include "plist/BinaryReader.h"
#include "plist/BinaryWriter.h"
#include "util/AtomicFile.h"
#include "scan/DiskScanner.h"

#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>

using namespace brenvo;
using brenvo::test::TempTree;
using brenvo::test::slurp;
using brenvo::test::treeText;

namespace {

std::string encode(const FileNode& root, Date date) {
    std::FILE* memory = std::tmpfile();
    EXPECT_TRUE(ScanCache::encodeSnapshot(root, date, memory));
    std::string bytes(static_cast<size_t>(std::ftell(memory)), '\0');
    std::rewind(memory);
    EXPECT_EQ(std::fread(bytes.data(), 1, bytes.size(), memory), bytes.size());
    std::fclose(memory);
    return bytes;
}

// Every node's fields side by side, dates included, for comparing two trees.
std::string fullText(const FileNode& root) {
    std::string out = treeText(root);
    std::vector<const FileNode*> stack{&root};
    while (!stack.empty()) {
        const FileNode* n = stack.back();
        stack.pop_back();
        out += n->path() + " m=" + (n->modified() ? std::to_string(n->modified()->seconds) : "-") + "\n";
        for (const FileNode* c : n->children()) stack.push_back(c);
    }
    return out;
}

NodeRef scanned(TempTree& tree, int maxChildren = 3) {
    tree.file("docs/a.txt", 9000);
    tree.file("docs/caf\xe9\nline.txt", 10);
    tree.file("docs/x", 1);
    tree.file("docs/y", 1);
    tree.folder("empty");
    tree.file("skip/secret", 5);
    tree.file("App.app/Contents/bin", 3000);
    return DiskScanner(maxChildren, {{tree.path("skip"), "Not here."}}, {}, platform::scanEnvironment()).scan(tree.root());
}

} // namespace

TEST(ScanCache, ATreeComesBackWithEverythingButItsIds) {
    TempTree tree;
    tree.file("docs/z", 1);
    NodeRef root = scanned(tree, 4); // docs folds, the top level doesn't
    const std::string bytes = encode(*root, Date{700'000'000.25});
    auto snapshot = ScanCache::decodeSnapshot(bytes);
    ASSERT_TRUE(snapshot);
    EXPECT_EQ(snapshot->rootPath, tree.root());
    EXPECT_EQ(snapshot->date, Date{700'000'000.25});
    EXPECT_EQ(fullText(*snapshot->root), fullText(*root));
    EXPECT_NE(snapshot->root->id(), root->id());
    FileNode* docs = snapshot->root->find(tree.path("docs"));
    ASSERT_NE(docs, nullptr);
    EXPECT_TRUE(docs->children().back()->isAggregate());
    EXPECT_EQ(docs->children().back()->path(), tree.path("docs")); // the aggregate's URL is its folder's
    EXPECT_NE(snapshot->root->find(tree.path("docs/caf\xe9\nline.txt")), nullptr);

    // Optional keys are left out, not written empty.
    auto reader = plist::BinaryReader::open(bytes);
    ASSERT_TRUE(reader);
    auto entry = reader->dict(reader->dict(reader->top())->find("root"));
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->find("r"), plist::BinaryReader::kNoRef); // readable: no r at all, not false
    auto children = reader->array(entry->find("ch"));
    ASSERT_TRUE(children);
    ASSERT_EQ(children->size(), 4u);
    for (size_t i = 0; i < children->size(); ++i) {
        auto child = reader->dict(children->at(i));
        auto name = reader->string(child->find("n"));
        if (*name == "empty") {
            EXPECT_EQ(child->find("ch"), plist::BinaryReader::kNoRef); // a leaf has no ch
        } else if (*name == "skip") {
            EXPECT_EQ(reader->string(child->find("x")), "Not here.");
        } else if (*name == "App.app") {
            EXPECT_EQ(reader->integer(child->find("k")), 1);
        }
    }
}

TEST(ScanCache, AScanOfTheWholeDiskComesBack) {
    // The root of "/" is called "/", the one name with a slash that a snapshot may hold.
    NodeRef root = FileNode::make(FileNode::Kind::folder, "/");
    root->setLocation("/");
    NodeRef usr = FileNode::make(FileNode::Kind::folder, "usr");
    usr->setSize(4096);
    root->adoptChildren({usr});
    root->setSize(4096);
    auto snapshot = ScanCache::decodeSnapshot(encode(*root, Date{1}));
    ASSERT_TRUE(snapshot);
    EXPECT_EQ(snapshot->root->name(), "/");
    EXPECT_EQ(snapshot->root->path(), "/");
    ASSERT_NE(snapshot->root->find("/usr"), nullptr);
    EXPECT_EQ(snapshot->root->find("/usr")->size(), 4096);

    // Anywhere else, and for the root of any other folder, a slash in a name is damage.
    NodeRef elsewhere = FileNode::make(FileNode::Kind::folder, "/");
    elsewhere->setLocation("/srv");
    EXPECT_FALSE(ScanCache::decodeSnapshot(encode(*elsewhere, Date{1})));
}

TEST(ScanCache, ASaveInStepsWritesTheSameAndOneDroppedHalfwayLeavesNothing) {
    TempTree tree, folder;
    for (int i = 0; i < 300; ++i) tree.file("d" + std::to_string(i % 7) + "/f" + std::to_string(i), 10);
    NodeRef root = DiskScanner(250).scan(tree.root());
    {
        ScanCache::StepwiseSave halfway(*root, tree.root(), Date{5}, folder.root(), true);
        EXPECT_FALSE(halfway.step(320)); // counted, and a few entries written
    }
    ScanCache::waitForWrites();
    EXPECT_TRUE(std::filesystem::is_empty(folder.path("."))) << "a dropped save left a file";

    ScanCache::StepwiseSave whole(*root, tree.root(), Date{5}, folder.root(), true);
    int steps = 0;
    while (!whole.step(10)) ++steps;
    EXPECT_GT(steps, 10);
    ScanCache::waitForWrites();
    auto snapshot = ScanCache::readSnapshot(ScanCache::fileURL(tree.root(), folder.root(), false));
    auto baseline = ScanCache::readSnapshot(ScanCache::fileURL(tree.root(), folder.root(), true));
    ASSERT_TRUE(snapshot && baseline);
    EXPECT_EQ(treeText(*snapshot->root), treeText(*root));
    EXPECT_EQ(treeText(*baseline->root), treeText(*root));
}

TEST(ScanCache, NewerKindsReadAsFilesAndDamageReadsAsNothing) {
    std::string bytes;
    auto write = [&](int64_t kind, bool withCount, bool cyclic) {
        bytes.clear();
        plist::BinaryWriter out(bytes);
        using Ref = plist::BinaryWriter::Ref;
        std::vector<std::pair<Ref, Ref>> entry = {{out.key("n"), out.string("thing")},
                                                  {out.key("k"), out.integer(kind)},
                                                  {out.key("s"), out.integer(10)}};
        if (withCount) entry.push_back({out.key("c"), out.integer(1)});
        // A reference one past the next object is the entry itself: a folder that holds itself.
        if (cyclic) entry.push_back({out.key("ch"), out.array(std::vector<Ref>{out.objectCount() + 1})});
        Ref root = out.dict(entry);
        std::pair<Ref, Ref> top[] = {{out.key("rootPath"), out.string("/x")},
                                     {out.key("date"), out.date(0)},
                                     {out.key("root"), root}};
        out.finish(out.dict(top));
    };
    write(9, true, false);
    auto snapshot = ScanCache::decodeSnapshot(bytes);
    ASSERT_TRUE(snapshot);
    EXPECT_EQ(snapshot->root->kind(), FileNode::Kind::file);

    write(0, false, false); // a required key missing: the whole file is refused
    EXPECT_FALSE(ScanCache::decodeSnapshot(bytes));
    write(0, true, true);
    EXPECT_FALSE(ScanCache::decodeSnapshot(bytes));

    TempTree tree;
    NodeRef root = scanned(tree);
    const std::string good = encode(*root, Date{1});
    for (size_t cut = 0; cut < good.size(); cut += 7) EXPECT_FALSE(ScanCache::decodeSnapshot(good.substr(0, cut)));
    EXPECT_FALSE(ScanCache::decodeSnapshot("bplist00garbage"));
    EXPECT_FALSE(ScanCache::readSnapshot(tree.path("no-such-file")));
}

TEST(ScanCache, StemsFollowTheStandardisedPath) {
    const std::string s = ScanCache::stem("/Users/a/Downloads");
    EXPECT_EQ(s.size(), 24u);
    EXPECT_EQ(s.find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_EQ(ScanCache::stem("/Users/a/Downloads/"), s);
    EXPECT_EQ(ScanCache::stem("/Users/./a//Downloads"), s);
    EXPECT_EQ(ScanCache::stem("/Users/b/../a/Downloads"), s);
    EXPECT_NE(ScanCache::stem("/Users/a/downloads"), s);
    EXPECT_EQ(ScanCache::fileURL("/x", "/c", true), "/c/" + ScanCache::stem("/x") + "-baseline.plist");
    EXPECT_EQ(ScanCache::summaryPath("/x", "/c"), "/c/" + ScanCache::stem("/x") + ".summary.json");
}

TEST(ScanCache, SavedFilesAndTheBaselineTable) {
    TempTree tree, cache;
    tree.file("big/exactly", 0);
    tree.folder("zero");
    for (int i = 0; i < 8; ++i) tree.file("docs/z" + std::to_string(i), 1);
    NodeRef root = scanned(tree, 7); // only docs is wide enough to fold
    // Sizes set by hand around the limit, so the file system's block size doesn't matter.
    FileNode* a = root->find(tree.path("docs/a.txt"));
    a->setSize(999'999);
    FileNode* exactly = root->find(tree.path("big/exactly"));
    exactly->setSize(1'000'000);
    const std::string folder = cache.path("Scans");
    ScanCache::save(*root, tree.root(), Date{42}, folder, true);
    ScanCache::save(*root, tree.root(), Date{43}, folder, false);
    ScanCache::waitForWrites();

    auto table = ScanCache::baselineSizes(tree.root(), folder, 1'000'000);
    ASSERT_TRUE(table);
    EXPECT_EQ(table->second, Date{42});
    const auto& sizes = table->first;
    EXPECT_EQ(sizes.at(tree.root()), root->size()); // the root under its own path
    EXPECT_EQ(sizes.at(tree.path("zero")), 0);      // folders always, even empty
    EXPECT_FALSE(sizes.contains(tree.path("docs/a.txt")));
    EXPECT_EQ(sizes.at(tree.path("big/exactly")), 1'000'000);
    EXPECT_FALSE(sizes.contains(tree.path("docs/x"))); // folded into the aggregate
    for (const auto& [path, size] : sizes) EXPECT_EQ(path.find("smaller items"), std::string::npos);

    auto latest = ScanCache::readSnapshot(ScanCache::fileURL(tree.root(), folder, false));
    ASSERT_TRUE(latest);
    EXPECT_EQ(latest->date, Date{43});
    auto summary = parseJson(slurp(ScanCache::summaryPath(tree.root(), folder)));
    ASSERT_TRUE(summary);
    EXPECT_EQ(summary->find("size")->asInt64(), root->size());
    const auto& slices = summary->find("children")->asArray();
    ASSERT_EQ(slices.size(), root->children().size());
    for (const auto& slice : slices) {
        std::string id = slice.find("id")->asString();
        if (id.ends_with("#small")) {
            EXPECT_EQ(slice.find("url"), nullptr);
        } else if (id == tree.path("docs")) {
            EXPECT_TRUE(slice.find("isFolder")->asBool());
            EXPECT_TRUE(slice.find("url")->asString().ends_with("/docs/"));
        }
    }
    // Nothing is left behind but the three files.
    size_t files = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) ++files;
    EXPECT_EQ(files, 3u);
}

TEST(AtomicFile, AFailedWriteLeavesTheOldFileAndNoLitter) {
    TempTree dir;
    dir.file("record.json", 0);
    ASSERT_TRUE(writeFileAtomically(dir.path("record.json"), "old", true));
    EXPECT_EQ(slurp(dir.path("record.json")), "old");

    // A folder where the file should be can't be replaced by a file: the rename fails.
    dir.file("taken/x", 1);
    EXPECT_FALSE(writeFileAtomically(dir.path("taken"), "new", false));
    EXPECT_EQ(errno, EISDIR);
    // A file where its folder should be: nothing can be made there.
    EXPECT_FALSE(writeFileAtomically(dir.path("record.json/inner"), "new", false));
    // A full disk fails at the flush, and the temporary is cleaned up.
    if (std::filesystem::exists("/dev/full")) {
        std::FILE* full = std::fopen("/dev/full", "wb");
        ASSERT_NE(full, nullptr);
        std::fputs("text", full);
        EXPECT_FALSE(closeTemporary(full, dir.path("never-made"), true));
        EXPECT_EQ(errno, ENOSPC);
    }
    EXPECT_EQ(slurp(dir.path("record.json")), "old");
    size_t entries = 0;
    for ([[maybe_unused]] const auto& e : std::filesystem::directory_iterator(dir.root())) ++entries;
    EXPECT_EQ(entries, 2u); // record.json and taken, no temporaries
}
