#include "FileActionsMenu.h"

#include "Desktop.h"
#include "StorageModel.h"
#include "Text.h"
#include "Words.h"

#include <QApplication>
#include <QClipboard>
#include <QMenu>
#include <QMimeData>
#include <QUrl>

namespace brenvo {

namespace FileActionsMenu {

namespace {

bool isProtected(StorageModel& model, const FileNode& node) {
    return model.explain(node).safety == Explanation::Safety::protected_;
}

} // namespace

// An action runs later than it was offered (a menu waits for the user), by which time a scan or a live
// change may have replaced the tree: it looks its items up again by path, and does nothing for those gone.
Primary primaryAction(StorageModel& model, FileNode* node, const QString& folderTitle) {
    if (!node) return {};
    const std::string path = node->path();
    if (node->isFolder() && !node->children().empty())
        return {folderTitle, [&model, path] {
                    if (FileNode* folder = model.find(path); folder && folder->isFolder()) {
                        model.setCurrent(folder);
                        model.setSelection({});
                    }
                }};
    if (node->isAggregate()) return {};
    // An installer whose application is already here asks first, so its entry says there's more to come.
    const QString title = model.installedApp(*node) ? QStringLiteral("Open\u2026") : QStringLiteral("Open");
    return {title, [&model, path] {
                if (FileNode* item = model.find(path)) model.openInDefaultApp(*item);
            }};
}

void activate(StorageModel& model, FileNode* node) {
    if (node && node->isAggregate()) return model.openInDefaultApp(*node);
    if (auto primary = primaryAction(model, node, QStringLiteral("Open folder")); primary.run) primary.run();
}

void copyItems(const std::vector<std::string>& paths) {
    auto* data = new QMimeData;
    QList<QUrl> urls;
    QByteArray gnome("copy");
    for (const std::string& path : paths) {
        urls.push_back(urlOf(path, false));
        gnome += '\n' + urls.back().toEncoded();
    }
    data->setUrls(urls);
    data->setData(QStringLiteral("x-special/gnome-copied-files"), gnome);
    QApplication::clipboard()->setMimeData(data);
}

void addActions(QMenu& menu, StorageModel& model, const std::vector<FileNode*>& nodes) {
    if (nodes.empty()) return;
    std::vector<std::string> paths;
    for (FileNode* node : nodes) paths.push_back(node->path());
    FileNode* first = nodes.front();
    const bool single = nodes.size() == 1;

    if (single && (first->isFolder() || first->kind() == FileNode::Kind::package))
        menu.addAction(say("Open in Finder"), &menu, [path = paths.front()] { openItem(path); });
    menu.addSeparator();
    std::vector<std::string> previewable;
    for (FileNode* node : nodes)
        if (!node->isAggregate()) previewable.push_back(node->path());
    if (!previewable.empty())
        menu.addAction(say("Quick Look"), &menu, [&model, previewable] { model.showPreview(previewable); });
    menu.addAction(say("Reveal in Finder"), &menu, [paths] { showInFolder(paths); });
    menu.addSeparator();
    menu.addAction(single ? QStringLiteral("Copy") : QStringLiteral("Copy %1 Items").arg(countText(static_cast<int64_t>(nodes.size()))),
                   &menu, [paths] { copyItems(paths); });
    menu.addAction(QStringLiteral("Copy Path"), &menu, [paths] {
        QStringList lines;
        for (const std::string& path : paths) lines << toQString(path);
        QApplication::clipboard()->setText(lines.join(QLatin1Char('\n')));
    });

    std::vector<FileNode*> deletable;
    bool anyAllowed = false;
    for (FileNode* node : nodes) {
        if (node->isAggregate()) continue;
        deletable.push_back(node);
        anyAllowed = anyAllowed || !isProtected(model, *node);
    }
    if (deletable.empty()) return;
    std::vector<std::string> deletablePaths;
    for (FileNode* node : deletable) deletablePaths.push_back(node->path());
    menu.addSeparator();
    QAction* remove = menu.addAction(QStringLiteral("Delete\u2026"), &menu, [&model, deletablePaths] {
        std::vector<FileNode*> found;
        for (const std::string& path : deletablePaths)
            if (FileNode* node = model.find(path)) found.push_back(node);
        if (!found.empty()) model.requestDelete(found);
    });
    remove->setEnabled(anyAllowed);
}

} // namespace FileActionsMenu

} // namespace brenvo
