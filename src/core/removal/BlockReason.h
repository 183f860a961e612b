#pragma once

#include "explain/Explainer.h"
#include "tree/FileNode.h"

#include <optional>
#include <string>

namespace brenvo {

// The one test of whether an item may be deleted or collected: why not, or nothing when it may. The item
// is judged in its place in `scanRoot` when it is there, and on its own otherwise.
std::optional<std::string> collectBlockReason(const std::string& path, bool isFolder, FileNode* scanRoot,
                                              const ExplainContext& context);

} // namespace brenvo
