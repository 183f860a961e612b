#include "tree/FileNode.h"

#include "tree/FoldedEntries.h"
#include "tree/NodeArena.h"
#include "util/Checked.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace brenvo {

struct FileNode::Rare {
    std::optional<std::string> location;
    std::optional<std::string> skippedReason;
    std::unique_ptr<FoldedEntries> folded; // an aggregate's entries
};

// Present on folders with children and on nodes that carry a change, a last-opened date or a rare field.
// A file's count is 1 and an empty folder's 0 without it: most nodes are files and never need one.
struct FileNode::Aux {
    std::vector<FileNode*> children; // each holds one reference
    int64_t itemCount = 0;
    int64_t change = 0;
    double lastOpened = 0;
    std::unique_ptr<Rare> rare;
};

static_assert(sizeof(FileNode) == 40, "FileNode grew: every byte counts millions of times");

std::string joinPath(std::string_view folder, std::string_view name) {
    std::string out;
    out.reserve(folder.size() + 1 + name.size());
    out.append(folder);
    if (out.empty() || out.back() != '/') out.push_back('/');
    out.append(name);
    return out;
}

std::string_view lastPathComponent(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    if (path == "/") return path;
    auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

FileNode::FileNode(Kind kind, std::string_view name)
    : kind_(kind), nameLength_(static_cast<uint16_t>(name.size())) {
    std::memcpy(reinterpret_cast<char*>(this + 1), name.data(), name.size());
}

NodeRef FileNode::make(Kind kind, std::string_view name, std::optional<Date> modified) {
    if (name.size() > UINT16_MAX) fatalError("file name too long for the tree");
    void* memory = NodeArena::allocate(sizeof(FileNode) + name.size());
    auto* node = new (memory) FileNode(kind, name);
    if (modified && kind != Kind::aggregate) {
        node->modified_ = modified->seconds;
        node->flags_ |= kHasModified;
    }
    return NodeRef(node);
}

uint64_t FileNode::id() const { return NodeArena::idOf(this); }

std::optional<Date> FileNode::modified() const {
    if (!(flags_ & kHasModified)) return std::nullopt;
    return Date{modified_};
}

std::span<FileNode* const> FileNode::children() const {
    if (!aux_) return {};
    return {aux_->children.data(), aux_->children.size()};
}

std::optional<std::string_view> FileNode::skippedReason() const {
    if (!aux_ || !aux_->rare || !aux_->rare->skippedReason) return std::nullopt;
    return std::string_view(*aux_->rare->skippedReason);
}

const FoldedEntries* FileNode::folded() const {
    if (!aux_ || !aux_->rare) return nullptr;
    return aux_->rare->folded.get();
}

FoldedEntries* FileNode::foldedEntries() {
    if (!aux_ || !aux_->rare) return nullptr;
    return aux_->rare->folded.get();
}

void FileNode::setFolded(std::unique_ptr<FoldedEntries> entries) {
    Aux& side = aux();
    if (!side.rare) side.rare = std::make_unique<Rare>();
    side.rare->folded = std::move(entries);
}

std::vector<FileNode*> FileNode::unfold(const std::vector<size_t>& indexes) {
    FoldedEntries* entries = foldedEntries();
    FileNode* folder = parent_;
    if (!entries || !folder || indexes.empty()) return {};
    std::vector<NodeRef> made;
    int64_t size = 0, count = 0;
    for (size_t index : indexes) {
        const FoldedEntries::Entry e = entries->at(index);
        NodeRef node = make(static_cast<Kind>(e.kind), e.name, e.modified);
        node->setSize(e.size);
        node->setItemCount(e.count);
        size = checkedAdd(size, e.size);
        count = checkedAdd(count, e.count);
        made.push_back(std::move(node));
    }
    entries->erase(indexes);
    // The group gives up what the entries held and the folder takes it back as nodes: the sums stay.
    size_ = checkedAdd(size_, -size);
    setItemCount(checkedAdd(itemCount(), -count));
    addToAncestors(folder, -size, -count);
    std::vector<FileNode*> nodes;
    for (NodeRef& node : made) {
        node->reinsert(folder);
        nodes.push_back(node.get());
    }
    return nodes;
}

std::optional<int64_t> FileNode::change() const {
    if (!(flags_ & kHasChange)) return std::nullopt;
    return aux_->change;
}

std::optional<Date> FileNode::lastOpened() const {
    if (!(flags_ & kHasLastOpened)) return std::nullopt;
    return Date{aux_->lastOpened};
}

FileNode::Aux& FileNode::aux() {
    if (!aux_) {
        aux_ = new Aux;
        aux_->itemCount = implicitItemCount();
    }
    return *aux_;
}

int64_t FileNode::itemCount() const { return aux_ ? aux_->itemCount : implicitItemCount(); }

void FileNode::setItemCount(int64_t count) {
    if (aux_ || count != implicitItemCount()) aux().itemCount = count;
}

const std::string* FileNode::location() const {
    if (!aux_ || !aux_->rare || !aux_->rare->location) return nullptr;
    return &*aux_->rare->location;
}

void FileNode::setSkippedReason(std::optional<std::string_view> reason) {
    if (!reason && !skippedReason()) return;
    auto& a = aux();
    if (!a.rare) a.rare = std::make_unique<Rare>();
    if (reason)
        a.rare->skippedReason.emplace(*reason);
    else
        a.rare->skippedReason.reset();
}

void FileNode::setChange(std::optional<int64_t> change) {
    if (change) aux().change = *change;
    setFlag(kHasChange, change.has_value());
}

void FileNode::setLastOpened(std::optional<Date> date) {
    if (date) aux().lastOpened = date->seconds;
    setFlag(kHasLastOpened, date.has_value());
}

void FileNode::setLocation(std::string path) {
    auto& a = aux();
    if (!a.rare) a.rare = std::make_unique<Rare>();
    a.rare->location = std::move(path);
}

void FileNode::adoptChildren(std::vector<NodeRef>&& children) {
    if (children.empty()) return;
    auto& list = aux().children;
    list.reserve(list.size() + children.size());
    for (auto& child : children) {
        FileNode* raw = child.get();
        ++raw->refs_; // the list's reference; the NodeRef below lets go of its own
        raw->parent_ = this;
        raw->forgetDerivableLocation();
        list.push_back(raw);
    }
    children.clear();
}

std::string FileNode::path() const {
    const FileNode* top = this;
    std::vector<const FileNode*> chain;
    while (top->parent_ && !top->location()) {
        if (top->kind_ != Kind::aggregate) chain.push_back(top);
        top = top->parent_;
    }
    std::string out = top->location() ? *top->location() : std::string(top->name());
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        if (out.empty() || out.back() != '/') out.push_back('/');
        out.append((*it)->name());
    }
    return out;
}

