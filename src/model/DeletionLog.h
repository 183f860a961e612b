#pragma once

#include <QObject>
#include <QPointer>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace brenvo {

// The log every removal goes through: a plan of targets waits out its undo window before anything on
// disk is touched. Deleting is not offered yet, so no plan is ever pending; the model and the quit path
// already talk to it.
class DeletionLog : public QObject {
    Q_OBJECT
public:
    struct Target {
        std::string path;
        std::string name;
        int64_t size = 0;
    };

    explicit DeletionLog(QObject* parent = nullptr);
    ~DeletionLog() override;

    // The log of the running model, for the termination hook.
    static DeletionLog* active();

    const std::vector<Target>& pending() const { return pending_; }
    // Carries a plan whose undo time has not run out through before the process ends.
    void commitBeforeQuitting();

    std::function<void(const std::vector<Target>&)> onUndo;

private:
    std::vector<Target> pending_;
};

} // namespace brenvo
