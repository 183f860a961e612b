#include "DeletionLog.h"

namespace brenvo {

namespace {
QPointer<DeletionLog> activeLog;
}

DeletionLog::DeletionLog(QObject* parent) : QObject(parent) { activeLog = this; }

DeletionLog::~DeletionLog() = default;

DeletionLog* DeletionLog::active() { return activeLog.data(); }

void DeletionLog::commitBeforeQuitting() {
    // Nothing can be pending before deleting exists.
}

} // namespace brenvo
