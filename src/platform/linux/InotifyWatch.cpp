// Live updates on Linux: inotify, one watch per folder below the root, events batched for a second.
#include "platform/Platform.h"
#include "scan/FileSystem.h"
#include "tree/FileNode.h"

#include <chrono>
#include <cstring>
#include <cerrno>
#include <fcntl.h>
#include <map>
#include <poll.h>
#include <set>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <thread>
#include <unistd.h>

namespace brenvo::platform {

namespace {

constexpr uint32_t kMask = IN_CREATE | IN_DELETE | IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_FROM | IN_MOVED_TO |
                           IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK;
constexpr auto kLatency = std::chrono::milliseconds(1000);

class InotifyWatch : public FolderEvents {
public:
    InotifyWatch(std::string root, FolderEventHandler handler, WatchOptions options, int inotify, int wake)
        : root_(std::move(root)), handler_(std::move(handler)), options_(std::move(options)), inotify_(inotify),
          wake_(wake), thread_([this] { run(); }) {}

    ~InotifyWatch() override {
        const uint64_t one = 1;
        [[maybe_unused]] ssize_t n = ::write(wake_, &one, sizeof one);
        thread_.join();
        ::close(inotify_);
        ::close(wake_);
    }

private:
    bool stopping() const {
        pollfd fd{wake_, POLLIN, 0};
        return ::poll(&fd, 1, 0) > 0;
    }

    // Watches a folder by descriptor, so paths of any length work (the descriptor was opened without
    // following links; the /proc link to it must be followed). False when the system has no watches left:
    // this root then gets no more updates.
    bool watch(int dirFd, const std::string& path) {
        const std::string handle = "/proc/self/fd/" + std::to_string(dirFd);
        int wd = ::inotify_add_watch(inotify_, handle.c_str(), kMask);
        if (wd < 0) return errno != ENOSPC && errno != ENOMEM;
        if (options_.maxWatches && !folders_.contains(wd) && folders_.size() >= options_.maxWatches) {
            ::inotify_rm_watch(inotify_, wd); // as if the system had said ENOSPC
            return false;
        }
        folders_[wd] = path; // a folder moved within the tree comes back with its old wd: the path updates
        return true;
    }

    bool skipped(const std::string& path) const { return options_.skipped.contains(path); }

    void tell(WatchState state) {
        if (options_.onState) options_.onState(state);
    }

    // Out of watches: every watch is given back, as this root gets no more updates anyway.
    void exhausted() {
        for (const auto& [wd, path] : folders_) ::inotify_rm_watch(inotify_, wd);
        folders_.clear();
        tell(WatchState::exhausted);
    }

    // Watches `path` and every folder below it; symbolic links are never followed and kernel file systems
    // never entered, as in a scan.
    bool watchTree(const std::string& path) {
        auto rules = mountRules();
        struct Level {
            fs::Descriptor fd;
            std::string path;
            std::string names;
            size_t next = 0;
            uint64_t device = 0;
        };
        std::vector<Level> stack;
        fs::Descriptor top;
        fs::EntryValues values;
        if (fs::openDirectoryPath(path, top) != 0 || fs::statPath(path, values) != 0) return true;
        stack.push_back({std::move(top), path, {}, 0, values.device});
        if (!watch(stack.back().fd.get(), path)) return false;
        fs::listDirectory(stack.back().fd.get(), stack.back().names);
        while (!stack.empty()) {
            if (stopping()) return true;
            Level& level = stack.back();
            if (level.next >= level.names.size()) {
                stack.pop_back();
                continue;
            }
            const char* name = level.names.c_str() + level.next;
            level.next += std::strlen(name) + 1;
            if (fs::statAt(level.fd.get(), name, values) != 0 || !values.isDirectory) continue;
            if (values.device != level.device && rules && rules->reasonNotToEnter(values.device)) continue;
            std::string childPath = joinPath(level.path, name);
            if (skipped(childPath)) continue; // as the scan doesn't enter it, nothing there is shown
            fs::Descriptor child;
            if (fs::openDirectoryAt(level.fd.get(), name, child) != 0) continue;
            if (!watch(child.get(), childPath)) return false;
            Level next{std::move(child), std::move(childPath), {}, 0, values.device};
            fs::listDirectory(next.fd.get(), next.names);
            stack.push_back(std::move(next));
        }
        return true;
    }

    void run() {
        if (!watchTree(root_)) return exhausted();
        if (stopping()) return;
        tell(WatchState::ready);
        std::set<std::string> batch;
        std::chrono::steady_clock::time_point due;
        alignas(inotify_event) char buffer[64 * 1024];
        while (true) {
            int timeout = -1;
            if (!batch.empty()) {
                auto left = std::chrono::duration_cast<std::chrono::milliseconds>(due - std::chrono::steady_clock::now());
                timeout = static_cast<int>(std::max<long long>(0, left.count()));
            }
            pollfd fds[2] = {{inotify_, POLLIN, 0}, {wake_, POLLIN, 0}};
            int ready = ::poll(fds, 2, timeout);
            if (fds[1].revents) return;
            if (ready > 0 && (fds[0].revents & POLLIN)) {
                ssize_t length = ::read(inotify_, buffer, sizeof buffer);
                for (ssize_t at = 0; at < length;) {
                    auto* event = reinterpret_cast<inotify_event*>(buffer + at);
                    at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
                    if (!take(*event, batch)) return exhausted();
                }
                if (!batch.empty() && due == std::chrono::steady_clock::time_point{})
                    due = std::chrono::steady_clock::now() + kLatency;
            }
            if (!batch.empty() && std::chrono::steady_clock::now() >= due) {
                handler_(std::vector<std::string>(batch.begin(), batch.end()));
                batch.clear();
                due = {};
            }
        }
    }

    // Notes one event's path; false when the watch has to end.
    bool take(const inotify_event& event, std::set<std::string>& batch) {
        if (event.mask & IN_Q_OVERFLOW) {
            // Events were lost: folders made meanwhile get their watches now, and the root stands for
            // "anything below may have changed".
            batch.insert(root_);
            return watchTree(root_);
        }
        if (event.mask & IN_IGNORED) {
            folders_.erase(event.wd);
            return true;
        }
        auto folder = folders_.find(event.wd);
        if (folder == folders_.end()) return true;
        if (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF)) {
            batch.insert(folder->second);
            return true;
        }
        if (event.len == 0) return true;
        std::string path = joinPath(folder->second, event.name);
        if ((event.mask & IN_ISDIR) && (event.mask & (IN_CREATE | IN_MOVED_TO)) && !skipped(path)) {
            if (!watchTree(path)) return false;
        }
        batch.insert(std::move(path));
        return true;
    }

    std::string root_;
    FolderEventHandler handler_;
    WatchOptions options_;
    int inotify_;
    int wake_;
    std::map<int, std::string> folders_; // watch descriptor → folder path; only the watch's thread uses it
    std::thread thread_;
};

} // namespace

std::optional<std::set<std::string>> changedFolders(uint64_t, double) { return std::nullopt; }

std::unique_ptr<FolderEvents> watchFolder(const std::string& root, FolderEventHandler handler, WatchOptions options) {
    int inotify = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (inotify < 0) return nullptr;
    int wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake < 0) {
        ::close(inotify);
        return nullptr;
    }
    return std::make_unique<InotifyWatch>(root, std::move(handler), std::move(options), inotify, wake);
}

} // namespace brenvo::platform
