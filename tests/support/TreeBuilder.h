#pragma once

#include "tree/FileNode.h"

#include <string>
#include <vector>

namespace brenvo::test {

// Trees written out by hand: a folder's size and count are the sums of what it is given.
inline NodeRef leaf(std::string_view name, int64_t size) {
    NodeRef n = FileNode::make(FileNode::Kind::file, name);
    n->setSize(size);
    n->setItemCount(1);
    return n;
}

inline NodeRef folder(std::string_view name, std::vector<NodeRef> children) {
    NodeRef n = FileNode::make(FileNode::Kind::folder, name);
    int64_t size = 0, count = 0;
    for (auto& c : children) {
        size += c->size();
        count += c->itemCount();
    }
    n->setSize(size);
    n->setItemCount(count);
    n->adoptChildren(std::move(children));
    return n;
}

inline NodeRef aggregate(int64_t size, int64_t count) {
    NodeRef n = FileNode::make(FileNode::Kind::aggregate, std::to_string(count) + " smaller items");
    n->setSize(size);
    n->setItemCount(count);
    return n;
}

} // namespace brenvo::test
