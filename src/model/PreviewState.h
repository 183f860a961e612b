#pragma once

#ifndef Q_MOC_RUN
#include "tree/FileNode.h"

#include <optional>
#include <string>
#include <vector>
#endif

namespace brenvo {

class StorageModel;

// The preview window's state: the item shown and the items it pages through. A part of StorageModel.
class PreviewState {
public:
    explicit PreviewState(StorageModel& model) : model_(model) {}

    const std::optional<std::string>& previewURL() const { return previewURL_; }
    const std::vector<std::string>& previewList() const { return previewList_; }
    // The selected items a preview would show; a group of small files has nothing to show.
    std::vector<std::string> previewItems() const;
    void toggle();
    void show(std::vector<std::string> paths);
    // Moves `step` items along the list, stopping at either end.
    void page(int step);
    void close();
    // An open preview moves to the item just selected; a closed one stays closed.
    void follow(const FileNode& item);

private:
    StorageModel& model_;
    std::optional<std::string> previewURL_;
    std::vector<std::string> previewList_;
};

} // namespace brenvo
