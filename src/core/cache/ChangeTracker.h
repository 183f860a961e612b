#pragma once

#include "tree/FileNode.h"

#include <string>
#include <unordered_map>

namespace brenvo {

// Marks a fresh tree with how much each item grew or shrank since the baseline, and what is new.
namespace ChangeTracker {

// The size every folder, and every file of at least the minimum size, had in the baseline, by path.
using Baseline = std::unordered_map<std::string, int64_t>;

inline constexpr int64_t kMinimumNewSize = 1'000'000;

// A node found in the baseline gets `change` = its size now minus then (0 included); one that isn't gets
// `change` = its size and `isNew` when it holds at least `minimumNewSize`. Aggregates are never marked.
// Runs on a tree no one else holds yet; iterative, so any depth is fine.
void apply(const Baseline& baseline, FileNode& root, int64_t minimumNewSize = kMinimumNewSize);

// "New", or the size of the change with its sign: "+5 MB", "−5 MB" (a true minus sign). A change of 0 reads
// "−Zero KB", which is why callers show no label for it.
std::string label(int64_t change, bool isNew);

} // namespace ChangeTracker
} // namespace brenvo
