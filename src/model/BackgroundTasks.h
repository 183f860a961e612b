#pragma once

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <stop_token>
#include <thread>

namespace brenvo {

// Threads for a model's background work. A task is stopped by its stop source and left to end on its own:
// its results carry a generation number and are dropped on arrival when overtaken. Only the owner's end
// waits for the tasks still running, after asking them to stop.
class BackgroundTasks {
public:
    BackgroundTasks() = default;
    BackgroundTasks(const BackgroundTasks&) = delete;
    BackgroundTasks& operator=(const BackgroundTasks&) = delete;
    ~BackgroundTasks();

    std::stop_source start(std::function<void(std::stop_token)> work);
    // No task is running: everything started has ended (its results may still be on their way to the
    // main thread's queue).
    bool isIdle();

private:
    struct Task {
        std::jthread thread;
        bool finished = false; // guarded by mutex_
    };
    void reap(); // joins tasks that have finished; call with mutex_ held

    std::mutex mutex_;
    std::list<std::shared_ptr<Task>> tasks_;
};

} // namespace brenvo
