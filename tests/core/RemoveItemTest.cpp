#include "removal/RemoveItem.h"
#include "scan/FileSystem.h"

#include "TempTree.h"
#include "Unprivileged.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>
#include <vector>

using namespace brenvo;

namespace {

// Works for paths longer than PATH_MAX, and sees a link rather than what it points to.
bool exists(const std::string& path) {
    fs::EntryValues values;
    return fs::statPath(path, values) == 0;
}

std::string outcome(const RemovalResult& result) {
    return std::to_string(result.ok) + "|" + std::to_string(result.error) + "|" + result.message;
}

class RemoveItem : public ::testing::Test {
protected:
    test::TempTree tree;
};

TEST_F(RemoveItem, RemovesFilesAndWholeTrees) {
    tree.file("target/a/b/c/deep.bin", 70000);
    tree.file("target/a/one", 10);
    tree.file("target/top", 10);
    tree.folder("target/empty/emptier");
    tree.hardlink("target/top", "target/a/b/again");
    tree.file("lone.txt", 10);
    tree.hardlink("lone.txt", "target/shares-lone");
    tree.file("target-beside/keep", 10);

    RemovalResult result = removeItem(tree.path("target"));
    EXPECT_EQ(outcome(result), "1|0|");
    EXPECT_FALSE(exists(tree.path("target")));
    EXPECT_TRUE(exists(tree.path("lone.txt")));
    EXPECT_TRUE(exists(tree.path("target-beside/keep")));

    EXPECT_TRUE(removeItem(tree.path("lone.txt")).ok);
    EXPECT_FALSE(exists(tree.path("lone.txt")));

    // Trailing slashes name the same folder.
    tree.file("slashed/x/y", 10);
    EXPECT_TRUE(removeItem(tree.path("slashed") + "//").ok);
    EXPECT_FALSE(exists(tree.path("slashed")));
}

TEST_F(RemoveItem, PathsNamingNothingRemovableAreRefusedUntouched) {
    EXPECT_EQ(outcome(removeItem("")), "0|" + std::to_string(EINVAL) + "|" + std::strerror(EINVAL));
    EXPECT_EQ(outcome(removeItem(tree.path("missing"))),
              "0|" + std::to_string(ENOENT) + "|No such file or directory");
    EXPECT_EQ(removeItem(tree.path("missing/deeper")).error, ENOENT);

    tree.file("x/y/z", 10);
    EXPECT_EQ(removeItem(tree.path("x/y/..")).error, EINVAL);
    EXPECT_EQ(removeItem(tree.path("x/.")).error, EINVAL);
    EXPECT_TRUE(exists(tree.path("x/y/z")));

    // Without root's privileges, so a regression here can't wipe the machine running the suite.
    std::string text = test::runUnprivileged([] {
        std::string out;
        for (const char* path : {"/", "//", "/.", "/.."}) out += std::to_string(removeItem(path).error) + " ";
        return out;
    });
    const std::string eperm = std::to_string(EPERM) + " ";
    EXPECT_EQ(text, eperm + eperm + eperm + eperm);
}

TEST(RemovalGuard, TheTopOfTheSystemAndHomeFoldersAreNeverRemoved) {
    const std::vector<std::string> homes = {"/home/ann", "/srv/accounts/bob"};
    for (const char* path : {"/", "/usr", "/home", "/etc/", "/media", "/srv/accounts", "/srv", "/home/ann",
                             "/home/ann/"})
        EXPECT_TRUE(refusedRemoval(path, homes).has_value()) << path;
    for (const char* path : {"/home/ann/Downloads", "/home/annie", "/srv/accounts/bobby", "/usr/lib/x", "/media/usb/film"})
        EXPECT_FALSE(refusedRemoval(path, homes).has_value()) << path;
    EXPECT_EQ(refusedRemoval("/srv/accounts", homes), "\u201caccounts\u201d holds a home folder, so it was left in place.");
    EXPECT_EQ(refusedRemoval("/usr", homes), "\u201c/usr\u201d is one of the system's own folders, so it was left in place.");

    // The real function asks the same rule about the real home folder, and the words name the item.
    ASSERT_FALSE(guardedHomes().empty());
    const RemovalResult refused = removeItem(guardedHomes().front());
    EXPECT_FALSE(refused.ok);
    EXPECT_EQ(refused.error, EPERM);
    EXPECT_TRUE(refused.namesItem);
}

TEST_F(RemoveItem, SymbolicLinksGoAsLinksAndAreNeverFollowed) {
    tree.file("outside/file", 100);
    tree.file("outside/folder/inner", 100);
    tree.symlink(tree.path("outside/file"), "target/to-file");
    tree.symlink(tree.path("outside/folder"), "target/sub/to-folder");
    tree.symlink("../../outside", "target/sub/relative");
    tree.symlink("nowhere", "target/dangling");

    EXPECT_EQ(outcome(removeItem(tree.path("target"))), "1|0|");
    EXPECT_FALSE(exists(tree.path("target")));
    EXPECT_TRUE(exists(tree.path("outside/file")));
    EXPECT_TRUE(exists(tree.path("outside/folder/inner")));

    // An item that is itself a link: only the link goes, with or without a trailing slash.
    tree.symlink(tree.path("outside/folder"), "link-to-folder");
    tree.symlink(tree.path("outside/folder"), "slashed-link");
    tree.symlink(tree.path("outside/file"), "link-to-file");
    for (const char* link : {"link-to-folder", "link-to-file"}) {
        EXPECT_EQ(outcome(removeItem(tree.path(link))), "1|0|") << link;
        EXPECT_FALSE(exists(tree.path(link))) << link;
    }
    EXPECT_TRUE(removeItem(tree.path("slashed-link") + "/").ok);
    EXPECT_FALSE(exists(tree.path("slashed-link")));
    EXPECT_TRUE(exists(tree.path("outside/file")));
    EXPECT_TRUE(exists(tree.path("outside/folder/inner")));
}

// Links put in place after the item was chosen: of the item itself only the link goes, and one on the
// way leads nowhere.
TEST_F(RemoveItem, LinksSwappedInAfterTheChoiceLeaveWhatTheyPointToAlone) {
    tree.file("chosen/mine", 10);
    tree.file("elsewhere/precious", 10);
    tree.file("elsewhere/sub/more", 10);
    std::filesystem::remove_all(tree.path("chosen"));
    tree.symlink(tree.path("elsewhere"), "chosen");
    EXPECT_EQ(outcome(removeItem(tree.path("chosen"))), "1|0|");
    EXPECT_FALSE(exists(tree.path("chosen")));
    EXPECT_TRUE(exists(tree.path("elsewhere/precious")));
    EXPECT_TRUE(exists(tree.path("elsewhere/sub/more")));

    tree.file("real/victim/file", 10);
    tree.file("outside/victim/file", 10);
    std::filesystem::remove_all(tree.path("real"));
    tree.symlink(tree.path("outside"), "real");
    EXPECT_FALSE(removeItem(tree.path("real/victim")).ok);
    EXPECT_TRUE(exists(tree.path("outside/victim/file")));
}

TEST_F(RemoveItem, RawByteNamesAndTreesDeeperThanPathMax) {
    const std::string odd[] = {"caf\xe9", "\xff\xfe", "line\nbreak", "--help", "-rf", " lead", "tab\there"};
    for (const auto& name : odd) {
        tree.file("target/" + name, 10);
        tree.file("target/dir\xe9/" + name + "/inside", 10);
    }
    EXPECT_EQ(outcome(removeItem(tree.path("target"))), "1|0|");
    EXPECT_FALSE(exists(tree.path("target")));

    // Deeper than the descriptors a walk holds at once, with entries left to do at levels it must return to.
    std::string relative = "deep/";
    std::vector<std::string> levels;
    while (relative.size() < 2 * PATH_MAX) {
        relative += "dddddddddd/";
        levels.push_back(relative);
    }
    for (size_t i = 0; i < levels.size(); i += 97) {
        tree.file(levels[i] + "side-file", 10);
        tree.file(levels[i] + "side-folder/x", 10);
    }
    tree.file(relative + "inner/bottom", 10);
    tree.file(relative + "bottom", 10);

    // An item whose own path no single system call accepts.
    const std::string inner = tree.path(relative + "inner");
    ASSERT_GT(inner.size(), static_cast<size_t>(PATH_MAX));
    EXPECT_EQ(outcome(removeItem(inner)), "1|0|");
    EXPECT_FALSE(exists(inner));
    EXPECT_TRUE(exists(tree.path(relative + "bottom")));

    EXPECT_EQ(outcome(removeItem(tree.path("deep"))), "1|0|");
    EXPECT_FALSE(exists(tree.path("deep")));
}

TEST_F(RemoveItem, StopsAtTheFirstErrorWithTheSystemsWords) {
    tree.file("target/open/a", 10);
    tree.file("target/locked/kept", 10);
    tree.file("target/zz/b", 10);
    tree.chmod("target/locked", 0555);
    tree.file("unreadable/sealed/kept", 10);
    tree.chmod("unreadable/sealed", 0);
    tree.folder("empty-unreadable/sealed");
    tree.file("empty-unreadable/f", 10);
    tree.chmod("empty-unreadable/sealed", 0);
    if (geteuid() == 0) {
        // The unprivileged child must own the tree, so only the locked folders stand in its way.
        const std::string command = "chown -R 65534:65534 '" + tree.root() + "'";
        ASSERT_EQ(std::system(command.c_str()), 0);
    }

    const std::string target = tree.path("target"), unreadable = tree.path("unreadable"),
                      emptyUnreadable = tree.path("empty-unreadable");
    std::string text = test::runUnprivileged([&] {
        return outcome(removeItem(target)) + "\n" + outcome(removeItem(unreadable)) + "\n" +
               outcome(removeItem(emptyUnreadable));
    });
    const std::string denied = "0|" + std::to_string(EACCES) + "|Permission denied";
    EXPECT_EQ(text, denied + "\n" + denied + "\n1|0|");
    EXPECT_TRUE(exists(tree.path("target/locked/kept")));
    EXPECT_TRUE(exists(tree.path("unreadable/sealed/kept")));
    // An empty folder goes even when it can't be read.
    EXPECT_FALSE(exists(emptyUnreadable));
}

// Detaches what a test mounted even when an assertion ends it early.
struct Mounts {
    std::vector<std::string> points;
    ~Mounts() {
        for (auto it = points.rbegin(); it != points.rend(); ++it) ::umount2(it->c_str(), MNT_DETACH);
    }
};

TEST_F(RemoveItem, AnotherDiskInsideLeavesTheWholeItemInPlace) {
    tree.file("target/beside.txt", 10);
    tree.file("target/a/file", 10);
    tree.file("target/z/file", 10);
    tree.folder("target/a/mnt");
    Mounts mounts;
    const std::string point = tree.path("target/a/mnt");
    if (::mount("tmpfs", point.c_str(), "tmpfs", 0, "size=1m") != 0)
        GTEST_SKIP() << "mounting a tmpfs isn't permitted here (" << std::strerror(errno)
                     << "; needs root outside a restricted container), so mounts inside items go untested";
    mounts.points.push_back(point);
    tree.file("target/a/mnt/on-the-other-disk", 10);

    EXPECT_EQ(outcome(removeItem(tree.path("target"))),
              "0|" + std::to_string(EXDEV) +
                  "|\u201ctarget\u201d holds another disk at \u201ca/mnt\u201d; it was left in place.");
    for (const char* kept :
         {"target/beside.txt", "target/a/file", "target/z/file", "target/a/mnt/on-the-other-disk"})
        EXPECT_TRUE(exists(tree.path(kept))) << kept;

    // The mount point itself.
    EXPECT_EQ(outcome(removeItem(point)),
              "0|" + std::to_string(EXDEV) + "|\u201cmnt\u201d is another disk; it was left in place.");
    EXPECT_TRUE(exists(tree.path("target/a/mnt/on-the-other-disk")));

    // A folder of the same disk mounted again inside: the device number alone doesn't tell it apart.
    tree.file("outside/precious", 10);
    tree.folder("bound-in/x/bound");
    tree.file("bound-in/x/first", 10);
    const std::string bound = tree.path("bound-in/x/bound");
    ASSERT_EQ(::mount(tree.path("outside").c_str(), bound.c_str(), nullptr, MS_BIND, nullptr), 0)
        << std::strerror(errno);
    mounts.points.push_back(bound);
    EXPECT_EQ(removeItem(tree.path("bound-in")).message,
              "\u201cbound-in\u201d holds another disk at \u201cx/bound\u201d; it was left in place.");
    EXPECT_TRUE(exists(tree.path("outside/precious")));
    EXPECT_TRUE(exists(tree.path("bound-in/x/first")));
}

} // namespace
