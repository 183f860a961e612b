#pragma once

#include <QSet>

#ifndef Q_MOC_RUN
#include "scan/ScanLocation.h"
#include "tree/FileNode.h"

#include <optional>
#include <string>
#endif

namespace brenvo {

class StorageModel;

// Where the user is: the location scanned, the folder on show in its tree, the items selected, and an
// item waiting to be revealed once its tree is there. A part of StorageModel, which announces changes.
class Navigation {
public:
    explicit Navigation(StorageModel& model) : model_(model) {}

    const std::optional<ScanLocation>& location() const { return location_; }
    void setLocation(std::optional<ScanLocation> location);
    FileNode* current() const { return current_.get(); }
    void setCurrent(FileNode* folder);
    const QSet<quint64>& selection() const { return selection_; }
    void setSelection(QSet<quint64> ids);
    const std::optional<std::string>& pendingReveal() const { return pendingReveal_; }
    int revealToken() const { return revealToken_; }

    void explore(const std::string& path);
    void goUp();
    void reveal(const std::string& path);
    // Lands a pending reveal in the tree on show; a final attempt settles for the nearest folder.
    void applyReveal(bool final);
    void selectNeighbour(bool forward);
    // After a new tree or a replaced node: the folder on show and the selection found again by path, the
    // folder moving up to the nearest one that is still there.
    void keepPlace(const std::string& currentPath, const std::vector<std::string>& selectedPaths);
    // The paths of the selected items, an "N smaller items" row included.
    std::vector<std::string> selectedPaths() const;
    // Drops the place when the tree goes.
    void clear();

private:
    // An item folded into its folder's "smaller items" comes out as an item of its own; false when the
    // tree on show doesn't hold it folded either.
    bool unfold(const std::string& path);

    StorageModel& model_;
    std::optional<ScanLocation> location_;
    NodeRef current_;
    QSet<quint64> selection_;
    std::optional<std::string> pendingReveal_;
    int revealToken_ = 0;
};

} // namespace brenvo
