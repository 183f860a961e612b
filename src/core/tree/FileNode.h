#pragma once

#include "util/Date.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace brenvo {

class FileNode;
class FoldedEntries;

// Shared ownership of a node. The count lives in the node itself: a tree of millions of nodes cannot
// afford a control block each. Counting is not atomic; a node belongs to one thread at a time (the scan
// worker that builds it, then the main thread).
class NodeRef {
public:
    NodeRef() = default;
    NodeRef(std::nullptr_t) {}
    explicit NodeRef(FileNode* node); // takes a new reference
    NodeRef(const NodeRef& other);
    NodeRef(NodeRef&& other) noexcept : node_(std::exchange(other.node_, nullptr)) {}
    NodeRef& operator=(NodeRef other) noexcept {
        std::swap(node_, other.node_);
        return *this;
    }
    ~NodeRef();

    FileNode* get() const { return node_; }
    FileNode* operator->() const { return node_; }
    FileNode& operator*() const { return *node_; }
    explicit operator bool() const { return node_ != nullptr; }
    friend bool operator==(const NodeRef& a, const NodeRef& b) { return a.node_ == b.node_; }
    friend bool operator==(const NodeRef& a, const FileNode* b) { return a.node_ == b; }

private:
    FileNode* node_ = nullptr;
};

// One folder, package, file, or folded tail of a wide folder. Equality is identity; `id()` is fresh at
// every creation and never reused. A parent owns its children; the parent link is a plain pointer.
// Names are kept as the raw bytes the file system gave, valid UTF-8 or not.
class FileNode {
public:
    enum class Kind : uint8_t { folder = 0, package = 1, file = 2, aggregate = 3 };

    static NodeRef make(Kind kind, std::string_view name, std::optional<Date> modified = std::nullopt);

    FileNode(const FileNode&) = delete;
    FileNode& operator=(const FileNode&) = delete;

    uint64_t id() const;
    // The item's location. An aggregate answers the path of the folder it sits in.
    std::string path() const;
    std::string_view name() const { return {reinterpret_cast<const char*>(this + 1), nameLength_}; }
    Kind kind() const { return kind_; }
    bool isFolder() const { return kind_ == Kind::folder; }
    bool isAggregate() const { return kind_ == Kind::aggregate; }
    std::optional<Date> modified() const;
    int64_t size() const { return size_; }
    int64_t itemCount() const;
    std::span<FileNode* const> children() const;
    FileNode* parent() const { return parent_; }
    bool couldNotRead() const { return flags_ & kCouldNotRead; }
    std::optional<std::string_view> skippedReason() const;
    std::optional<int64_t> change() const;
    bool isNew() const { return flags_ & kIsNew; }
    std::optional<Date> lastOpened() const;
    // What an aggregate stands for, entry by entry; nothing on other nodes.
    const FoldedEntries* folded() const;
    FoldedEntries* foldedEntries();
    void setFolded(std::unique_ptr<FoldedEntries> entries);
    // Gives the folded entries at `indexes` (ascending) of this aggregate nodes of their own in its folder,
    // to be shown, chosen and deleted like any item; no total of the folder or above it changes. Answers
    // the new nodes in the order of `indexes`.
    std::vector<FileNode*> unfold(const std::vector<size_t>& indexes);
    bool lastOpenedLoaded() const { return flags_ & kLastOpenedLoaded; }

    // Sort keys that put an absent value lowest.
    Date modifiedSortKey() const { return modified().value_or(Date::distantPast()); }
    Date lastOpenedSortKey() const { return lastOpened().value_or(Date::distantPast()); }
    int64_t changeSortKey() const { return change().value_or(0); }

    // The node at an absolute path, by plain descent; aggregates are never found.
    FileNode* find(std::string_view path);
    // Swaps this node in its parent for a freshly measured one; ancestors take the difference.
    void replace(const NodeRef& replacement);
    // Leaves the tree; ancestors lose this node's totals. The node keeps its own subtree.
    void removeFromParent();
    // A detached node returns into a folder, in front of any smaller sibling and of the aggregate.
    void reinsert(FileNode* folder);

    // Building and patching. These touch this node only; no ancestor is adjusted.
    void setSize(int64_t size) { size_ = size; }
    void setItemCount(int64_t count);
    void setCouldNotRead(bool value) { setFlag(kCouldNotRead, value); }
    void setSkippedReason(std::optional<std::string_view> reason);
    void setChange(std::optional<int64_t> change);
    void setIsNew(bool value) { setFlag(kIsNew, value); }
    void setLastOpened(std::optional<Date> date);
    void setLastOpenedLoaded(bool value) { setFlag(kLastOpenedLoaded, value); }
    // The full path of a node that is not reached through its parent by name: a root, or a node whose
    // shown name is not its file name.
    void setLocation(std::string path);
    // Gives a childless node its children, in order; each must be detached.
    void adoptChildren(std::vector<NodeRef>&& children);

private:
    friend class NodeRef;
    struct Rare;
    struct Aux;

    enum : uint8_t {
        kHasModified = 1,
        kCouldNotRead = 2,
        kIsNew = 4,
        kLastOpenedLoaded = 8,
        kHasChange = 16,
        kHasLastOpened = 32,
    };

    FileNode(Kind kind, std::string_view name);
    ~FileNode() = default;

    void setFlag(uint8_t flag, bool on) { flags_ = on ? (flags_ | flag) : (flags_ & ~flag); }
    Aux& aux();
    int64_t implicitItemCount() const { return kind_ == Kind::file ? 1 : 0; }
    const std::string* location() const;
    bool matchesComponent(std::string_view parentPath, std::string_view component) const;
    void rememberLocation();
    void forgetDerivableLocation();
    void addToAncestors(FileNode* from, int64_t sizeDelta, int64_t countDelta);
    void free();
    static void destroy(FileNode* top);

    uint32_t refs_ = 0;
    Kind kind_;
    uint8_t flags_ = 0;
    uint16_t nameLength_ = 0;
    int64_t size_ = 0;
    double modified_ = 0;
    FileNode* parent_ = nullptr;
    Aux* aux_ = nullptr; // children, the item count and rarely present fields; absent on most files
    // The name's bytes follow the object in the same allocation.
};

inline NodeRef::NodeRef(FileNode* node) : node_(node) {
    if (node_) ++node_->refs_;
}
inline NodeRef::NodeRef(const NodeRef& other) : node_(other.node_) {
    if (node_) ++node_->refs_;
}
inline NodeRef::~NodeRef() {
    if (node_ && --node_->refs_ == 0) FileNode::destroy(node_);
}

std::string joinPath(std::string_view folder, std::string_view name);
// The last component of a path, "/" for the root of the file system.
std::string_view lastPathComponent(std::string_view path);

struct NodeHash {
    size_t operator()(const FileNode* n) const { return std::hash<uint64_t>{}(n->id()); }
};

} // namespace brenvo
