#include "Unprivileged.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <cstdlib>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

namespace brenvo::test {

std::string runUnprivileged(const std::function<std::string()>& work) {
    int pipeFds[2];
    if (pipe(pipeFds) != 0) {
        ADD_FAILURE() << "pipe failed";
        return {};
    }
    pid_t child = fork();
    if (child == 0) {
        close(pipeFds[0]);
        if (geteuid() == 0) {
            constexpr uid_t nobody = 65534;
            if (setgroups(0, nullptr) != 0 || setgid(nobody) != 0 || setuid(nobody) != 0) _exit(3);
        }
        std::string result = work();
        for (size_t done = 0; done < result.size();) {
            ssize_t n = write(pipeFds[1], result.data() + done, result.size() - done);
            if (n <= 0) _exit(4);
            done += static_cast<size_t>(n);
        }
        _exit(0);
    }
    close(pipeFds[1]);
    std::string out;
    char buffer[4096];
    ssize_t n;
    while ((n = read(pipeFds[0], buffer, sizeof buffer)) > 0) out.append(buffer, static_cast<size_t>(n));
    close(pipeFds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the unprivileged child failed: " << status;
    return out;
}

namespace {
constexpr uid_t kNobody = 65534;
}

ScopedUnprivileged::ScopedUnprivileged() {
    if (geteuid() != 0) return;
    const int count = getgroups(0, nullptr);
    std::vector<gid_t> groups(static_cast<size_t>(std::max(count, 0)));
    if (count > 0 && getgroups(count, groups.data()) != count) groups.clear();
    groups_.assign(groups.begin(), groups.end());
    if (setgroups(0, nullptr) != 0 || setegid(kNobody) != 0 || seteuid(kNobody) != 0) {
        ADD_FAILURE() << "couldn't drop root's privileges";
        return;
    }
    dropped_ = true;
}

ScopedUnprivileged::~ScopedUnprivileged() {
    if (!dropped_) return;
    std::vector<gid_t> groups(groups_.begin(), groups_.end());
    if (seteuid(0) != 0 || setegid(0) != 0 || setgroups(groups.size(), groups.data()) != 0) std::abort();
}

} // namespace brenvo::test
