#pragma once

#include <memory>
#include <string>
#include <vector>

namespace brenvo {

// An immutable snapshot of the installed applications, taken at the start of each scan. It knows no
// applications yet: the loaders for application folders and desktop entries come with the explanations.
class AppCatalog {
public:
    static std::shared_ptr<const AppCatalog> empty();
    // Never fails: an unreadable folder just contributes nothing.
    static std::shared_ptr<const AppCatalog> load(const std::vector<std::string>& folders);
};

} // namespace brenvo
