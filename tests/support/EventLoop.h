#pragma once

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>
#include <functional>

namespace brenvo::test {

// Runs the event loop until `done` holds or `milliseconds` pass; answers whether it held.
inline bool waitFor(const std::function<bool()>& done, int milliseconds = 10000) {
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > milliseconds) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(2);
    }
    return true;
}

// Runs the event loop for a while, to let anything still on its way arrive.
inline void settle(int milliseconds = 300) {
    waitFor([] { return false; }, milliseconds);
}

} // namespace brenvo::test
