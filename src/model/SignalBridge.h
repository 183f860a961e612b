#pragma once

#include <functional>
#include <initializer_list>
#include <memory>
#include <vector>

class QSocketNotifier;

namespace brenvo {

// Turns process signals into calls on the event loop: a signal handler may only write to a descriptor, so it
// writes the signal's number and the loop reads the other end and calls `handle` there. One at a time per
// process; the signals go back to their default actions when it ends.
class SignalBridge {
public:
    SignalBridge(std::initializer_list<int> numbers, std::function<void(int)> handle);
    ~SignalBridge();
    SignalBridge(const SignalBridge&) = delete;
    SignalBridge& operator=(const SignalBridge&) = delete;

    // Installs the handlers; until then the signals keep their default actions.
    void listen();

private:
    std::vector<int> signals_;
    std::unique_ptr<QSocketNotifier> notifier_;
    bool listening_ = false;
};

} // namespace brenvo
