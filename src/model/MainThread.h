#pragma once

#include <QCoreApplication>
#include <QPointer>
#include <utility>

namespace brenvo {

// Runs `work` on the main thread's event loop with `target` if it still exists by then. Safe to call from
// any thread: the event goes to the application object, and the weak pointer is only read on the main
// thread, so background work never keeps a model alive and never touches a dead one.
template <typename T, typename F> void postToMain(QPointer<T> target, F&& work) {
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [target = std::move(target), work = std::forward<F>(work)]() mutable {
            if (T* alive = target.data()) work(*alive);
        },
        Qt::QueuedConnection);
}

} // namespace brenvo
