#include "Unprivileged.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <cstdlib>
#include <grp.h>
#include <unistd.h>

namespace brenvo::test {

std::string runUnprivileged(const std::function<std::string()>& work) {
    ScopedUnprivileged nobody;
    return work();
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
