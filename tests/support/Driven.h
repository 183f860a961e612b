#pragma once

#include "EventLoop.h"
#include "StorageModel.h"

namespace brenvo::test {

// Until no work of the model is running and everything it sent has arrived, overtaken results included:
// after this, nothing more comes unless something new starts.
inline bool drained(StorageModel& model) {
    for (int round = 0; round < 100; ++round) {
        if (!waitFor([&] { return !model.hasBackgroundWork(); })) return false;
        QCoreApplication::sendPostedEvents();
        if (!model.hasBackgroundWork()) return true;
    }
    return false;
}

// The model as the shell drives it: a change of location starts a scan.
struct Driven {
    StorageModel model;
    Driven() {
        QObject::connect(&model, &StorageModel::locationChanged, &model, [this] {
            if (model.location()) model.scan(*model.location());
        });
    }
    // Opens a folder as a custom place and waits for its scan.
    bool open(const std::string& path) {
        model.explore(path);
        return idle();
    }
    bool idle() {
        return waitFor([this] { return !model.isScanning() && !model.isRefreshing(); });
    }
    bool drained();
};

inline bool Driven::drained() { return test::drained(model); }

} // namespace brenvo::test
