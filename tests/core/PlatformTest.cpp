#include "ScopedEnv.h"
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

    // The Mac's words stay; here a whole phrase wins over a shorter one inside it.
    EXPECT_EQ(mac.say("Reveal in Finder"), "Reveal in Finder");
    EXPECT_EQ(linux.say("Reveal in Finder"), "Show in Folder");
    EXPECT_EQ(linux.say("Open it in Finder."), "Open it in your file manager.");
    EXPECT_EQ(linux.say("Brenvo measures places known to fill up a Mac"), "Brenvo measures places known to fill up a computer");
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
    const Profile p = [&] {
        test::ScopedEnv configHome("XDG_CONFIG_HOME", config.root());
        return platform::systemProfile("/home/u");
    }();

    EXPECT_EQ(p.desktopPath, "/home/u/Bureau");
    EXPECT_EQ(p.downloadsPath, "/home/u/Downloads");
    EXPECT_EQ(p.documentsPath, "/srv/docs");
    EXPECT_NE(std::find(p.standardFolders.begin(), p.standardFolders.end(), "/home/u/Music"), p.standardFolders.end());
}

TEST(MountTable, DisksAreTheWritableBrowsableMountsTheUserSees) {
    const std::string text =
        "25 1 259:2 / / rw,relatime shared:1 - ext4 /dev/nvme0n1p2 rw,errors=remount-ro\n"
        "26 25 0:5 / /dev rw,nosuid shared:2 - devtmpfs udev rw,size=8000000k\n"
        "27 25 0:22 / /proc rw,nosuid,nodev,noexec shared:12 - proc proc rw\n"
        "28 25 0:25 / /run rw,nosuid,nodev,noexec shared:5 - tmpfs tmpfs rw,mode=755\n"
        "29 25 0:40 / /media/cd rw,relatime shared:20 - ext4 /dev/sdx1 rw\n"
        "30 25 259:1 / /boot/efi rw,relatime shared:30 - vfat /dev/nvme0n1p1 rw,fmask=0077\n"
        "31 25 259:3 / /home rw,relatime shared:31 - ext4 /dev/nvme0n1p3 rw,errors=remount-ro\n"
        "32 25 0:41 / /mnt/nas rw,relatime shared:32 - nfs4 nas:/export rw,vers=4.2\n"
        "33 25 0:30 / /tmp rw,nosuid,nodev shared:33 - tmpfs tmpfs rw\n"
        "34 25 7:0 / /snap/core22/1033 ro,nodev,relatime shared:34 - squashfs /dev/loop0 ro\n"
        "35 25 0:50 / /var/lib/docker/overlay2/ab12/merged rw,relatime - overlay overlay rw,lowerdir=/x\n"
        "36 25 259:2 /var/lib/docker/containers/ab12/hosts /etc/hosts rw,relatime - ext4 /dev/nvme0n1p2 rw\n"
        "37 28 0:60 / /run/user/1000 rw,nosuid,nodev shared:37 - tmpfs tmpfs rw,uid=1000\n"
        "38 37 0:61 / /run/user/1000/doc rw,nosuid,nodev shared:38 - fuse.portal portal rw,user_id=1000\n"
        "39 28 8:17 / /run/media/u/KEY rw,nosuid,nodev,relatime shared:39 - vfat /dev/sdb1 rw,uid=1000\n"
        "40 25 8:33 / /media/My\\040Disk rw,relatime shared:40 - ext4 /dev/sdc1 rw\n"
        "41 25 8:49 / /devel rw,relatime shared:41 - xfs /dev/sdd1 rw\n"
        "42 29 11:0 / /media/cd rw,nosuid,nodev shared:42 - iso9660 /dev/sr0 ro,nojoliet\n"
        "43 25 0:62 / /mnt/nas rw,relatime shared:43 - nfs4 nas:/export rw,vers=4.2\n";
    auto disks = MountTable::disksFrom(text, [](const std::string& path) { return path != "/etc/hosts"; });
    // "errors=remount-ro" is not "ro"; /devel is not under /dev; the disc over /media/cd is read-only and
    // hides the disk mounted there before; the NAS mounted again counts once, where it is now.
    EXPECT_EQ(disks, (std::vector<std::string>{"/home", "/run/media/u/KEY", "/media/My Disk", "/devel", "/mnt/nas"}));
}
