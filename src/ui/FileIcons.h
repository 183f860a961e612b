#pragma once

#include <QIcon>
#include <QMimeType>
#include <string_view>

namespace brenvo {

class FileNode;

// An item's own icon, as a file manager would show it: folders and the folded tail get our symbols, files
// and packages the icon theme's picture of their type, found from the name's extension alone so nothing is
// read from disk. Called for every visible row on every paint, so the answers are kept by type.
// For the GUI thread only.
QIcon fileIcon(const FileNode& node);

// The theme's icon for the type a file name's extension says, else a plain document.
QIcon iconForFileName(std::string_view name);
// The theme's icon for a type, else its generic type's, else a plain document.
QIcon iconForType(const QMimeType& type);

} // namespace brenvo