bool FileNode::matchesComponent(std::string_view parentPath, std::string_view component) const {
    if (const std::string* own = location()) return *own == joinPath(parentPath, component);
    return name() == component;
}

FileNode* FileNode::find(std::string_view wanted) {
    std::string here = path();
    if (here == wanted) return this;
    std::string prefix = here;
    if (prefix.empty() || prefix.back() != '/') prefix.push_back('/');
    if (!wanted.starts_with(prefix)) return nullptr;
    std::string_view rest = wanted.substr(prefix.size());
    FileNode* node = this;
    while (true) {
        auto slash = rest.find('/');
        std::string_view component = rest.substr(0, slash);
        FileNode* next = nullptr;
        for (FileNode* child : node->children()) {
            if (child->kind_ != Kind::aggregate && child->matchesComponent(here, component)) {
                next = child;
                break;
            }
        }
        if (!next) return nullptr;
        if (slash == std::string_view::npos) return next;
        node = next;
        here = joinPath(here, component);
        rest = rest.substr(slash + 1);
    }
}

void FileNode::addToAncestors(FileNode* from, int64_t sizeDelta, int64_t countDelta) {
    for (FileNode* n = from; n; n = n->parent_) {
        n->size_ = checkedAdd(n->size_, sizeDelta);
        n->setItemCount(checkedAdd(n->itemCount(), countDelta));
        if (n->flags_ & kHasChange) n->aux_->change = checkedAdd(n->aux_->change, sizeDelta);
    }
}

