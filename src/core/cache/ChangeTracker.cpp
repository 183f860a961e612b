#include "cache/ChangeTracker.h"

#include "format/Formatters.h"
#include "util/Checked.h"

#include <vector>

namespace brenvo::ChangeTracker {

void apply(const Baseline& baseline, FileNode& root, int64_t minimumNewSize) {
    struct Frame {
        FileNode* node;
        std::string path;
    };
    std::vector<Frame> stack{{&root, root.path()}};
    while (!stack.empty()) {
        Frame frame = std::move(stack.back());
        stack.pop_back();
        FileNode* node = frame.node;
        // Children's paths are built from the parent's, so the tree is never walked upwards per node.
        for (FileNode* child : node->children())
            if (!child->isAggregate()) stack.push_back({child, joinPath(frame.path, child->name())});
        if (node->isAggregate()) continue;
        auto found = baseline.find(frame.path);
        if (found != baseline.end()) {
            node->setChange(checkedSub(node->size(), found->second));
        } else if (node->size() >= minimumNewSize) {
            node->setChange(node->size());
            node->setIsNew(true);
        }
    }
}

std::string label(int64_t change, bool isNew) {
    if (isNew) return "New";
    // The magnitude of INT64_MIN doesn't fit; the formatter takes the sign off itself.
    std::string size = format::bytes(change == INT64_MIN ? change : (change < 0 ? -change : change));
    if (!size.empty() && size.front() == '-') size.erase(0, 1);
    return (change >= 1 ? "+" : "\u2212") + size;
}

} // namespace brenvo::ChangeTracker
