#include "TreeText.h"

#include <vector>

namespace brenvo::test {

std::string treeText(const FileNode& root, long long unit) {
    std::string out;
    struct Frame {
        const FileNode* node;
        int depth;
    };
    std::vector<Frame> stack{{&root, 0}};
    while (!stack.empty()) {
        Frame f = stack.back();
        stack.pop_back();
        out.append(static_cast<size_t>(f.depth) * 2, ' ');
        out.append(f.node->name());
        switch (f.node->kind()) {
        case FileNode::Kind::folder: out += "/"; break;
        case FileNode::Kind::package: out += " [pkg]"; break;
        case FileNode::Kind::aggregate: out += " [+]"; break;
        case FileNode::Kind::file: break;
        }
        out += " " + std::to_string(f.node->size() / unit) + " " + std::to_string(f.node->itemCount());
        if (f.node->couldNotRead()) out += " !";
        if (auto reason = f.node->skippedReason()) out += " (" + std::string(*reason) + ")";
        out += "\n";
        auto children = f.node->children();
        for (auto it = children.rbegin(); it != children.rend(); ++it) stack.push_back({*it, f.depth + 1});
    }
    return out;
}

} // namespace brenvo::test
