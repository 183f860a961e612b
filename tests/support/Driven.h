#pragma once

#include "EventLoop.h"
#include "StorageModel.h"

namespace brenvo::test {

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
};

} // namespace brenvo::test
