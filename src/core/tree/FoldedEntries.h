#pragma once

#include "util/Date.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brenvo {

// The entries an "N smaller items" node stands for, kept without a node each: names in one buffer and the
// rest in parallel arrays, a few dozen bytes an entry. So a search of a wide folder still finds them.
class FoldedEntries {
public:
    struct Entry {
        std::string_view name;
        uint8_t kind = 0; // a FileNode::Kind
        int64_t size = 0;
        int64_t count = 0;
        std::optional<Date> modified;
    };

    void add(std::string_view name, uint8_t kind, int64_t size, int64_t count, std::optional<Date> modified);
    size_t size() const { return sizes_.size(); }
    Entry at(size_t index) const;
    std::optional<size_t> indexOf(std::string_view name) const;
    // Takes the entries at `indexes` (ascending) out, keeping the others in order.
    void erase(const std::vector<size_t>& indexes);
    // Bytes held, for measuring.
    size_t memoryUsed() const;

private:
    std::string names_;
    std::vector<uint32_t> ends_; // where each name ends in names_
    std::vector<int64_t> sizes_;
    std::vector<int64_t> counts_;
    std::vector<double> modified_; // NaN when unknown
    std::vector<uint8_t> kinds_;
};

class FileNode;

// The name of the node standing for `count` folded entries.
std::string aggregateName(size_t count);
// The name to show for a node: an aggregate's follows the entries it still holds, as a search takes
// matches out of it.
std::string shownName(const FileNode& node);

} // namespace brenvo
