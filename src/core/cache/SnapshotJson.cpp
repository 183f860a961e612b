#include "cache/SnapshotJson.h"

#include "json/JsonWriter.h"

#include <vector>

namespace brenvo {

namespace {

void writeEntryFields(JsonWriter& out, const FileNode& node, bool withChanges) {
    out.key("n");
    out.value(node.name());
    out.key("k");
    out.value(static_cast<int64_t>(node.kind()));
    out.key("s");
    out.value(node.size());
    out.key("c");
    out.value(node.itemCount());
    if (auto modified = node.modified()) {
        out.key("m");
        out.value(modified->seconds);
    }
    if (node.couldNotRead()) {
        out.key("r");
        out.value(true);
    }
    if (auto reason = node.skippedReason()) {
        out.key("x");
        out.value(*reason);
    }
    if (!withChanges) return;
    if (auto change = node.change()) out.field("change", *change);
    if (node.isNew()) out.field("new", true);
}

} // namespace

void writeSnapshotJson(JsonWriter& out, const FileNode& root, Date date, bool withChanges) {
    out.beginObject();
    out.key("rootPath");
    out.value(root.path());
    out.key("date");
    out.value(date.seconds);
    out.key("root");

    struct Frame {
        const FileNode* node;
        size_t next;
    };
    std::vector<Frame> stack;
    auto open = [&](const FileNode* node) {
        out.beginObject();
        writeEntryFields(out, *node, withChanges);
        if (node->children().empty()) {
            out.endObject();
            return;
        }
        out.key("ch");
        out.beginArray();
        stack.push_back({node, 0});
    };
    open(&root);
    while (!stack.empty()) {
        Frame& top = stack.back();
        auto children = top.node->children();
        if (top.next < children.size()) {
            open(children[top.next++]);
            continue;
        }
        stack.pop_back();
        out.endArray();
        out.endObject();
    }
    out.endObject();
}

} // namespace brenvo
