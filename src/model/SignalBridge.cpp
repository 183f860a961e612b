#include "SignalBridge.h"

#include <QSocketNotifier>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace brenvo {

namespace {

int signalPair[2] = {-1, -1};

void forwardSignal(int signal) {
    const char byte = static_cast<char>(signal);
    [[maybe_unused]] ssize_t written = ::write(signalPair[0], &byte, 1);
}

} // namespace

SignalBridge::SignalBridge(std::initializer_list<int> numbers, std::function<void(int)> handle) : signals_(numbers) {
    if (signalPair[0] >= 0) return; // another bridge is live: this one stays inert
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, signalPair) != 0) return;
    notifier_ = std::make_unique<QSocketNotifier>(signalPair[1], QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(), [handle = std::move(handle)] {
        char byte;
        while (::read(signalPair[1], &byte, 1) > 0) handle(byte);
    });
}

SignalBridge::~SignalBridge() {
    if (!notifier_) return;
    if (listening_)
        for (int signal : signals_) std::signal(signal, SIG_DFL);
    notifier_.reset();
    for (int& fd : signalPair) ::close(std::exchange(fd, -1));
}

void SignalBridge::listen() {
    if (!notifier_ || listening_) return;
    struct sigaction action = {};
    action.sa_handler = forwardSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signal : signals_) sigaction(signal, &action, nullptr);
    listening_ = true;
}

} // namespace brenvo
