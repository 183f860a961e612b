#include "FolderWatcher.h"

#include "platform/Platform.h"

namespace brenvo {

FolderWatcher::FolderWatcher() = default;
FolderWatcher::~FolderWatcher() = default;

void FolderWatcher::watch(const std::string& path, Handler handler) {
    stop();
    path_ = path;
    events_ = platform::watchFolder(path, std::move(handler));
}

void FolderWatcher::stop() {
    events_.reset();
    path_.clear();
}

} // namespace brenvo
