#include "TempTree.h"
#include "format/Formatters.h"
#include "json/Json.h"
#include "util/FileURL.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <spawn.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace brenvo;
using brenvo::test::TempTree;
using brenvo::test::slurp;

extern char** environ;

namespace {

bool exists(const std::string& path) {
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0;
}

long long allocated(const std::string& path) {
    struct stat st;
    ::lstat(path.c_str(), &st);
    return static_cast<long long>(st.st_blocks) * 512;
}

struct Ended {
    int status = -1; // the exit status, or 128 + the signal that ended it
    std::string out, err;
};

// brenvo-cli running in the background: standard input read from `input`, output kept in files.
class Child {
public:
    explicit Child(std::vector<std::string> args, const std::string& input = {}) {
        std::ofstream(scratch_.path("in")) << input;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, scratch_.path("in").c_str(), O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 1, scratch_.path("out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_addopen(&actions, 2, scratch_.path("err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        args.insert(args.begin(), BRENVO_CLI_PATH);
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        if (posix_spawn(&pid_, BRENVO_CLI_PATH, &actions, nullptr, argv.data(), environ) != 0) pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Child() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    std::string err() const { return slurp(scratch_.path("err")); }
    // Waits until standard error shows `text`; false if the run ended or 20 s passed first.
    bool waitFor(std::string_view text) const {
        if (pid_ <= 0) return false;
        for (int i = 0; i < 20'000; ++i) {
            if (err().find(text) != std::string::npos) return true;
            siginfo_t info{};
            if (waitid(P_PID, pid_, &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid != 0)
                return err().find(text) != std::string::npos; // it ended: what it wrote is all there is
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }
    void signal(int number) const {
        if (pid_ > 0) ::kill(pid_, number); // never -1: that would reach every process we may signal
    }
    Ended wait() {
        Ended ended;
        int status = 0;
        if (pid_ > 0 && waitpid(pid_, &status, 0) == pid_)
            ended.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        pid_ = -1;
        ended.out = slurp(scratch_.path("out"));
        ended.err = err();
        return ended;
    }

private:
    TempTree scratch_;
    pid_t pid_ = -1;
};

Ended cli(std::vector<std::string> args, const std::string& input = {}) { return Child(std::move(args), input).wait(); }

// Points the state and settings folders at a scratch place of the test's own, and back afterwards.
class CliDelete : public ::testing::Test {
protected:
    void SetUp() override {
        for (const char* name : {"XDG_STATE_HOME", "XDG_CONFIG_HOME"})
            if (const char* value = std::getenv(name)) saved_[name] = value;
        useFreshState();
    }
    void TearDown() override {
        for (const char* name : {"XDG_STATE_HOME", "XDG_CONFIG_HOME"})
            saved_.contains(name) ? setenv(name, saved_[name].c_str(), 1) : unsetenv(name);
    }
    void useFreshState() {
        state_.emplace();
        setenv("XDG_STATE_HOME", state_->root().c_str(), 1);
        setenv("XDG_CONFIG_HOME", config_.root().c_str(), 1);
    }
    std::string unfinishedFile() const { return state_->path("brenvo/unfinished-deletions.json"); }
    std::string recordFile() const { return state_->path("brenvo/deleted.json"); }

    // The paths the unfinished file lists; the file must parse whenever it exists.
    std::set<std::string> unfinished() const {
        std::set<std::string> paths;
        std::ifstream in(unfinishedFile(), std::ios::binary);
        if (!in) return paths; // read once: a running deletion may remove the file at any moment
        const std::string text{std::istreambuf_iterator<char>(in), {}};
        auto json = parseJson(text);
        EXPECT_TRUE(json && json->isArray()) << text;
        if (json && json->isArray())
            for (const JsonValue& entry : json->asArray())
                if (auto path = pathFromFileURL(entry.find("url")->asString())) paths.insert(*path);
        return paths;
    }
    // What `deleted` prints: original path to size, each path checked to appear once.
    std::map<std::string, long long> recorded() const {
        if (exists(recordFile())) {
            EXPECT_TRUE(parseJson(slurp(recordFile()))) << slurp(recordFile());
        }
        Ended run = cli({"deleted"});
        EXPECT_EQ(run.status, 0) << run.err;
        std::map<std::string, long long> items;
        auto json = parseJson(run.out);
        EXPECT_TRUE(json && json->isArray()) << run.out;
        if (!json || !json->isArray()) return items;
        for (const JsonValue& entry : json->asArray()) {
            const std::string path = entry.find("originalPath")->asString();
            EXPECT_FALSE(items.contains(path)) << path << " recorded twice";
            EXPECT_EQ(entry.find("name")->asString(), path.substr(path.rfind('/') + 1));
            EXPECT_EQ(entry.find("id")->asString().size(), 36u);
            EXPECT_GT(entry.find("date")->asDouble(), 0);
            items[path] = entry.find("size")->asInt64();
        }
        return items;
    }

    TempTree tree_, config_;
    std::optional<TempTree> state_;
    std::map<std::string, std::string> saved_;
};

} // namespace

TEST_F(CliDelete, DeletesAfterTheWindowAndRecordsEachItem) {
    tree_.file("docs/deep/a.bin", 50'000);
    tree_.file("docs/b.txt", 10);
    tree_.file("note.txt", 3000);
    tree_.file("keep.txt", 10);
    const long long docs = test::findAllocatedBytes(tree_.path("docs")), note = allocated(tree_.path("note.txt"));

    Ended run = cli({"delete", "--yes", "--undo-seconds", "1", tree_.path("docs"), tree_.path("note.txt")});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.err.find("Deleting in 1 s \u2014 press Ctrl+C to undo\n"), std::string::npos) << run.err;
    EXPECT_TRUE(run.err.ends_with("Freed " + format::bytes(docs + note) + "\n")) << run.err;
    EXPECT_FALSE(exists(tree_.path("docs")));
    EXPECT_FALSE(exists(tree_.path("note.txt")));
    EXPECT_TRUE(exists(tree_.path("keep.txt")));
    EXPECT_FALSE(exists(unfinishedFile()));
    EXPECT_EQ(recorded(),
              (std::map<std::string, long long>{{tree_.path("docs"), docs}, {tree_.path("note.txt"), note}}));
}

TEST_F(CliDelete, WaitsItsTurnWhileBrenvoIsOpen) {
    tree_.file("junk", 10);
    std::filesystem::create_directories(state_->path("brenvo"));
    // What an open window holds for as long as it runs.
    const int lock = ::open(state_->path("brenvo/deletions.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(::flock(lock, LOCK_EX | LOCK_NB), 0);
    for (const char* command : {"delete", "finish-deleting"}) {
        std::vector<std::string> args{command, "--yes"};
        if (std::string(command) == "delete") args.push_back(tree_.path("junk"));
        Ended refused = cli(args);
        EXPECT_EQ(refused.status, 1);
        EXPECT_EQ(refused.err, "Brenvo is open in another window, and only one can delete at a time. Quit it and try "
                               "again.\n");
    }
    EXPECT_TRUE(exists(tree_.path("junk")));
    ::close(lock);
    EXPECT_EQ(cli({"delete", "--yes", "--undo-seconds", "0.2", tree_.path("junk")}).status, 0);
    EXPECT_FALSE(exists(tree_.path("junk")));
}

TEST_F(CliDelete, ProtectedAndMissingItemsAreLeftOut) {
    tree_.file(".bashrc", 10);
    tree_.file("junk", 10);
    Ended run = cli({"delete", "--yes", "--undo-seconds", "0.2", tree_.path(".bashrc"), tree_.path("junk"),
                     tree_.path("gone")});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("brenvo-cli: \u201c" + tree_.path("gone") + "\u201d: No such file or directory\n"),
              std::string::npos) << run.err;
    EXPECT_NE(run.err.find("\u201c.bashrc\u201d is left where it is: Hidden items are left alone"), std::string::npos)
        << run.err;
    EXPECT_TRUE(exists(tree_.path(".bashrc")));
    EXPECT_FALSE(exists(tree_.path("junk"))); // the rest still goes
    EXPECT_EQ(recorded().size(), 1u);

    Ended only = cli({"delete", "--yes", tree_.path(".bashrc")});
    EXPECT_EQ(only.status, 1);
    EXPECT_TRUE(only.err.ends_with("Nothing was deleted.\n")) << only.err;
    EXPECT_TRUE(exists(tree_.path(".bashrc")));

    for (auto args : std::vector<std::vector<std::string>>{{"delete"},
                                                           {"delete", "--undo-seconds", "0", "x"},
                                                           {"delete", "--undo-seconds", "1,5", "x"},
                                                           {"delete", "--frobnicate", "x"},
                                                           {"deleted", "x"},
                                                           {"finish-deleting", "x"}})
        EXPECT_EQ(cli(args).status, 2) << args.back();
}

TEST_F(CliDelete, AsksFirstQuotingTheWindow) {
    tree_.file("f", 5000);
    // The setting is what the question quotes when the command line doesn't override it.
    config_.file("Brenvo/Brenvo.conf");
    std::ofstream(config_.path("Brenvo/Brenvo.conf")) << "[General]\nundoSeconds=3\n";
    Ended no = cli({"delete", tree_.path("f")}, "n\n");
    EXPECT_EQ(no.status, 1);
    EXPECT_EQ(no.err, "Delete \u201c" + std::string("f") + "\u201d permanently?\n" +
                          format::bytes(allocated(tree_.path("f"))) +
                          " will be freed. Items are deleted for good, not moved to the Trash, but you'll have 3 "
                          "seconds to undo.\nDelete? [y/N] n\nNothing was deleted.\n");
    EXPECT_TRUE(exists(tree_.path("f")));
    EXPECT_FALSE(exists(unfinishedFile()));

    tree_.file("g", 10);
    Ended yes = cli({"delete", "--undo-seconds", "0.25", tree_.path("f"), tree_.path("g")}, "y\n");
    EXPECT_EQ(yes.status, 0) << yes.err;
    EXPECT_NE(yes.err.find("Delete 2 items permanently?\n"), std::string::npos) << yes.err;
    EXPECT_NE(yes.err.find("you'll have 0.25 seconds to undo."), std::string::npos) << yes.err;
    EXPECT_FALSE(exists(tree_.path("f")));
    EXPECT_FALSE(exists(tree_.path("g")));
}

// Ctrl+C undoes; SIGTERM carries the plan through, as quitting the application does.
TEST_F(CliDelete, SignalsInTheWindow) {
    for (int number : {SIGINT, SIGTERM}) {
        tree_.file("d/a", 100);
        tree_.file("e", 100);
        Child child({"delete", "--yes", "--undo-seconds", "5", tree_.path("d"), tree_.path("e")});
        ASSERT_TRUE(child.waitFor("Deleting in 5 s")) << child.err();
        child.signal(number);
        Ended run = child.wait();
        const auto items = recorded();
        if (number == SIGINT) {
            EXPECT_EQ(run.status, 1);
            EXPECT_TRUE(run.err.ends_with("Nothing was deleted.\n")) << run.err;
            EXPECT_TRUE(exists(tree_.path("d/a")) && exists(tree_.path("e")));
            EXPECT_FALSE(exists(unfinishedFile()));
            EXPECT_TRUE(items.empty());
        } else {
            EXPECT_EQ(run.status, 0) << run.err;
            EXPECT_NE(run.err.find("Freed "), std::string::npos) << run.err;
            EXPECT_FALSE(exists(tree_.path("d")) || exists(tree_.path("e")));
            EXPECT_TRUE(items.contains(tree_.path("d")) && items.contains(tree_.path("e")));
        }
    }
}

TEST_F(CliDelete, AKilledRunLeavesEverythingToFinish) {
    auto killInTheWindow = [&] {
        Child child({"delete", "--yes", "--undo-seconds", "3", tree_.path("a"), tree_.path("b")});
        ASSERT_TRUE(child.waitFor("Deleting in")) << child.err();
        child.signal(SIGKILL);
        EXPECT_EQ(child.wait().status, 128 + SIGKILL);
        EXPECT_TRUE(exists(tree_.path("a/x")));
        EXPECT_TRUE(exists(tree_.path("b")));
        EXPECT_EQ(unfinished(), (std::set<std::string>{tree_.path("a"), tree_.path("b")}));
    };
    tree_.file("a/x", 100);
    tree_.file("b", 100);
    killInTheWindow();
    Ended keep = cli({"finish-deleting"}, "n\n");
    EXPECT_EQ(keep.status, 0);
    EXPECT_NE(keep.err.find("Brenvo was closed before it finished deleting \u201ca\u201d and \u201cb\u201d ("),
              std::string::npos) << keep.err;
    EXPECT_NE(keep.err.find("They're still on your computer. Delete them now? This can't be undone.\n"),
              std::string::npos) << keep.err;
    EXPECT_TRUE(keep.err.ends_with("Kept them.\n")) << keep.err;
    EXPECT_TRUE(exists(tree_.path("a/x")) && exists(tree_.path("b")));
    EXPECT_FALSE(exists(unfinishedFile()));

    killInTheWindow();
    Ended finish = cli({"finish-deleting", "--yes"});
    EXPECT_EQ(finish.status, 0) << finish.err;
    EXPECT_NE(finish.err.find("Freed "), std::string::npos) << finish.err;
    EXPECT_FALSE(exists(tree_.path("a")));
    EXPECT_FALSE(exists(tree_.path("b")));
    auto items = recorded();
    EXPECT_TRUE(items.contains(tree_.path("a")) && items.contains(tree_.path("b")));
    EXPECT_EQ(cli({"finish-deleting"}).err, "Nothing is waiting to be deleted.\n");
}

// Killed at random moments: before the window, in it, while removing, or after the end. Whatever the
// moment, nothing else is touched, a recorded item is gone, and an item still there is listed to finish
// once its window has opened.
TEST_F(CliDelete, KillsAtAnyMomentLoseNothing) {
    std::mt19937 random(20240611);
    // Half the kills come soon after the start, the rest around the window's end, where the removal is.
    std::uniform_int_distribution<int> early(0, 60), late(270, 380);
    for (int cycle = 0; cycle < 30; ++cycle) {
        SCOPED_TRACE("cycle " + std::to_string(cycle));
        useFreshState();
        TempTree tree;
        for (int i = 0; i < 200; ++i) tree.file("t0/sub" + std::to_string(i % 3) + "/f" + std::to_string(i), 1);
        tree.file("t1", 100);
        tree.file("keep/k", 777);
        const std::vector<std::string> targets{tree.path("t0"), tree.path("t1")};

        Child child({"delete", "--yes", "--undo-seconds", "0.3", targets[0], targets[1]});
        if (cycle % 2 == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(early(random)));
        } else {
            const auto delay = std::chrono::milliseconds(late(random));
            if (!child.waitFor("Deleting in")) ADD_FAILURE() << child.err();
            // Watched until the kill: the list is read first, so an item there afterwards was there unlisted.
            bool lost = false;
            const auto until = std::chrono::steady_clock::now() + delay;
            while (!lost && std::chrono::steady_clock::now() < until) {
                const std::set<std::string> listed = unfinished();
                for (const std::string& target : targets)
                    lost = lost || (!listed.contains(target) && exists(target));
            }
            EXPECT_FALSE(lost) << "an item waiting to be deleted was not listed in " << unfinishedFile();
        }
        child.signal(SIGKILL);
        Ended run = child.wait();
        const bool scheduled = run.err.find("Deleting in") != std::string::npos;
        const std::set<std::string> listed = unfinished();
        const auto items = recorded();

        EXPECT_TRUE(exists(tree.path("keep/k")) && allocated(tree.path("keep/k")) > 0);
        if (run.status == 0) {
            EXPECT_EQ(items.size(), 2u);
        }
        for (const std::string& target : targets) {
            const bool present = exists(target);
            if (items.contains(target)) {
                EXPECT_FALSE(present) << target;
            }
            // The list is written before the countdown's first line, so a run that printed it lists what it left.
            if (present && !listed.contains(target)) {
                EXPECT_FALSE(scheduled) << target << "\n" << run.err;
            }
        }

        Ended finish = cli({"finish-deleting", "--yes"});
        EXPECT_EQ(finish.status, 0) << finish.err;
        for (const std::string& target : targets) {
            if (listed.contains(target)) {
                EXPECT_FALSE(exists(target)) << target;
            }
        }
        EXPECT_FALSE(exists(unfinishedFile()));
        EXPECT_TRUE(exists(tree.path("keep/k")));
        recorded(); // still parses, each path once
    }
}
