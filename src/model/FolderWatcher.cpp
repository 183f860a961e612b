#include "FolderWatcher.h"

#include "platform/Platform.h"

namespace brenvo {

FolderWatcher::FolderWatcher() = default;
FolderWatcher::~FolderWatcher() = default;

void FolderWatcher::watch(const std::string& path, std::set<std::string> skipped, Handler handler, StateReport report,
                          size_t maxWatches) {
    stop();
    path_ = path;
    state_ = State::starting;
    platform::WatchOptions options;
    options.skipped = std::move(skipped);
    options.maxWatches = maxWatches;
    options.onState = [report](platform::WatchState state) {
        if (report) report(state == platform::WatchState::ready ? State::watching : State::exhausted);
    };
    events_ = platform::watchFolder(path, std::move(handler), std::move(options));
    if (!events_) {
        state_ = State::off;
        if (report) report(State::off);
    }
}

void FolderWatcher::stop() {
    events_.reset();
    path_.clear();
    state_ = State::off;
}

void FolderWatcher::settle(State state) {
    if (!events_ && state != State::off) return; // a report from a watch that has been stopped
    state_ = state;
    if (state == State::exhausted) events_.reset(); // gives the system its watches back
}

} // namespace brenvo
