#include "ScopedEnv.h"
#include "TempTree.h"
#include "json/Json.h"
#include "util/Date.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace brenvo;
using brenvo::test::TempTree;
using brenvo::test::slurp;

extern char** environ;

namespace {

struct CliRun {
    int status = -1;
    std::string out;
    std::string err;
};

// Runs brenvo-cli with the given arguments; standard output goes to `stdoutPath` when one is given.
CliRun cli(std::vector<std::string> args, const std::string& stdoutPath = {}) {
    TempTree scratch;
    const std::string out = stdoutPath.empty() ? scratch.path("out") : stdoutPath;
    const std::string err = scratch.path("err");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    args.insert(args.begin(), BRENVO_CLI_PATH);
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid;
    CliRun run;
    if (posix_spawn(&pid, BRENVO_CLI_PATH, &actions, nullptr, argv.data(), environ) == 0) {
        waitpid(pid, &run.status, 0);
        run.status = WIFEXITED(run.status) ? WEXITSTATUS(run.status) : 128 + WTERMSIG(run.status);
    }
    posix_spawn_file_actions_destroy(&actions);
    if (stdoutPath.empty()) run.out = slurp(out);
    run.err = slurp(err);
    return run;
}

const JsonValue* childNamed(const JsonValue& entry, std::string_view name) {
    const JsonValue* children = entry.find("ch");
    if (!children) return nullptr;
    for (const auto& c : children->asArray())
        if (c.find("n")->asString() == name) return &c;
    return nullptr;
}

long long allocated(const std::string& path) {
    struct stat st;
    lstat(path.c_str(), &st);
    return static_cast<long long>(st.st_blocks) * 512;
}

} // namespace

TEST(Cli, ScanPrintsTheSnapshotRecord) {
    TempTree tree;
    tree.file("docs/a.txt", 5000);
    tree.file("docs/b.txt", 10);
    tree.folder("empty");
    tree.file("caf\xe9\nnew", 1);
    tree.symlink("docs", "link");
    for (int i = 0; i < 5; ++i) tree.file("wide/f" + std::to_string(i), 4096 * (i + 1));
    const double before = Date::now().seconds;
    CliRun run = cli({"scan", "--max-children", "4", tree.root()});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    ASSERT_TRUE(run.out.ends_with("}\n"));
    // A byte that is not UTF-8 is written as U+DC00 + byte; the newline as an escape.
    EXPECT_NE(run.out.find(R"("n":"caf\udce9\nnew")"), std::string::npos) << run.out;

    JsonParseError error;
    auto record = parseJson(run.out, &error);
    ASSERT_TRUE(record) << error.describe();
    EXPECT_EQ(record->find("rootPath")->asString(), tree.root());
    const double date = record->find("date")->asDouble();
    EXPECT_GE(date, before - 1);
    EXPECT_LE(date, Date::now().seconds + 1);

    const JsonValue& root = *record->find("root");
    std::vector<std::string> keys;
    for (const auto& m : root.asObject()) keys.push_back(m.key);
    EXPECT_EQ(keys, (std::vector<std::string>{"n", "k", "s", "c", "m", "ch"}));
    EXPECT_EQ(root.find("k")->asInt64(), 0);
    EXPECT_EQ(root.find("c")->asInt64(), 8);
    EXPECT_EQ(root.find("s")->asInt64(), test::findAllocatedBytes(tree.root()));
    EXPECT_EQ(childNamed(root, "link"), nullptr);

    const JsonValue* docs = childNamed(root, "docs");
    ASSERT_NE(docs, nullptr);
    EXPECT_EQ(docs->find("ch")->asArray()[0].find("n")->asString(), "a.txt"); // largest first
    const JsonValue* a = childNamed(*docs, "a.txt");
    EXPECT_EQ(a->find("k")->asInt64(), 2);
    EXPECT_EQ(a->find("s")->asInt64(), allocated(tree.path("docs/a.txt")));
    EXPECT_EQ(a->find("ch"), nullptr); // leaves carry no children key
    EXPECT_EQ(a->find("r"), nullptr);  // written only when true

    const JsonValue* empty = childNamed(root, "empty");
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->find("ch"), nullptr);
    EXPECT_EQ(empty->find("s")->asInt64(), 0);
    EXPECT_NE(childNamed(root, "caf\xe9\nnew"), nullptr); // parsed back to the very bytes

    const auto& wide = childNamed(root, "wide")->find("ch")->asArray();
    ASSERT_EQ(wide.size(), 4u);
    EXPECT_EQ(wide[3].find("n")->asString(), "2 smaller items");
    EXPECT_EQ(wide[3].find("k")->asInt64(), 3);
    EXPECT_EQ(wide[3].find("c")->asInt64(), 2);
    EXPECT_EQ(wide[3].find("m"), nullptr);
}

TEST(Cli, ErrorsAreOneLineAndStatusTwo) {
    CliRun missing = cli({"scan", "/nonexistent/place"});
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.err, "brenvo-cli: can't scan \u201c/nonexistent/place\u201d: No such file or directory\n");
    EXPECT_EQ(missing.out, "");

    for (auto args : std::vector<std::vector<std::string>>{{"scan"},
                                                           {"scan", "/tmp", "--max-children"},
                                                           {"scan", "/tmp", "--max-children", "0"},
                                                           {"scan", "/tmp", "--max-children", "12x"},
                                                           {"scan", "/tmp", "/usr"},
                                                           {"scan", "/tmp", "--frobnicate"},
                                                           {"explode"}}) {
        CliRun run = cli(args);
        EXPECT_EQ(run.status, 2) << args.back();
        EXPECT_TRUE(run.err.starts_with("brenvo-cli: ")) << run.err;
        EXPECT_EQ(run.out, "");
    }
    // A path that looks like an option is still a path after "--".
    TempTree tree;
    tree.file("--help/x", 1);
    CliRun dashed = cli({"scan", "--", tree.path("--help")});
    EXPECT_EQ(dashed.status, 0) << dashed.err;
}

