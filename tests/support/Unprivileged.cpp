#include "Unprivileged.h"

#include <gtest/gtest.h>
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

} // namespace brenvo::test
