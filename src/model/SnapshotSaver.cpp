#include "SnapshotSaver.h"

#include "platform/Platform.h"

#include <algorithm>

namespace brenvo {

namespace {
constexpr size_t kEntriesBetweenClockReads = 2048;
}

SnapshotSaver::SnapshotSaver(QObject& context, Source source) : source_(std::move(source)) {
    quiet_.setSingleShot(true);
    slicer_.setSingleShot(true);
    slicer_.setInterval(0);
    QObject::connect(&quiet_, &QTimer::timeout, &context, [this] { begin(); });
    QObject::connect(&slicer_, &QTimer::timeout, &context, [this] { slice(); });
}

SnapshotSaver::~SnapshotSaver() { flush(); }

void SnapshotSaver::request() {
    if (!waiting_.isValid()) waiting_.start();
    const qint64 waited = waiting_.elapsed();
    quiet_.start(static_cast<int>(std::clamp<qint64>(kLongestWaitMilliseconds - waited, 0, kQuietMilliseconds)));
}

void SnapshotSaver::saveSoon(bool withBaseline) {
    withBaseline_ = withBaseline_ || withBaseline;
    if (!waiting_.isValid()) waiting_.start();
    quiet_.stop();
    begin();
}

void SnapshotSaver::begin() {
    save_.reset();
    std::optional<Tree> tree = source_();
    if (!tree || !tree->root) {
        waiting_.invalidate();
        withBaseline_ = false;
        return;
    }
    saving_ = std::move(*tree);
    save_ = std::make_unique<ScanCache::StepwiseSave>(*saving_.root, saving_.locationPath, Date::now(),
                                                      platform::scansFolder(), withBaseline_);
    slicer_.start();
}

void SnapshotSaver::slice() {
    if (!save_) return;
    // A tree that changed since the save began is saved again from the start, as it is now.
    const std::optional<Tree> now = source_();
    if (!now || now->root != saving_.root || now->revision != saving_.revision ||
        now->locationPath != saving_.locationPath) {
        begin();
        return;
    }
    QElapsedTimer clock;
    clock.start();
    while (!save_->step(kEntriesBetweenClockReads)) {
        if (clock.elapsed() >= kSliceMilliseconds) {
            slicer_.start();
            return;
        }
    }
    save_.reset();
    saving_ = {};
    waiting_.invalidate();
    withBaseline_ = false;
    ++savesDone_;
}

void SnapshotSaver::beforeNewScan() {
    if (withBaseline_) return flush();
    quiet_.stop();
    slicer_.stop();
    save_.reset();
    saving_ = {};
    waiting_.invalidate();
}

void SnapshotSaver::flush() {
    slicer_.stop();
    const bool due = quiet_.isActive() || save_ || withBaseline_;
    quiet_.stop();
    save_.reset();
    saving_ = {};
    if (!due) return;
    if (std::optional<Tree> tree = source_(); tree && tree->root) {
        ScanCache::StepwiseSave whole(*tree->root, tree->locationPath, Date::now(), platform::scansFolder(),
                                      withBaseline_);
        while (!whole.step(SIZE_MAX)) {
        }
        ++savesDone_;
    }
    waiting_.invalidate();
    withBaseline_ = false;
}

} // namespace brenvo