TEST(Cli, AFullDiskIsReportedNotIgnored) {
    TempTree tree;
    tree.file("x", 1);
    CliRun run = cli({"scan", tree.root()}, "/dev/full");
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, "brenvo-cli: can't write the result: No space left on device\n");
}

TEST(Cli, ProgressGoesToStandardError) {
    TempTree tree;
    for (int i = 0; i < 20; ++i) tree.file("d/f" + std::to_string(i), 1);
    CliRun run = cli({"scan", "--progress", tree.root()});
    ASSERT_EQ(run.status, 0);
    ASSERT_FALSE(run.err.empty());
    // The last line is the final report: every file counted, no folder named.
    std::string lines = "\n" + run.err;
    std::string last = lines.substr(lines.rfind('\n', lines.size() - 2) + 1);
    EXPECT_TRUE(last.starts_with("20 files, ")) << run.err;
    EXPECT_TRUE(last.ends_with("KB\n")) << last;
    EXPECT_TRUE(parseJson(run.out).has_value());
}

TEST(Cli, RememberComparesWithTheBaselineAndSavesWhereTheApplicationLooks) {
    TempTree tree, cache;
    tree.file("old.bin", 1'200'000);
    tree.file("docs/a.txt", 10);
    test::ScopedEnv cacheHome("XDG_CACHE_HOME", cache.root());
    CliRun first = cli({"scan", "--remember", tree.root()});
    ASSERT_EQ(first.status, 0) << first.err;
    auto record = parseJson(first.out);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->find("root")->find("change"), nullptr); // no baseline yet: nothing to compare with
    EXPECT_EQ(cli({"scan", tree.root()}).out.find("\"change\""), std::string::npos);

    tree.file("new.iso", 2'000'000);
    CliRun second = cli({"scan", "--remember", tree.root()});
    ASSERT_EQ(second.status, 0) << second.err;
    record = parseJson(second.out);
    ASSERT_TRUE(record);
    const JsonValue& root = *record->find("root");
    EXPECT_EQ(root.find("change")->asInt64(), allocated(tree.path("new.iso")));
    EXPECT_EQ(childNamed(root, "new.iso")->find("new")->asBool(), true);
    EXPECT_EQ(childNamed(root, "old.bin")->find("change")->asInt64(), 0);
    EXPECT_EQ(childNamed(root, "old.bin")->find("new"), nullptr);
    EXPECT_EQ(childNamed(*childNamed(root, "docs"), "a.txt")->find("change"), nullptr); // small files: never

    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(cache.path("brenvo/Scans"))) {
        ++files;
        EXPECT_TRUE(entry.path().filename().string().size() >= 24u);
    }
    EXPECT_EQ(files, 3u); // snapshot, summary, baseline
}

TEST(Cli, ExplainSpeaksInTheProfileInForce) {
    TempTree home;
    home.file("Library/Caches/foo/a", 10);
    home.file("Downloads/trip.mov", 100);
    home.file(".Trash/old.txt", 10);
    CliRun library, trash, video, missing;
    {
        test::ScopedEnv profile("BRENVO_PROFILE", "mac");
        test::ScopedEnv homeFolder("HOME", home.root());
        library = cli({"explain", home.path("Library/Caches/foo")});
        trash = cli({"explain", home.path(".Trash"), "--root", home.root()});
        profile.set("linux");
        video = cli({"explain", home.path("Downloads/trip.mov")});
        missing = cli({"explain", home.path("Downloads/none.mov")});
    }

    ASSERT_EQ(library.status, 0) << library.err;
    auto e = parseJson(library.out);
    ASSERT_TRUE(e);
    EXPECT_EQ(e->find("safety")->asString(), "protected");
    EXPECT_EQ(e->find("summary")->asString(), "Part of your Library folder, where apps keep their settings, caches and data.");
    EXPECT_EQ(e->find("suggestion"), nullptr); // absent values are left out
    EXPECT_EQ(e->find("category")->asString(), "folder");

    e = parseJson(trash.out);
    ASSERT_TRUE(e) << trash.err;
    EXPECT_EQ(e->find("safetyNote")->asString(), "Empty the Trash from Finder.");

    e = parseJson(video.out);
    ASSERT_TRUE(e) << video.err;
    EXPECT_EQ(e->find("summary")->asString(), "A video. Videos are often the largest personal files on a computer.");
    EXPECT_EQ(e->find("safety")->asString(), "ok");

    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.err, "brenvo-cli: can't explain \u201c" + home.path("Downloads/none.mov") +
                               "\u201d: No such file or directory\n");
    // Even where the folder around it would take long to scan: nothing is scanned first.
    CliRun underRoot = cli({"explain", "/no-such-top-level-item", "--root", "/"});
    EXPECT_EQ(underRoot.err, "brenvo-cli: can't explain \u201c/no-such-top-level-item\u201d: No such file or directory\n");
}
