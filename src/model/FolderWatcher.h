#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace brenvo {

namespace platform {
class FolderEvents;
}

// Tells the model which items changed on disk below a scanned root, in batches about a second apart, on a
// thread of its own. The scan starts it before its walk, waits until its watches are in place, and stops it
// when a scan is replaced, fails or is cancelled. A root the system can't watch gets no updates, and when
// the system's watches run out the watcher says so, so the screens can tell the user.
class FolderWatcher {
public:
    using Handler = std::function<void(std::vector<std::string> paths)>;
    enum class State {
        off,       // nothing watched
        starting,  // watches being added
        watching,  // every folder below the root is watched
        exhausted, // the system ran out of watches: changes here show only after another scan
    };
    // Told on the watch's own thread; the owner brings the news to the main thread and calls `settle`.
    using StateReport = std::function<void(State)>;

    FolderWatcher();
    ~FolderWatcher();

    // `skipped` holds real paths not to watch (what the scan doesn't enter); `maxWatches` caps the watches
    // below the system's own limit, for tests. Without a watch at all, `report` hears `off` at once.
    void watch(const std::string& path, std::set<std::string> skipped, Handler handler, StateReport report,
               size_t maxWatches = 0);
    // After this returns the handler is not called again.
    void stop();
    // The state a report told, on the main thread; an exhausted watch is ended here.
    void settle(State state);

    const std::string& watchedPath() const { return path_; }
    State state() const { return state_; }
    bool isWatching() const { return state_ == State::watching; }

private:
    std::string path_;
    State state_ = State::off;
    std::unique_ptr<platform::FolderEvents> events_;
};

} // namespace brenvo
