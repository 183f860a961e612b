#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace brenvo {

struct ScanProgress {
    int64_t files = 0;
    int64_t bytes = 0;
    std::string currentPath; // the folder being worked in, or empty

    bool operator==(const ScanProgress&) const = default;
};

using ProgressReport = std::function<void(const ScanProgress&)>;

} // namespace brenvo
