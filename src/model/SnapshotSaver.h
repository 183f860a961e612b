#pragma once

#include <QElapsedTimer>
#include <QTimer>

#ifndef Q_MOC_RUN
#include "cache/ScanCache.h"
#include "tree/FileNode.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#endif

namespace brenvo {

// Keeps the remembered scan of the tree on show up to date without holding up the window. Changes ask for
// a save; saves wait until the tree has been quiet a moment (and never longer than half a minute), so a
// stream of changes makes one save. A save writes a slice of the tree at a time on the main thread, which
// owns the nodes, and starts again if the tree changes in between. Quitting writes what is pending at once.
class SnapshotSaver {
public:
    struct Tree {
        NodeRef root;
        std::string locationPath;
        int revision = 0;
    };
    // The tree to save now, or nothing.
    using Source = std::function<std::optional<Tree>()>;
    static constexpr int kQuietMilliseconds = 3000;
    static constexpr int kLongestWaitMilliseconds = 30000;
    static constexpr int kSliceMilliseconds = 8;

    SnapshotSaver(QObject& context, Source source);
    ~SnapshotSaver();

    // A change to save, once things are quiet.
    void request();
    // A fresh scan to save now, a slice at a time, with the baseline too when it is due.
    void saveSoon(bool withBaseline);
    // Whatever is waiting or under way is written now, on this thread (at quit).
    void flush();
    // A new scan is starting and will save its own tree: a save of the old one is dropped, unless it
    // carries a baseline, which the new scan compares with and which is written now.
    void beforeNewScan();
    // Saves handed to the write queue so far, for tests to wait on.
    int savesDone() const { return savesDone_; }
    bool isIdle() const { return !quiet_.isActive() && !save_ && !slicer_.isActive(); }

private:
    void begin();
    void slice();

    Source source_;
    QTimer quiet_;
    QTimer slicer_;
    QElapsedTimer waiting_; // since the oldest request not yet saved
    bool withBaseline_ = false;
    std::unique_ptr<ScanCache::StepwiseSave> save_;
    Tree saving_; // the tree the save under way reads, held so it can't go meanwhile
    int savesDone_ = 0;
};

} // namespace brenvo
