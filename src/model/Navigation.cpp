#include "Navigation.h"

#include "StorageModel.h"
#include "platform/Platform.h"
#include "tree/FoldedEntries.h"
#include "util/Paths.h"

#include <algorithm>

namespace brenvo {

namespace {

// A folder the page can show: the node at `path`, or the nearest folder above it that is in the tree.
FileNode* nearestFolder(FileNode& root, std::string path) {
    while (isBelow(path, root.path())) {
        FileNode* node = root.find(path);
        if (node && node->kind() != FileNode::Kind::file) return node;
        if (path == root.path()) break;
        path = parentPath(path);
    }
    return &root;
}

} // namespace

void Navigation::setLocation(std::optional<ScanLocation> location) {
    if (location_ == location) return;
    location_ = std::move(location);
    emit model_.locationChanged();
}

void Navigation::setCurrent(FileNode* folder) {
    if (current_.get() == folder) return;
    current_ = NodeRef(folder);
    emit model_.currentChanged();
}

void Navigation::setSelection(QSet<quint64> ids) {
    if (selection_ == ids) return;
    selection_ = std::move(ids);
    emit model_.selectionChanged();
}

void Navigation::clear() {
    current_ = nullptr;
    emit model_.currentChanged();
    setSelection({});
}

void Navigation::explore(const std::string& path) {
    model_.setPage(StorageModel::Page::folder);
    setLocation(ScanLocation::custom(path));
}

void Navigation::goUp() {
    if (!current_ || !current_->parent()) return;
    NodeRef left = current_;
    setCurrent(left->parent());
    setSelection({left->id()});
}

std::vector<std::string> Navigation::selectedPaths() const {
    // An aggregate's path is its folder's, so it is told apart by a trailing marker no real path has.
    std::vector<std::string> paths;
    if (!current_) return paths;
    auto note = [&](FileNode* item) {
        if (selection_.contains(item->id())) paths.push_back(item->isAggregate() ? item->path() + "/\n" : item->path());
    };
    for (FileNode* item : current_->children()) note(item);
    if (model_.isFiltering())
        for (FileNode* item : model_.listItems())
            if (item->parent() != current_.get()) note(item);
    return paths;
}

void Navigation::keepPlace(const std::string& currentPath, const std::vector<std::string>& selectedPaths) {
    FileNode* root = model_.root();
    if (!root) return clear();
    FileNode* place = currentPath.empty() ? root : nearestFolder(*root, currentPath);
    if (place != current_.get()) {
        current_ = NodeRef(place);
        emit model_.currentChanged();
    }
    QSet<quint64> selected;
    for (const std::string& path : selectedPaths) {
        if (path.ends_with("/\n")) {
            FileNode* folder = root->find(path.substr(0, path.size() - 2));
            if (!folder) continue;
            for (FileNode* child : folder->children())
                if (child->isAggregate()) selected.insert(child->id());
        } else if (FileNode* item = root->find(path)) {
            selected.insert(item->id());
        }
    }
    setSelection(std::move(selected));
}

bool Navigation::unfold(const std::string& path) {
    FileNode* root = model_.root();
    FileNode* folder = root ? root->find(parentPath(path)) : nullptr;
    if (!folder) return false;
    for (FileNode* child : folder->children()) {
        const FoldedEntries* folded = child->isAggregate() ? child->folded() : nullptr;
        if (const auto index = folded ? folded->indexOf(lastPathComponent(path)) : std::nullopt) {
            child->unfold({*index});
            model_.bumpRevision();
            return true;
        }
    }
    return false;
}

void Navigation::reveal(const std::string& path) {
    model_.setPage(StorageModel::Page::folder);
    pendingReveal_ = path;
    FileNode* root = model_.root();
    if (root && isBelow(path, root->path()) && (root->find(path) || unfold(path))) {
        applyReveal(true);
        return;
    }
    ScanLocation target = ScanLocation::best(path, platform::profile());
    if (location_ == target && root) {
        // While a refresh runs the item may yet appear, so the reveal stays pending.
        applyReveal(!model_.isRefreshing());
        return;
    }
    setLocation(std::move(target));
}

void Navigation::applyReveal(bool final) {
    FileNode* root = model_.root();
    if (!pendingReveal_ || !root) return;
    const std::string wanted = *pendingReveal_;
    FileNode* found = root->find(wanted);
    if (found && found->parent()) {
        current_ = NodeRef(found->parent());
        emit model_.currentChanged();
        setSelection({found->id()});
        ++revealToken_;
        if (final) pendingReveal_.reset();
        emit model_.revealed();
        return;
    }
    if (!final) return;
    if (unfold(wanted)) return applyReveal(final);
    pendingReveal_.reset();
    // Go as deep as the tree allows; the item itself was folded into a "smaller items" node.
    FileNode* at = root;
    for (bool stepped = true; stepped;) {
        stepped = false;
        for (FileNode* child : at->children()) {
            if (child->isFolder() && isBelow(wanted, child->path())) {
                at = child;
                stepped = true;
                break;
            }
        }
    }
    current_ = NodeRef(at);
    emit model_.currentChanged();
    QSet<quint64> aggregates;
    for (FileNode* child : at->children())
        if (child->isAggregate()) aggregates.insert(child->id());
    setSelection(std::move(aggregates));
    ++revealToken_;
    emit model_.revealed();
}

void Navigation::selectNeighbour(bool forward) {
    if (!current_) return;
    std::vector<FileNode*> children;
    for (FileNode* child : current_->children())
        if (child->size() > 0) children.push_back(child);
    if (children.empty()) return;
    std::stable_sort(children.begin(), children.end(), [](FileNode* a, FileNode* b) { return a->size() > b->size(); });
    size_t target = 0;
    auto found = std::find_if(children.begin(), children.end(), [&](FileNode* c) { return selection_.contains(c->id()); });
    if (found != children.end()) {
        const size_t i = static_cast<size_t>(found - children.begin());
        target = forward ? std::min(i + 1, children.size() - 1) : (i == 0 ? 0 : i - 1);
    }
    setSelection({children[target]->id()});
    model_.preview_.follow(*children[target]);
}

} // namespace brenvo
