#pragma once

#ifndef Q_MOC_RUN
#include "tree/FileNode.h"

#include <optional>
#include <set>
#include <string>
#include <vector>
#endif

namespace brenvo {

class StorageModel;

// Deleting from the tree on show: the items waiting for the confirmation, the nodes taken out while the
// undo window runs (and cut out of any tree that arrives meanwhile), and the one test of whether an item
// may go. A part of StorageModel; the deletion log does the deleting.
class DeleteFlow {
public:
    explicit DeleteFlow(StorageModel& model);

    const std::vector<NodeRef>& pendingDelete() const { return pendingDelete_; }
    int pendingDeleteSkipped() const { return pendingDeleteSkipped_; }
    const std::set<std::string>& hiddenWhilePending() const { return hiddenWhilePending_; }

    void request(const std::vector<FileNode*>& nodes);
    void confirm();
    void cancel();
    std::optional<std::string> collectBlockReason(const std::string& path, bool isFolder) const;
    bool stillCollectable(const std::string& path) const;
    void finishUnfinished();
    // Takes items out of the tree on show.
    void forget(const std::vector<std::string>& paths);
    // Cuts the items of the plan in its undo window out of a tree that has just arrived.
    void hidePendingDeletions(FileNode& tree);

private:
    StorageModel& model_;
    std::vector<NodeRef> pendingDelete_;
    int pendingDeleteSkipped_ = 0;
    std::set<std::string> hiddenWhilePending_;
};

} // namespace brenvo
