#pragma once

#include <functional>
#include <string>
#include <vector>

namespace brenvo::test {

// Runs `work` in a child process without root's privileges (as "nobody" when the suite runs as root, as
// it does in CI), and answers the text it returned. Permission tests prove nothing as root, who may read
// any folder. A child that fails to run fails the current test.
// Use it where no threads of a library hold state across fork(), as in the engine's tests.
std::string runUnprivileged(const std::function<std::string()>& work);

// The same for a scope of this very process, for tests with Qt running: a multi-threaded Qt program can't
// use Qt in a forked child. Effective ids and groups change for every thread and come back at the end.
class ScopedUnprivileged {
public:
    ScopedUnprivileged();
    ~ScopedUnprivileged();
    ScopedUnprivileged(const ScopedUnprivileged&) = delete;
    ScopedUnprivileged& operator=(const ScopedUnprivileged&) = delete;

private:
    bool dropped_ = false;
    std::vector<unsigned> groups_;
};

} // namespace brenvo::test
