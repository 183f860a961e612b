#include "removal/BlockReason.h"

#include "util/Paths.h"

namespace brenvo {

std::optional<std::string> collectBlockReason(const std::string& path, bool isFolder, FileNode* scanRoot,
                                              const ExplainContext& context) {
    const FileNode* node = scanRoot ? scanRoot->find(path) : nullptr;
    NodeRef standIn;
    if (!node) {
        standIn = FileNode::make(isFolder ? FileNode::Kind::folder : FileNode::Kind::file, lastPathComponent(path));
        standIn->setLocation(path);
        node = standIn.get();
    }
    const Explanation e = Explainer::explain(*node, scanRoot, context);
    if (e.safety != Explanation::Safety::protected_) return std::nullopt;
    return e.safetyNote.value_or("It's protected.");
}

} // namespace brenvo
