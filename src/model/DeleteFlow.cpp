#include "DeleteFlow.h"

#include "DeletionLog.h"
#include "Explaining.h"
#include "StorageModel.h"
#include "platform/Platform.h"
#include "removal/BlockReason.h"
#include "scan/FileSystem.h"
#include "util/Paths.h"

#include <algorithm>
#include <memory>

namespace brenvo {

DeleteFlow::DeleteFlow(StorageModel& model) : model_(model) {
    // An undone deletion whose items were cut out of a newer tree can only come back by a new scan.
    QPointer<StorageModel> self(&model_);
    model_.deletions().onUndo = [self](const std::vector<DeletionLog::Target>& targets) {
        if (!self) return;
        bool hidden = false;
        for (const auto& target : targets) hidden |= self->deleteFlow_.hiddenWhilePending_.erase(target.path) > 0;
        if (hidden && self->location()) self->scan(*self->location());
    };
}

void DeleteFlow::request(const std::vector<FileNode*>& nodes) {
    std::vector<NodeRef> allowed;
    for (FileNode* node : nodes)
        if (model_.explain(*node).safety != Explanation::Safety::protected_) allowed.emplace_back(node);
    pendingDeleteSkipped_ = static_cast<int>(nodes.size() - allowed.size());
    pendingDelete_ = std::move(allowed);
    emit model_.pendingDeleteChanged();
}

void DeleteFlow::cancel() {
    if (pendingDelete_.empty() && pendingDeleteSkipped_ == 0) return;
    pendingDelete_.clear();
    pendingDeleteSkipped_ = 0;
    emit model_.pendingDeleteChanged();
}

void DeleteFlow::confirm() {
    std::vector<NodeRef> asked = std::move(pendingDelete_);
    pendingDelete_.clear();
    pendingDeleteSkipped_ = 0;
    emit model_.pendingDeleteChanged();
    // A scan may have replaced the tree while the question was open: the items are found again by path in
    // the tree on show, and one that is no longer there or on disk is simply not deleted.
    FileNode* root = model_.root();
    std::vector<NodeRef> chosen;
    for (const NodeRef& node : asked) {
        const std::string path = node->path();
        FileNode* live = root ? root->find(path) : nullptr;
        if (live) {
            chosen.emplace_back(live);
        } else if (fs::EntryValues values; fs::statPath(path, values) == 0) {
            chosen.push_back(node);
        }
    }
    // An item inside another chosen one goes with it.
    std::vector<NodeRef> nodes;
    for (const NodeRef& node : chosen) {
        const std::string path = node->path();
        const bool inside = std::any_of(chosen.begin(), chosen.end(), [&](const NodeRef& other) {
            return other != node && isBelow(path, other->path());
        });
        if (!inside) nodes.push_back(node);
    }
    if (nodes.empty()) return;
    NodeRef scanRootAtStart(model_.root());
    // The space shows as freed at once, though nothing on disk is touched until the window ends.
    auto pairs = std::make_shared<std::vector<std::pair<NodeRef, NodeRef>>>();
    std::vector<DeletionLog::Target> targets;
    QSet<quint64> selection = model_.selection();
    for (const NodeRef& node : nodes) {
        targets.push_back({node->path(), std::string(node->name()), node->size(), node->kind() != FileNode::Kind::file, {}});
        FileNode* parent = node->parent();
        if (parent && root && (parent == root || root->find(parent->path()) == parent)) {
            pairs->emplace_back(node, NodeRef(parent));
            selection.remove(node->id());
            node->removeFromParent();
        }
    }
    model_.setSelection(std::move(selection));
    model_.bumpRevision();

    QPointer<StorageModel> self(&model_);
    auto undo = [self, pairs, scanRootAtStart] {
        if (!self) return;
        if (self->session_.root() == scanRootAtStart.get())
            for (auto& [node, parent] : *pairs) node->reinsert(parent.get());
        self->bumpRevision();
    };
    auto finish = [self, pairs, scanRootAtStart](const std::set<std::string>& deleted,
                                                 const std::vector<std::string>& failures) {
        if (!self) return;
        StorageModel& model = *self;
        FileNode* root = model.root();
        for (const std::string& path : deleted) model.deleteFlow_.hiddenWhilePending_.erase(path);
        // What failed comes back where it was, if that folder is still in the tree on show; otherwise only a
        // scan can show it again.
        bool rescan = root != scanRootAtStart.get() && !failures.empty();
        if (root == scanRootAtStart.get()) {
            for (auto& [node, parent] : *pairs) {
                if (deleted.contains(node->path())) continue;
                if (parent.get() == root || root->find(parent->path()) == parent.get())
                    node->reinsert(parent.get());
                else
                    rescan = true;
            }
        }
        if (rescan && model.location()) model.scan(*model.location());
        model.bumpRevision();
        model.saveCache();
        if (!failures.empty()) {
            std::string message = "Some items couldn't be deleted, so they're still there.";
            for (const std::string& failure : failures) message += "\n" + failure;
            model.setErrorMessage(QString::fromStdString(message));
        }
    };
    // When the window ends, an item that became unsafe meanwhile (its app was opened, say) is skipped.
    auto verify = [self](const std::vector<DeletionLog::Target>& planned) {
        if (!self) return planned;
        std::vector<DeletionLog::Target> fit;
        for (const auto& target : planned)
            if (!self->collectBlockReason(target.path, target.isDirectory)) fit.push_back(target);
        return fit;
    };
    model_.deletions().schedule(std::move(targets), DeletionLog::windowSeconds(), std::move(verify), std::move(undo),
                                std::move(finish));
}

std::optional<std::string> DeleteFlow::collectBlockReason(const std::string& path, bool isFolder) const {
    return brenvo::collectBlockReason(path, isFolder, model_.root(), systemExplainContext(model_.catalog()));
}

bool DeleteFlow::stillCollectable(const std::string& path) const {
    fs::EntryValues values;
    if (!platform::isDemo() && fs::statPath(path, values) != 0) return false;
    return !collectBlockReason(path, false).has_value();
}

void DeleteFlow::finishUnfinished() {
    QPointer<StorageModel> self(&model_);
    model_.deletions().finishUnfinished(
        [self](const std::set<std::string>& deleted, const std::vector<std::string>& failures) {
            if (!self) return;
            self->deleteFlow_.forget(std::vector<std::string>(deleted.begin(), deleted.end()));
            if (!failures.empty()) {
                std::string message = "Some items couldn't be deleted.";
                for (const std::string& failure : failures) message += "\n" + failure;
                self->setErrorMessage(QString::fromStdString(message));
            }
        });
}

void DeleteFlow::forget(const std::vector<std::string>& paths) {
    FileNode* root = model_.root();
    if (!root) return;
    for (const std::string& path : paths)
        if (FileNode* node = root->find(path)) node->removeFromParent();
    model_.bumpRevision();
    model_.saveCache();
}

void DeleteFlow::hidePendingDeletions(FileNode& tree) {
    const auto& pending = model_.deletions().pending();
    if (!pending) return;
    for (const auto& target : pending->targets) {
        FileNode* node = tree.find(target.path);
        if (node && node->parent()) {
            node->removeFromParent();
            hiddenWhilePending_.insert(target.path);
        }
    }
}

} // namespace brenvo
