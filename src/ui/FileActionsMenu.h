#pragma once

#include <QString>
#include <functional>
#include <vector>

class QMenu;

namespace brenvo {

class FileNode;
class StorageModel;

// What can be done to items of the tree, the same in every menu that offers it: the list's rows, the
// map's tiles and the inspector's "More" button.
namespace FileActionsMenu {

// The primary action for one item, when it has one: a folder with children is gone into, anything else
// but a group of small files opens in its application.
struct Primary {
    QString title; // "Open folder" or "Open"; empty when there is none
    std::function<void()> run;
};
Primary primaryAction(StorageModel& model, FileNode* node, const QString& folderTitle);
// A double-click or Return on an item: its primary action; on a group of small files, its folder shown in
// the file manager.
void activate(StorageModel& model, FileNode* node);

// Adds the shared entries for `nodes` (the first is the one clicked): opening, preview, showing in the
// file manager, copying, and deleting. The entries act on the items found at the same paths when chosen.
void addActions(QMenu& menu, StorageModel& model, const std::vector<FileNode*>& nodes);

// Puts the items on the clipboard as files, which file managers paste as copies.
void copyItems(const std::vector<std::string>& paths);

} // namespace FileActionsMenu

} // namespace brenvo
