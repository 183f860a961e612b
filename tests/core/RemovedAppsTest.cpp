#include "ScopedEnv.h"
#include "explain/RemovedApps.h"
#include "platform/Platform.h"

#include "TempTree.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace brenvo;
using namespace brenvo::RemovedApps;

namespace {

// Stands in for applications that can't exist here, such as a running Mac application.
class FakeSystem : public AppSystem {
public:
    std::map<std::string, std::string> installed, running;
    mutable std::vector<std::string> asked; // "installed:<id>" and "running:<id>", in order

    std::optional<std::string> installedLocation(const std::string& id) const override {
        asked.push_back("installed:" + id);
        auto found = installed.find(id);
        return found == installed.end() ? std::nullopt : std::optional(found->second);
    }
    std::optional<std::string> runningName(const std::string& id) const override {
        asked.push_back("running:" + id);
        auto found = running.find(id);
        return found == running.end() ? std::nullopt : std::optional(found->second);
    }
};

const AppHomeFolder& entryNamed(const std::string& name) {
    for (const auto& folder : homeFolders()) {
        if (folder.name == name) return folder;
    }
    throw std::logic_error("no entry " + name);
}

void write(test::TempTree& tree, const std::string& relative, const std::string& text, unsigned mode = 0644) {
    tree.file(relative);
    std::ofstream(tree.path(relative), std::ios::binary) << text;
    tree.chmod(relative, mode);
}

} // namespace

TEST(RemovedApps, ListsOnlyTheFoldersThemselves) {
    const std::string home = "/home/ann";
    ASSERT_NE(listedFolder("/home/ann/.docker", home), nullptr);
    EXPECT_EQ(listedFolder("/home/ann/.docker", home)->name, "Docker Desktop");
    EXPECT_EQ(listedFolder("/home/ann/.cache/lm-studio", home)->name, "LM Studio");
    EXPECT_EQ(listedFolder("/home/ann/.docker/config.json", home), nullptr);
    EXPECT_EQ(listedFolder("/home/anna/.docker", home), nullptr);
    EXPECT_EQ(listedFolder("/srv/.docker", home), nullptr);
    EXPECT_EQ(listedFolder("/home/ann", home), nullptr);
}

TEST(RemovedApps, LeftOverUnlessInstalledRunningOrACommandExists) {
    test::TempTree tree;
    tree.folder("Applications/Docker.app");
    tree.folder("home/.Trash/Docker.app");
    const AppHomeFolder& docker = entryNamed("Docker Desktop");
    const std::vector<std::string> commands = {tree.path("bin")};
    const std::optional<std::string> none, ignoringDocker = "com.docker.docker";

    FakeSystem system;
    EXPECT_TRUE(isLeftOver(docker, none, commands, system));

    system.installed["com.docker.docker"] = tree.path("Applications/Docker.app");
    system.asked.clear();
    EXPECT_FALSE(isLeftOver(docker, none, commands, system));
    EXPECT_EQ(system.asked, std::vector<std::string>{"installed:com.docker.docker"}); // cheapest answer first
    EXPECT_TRUE(isLeftOver(docker, ignoringDocker, commands, system));
    // Stale answers: in the Trash, or gone altogether.
    system.installed["com.docker.docker"] = tree.path("home/.Trash/Docker.app");
    EXPECT_TRUE(isLeftOver(docker, none, commands, system));
    system.installed["com.docker.docker"] = tree.path("Gone/Docker.app");
    EXPECT_TRUE(isLeftOver(docker, none, commands, system));

    system.running["com.docker.docker"] = "";
    EXPECT_FALSE(isLeftOver(docker, none, commands, system));
    EXPECT_TRUE(isLeftOver(docker, ignoringDocker, commands, system));
    system.running.clear();

    tree.folder("bin/docker"); // a folder is no command
    write(tree, "bin/podman", "");
    EXPECT_TRUE(isLeftOver(docker, none, commands, system));
    write(tree, "bin/colima", "", 0755);
    EXPECT_FALSE(isLeftOver(docker, none, commands, system));

    // nvm keeps each Node version's commands in its own folder.
    write(tree, "home/.nvm/versions/node/v20.1.0/bin/codex", "", 0755);
    auto folders = commandFolders(tree.path("home"));
    EXPECT_EQ(folders.back(), tree.path("home/.nvm/versions/node/v20.1.0/bin"));
    EXPECT_FALSE(isLeftOver(entryNamed("Codex"), none, folders, system));
}

