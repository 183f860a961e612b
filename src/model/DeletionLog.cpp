#include "DeletionLog.h"

#include "MainThread.h"
#include "Preferences.h"
#include "explain/AppCatalog.h"
#include "format/Formatters.h"
#include "json/Json.h"
#include "json/JsonWriter.h"
#include "platform/Platform.h"
#include "removal/DeleteWords.h"
#include "removal/RemoveItem.h"
#include "tree/FileNode.h"
#include "util/AtomicFile.h"
#include "util/FileURL.h"
#include "util/Files.h"

#include <QTimer>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace brenvo {

namespace {

QPointer<DeletionLog> activeLog;


std::string uuidText(const QUuid& id) { return id.toString(QUuid::WithoutBraces).toUpper().toStdString(); }

// Both files are what lets a crash lose nothing: a write that fails is worth a word in the log.
void writeAtomically(const std::string& path, const std::string& text) {
    if (!writeFileAtomically(path, text, true))
        qWarning("Brenvo couldn't save %s: %s", path.c_str(), std::strerror(errno));
}

std::optional<JsonValue> readJson(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::stringstream text;
    text << in.rdbuf();
    return parseJson(text.str());
}

std::string encode(const std::vector<DeletionLog::Target>& targets) {
    std::string text;
    JsonWriter out(text);
    out.beginArray();
    for (const auto& t : targets) {
        out.beginObject();
        out.field("url", fileURL(t.path, t.isDirectory));
        out.field("name", t.name);
        out.field("size", t.size);
        out.endObject();
    }
    out.endArray();
    out.finish();
    return text;
}

// All three keys are required of every entry; anything else makes the whole file count as empty.
std::vector<DeletionLog::Target> decodeTargets(const std::optional<JsonValue>& json) {
    std::vector<DeletionLog::Target> targets;
    if (!json || !json->isArray()) return {};
    for (const JsonValue& entry : json->asArray()) {
        const JsonValue* url = entry.find("url");
        const JsonValue* name = entry.find("name");
        const JsonValue* size = entry.find("size");
        if (!url || !url->isString() || !name || !name->isString() || !size || !size->isInt64()) return {};
        // Only plain absolute paths: a file that names "..", an empty component or a NUL is not ours.
        auto path = pathFromFileURL(url->asString());
        if (!path || path->find('\0') != std::string::npos || standardizePath(*path) != *path || *path == "/")
            return {};
        targets.push_back({*path, name->asString(), size->asInt64(), url->asString().ends_with("/"), {}});
    }
    return targets;
}

std::vector<DeletionLog::DeletedItem> decodeItems(const std::optional<JsonValue>& json) {
    std::vector<DeletionLog::DeletedItem> items;
    if (!json || !json->isArray()) return {};
    for (const JsonValue& entry : json->asArray()) {
        const JsonValue* id = entry.find("id");
        const JsonValue* name = entry.find("name");
        const JsonValue* path = entry.find("originalPath");
        const JsonValue* size = entry.find("size");
        const JsonValue* date = entry.find("date");
        if (!id || !id->isString() || !name || !name->isString() || !path || !path->isString() || !size ||
            !size->isInt64() || !date || !date->isNumber())
            return {};
        QUuid uuid = QUuid::fromString(QString::fromStdString(id->asString()));
        if (uuid.isNull()) return {};
        items.push_back({uuid, name->asString(), path->asString(), size->asInt64(), Date{date->asDouble()}});
    }
    return items;
}

} // namespace

std::string DeletionLog::defaultFile() {
    if (platform::isDemo())
        return "/tmp/brenvo-demo-" + std::to_string(::getpid()) + "/deleted.json";
    return joinPath(platform::stateFolder(), "deleted.json");
}

// A file that exists but does not decode is set aside rather than overwritten by the next save, so a
// damaged record can still be looked at by hand.
template <typename Decode>
auto readRecord(const std::string& path, Decode decode) {
    auto json = readJson(path);
    auto decoded = decode(json);
    const bool emptyOnPurpose = json && json->isArray() && json->asArray().empty();
    if (decoded.empty() && !emptyOnPurpose && itemExists(path))
        std::rename(path.c_str(), (path + ".damaged").c_str());
    return decoded;
}

