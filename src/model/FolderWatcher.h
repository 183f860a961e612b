#pragma once

#include <functional>
#include <string>
#include <vector>

namespace brenvo {

// Tells the model which folders changed on disk below a scanned root. The scan starts it before its walk
// and stops it when a scan is replaced, fails or is cancelled. It reports nothing yet: live updates are
// still to come, and until then a tree only changes through a new scan.
class FolderWatcher {
public:
    using Handler = std::function<void(std::vector<std::string> paths)>;

    void watch(const std::string& path, Handler handler);
    void stop();

    const std::string& watchedPath() const { return path_; }
    bool isWatching() const { return !path_.empty(); }

private:
    std::string path_;
    Handler handler_;
};

} // namespace brenvo