TEST(RemovedApps, NamesTheRunningOrInstalledApplication) {
    test::TempTree tree;
    tree.folder("Applications/Visual Studio Code - Insiders.app");
    write(tree, "applications/code.desktop", "[Desktop Entry]\nType=Application\nName=Visual Studio Code\n");
    const AppHomeFolder& vscode = entryNamed("Visual Studio Code");

    FakeSystem system;
    EXPECT_EQ(runningApp(vscode, system), std::nullopt);
    EXPECT_EQ(installedApp(vscode, system), std::nullopt);

    system.running["com.microsoft.VSCodeInsiders"] = "";
    EXPECT_EQ(runningApp(vscode, system), "Visual Studio Code"); // no name of its own
    system.running["com.microsoft.VSCode"] = "Code";
    EXPECT_EQ(runningApp(vscode, system), "Code");

    system.installed["com.microsoft.VSCodeInsiders"] = tree.path("Applications/Visual Studio Code - Insiders.app");
    EXPECT_EQ(installedApp(vscode, system), "Visual Studio Code - Insiders");
    system.installed["com.microsoft.VSCode"] = tree.path("applications/code.desktop");
    EXPECT_EQ(installedApp(vscode, system), "Visual Studio Code");
}

TEST(LinuxAppSystem, FindsInstalledAndRunningApplications) {
    test::TempTree tree;
    // A program of its own name, so nothing else on the machine can be taken for it.
    const std::string program = tree.path("bin/brenvo-sleeper-" + std::to_string(::getpid()));
    tree.folder("bin");
    std::filesystem::copy_file("/bin/sleep", program);
    tree.chmod(program.substr(tree.root().size() + 1), 0755);
    write(tree, "apps/org.example.Sleeper.desktop",
          "[Desktop Entry]\nType=Application\nName=Sleeper\nExec=" + program + " %U\n");
    write(tree, "apps/org.example.Gone.desktop", "[Desktop Entry]\nType=Application\nHidden=true\n");

    Profile profile = Profile::linux(tree.path("home"));
    profile.applicationFolders = {tree.path("apps")};
    auto system = platform::appSystem(profile);
    EXPECT_EQ(system->installedLocation("org.example.Sleeper"), tree.path("apps/org.example.Sleeper.desktop"));
    EXPECT_EQ(system->installedLocation("org.example.Gone"), std::nullopt);
    EXPECT_EQ(system->installedLocation("org.example.Other"), std::nullopt);

    // Flatpak names the application of each sandbox in the user's runtime folder.
    test::ScopedEnv runtime("XDG_RUNTIME_DIR", tree.path("run"));
    EXPECT_EQ(system->runningName("org.example.Sleeper"), std::nullopt);

    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::execl(program.c_str(), program.c_str(), "30", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    write(tree, "run/.flatpak/1234/info", "[Application]\nname=org.example.Flat\n\n[Instance]\ninstance-id=1234\n");
    write(tree, "run/.flatpak/1234/bwrapinfo.json", "{\n    \"child-pid\": " + std::to_string(child) + "\n}\n");
    std::optional<std::string> seen;
    for (int tries = 0; tries < 100 && !seen; ++tries) {
        seen = system->runningName("org.example.Sleeper");
        if (!seen) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_EQ(seen, "Sleeper");
    EXPECT_EQ(system->runningName("org.example.Flat"), ""); // running, but no entry to name it

    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    EXPECT_EQ(system->runningName("org.example.Sleeper"), std::nullopt);
    EXPECT_EQ(system->runningName("org.example.Flat"), std::nullopt);
}

TEST(LinuxAppSystem, AnswersForMacBundlesUnderTheMacProfile) {
    test::TempTree tree;
    write(tree, "Applications/Docker/Docker.app/Contents/Info.plist",
          "<plist><dict><key>CFBundleIdentifier</key><string>com.docker.docker</string></dict></plist>");
    write(tree, "home/.Trash/Ollama.app/Contents/Info.plist",
          "<plist><dict><key>CFBundleIdentifier</key><string>com.electron.ollama</string></dict></plist>");
    Profile profile = Profile::mac(tree.path("home"));
    profile.applicationFolders = {tree.path("Applications"), tree.path("home/.Trash")};
    auto system = platform::appSystem(profile);
    EXPECT_EQ(system->installedLocation("com.docker.docker"), tree.path("Applications/Docker/Docker.app"));
    EXPECT_EQ(system->installedLocation("com.electron.ollama"), std::nullopt);
    EXPECT_EQ(system->runningName("com.docker.docker"), std::nullopt);
}
