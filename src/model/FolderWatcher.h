#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace brenvo {

namespace platform {
class FolderEvents;
}

// Tells the model which items changed on disk below a scanned root, in batches about a second apart, on a
// thread of its own. The scan starts it before its walk and stops it when a scan is replaced, fails or is
// cancelled. A root the system can't watch simply gets no updates.
class FolderWatcher {
public:
    using Handler = std::function<void(std::vector<std::string> paths)>;

    FolderWatcher();
    ~FolderWatcher();

    void watch(const std::string& path, Handler handler);
    // After this returns the handler is not called again.
    void stop();

    const std::string& watchedPath() const { return path_; }
    bool isWatching() const { return !path_.empty(); }

private:
    std::string path_;
    std::unique_ptr<platform::FolderEvents> events_;
};

} // namespace brenvo