// Keeps a node's location valid once no parent can tell it.
void FileNode::rememberLocation() {
    if (!location()) setLocation(path());
}

// A node that comes into a tree finds its path through its parent, unless its name cannot tell it.
void FileNode::forgetDerivableLocation() {
    const std::string* own = location();
    if (own && kind_ != Kind::aggregate && lastPathComponent(*own) == name()) aux_->rare->location.reset();
}

void FileNode::replace(const NodeRef& replacement) {
    FileNode* parent = parent_;
    if (!parent || !replacement) return;
    auto& siblings = parent->aux_->children;
    auto at = std::find(siblings.begin(), siblings.end(), this);
    if (at == siblings.end()) return;
    FileNode* fresh = replacement.get();
    const int64_t delta = checkedSub(fresh->size_, size_);
    const int64_t countDelta = checkedSub(fresh->itemCount(), itemCount());

    rememberLocation();
    ++fresh->refs_;
    fresh->parent_ = parent;
    fresh->forgetDerivableLocation();
    fresh->setChange(change() ? std::optional<int64_t>(checkedAdd(*change(), delta)) : std::nullopt);
    fresh->setIsNew(isNew());
    *at = fresh;
    addToAncestors(parent, delta, countDelta);
    parent_ = nullptr;
    NodeRef dropped(this); // the list's reference goes with this one
    --refs_;
}

void FileNode::removeFromParent() {
    FileNode* parent = parent_;
    if (!parent) return;
    rememberLocation();
    NodeRef self(this); // stay alive to the end even if the list held the last reference
    auto& siblings = parent->aux_->children;
    auto removed = std::remove(siblings.begin(), siblings.end(), this);
    const auto count = static_cast<uint32_t>(siblings.end() - removed);
    siblings.erase(removed, siblings.end());
    refs_ -= count;
    addToAncestors(parent, checkedSub(0, size_), checkedSub(0, itemCount()));
    parent_ = nullptr;
}

void FileNode::reinsert(FileNode* folder) {
    if (parent_ || !folder) return;
    auto& siblings = folder->aux().children;
    if (std::find(siblings.begin(), siblings.end(), this) != siblings.end()) return;
    auto at = std::find_if(siblings.begin(), siblings.end(), [this](const FileNode* c) {
        return c->kind_ == Kind::aggregate || c->size_ < size_;
    });
    siblings.insert(at, this);
    ++refs_;
    parent_ = folder;
    forgetDerivableLocation();
    addToAncestors(folder, size_, itemCount());
}

void FileNode::free() {
    delete aux_;
    const size_t bytes = sizeof(FileNode) + nameLength_;
    this->~FileNode();
    NodeArena::release(this, bytes);
}

// Frees a node whose last reference went, with every descendant that nothing else holds. Children are
// handled before their parent, so a child that survives can still learn its path from the chain above.
// Iterative, because a tree may be deeper than any stack.
void FileNode::destroy(FileNode* top) {
    struct Frame {
        FileNode* node;
        size_t next;
    };
    std::vector<Frame> stack{{top, 0}};
    while (!stack.empty()) {
        FileNode* node = stack.back().node;
        if (node->aux_ && stack.back().next < node->aux_->children.size()) {
            FileNode* child = node->aux_->children[stack.back().next++];
            if (child->refs_ == 1) {
                stack.push_back({child, 0});
            } else {
                child->rememberLocation();
                child->parent_ = nullptr;
                --child->refs_;
            }
            continue;
        }
        stack.pop_back();
        node->free();
    }
}

} // namespace brenvo
