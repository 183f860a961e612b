#pragma once

#ifndef Q_MOC_RUN
#include "platform/Profile.h"
#include "tree/FileNode.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>
#endif

namespace brenvo {

class StorageModel;

// What the folder page lists: the children of the folder on show or, while filtering, the matches below
// it; the filters; the list's order; and the last-opened dates of the rows on screen. A part of
// StorageModel, which announces its changes.
class Listing {
public:
    enum class KindFilter { all, folders, videos, images, audio, documents, installers, archives, apps };
    enum class SizeFilter : int64_t { any = 0, over10MB = 10'000'000, over100MB = 100'000'000, over1GB = 1'000'000'000 };
    enum class ListColumn { name, size, change, kind, modified, lastOpened };
    struct ListOrder {
        ListColumn column = ListColumn::size;
        bool ascending = false;
        bool operator==(const ListOrder&) const = default;
    };
    static constexpr size_t kMatchLimit = 2000;

    static const std::vector<KindFilter>& kindFilters();
    static const std::vector<SizeFilter>& sizeFilters();
    static const char* text(KindFilter filter);
    static const char* label(SizeFilter filter);
    // Items below `folder` that pass the filters, smallest of each folder first, at most `limit`. Entries a
    // wide folder folded away are searched too, and those that match are unfolded into items of their own.
    static std::vector<FileNode*> matches(FileNode& folder, std::string_view query, KindFilter kind, SizeFilter size,
                                          size_t limit, const Profile& profile);
    // `items` in `order`, stable; `kindOf` gives the text the kind column shows.
    static void sortRows(std::vector<FileNode*>& items, ListOrder order,
                         const std::function<std::string(const FileNode&)>& kindOf);

    explicit Listing(StorageModel& model) : model_(model) {}

    std::vector<FileNode*> listItems() const;
    const std::string& searchText() const { return searchText_; }
    void setSearchText(std::string text);
    KindFilter kindFilter() const { return kindFilter_; }
    void setKindFilter(KindFilter filter);
    SizeFilter sizeFilter() const { return sizeFilter_; }
    void setSizeFilter(SizeFilter filter);
    bool isFiltering() const;
    void clearFilters();
    const ListOrder& listOrder() const { return listOrder_; }
    void setListOrder(ListOrder order);
    std::optional<std::string> relativeFolder(const FileNode& node) const;
    std::vector<FileNode*> selectedNodes() const;
    void loadLastOpened(const std::vector<FileNode*>& nodes);

private:
    StorageModel& model_;
    std::string searchText_;
    KindFilter kindFilter_ = KindFilter::all;
    SizeFilter sizeFilter_ = SizeFilter::any;
    struct ListKey {
        uint64_t folder = 0;
        std::string query;
        KindFilter kind = KindFilter::all;
        SizeFilter size = SizeFilter::any;
        int revision = 0;
        bool operator==(const ListKey&) const = default;
    };
    mutable std::optional<std::pair<ListKey, std::vector<FileNode*>>> listCache_;
    ListOrder listOrder_;
    // Nodes waiting for their last-opened dates, by request: only the main thread touches them.
    std::map<uint64_t, std::vector<NodeRef>> lastOpenedRequests_;
    uint64_t nextRequest_ = 0;
};

} // namespace brenvo