const char* const DeletionLog::kSharedMessage =
    "Brenvo is open in another window, and only one can delete at a time. Quit it and try again.";

DeletionLog::DeletionLog(std::string file, QObject* parent) : QObject(parent), file_(std::move(file)) {
    // One process at a time writes the record: the lock lasts as long as this log, and the kernel drops it
    // when a process dies. Where no lock file can be made, the record can't be written either.
    const std::string folder = std::filesystem::path(file_).parent_path().string();
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
    lock_ = ::open(joinPath(folder, "deletions.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lock_ >= 0 && ::flock(lock_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) shared_ = true;
    if (shared_) {
        items_ = decodeItems(readJson(file_)); // read only: what the other process leaves unfinished is its own
        activeLog = this;
        return;
    }
    items_ = readRecord(file_, decodeItems);
    for (auto& target : readRecord(unfinishedFile(), decodeTargets))
        if (itemExists(target.path)) unfinished_.push_back(std::move(target));
    activeLog = this;
    saveUnfinished();
}

DeletionLog::~DeletionLog() {
    if (lock_ >= 0) ::close(lock_);
}

DeletionLog* DeletionLog::active() { return activeLog.data(); }

double DeletionLog::windowSeconds() { return Preferences::undoSeconds(); }

std::string DeletionLog::unfinishedFile() const {
    return joinPath(std::filesystem::path(file_).parent_path().string(), "unfinished-deletions.json");
}

DeletionLog::Phase DeletionLog::phase() const {
    if (pending_) return Phase::waiting;
    if (deletingCount_ > 0) return Phase::deleting;
    if (recentlyDone_) return Phase::done;
    return Phase::idle;
}

void DeletionLog::schedule(std::vector<Target> targets, double window, Verify verify, std::function<void()> undo,
                           Finish finish) {
    if (shared_) {
        if (finish) finish({}, {kSharedMessage});
        return;
    }
    for (Target& target : targets)
        if (!target.identity) target.identity = identifyItem(target.path);
    // A second delete ends the first window: that plan is carried out, its targets in flight before the new
    // plan is written, so both stay listed.
    if (auto previous = takePending()) perform(std::move(*previous));
    Pending plan{QUuid::createUuid(), std::move(targets), Date{Date::now().seconds + window}, std::move(undo),
                 std::move(finish), std::move(verify)};
    const QUuid id = plan.id;
    pending_ = std::move(plan);
    saveUnfinished(); // the targets are on disk before anything else can go wrong
    timer_ = new QTimer(this);
    timer_->setSingleShot(true);
    timer_->setTimerType(Qt::PreciseTimer);
    connect(timer_, &QTimer::timeout, this, [this, id] {
        if (!pending_ || pending_->id != id) return; // a stale timer never takes a newer plan
        if (auto due = takePending()) perform(std::move(*due));
    });
    timer_->start(static_cast<int>(std::clamp(window, 0.0, 86400.0) * 1000));
    emit changed();
}

std::optional<DeletionLog::Pending> DeletionLog::takePending() {
    if (!pending_) return std::nullopt;
    if (timer_) {
        timer_->stop();
        timer_->deleteLater();
        timer_ = nullptr;
    }
    // No save here: the caller either moves the targets in flight (which lists them again) or drops the
    // plan and saves itself, so there is never a moment when existing targets are listed nowhere.
    std::optional<Pending> plan = std::move(pending_);
    pending_.reset();
    emit changed();
    return plan;
}

void DeletionLog::undoPending() {
    auto plan = takePending();
    if (!plan) return;
    saveUnfinished();
    if (plan->undo) plan->undo();
    if (onUndo) onUndo(plan->targets);
}

void DeletionLog::deleteNow() {
    if (auto plan = takePending()) perform(std::move(*plan));
}

void DeletionLog::perform(Pending plan) {
    // An item another program removed meanwhile is simply gone: it is neither unsafe nor a failure.
    std::set<std::string> gone;
    std::vector<Target> present;
    for (const Target& t : plan.targets) {
        if (platform::isDemo() || itemExists(t.path))
            present.push_back(t);
        else
            gone.insert(t.path);
    }
    std::vector<Target> verified = plan.verify ? plan.verify(present) : present;
    std::vector<std::string> skipped;
    for (const Target& t : present)
        if (std::find(verified.begin(), verified.end(), t) == verified.end())
            skipped.push_back(format::quoted(t.name) + ": skipped because it's no longer safe to delete (for example, its "
                                                   "app is open).");
    ++deletingCount_;
    inFlight_.insert(inFlight_.end(), verified.begin(), verified.end());
    saveUnfinished();
    emit changed();
    QPointer<DeletionLog> self(this);
    remove(verified, [self, plan = std::move(plan), verified, skipped, gone](const std::set<std::string>& removed,
                                                                              const std::vector<std::string>& failures) {
        if (!self) return;
        std::set<std::string> deleted = removed;
        deleted.insert(gone.begin(), gone.end());
        DeletionLog& log = *self;
        std::erase_if(log.inFlight_, [&](const Target& t) {
            return std::find(verified.begin(), verified.end(), t) != verified.end();
        });
        log.saveUnfinished();
        --log.deletingCount_;
        std::vector<std::string> messages = failures;
        messages.insert(messages.end(), skipped.begin(), skipped.end());
        if (plan.finish) plan.finish(deleted, messages);
        Done done{plan.id, static_cast<int>(removed.size()), 0};
        for (const Target& t : verified)
            if (deleted.contains(t.path)) done.size += t.size;
        log.recentlyDone_ = done;
        emit log.changed();
        QTimer::singleShot(3000, &log, [self, id = plan.id] {
            if (self && self->recentlyDone_ && self->recentlyDone_->id == id) {
                self->recentlyDone_.reset();
                emit self->changed();
            }
        });
    });
}

struct DeletionLog::Run {
    std::vector<Target> targets;
    size_t next = 0;
    std::set<std::string> deleted;
    std::vector<std::string> failures;
    Finish done;
};

void DeletionLog::remove(std::vector<Target> targets, Finish done) {
    const uint64_t id = ++nextRun_;
    runs_[id] = std::make_shared<Run>(Run{std::move(targets), 0, {}, {}, std::move(done)});
    removeNext(id);
}

// One item after another off the main thread; the main thread stays free between them. The run's state
// (whose callbacks may hold tree nodes) stays on the main thread; a worker only sees a path.
void DeletionLog::removeNext(uint64_t id) {
    auto found = runs_.find(id);
    if (found == runs_.end()) return;
    std::shared_ptr<Run> run = found->second;
    if (run->next >= run->targets.size()) {
        runs_.erase(found);
        run->done(run->deleted, run->failures);
        return;
    }
    const Target target = run->targets[run->next++];
    if (platform::isDemo()) {
        // Nothing on disk is touched in demonstration mode.
        record(target);
        run->deleted.insert(target.path);
        QTimer::singleShot(run->next == 1 ? 800 : 0, this, [this, id] { removeNext(id); });
        return;
    }
    QPointer<DeletionLog> self(this);
    tasks_.start([self, id, path = target.path, identity = target.identity](std::stop_token) {
        RemovalResult result = removeItem(path, identity);
        postToMain(self, [id, result](DeletionLog& log) { log.removed(id, result); });
    });
}

void DeletionLog::removed(uint64_t id, const RemovalResult& result) {
    auto found = runs_.find(id);
    if (found == runs_.end()) return;
    Run& run = *found->second;
    const Target& target = run.targets[run.next - 1];
    if (result.ok) {
        record(target);
        run.deleted.insert(target.path);
        std::erase(inFlight_, target);
    } else if (result.error == ENOENT) {
        // Removed by someone else a moment before: gone all the same, though not by us, so not recorded.
        run.deleted.insert(target.path);
        std::erase(inFlight_, target);
    } else {
        // Another disk inside, an item swapped meanwhile, a guarded place: the removal's words name it.
        run.failures.push_back(result.namesItem ? result.message : format::quoted(target.name) + ": " + result.message);
    }
    removeNext(id);
}

void DeletionLog::record(const Target& target) {
    items_.insert(items_.begin(), DeletedItem{QUuid::createUuid(), target.name, target.path, target.size, Date::now()});
    save(); // once per item: a crash after any item leaves the record true up to it
    emit changed();
}

void DeletionLog::finishUnfinished(Finish done) {
    std::vector<Target> existing;
    for (const Target& t : unfinished_)
        if (itemExists(t.path)) existing.push_back(t);
    // An application that is open is left alone.
    std::vector<Target> toDelete, running;
    auto apps = platform::appSystem();
    for (const Target& t : existing) {
        bool open = false;
        if (t.path.ends_with(".app") && apps) {
            auto id = AppCatalog::readBundle(t.path).bundleID;
            open = id && apps->runningName(*id).has_value();
        }
        (open ? running : toDelete).push_back(t);
    }
    // In flight while they go, so they stay listed until each removal is recorded.
    unfinished_.clear();
    inFlight_.insert(inFlight_.end(), toDelete.begin(), toDelete.end());
    saveUnfinished();
    emit changed();
    QPointer<DeletionLog> self(this);
    remove(toDelete, [self, running, toDelete, done](const std::set<std::string>& deleted,
                                                     const std::vector<std::string>& failures) {
        if (!self) return;
        std::erase_if(self->inFlight_, [&](const Target& t) {
            return std::find(toDelete.begin(), toDelete.end(), t) != toDelete.end();
        });
        self->saveUnfinished();
        std::vector<std::string> messages = failures;
        for (const Target& t : running)
            messages.push_back(format::quoted(t.name) + ": skipped because it's open. Quit it and delete it again.");
        if (done) done(deleted, messages);
    });
}

void DeletionLog::keepUnfinished() {
    unfinished_.clear();
    saveUnfinished();
    emit changed();
}

void DeletionLog::commitBeforeQuitting() {
    std::vector<Target> targets;
    if (auto plan = takePending()) targets = plan->verify ? plan->verify(plan->targets) : plan->targets;
    inFlight_.insert(inFlight_.end(), targets.begin(), targets.end());
    std::set<std::string> known;
    for (const auto& item : items_) known.insert(item.originalPath);
    for (const Target& t : inFlight_) {
        if (!platform::isDemo()) removeItem(t.path, t.identity);
        if (itemExists(t.path) || known.contains(t.path)) continue;
        record(t);
        known.insert(t.path);
    }
    // inFlight is left as it is: the file lists every target of this quit, and the next start keeps only those
    // that are still there.
    saveUnfinished();
}

void DeletionLog::clearRecord() {
    items_.clear();
    save();
    emit changed();
}

void DeletionLog::save() {
    if (shared_) return;
    std::string text;
    {
        JsonWriter out(text);
        writeItems(out, items_);
        out.finish();
    }
    writeAtomically(file_, text);
}

void DeletionLog::writeItems(JsonWriter& out, const std::vector<DeletedItem>& items) {
    out.beginArray();
    for (const auto& item : items) {
        out.beginObject();
        out.field("id", uuidText(item.id));
        out.field("name", item.name);
        out.field("originalPath", item.originalPath);
        out.field("size", item.size);
        out.field("date", item.date.seconds);
        out.endObject();
    }
    out.endArray();
}

void DeletionLog::saveUnfinished() {
    if (shared_) return;
    std::vector<Target> listed;
    if (pending_) listed = pending_->targets;
    listed.insert(listed.end(), inFlight_.begin(), inFlight_.end());
    listed.insert(listed.end(), unfinished_.begin(), unfinished_.end());
    if (listed.empty()) {
        std::remove(unfinishedFile().c_str());
        return;
    }
    writeAtomically(unfinishedFile(), encode(listed));
}

QString deletionPromise(std::optional<int64_t> size) {
    return QString::fromStdString(DeleteWords::promise(size, DeletionLog::windowSeconds()));
}

} // namespace brenvo
