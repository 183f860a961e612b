#pragma once

#include <functional>
#include <string>

namespace brenvo::test {

// Runs `work` in a child process without root's privileges (as "nobody" when the suite runs as root, as
// it does in CI), and answers the text it returned. Permission tests prove nothing as root, who may read
// any folder. A child that fails to run fails the current test.
std::string runUnprivileged(const std::function<std::string()>& work);

} // namespace brenvo::test
