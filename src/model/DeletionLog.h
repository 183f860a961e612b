#pragma once

#include <QObject>
#include <QPointer>
#include <QUuid>

#ifndef Q_MOC_RUN
#include "BackgroundTasks.h"
#include "removal/RemoveItem.h"
#include "util/Date.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>
#endif

class QTimer;

namespace brenvo {

class JsonWriter;


// The one engine every deletion goes through. A plan of targets first waits out its undo window, and while
// it waits nothing on disk is touched: undo just drops the plan. When the window ends the items are removed
// for good, one at a time off the main thread, each recorded as it goes. A second file lists every target
// from the moment its window opens until its removal is recorded, so a crash or a quit loses nothing.
class DeletionLog : public QObject {
    Q_OBJECT
public:
    struct Target {
        std::string path;
        std::string name;
        int64_t size = 0;
        bool isDirectory = false;
        std::optional<ItemIdentity> identity; // taken when the window opens; unknown after a restart
        bool operator==(const Target& other) const { return path == other.path; }
    };
    struct DeletedItem {
        QUuid id;
        std::string name;
        std::string originalPath;
        int64_t size = 0;
        Date date;
    };
    using Finish = std::function<void(const std::set<std::string>& deleted, const std::vector<std::string>& failures)>;
    using Verify = std::function<std::vector<Target>(const std::vector<Target>&)>;
    struct Pending {
        QUuid id;
        std::vector<Target> targets;
        Date deadline;
        std::function<void()> undo;
        Finish finish;
        Verify verify; // those of the targets still fit to delete; none means all
    };
    enum class Phase { idle, waiting, deleting, done };
    struct Done {
        QUuid id;
        int count = 0;
        int64_t size = 0;
    };

    // The record file; in demonstration mode a folder of the run's own under the temporary folder.
    static std::string defaultFile();
    explicit DeletionLog(std::string file = defaultFile(), QObject* parent = nullptr);
    ~DeletionLog() override;

    // Another process holds the record: this log only reads it, and every plan fails with kSharedMessage.
    bool isShared() const { return shared_; }
    static const char* const kSharedMessage;

    // The log of the running model, for the termination hook.
    static DeletionLog* active();

    // Seconds a deletion can be undone, as every caller and every confirmation must quote them.
    static double windowSeconds();

    // Opens an undo window for `targets`. A plan still in its window is carried out at once.
    void schedule(std::vector<Target> targets, double window, Verify verify, std::function<void()> undo, Finish finish);
    void undoPending();
    // Ends the window at once and carries the plan out (the banner's "Delete Now").
    void deleteNow();
    // Carries out what an earlier run left unfinished, except applications that are open.
    void finishUnfinished(Finish done);
    // Forgets what an earlier run left unfinished; the files stay.
    void keepUnfinished();
    // The process is ending: the window closes and its plan is carried out now, on this thread.
    void commitBeforeQuitting();
    void clearRecord();

    const std::vector<DeletedItem>& items() const { return items_; }
    // The record as it is stored: an array of items, newest first.
    static void writeItems(JsonWriter& out, const std::vector<DeletedItem>& items);
    const std::optional<Pending>& pending() const { return pending_; }
    const std::vector<Target>& inFlight() const { return inFlight_; }
    const std::vector<Target>& unfinished() const { return unfinished_; }
    const std::optional<Done>& recentlyDone() const { return recentlyDone_; }
    Phase phase() const;
    const std::string& file() const { return file_; }
    std::string unfinishedFile() const;

    std::function<void(const std::vector<Target>&)> onUndo;

signals:
    void changed();

private:
    std::optional<Pending> takePending();
    void perform(Pending plan);
    struct Run;
    void remove(std::vector<Target> targets, Finish done);
    void removeNext(uint64_t id);
    void removed(uint64_t id, const RemovalResult& result);
    void record(const Target& target);
    void save();
    void saveUnfinished();

    std::string file_;
    int lock_ = -1;
    bool shared_ = false;
    std::vector<DeletedItem> items_;
    std::optional<Pending> pending_;
    std::vector<Target> inFlight_;
    int deletingCount_ = 0;
    std::optional<Done> recentlyDone_;
    QTimer* timer_ = nullptr;
    std::vector<Target> unfinished_;
    std::map<uint64_t, std::shared_ptr<Run>> runs_; // main thread only
    uint64_t nextRun_ = 0;
    BackgroundTasks tasks_;
};

// The sentence every delete confirmation shows, quoting the seconds that will really apply; no size when
// it can't be known.
QString deletionPromise(std::optional<int64_t> size);

} // namespace brenvo
