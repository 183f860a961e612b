#include "AppDelegate.h"

#include "DeletionLog.h"
#include "Preferences.h"
#include "SignalBridge.h"

#include <QCoreApplication>
#include <csignal>

namespace brenvo {

AppDelegate::AppDelegate(QObject* parent)
    : QObject(parent), sigterm_(std::make_unique<SignalBridge>(std::initializer_list<int>{SIGTERM},
                                                               [](int) { QCoreApplication::quit(); })) {
    connect(qApp, &QCoreApplication::aboutToQuit, this, &AppDelegate::applicationWillTerminate);
}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching() { sigterm_->listen(); }

void AppDelegate::applicationWillTerminate() {
    if (DeletionLog* log = DeletionLog::active()) log->commitBeforeQuitting();
}

bool AppDelegate::shouldTerminateAfterLastWindowClosed() {
    constexpr bool hasTrayItem = false; // the tray item comes with the space monitor
    return !Preferences::showInMenuBar() || !hasTrayItem;
}

} // namespace brenvo
