#include "FileIcons.h"

#include "Icons.h"
#include "Text.h"
#include "tree/FileNode.h"

#include <QHash>
#include <QMimeDatabase>

namespace brenvo {

namespace {

QMimeType typeOf(std::string_view name) {
    static const QMimeDatabase types;
    return types.mimeTypeForFile(toQString(name), QMimeDatabase::MatchExtension);
}

} // namespace

// Kept by theme too, so a change of theme shows.
QIcon iconForType(const QMimeType& type) {
    static QHash<QString, QIcon> cache;
    const QIcon document = icon("doc.text"); // also sets the theme up on first use
    const QString key = QIcon::themeName() + QLatin1Char('\n') + type.name();
    auto found = cache.constFind(key);
    if (found != cache.constEnd()) return *found;
    return *cache.insert(
        key, QIcon::fromTheme(type.iconName(), QIcon::fromTheme(type.genericIconName(), document)));
}

QIcon iconForFileName(std::string_view name) {
    return iconForType(typeOf(name));
}

QIcon fileIcon(const FileNode& node) {
    if (node.isFolder())
        return icon(node.couldNotRead() || node.skippedReason() ? "folder.badge.questionmark" : "folder");
    if (node.isAggregate()) return icon("square.stack.3d.up");
    // The name is enough for the extension, and far cheaper than the path.
    const QMimeType type = typeOf(node.name());
    // A package is a folder underneath; one whose extension says nothing looks like one.
    if (node.kind() == FileNode::Kind::package && type.isDefault()) return icon("folder");
    return iconForType(type);
}

} // namespace brenvo
