#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace brenvo {

// Which mounted file systems a walk must not enter, and why. Asked only when a folder lies on another
// device than its parent, so a lookup may be slow. Implementations are safe to call from any thread.
class MountRules {
public:
    virtual ~MountRules() = default;
    virtual std::optional<std::string> reasonNotToEnter(uint64_t device) const = 0;
};

} // namespace brenvo
