#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace brenvo {

// One background thread that runs jobs one after another, in the order given. Its end waits for the jobs
// already given.
class SerialQueue {
public:
    SerialQueue();
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    void post(std::function<void()> job);
    // Waits until every job given so far has run.
    void drain();

private:
    void run();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> jobs_;
    bool busy_ = false;
    bool ending_ = false;
    std::thread thread_;
};

} // namespace brenvo
