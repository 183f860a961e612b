#pragma once

#include <string>
#include <string_view>

namespace brenvo {

// Whether `text` contains `query`, ignoring case the way the locale folds it ("É" finds "é"). Both are
// bytes; a query already folded with `foldCase` can be searched for many times cheaply.
class CaseInsensitiveQuery {
public:
    explicit CaseInsensitiveQuery(std::string_view query);
    bool foundIn(std::string_view text) const;
    bool empty() const { return folded_.empty(); }

private:
    std::string folded_;
    bool ascii_;
};

std::string foldCase(std::string_view text);

} // namespace brenvo
