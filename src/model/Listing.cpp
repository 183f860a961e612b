#include "Listing.h"

#include "MainThread.h"
#include "StorageModel.h"
#include "explain/Explainer.h"
#include "format/Formatters.h"
#include "format/TextMatch.h"
#include "platform/Platform.h"
#include "tree/FoldedEntries.h"

#include <algorithm>
#include <unordered_map>

namespace brenvo {

const std::vector<Listing::KindFilter>& Listing::kindFilters() {
    static const std::vector<KindFilter> all = {KindFilter::all,       KindFilter::folders,   KindFilter::videos,
                                                KindFilter::images,    KindFilter::audio,     KindFilter::documents,
                                                KindFilter::installers, KindFilter::archives, KindFilter::apps};
    return all;
}

const std::vector<Listing::SizeFilter>& Listing::sizeFilters() {
    static const std::vector<SizeFilter> all = {SizeFilter::any, SizeFilter::over10MB, SizeFilter::over100MB,
                                                SizeFilter::over1GB};
    return all;
}

const char* Listing::text(KindFilter filter) {
    switch (filter) {
    case KindFilter::all: return "All Kinds";
    case KindFilter::folders: return "Folders";
    case KindFilter::videos: return "Videos";
    case KindFilter::images: return "Images";
    case KindFilter::audio: return "Audio";
    case KindFilter::documents: return "Documents";
    case KindFilter::installers: return "Installers";
    case KindFilter::archives: return "Archives";
    case KindFilter::apps: return "Apps";
    }
    return "";
}

const char* Listing::label(SizeFilter filter) {
    switch (filter) {
    case SizeFilter::any: return "Any Size";
    case SizeFilter::over10MB: return "Over 10 MB";
    case SizeFilter::over100MB: return "Over 100 MB";
    case SizeFilter::over1GB: return "Over 1 GB";
    }
    return "";
}

namespace {

std::optional<Category> accepted(Listing::KindFilter filter) {
    using K = Listing::KindFilter;
    switch (filter) {
    case K::all: return std::nullopt;
    case K::folders: return Category::folder;
    case K::videos: return Category::video;
    case K::images: return Category::image;
    case K::audio: return Category::audio;
    case K::documents: return Category::document;
    case K::installers: return Category::installer;
    case K::archives: return Category::archive;
    case K::apps: return Category::app;
    }
    return std::nullopt;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

} // namespace

void Listing::setSearchText(std::string text) {
    if (searchText_ == text) return;
    searchText_ = std::move(text);
    emit model_.filtersChanged();
}

void Listing::setKindFilter(KindFilter filter) {
    if (kindFilter_ == filter) return;
    kindFilter_ = filter;
    emit model_.filtersChanged();
}

void Listing::setSizeFilter(SizeFilter filter) {
    if (sizeFilter_ == filter) return;
    sizeFilter_ = filter;
    emit model_.filtersChanged();
}

bool Listing::isFiltering() const {
    return !trimmed(searchText_).empty() || kindFilter_ != KindFilter::all || sizeFilter_ != SizeFilter::any;
}

void Listing::clearFilters() {
    searchText_.clear();
    kindFilter_ = KindFilter::all;
    sizeFilter_ = SizeFilter::any;
    emit model_.filtersChanged();
}

std::vector<FileNode*> Listing::matches(FileNode& folder, std::string_view query, KindFilter kind,
                                             SizeFilter size, size_t limit, const Profile& profile) {
    const CaseInsensitiveQuery wanted(trimmed(query));
    const auto category = accepted(kind);
    const auto minimum = static_cast<int64_t>(size);
    std::vector<FileNode*> found;
    auto children = folder.children();
    std::vector<FileNode*> stack(children.begin(), children.end());
    // Children are held largest first and the stack pops from the end: each folder's smallest come first.
    while (!stack.empty()) {
        FileNode* item = stack.back();
        stack.pop_back();
        if (found.size() >= limit) break;
        if (item->isFolder()) stack.insert(stack.end(), item->children().begin(), item->children().end());
        if (item->isAggregate()) {
            // What a wide folder folded away is searched too; a match becomes an item of its own.
            const FoldedEntries* folded = item->folded();
            std::vector<size_t> matching;
            for (size_t i = 0; folded && i < folded->size() && found.size() + matching.size() < limit; ++i) {
                const FoldedEntries::Entry e = folded->at(i);
                if (!wanted.empty() && !wanted.foundIn(e.name)) continue;
                if (category && Explainer::category(static_cast<FileNode::Kind>(e.kind), e.name, profile) != *category)
                    continue;
                if (e.size < minimum) continue;
                matching.push_back(i);
            }
            for (FileNode* unfolded : item->unfold(matching)) found.push_back(unfolded);
            continue;
        }
        if (!wanted.empty() && !wanted.foundIn(item->name())) continue;
        if (category && Explainer::category(*item, profile) != *category) continue;
        if (item->size() < minimum) continue;
        found.push_back(item);
    }
    return found;
}

std::vector<FileNode*> Listing::listItems() const {
    FileNode* current = model_.current();
    if (!current) return {};
    if (!isFiltering()) {
        auto children = current->children();
        return {children.begin(), children.end()};
    }
    ListKey key{current->id(), searchText_, kindFilter_, sizeFilter_, model_.revision()};
    if (listCache_ && listCache_->first == key) return listCache_->second;
    auto found = matches(*current, searchText_, kindFilter_, sizeFilter_, kMatchLimit, platform::profile());
    listCache_.emplace(std::move(key), found);
    return found;
}

void Listing::setListOrder(ListOrder order) {
    if (order == listOrder_) return;
    listOrder_ = order;
    emit model_.listOrderChanged();
}

void Listing::sortRows(std::vector<FileNode*>& items, ListOrder order,
                            const std::function<std::string(const FileNode&)>& kindOf) {
    // Compare as "ascending"; the direction flips the arguments, so ties keep their order either way.
    auto sortBy = [&](auto less) {
        if (order.ascending)
            std::stable_sort(items.begin(), items.end(), [&](FileNode* a, FileNode* b) { return less(a, b); });
        else
            std::stable_sort(items.begin(), items.end(), [&](FileNode* a, FileNode* b) { return less(b, a); });
    };
    switch (order.column) {
    case ListColumn::name:
        sortBy([](FileNode* a, FileNode* b) { return format::standardCompare(a->name(), b->name()) < 0; });
        break;
    case ListColumn::size: sortBy([](FileNode* a, FileNode* b) { return a->size() < b->size(); }); break;
    case ListColumn::change:
        sortBy([](FileNode* a, FileNode* b) { return a->changeSortKey() < b->changeSortKey(); });
        break;
    case ListColumn::modified:
        sortBy([](FileNode* a, FileNode* b) { return a->modifiedSortKey() < b->modifiedSortKey(); });
        break;
    case ListColumn::lastOpened:
        sortBy([](FileNode* a, FileNode* b) { return a->lastOpenedSortKey() < b->lastOpenedSortKey(); });
        break;
    case ListColumn::kind: {
        // Each label once, not once per comparison.
        std::unordered_map<const FileNode*, std::string> kinds;
        for (FileNode* item : items) kinds.emplace(item, kindOf(*item));
        sortBy([&](FileNode* a, FileNode* b) { return format::standardCompare(kinds[a], kinds[b]) < 0; });
        break;
    }
    }
}

std::optional<std::string> Listing::relativeFolder(const FileNode& node) const {
    const FileNode* parent = node.parent();
    const FileNode* current = model_.current();
    if (!current || !parent || parent == current) return std::nullopt;
    const std::string folder = parent->path();
    std::string base = current->path();
    if (!base.ends_with('/')) base += '/'; // "/" itself already ends in one
    return folder.starts_with(base) ? folder.substr(base.size()) : folder;
}

std::vector<FileNode*> Listing::selectedNodes() const {
    std::vector<FileNode*> selected;
    for (FileNode* item : listItems())
        if (model_.selection().contains(item->id())) selected.push_back(item);
    return selected;
}

void Listing::loadLastOpened(const std::vector<FileNode*>& nodes) {
    std::vector<NodeRef> asked;
    std::vector<std::string> paths;
    for (FileNode* node : nodes) {
        if (node->lastOpenedLoaded() || (node->kind() != FileNode::Kind::file && node->kind() != FileNode::Kind::package))
            continue;
        node->setLastOpenedLoaded(true);
        asked.emplace_back(node);
        paths.push_back(node->path());
    }
    if (asked.empty()) return;
    const uint64_t request = ++nextRequest_;
    lastOpenedRequests_[request] = std::move(asked);
    QPointer<StorageModel> self(&model_);
    model_.tasks_.start([self, request, paths = std::move(paths)](std::stop_token) {
        std::vector<std::optional<Date>> dates;
        dates.reserve(paths.size());
        for (const std::string& path : paths) dates.push_back(platform::lastOpened(path));
        postToMain(self, [request, dates = std::move(dates)](StorageModel& model) {
            Listing& listing = model.listing_;
            auto found = listing.lastOpenedRequests_.find(request);
            if (found == listing.lastOpenedRequests_.end()) return;
            for (size_t i = 0; i < found->second.size() && i < dates.size(); ++i)
                found->second[i]->setLastOpened(dates[i]);
            listing.lastOpenedRequests_.erase(found);
            model.bumpRevision();
        });
    });
}

} // namespace brenvo
