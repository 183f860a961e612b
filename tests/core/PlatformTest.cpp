#include "../../src/platform/linux/MountTable.h"
#include "TempTree.h"
#include "platform/Platform.h"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

using namespace brenvo;

TEST(MountTable, ReadsTypesByDeviceAndNamesKernelFileSystems) {
    // Optional fields before the " - " separator vary in number.
    const std::string text =
        "22 1 0:21 / /proc rw,nosuid,nodev,noexec,relatime shared:5 - proc proc rw\n"
        "23 1 0:22 / /sys rw,nosuid shared:6 master:1 - sysfs sysfs rw\n"
        "30 1 254:1 / / rw,relatime - ext4 /dev/vda1 rw\n"
        "31 30 0:45 / /mnt/a\\040b rw - fuse.sshfs host:/ rw\n"
        "garbage line\n"
        "40 1 x:y / /bad rw - tmpfs tmpfs rw\n";
    auto types = MountTable::parse(text);
    EXPECT_EQ(types.size(), 4u);
    EXPECT_EQ(types.at(makedev(0, 21)), "proc");
    EXPECT_EQ(types.at(makedev(0, 22)), "sysfs");
    EXPECT_EQ(types.at(makedev(254, 1)), "ext4");
    EXPECT_EQ(types.at(makedev(0, 45)), "fuse.sshfs");

    EXPECT_TRUE(MountTable::isPseudoFileSystem("proc"));
    EXPECT_TRUE(MountTable::isPseudoFileSystem("cgroup2"));
    EXPECT_FALSE(MountTable::isPseudoFileSystem("tmpfs"));
    EXPECT_FALSE(MountTable::isPseudoFileSystem("fuse.sshfs"));

    // The running system's own table: /proc is a live view, the temporary folder is not.
    MountTable live;
    struct stat proc, tmp;
    ASSERT_EQ(stat("/proc", &proc), 0);
    ASSERT_EQ(stat("/tmp", &tmp), 0);
    EXPECT_EQ(live.typeOf(proc.st_dev), "proc");
    EXPECT_TRUE(live.reasonNotToEnter(proc.st_dev).has_value());
    EXPECT_FALSE(live.reasonNotToEnter(tmp.st_dev).has_value());
}

TEST(Profile, MacAndLinuxHomeLayouts) {
    Profile mac = Profile::mac("/Users/corin");
    EXPECT_TRUE(mac.isMac());
    EXPECT_EQ(mac.libraryPath, "/Users/corin/Library");
    EXPECT_EQ(mac.iCloudDrivePath, "/Users/corin/Library/Mobile Documents/com~apple~CloudDocs");
    EXPECT_EQ(mac.trashPath, "/Users/corin/.Trash");
    EXPECT_EQ(mac.standardFolders.size(), 10u);
    EXPECT_EQ(mac.standardFolders.front(), "/Users/corin");

    Profile linux = Profile::linux("/home/u", {{"DOWNLOAD", "/home/u/Téléchargements"}});
    EXPECT_FALSE(linux.isMac());
    EXPECT_EQ(linux.libraryPath, ""); // nothing is skipped by default
    EXPECT_EQ(linux.trashPath, "/home/u/.local/share/Trash");
    EXPECT_EQ(linux.downloadsPath, "/home/u/Téléchargements");
    EXPECT_EQ(linux.desktopPath, "/home/u/Desktop");
    EXPECT_EQ(mac.packageExtensions, linux.packageExtensions);
}

TEST(Profile, TheSystemProfileReadsTheUsersFolderNames) {
    test::TempTree config;
    {
        std::ofstream dirs(config.path("user-dirs.dirs"));
        dirs << "# written by xdg-user-dirs-update\n"
                "XDG_DESKTOP_DIR=\"$HOME/Bureau\"\n"
                "XDG_DOWNLOAD_DIR=\"$HOME/Downloads/\"\n"
                "XDG_DOCUMENTS_DIR=\"/srv/docs\"\n"
                "XDG_MUSIC_DIR=\"relative/ignored\"\n";
    }
    const char* old = std::getenv("XDG_CONFIG_HOME");
    const std::string saved = old ? old : "";
    setenv("XDG_CONFIG_HOME", config.root().c_str(), 1);
    Profile p = platform::systemProfile("/home/u");
    old ? setenv("XDG_CONFIG_HOME", saved.c_str(), 1) : unsetenv("XDG_CONFIG_HOME");

    EXPECT_EQ(p.desktopPath, "/home/u/Bureau");
    EXPECT_EQ(p.downloadsPath, "/home/u/Downloads");
    EXPECT_EQ(p.documentsPath, "/srv/docs");
    EXPECT_NE(std::find(p.standardFolders.begin(), p.standardFolders.end(), "/home/u/Music"), p.standardFolders.end());
}
