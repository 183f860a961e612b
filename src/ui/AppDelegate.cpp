#include "AppDelegate.h"

#include "DeletionLog.h"
#include "Preferences.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace brenvo {

namespace {

// The signal handler may only write to a descriptor; the event loop reads the other end.
int signalPipe[2] = {-1, -1};

void onSigterm(int) {
    const char byte = 1;
    [[maybe_unused]] ssize_t written = ::write(signalPipe[0], &byte, 1);
}

} // namespace

AppDelegate::AppDelegate(QObject* parent) : QObject(parent) {
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, signalPipe) != 0) return;
    notifier_ = new QSocketNotifier(signalPipe[1], QSocketNotifier::Read, this);
    connect(notifier_, &QSocketNotifier::activated, this, [] {
        char byte;
        while (::read(signalPipe[1], &byte, 1) > 0) {
        }
        QCoreApplication::quit();
    });
    connect(qApp, &QCoreApplication::aboutToQuit, this, &AppDelegate::applicationWillTerminate);
}

AppDelegate::~AppDelegate() {
    std::signal(SIGTERM, SIG_DFL);
}

void AppDelegate::applicationDidFinishLaunching() {
    if (!notifier_) return;
    struct sigaction action = {};
    action.sa_handler = onSigterm;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &action, nullptr);
}

void AppDelegate::applicationWillTerminate() {
    if (DeletionLog* log = DeletionLog::active()) log->commitBeforeQuitting();
}

bool AppDelegate::shouldTerminateAfterLastWindowClosed() {
    constexpr bool hasTrayItem = false; // the tray item comes with the space monitor
    return !Preferences::showInMenuBar() || !hasTrayItem;
}

} // namespace brenvo
