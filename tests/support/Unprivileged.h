#pragma once

#include <functional>
#include <string>
#include <vector>

namespace brenvo::test {

// Runs `work` without root's privileges (as "nobody" when the suite runs as root, as it does in CI), and
// answers the text it returned. Permission tests prove nothing as root, who may read any folder.
std::string runUnprivileged(const std::function<std::string()>& work);

// The same for a scope. The effective ids and groups change for every thread of the process and come
// back at the end: no child process is forked, as a multi-threaded one can't safely go on in a child.
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
