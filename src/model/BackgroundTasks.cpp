#include "BackgroundTasks.h"

namespace brenvo {

BackgroundTasks::~BackgroundTasks() {
    std::list<std::shared_ptr<Task>> running;
    {
        std::lock_guard lock(mutex_);
        running.swap(tasks_);
    }
    for (auto& task : running) task->thread.request_stop();
    for (auto& task : running) task->thread.join();
}

std::stop_source BackgroundTasks::start(std::function<void(std::stop_token)> work) {
    auto task = std::make_shared<Task>();
    std::lock_guard lock(mutex_);
    reap();
    std::weak_ptr<Task> weak = task;
    task->thread = std::jthread([this, weak, work = std::move(work)](std::stop_token stop) {
        work(stop);
        std::lock_guard done(mutex_);
        if (auto self = weak.lock()) self->finished = true;
    });
    tasks_.push_back(task);
    return task->thread.get_stop_source();
}

bool BackgroundTasks::isIdle() {
    std::lock_guard lock(mutex_);
    reap();
    return tasks_.empty();
}

void BackgroundTasks::reap() {
    for (auto it = tasks_.begin(); it != tasks_.end();) {
        if ((*it)->finished) {
            (*it)->thread.join();
            it = tasks_.erase(it);
        } else {
            ++it;
        }
    }
}

} // namespace brenvo
