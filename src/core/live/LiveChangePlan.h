#pragma once

#include "tree/FileNode.h"
#include "util/Paths.h"

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace brenvo {

// The smallest set of tree operations that brings a tree up to date with a batch of changed paths.
struct LiveChangePlan {
    struct Added {
        std::string path;   // the topmost item the tree doesn't know
        std::string parent; // the root, which holds it
        bool operator==(const Added&) const = default;
    };

    std::vector<std::string> removed;   // gone from disk: cut out of the tree, outermost first
    std::vector<std::string> remeasure; // measure anew and swap in place; none lies inside another
    std::vector<Added> added;           // new directly below the root

    // `exists` answers whether a path is on disk and `node` gives its node in the tree, so the planning
    // can be tested without a disk. The root itself is never planned, nor anything under `ignoring`.
    static LiveChangePlan make(const std::vector<std::string>& paths, const std::string& root,
                               const std::vector<std::string>& ignoring,
                               const std::function<bool(const std::string&)>& exists,
                               const std::function<FileNode*(const std::string&)>& node);
};

// An event path in the spelling the tree uses: no trailing slash, no data-volume prefix.
std::string normalizeEventPath(std::string path);

// Whether a place may have changed, given the folders the system reports as changed; an unknown set means
// anything may have.
bool touches(const std::optional<std::set<std::string>>& changed, const std::string& path);

} // namespace brenvo
