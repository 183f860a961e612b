#pragma once

#include "tree/FileNode.h"
#include "util/Date.h"

namespace brenvo {

class JsonWriter;

// The snapshot record as JSON: {"rootPath", "date", "root"}, each node an entry with the one-letter keys
// n (name), k (kind), s (size), c (item count), m (modified, when known), r (true only when the folder
// could not be read), x (skipped reason, when set) and ch (children, only when there are any). Dates are
// seconds since 2001-01-01 UTC. With `withChanges`, an entry also carries `change` (when the node has one)
// and `new` (true when it is new). The walk is iterative: a tree may be deeper than any stack.
void writeSnapshotJson(JsonWriter& out, const FileNode& root, Date date, bool withChanges = false);

} // namespace brenvo
