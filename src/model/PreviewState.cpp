#include "PreviewState.h"

#include "StorageModel.h"

#include <algorithm>

namespace brenvo {

std::vector<std::string> PreviewState::previewItems() const {
    std::vector<std::string> paths;
    for (FileNode* item : model_.selectedNodes())
        if (!item->isAggregate()) paths.push_back(item->path());
    return paths;
}

void PreviewState::toggle() {
    if (previewURL_) {
        previewURL_.reset();
    } else {
        auto items = previewItems();
        if (items.empty()) return;
        previewList_ = std::move(items);
        previewURL_ = previewList_.front();
    }
    emit model_.previewChanged();
}

void PreviewState::show(std::vector<std::string> paths) {
    if (paths.empty()) return;
    previewList_ = std::move(paths);
    previewURL_ = previewList_.front();
    emit model_.previewChanged();
}

void PreviewState::page(int step) {
    if (!previewURL_ || previewList_.empty()) return;
    const auto at = std::find(previewList_.begin(), previewList_.end(), *previewURL_);
    const auto last = static_cast<std::ptrdiff_t>(previewList_.size()) - 1;
    const std::ptrdiff_t from = at == previewList_.end() ? 0 : at - previewList_.begin();
    const std::ptrdiff_t to = std::clamp<std::ptrdiff_t>(from + step, 0, last);
    if (at != previewList_.end() && to == from) return;
    previewURL_ = previewList_[static_cast<size_t>(to)];
    emit model_.previewChanged();
}

void PreviewState::close() {
    if (!previewURL_) return;
    previewURL_.reset();
    emit model_.previewChanged();
}

void PreviewState::follow(const FileNode& item) {
    if (!previewURL_) return;
    if (item.isAggregate()) {
        previewURL_.reset();
    } else {
        previewList_ = {item.path()};
        previewURL_ = previewList_.front();
    }
    emit model_.previewChanged();
}

} // namespace brenvo
