#include "FolderWatcher.h"

namespace brenvo {

void FolderWatcher::watch(const std::string& path, Handler handler) {
    path_ = path;
    handler_ = std::move(handler);
}

void FolderWatcher::stop() {
    path_.clear();
    handler_ = nullptr;
}

} // namespace brenvo
