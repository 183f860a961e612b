#include "tree/FoldedEntries.h"

#include "tree/FileNode.h"

#include <cmath>
#include <limits>

namespace brenvo {

void FoldedEntries::add(std::string_view name, uint8_t kind, int64_t size, int64_t count,
                        std::optional<Date> modified) {
    names_.append(name);
    ends_.push_back(static_cast<uint32_t>(names_.size()));
    sizes_.push_back(size);
    counts_.push_back(count);
    modified_.push_back(modified ? modified->seconds : std::numeric_limits<double>::quiet_NaN());
    kinds_.push_back(kind);
}

FoldedEntries::Entry FoldedEntries::at(size_t index) const {
    const uint32_t begin = index == 0 ? 0 : ends_[index - 1];
    Entry entry;
    entry.name = std::string_view(names_).substr(begin, ends_[index] - begin);
    entry.kind = kinds_[index];
    entry.size = sizes_[index];
    entry.count = counts_[index];
    if (!std::isnan(modified_[index])) entry.modified = Date{modified_[index]};
    return entry;
}

std::optional<size_t> FoldedEntries::indexOf(std::string_view name) const {
    for (size_t i = 0; i < size(); ++i)
        if (at(i).name == name) return i;
    return std::nullopt;
}

void FoldedEntries::erase(const std::vector<size_t>& indexes) {
    if (indexes.empty()) return;
    FoldedEntries kept;
    size_t next = 0;
    for (size_t i = 0; i < size(); ++i) {
        if (next < indexes.size() && indexes[next] == i) {
            ++next;
            continue;
        }
        const Entry e = at(i);
        kept.add(e.name, e.kind, e.size, e.count, e.modified);
    }
    *this = std::move(kept);
}

size_t FoldedEntries::memoryUsed() const {
    return names_.capacity() + ends_.capacity() * sizeof(uint32_t) + sizes_.capacity() * sizeof(int64_t) +
           counts_.capacity() * sizeof(int64_t) + modified_.capacity() * sizeof(double) + kinds_.capacity();
}

std::string aggregateName(size_t count) { return std::to_string(count) + " smaller items"; }

std::string shownName(const FileNode& node) {
    if (const FoldedEntries* folded = node.isAggregate() ? node.folded() : nullptr) return aggregateName(folded->size());
    return std::string(node.name());
}

} // namespace brenvo
