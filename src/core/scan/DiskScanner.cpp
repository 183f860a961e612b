#include "scan/DiskScanner.h"
#include "tree/FoldedEntries.h"

#include "scan/FileSystem.h"
#include "util/Checked.h"
#include "util/Paths.h"

#include <algorithm>
#include <cerrno>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <numeric>
#include <thread>
#include <time.h>

namespace brenvo {

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kReportInterval = std::chrono::milliseconds(100);

// Asked once per file: the coarse clock costs a fraction of the precise one and is exact to a few
// milliseconds, plenty for a tenth-of-a-second throttle.
Clock::time_point coarseNow() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return Clock::time_point(std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
}

// One entry of a listed folder, kept until the folder is complete. Files get their node only then, and
// only if they are not folded away, so a folder of half a million files never holds half a million nodes.
struct Item {
    int64_t size = 0;
    int64_t count = 0;
    double modified = 0;
    uint64_t device = 0; // of a subfolder, to notice when its own entries cross into another file system
    uint32_t nameOffset = 0;
    uint16_t nameLength = 0;
    FileNode::Kind kind = FileNode::Kind::file;
    bool hasModified = false;
    NodeRef node; // a finished or skipped folder
};

// A folder that has been listed and waits for its subfolders. Whichever thread finishes the last of them
// builds the folder's node and hands it to the parent's slot.
struct Pending {
    std::shared_ptr<Pending> parent;
    uint32_t slot = 0;
    std::string path;
    std::string name;
    std::optional<std::string> location; // set where the path cannot be told from the name
    FileNode::Kind kind = FileNode::Kind::folder;
    std::optional<Date> modified;
    uint64_t device = 0;
    bool keepsNodes = true; // false inside a package: only totals count there
    bool couldNotRead = false;
    std::string names;
    std::vector<Item> items;
    std::atomic<uint32_t> outstanding{1}; // its own listing, plus one per subfolder still being walked

    bool keepsChildren() const { return keepsNodes && kind == FileNode::Kind::folder; }
};

struct Result {
    NodeRef node;
    int64_t size = 0;
    int64_t count = 0;
};

bool hasPackageExtension(std::string_view name, const std::vector<std::string>& extensions) {
    auto dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return false;
    std::string_view ext = name.substr(dot + 1);
    for (const auto& candidate : extensions) {
        if (candidate.size() == ext.size() &&
            std::equal(ext.begin(), ext.end(), candidate.begin(), [](char a, char b) {
                return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
            }))
            return true;
    }
    return false;
}

std::string errorText(int code) { return std::strerror(code); }

// The parts of one parallel scan's progress, summed and throttled before they reach the caller.
class CombinedProgress {
public:
    CombinedProgress(const ProgressReport& report, size_t parts) : report_(report), parts_(parts) {}

    void update(size_t index, const ScanProgress& progress) {
        std::optional<ScanProgress> sum;
        {
            std::lock_guard lock(mutex_);
            parts_[index] = progress;
            auto now = Clock::now();
            if (!reported_ || now - lastReport_ > kReportInterval) {
                reported_ = true;
                lastReport_ = now;
                sum = total(progress.currentPath);
            }
        }
        if (sum && report_) report_(*sum); // never while holding the lock
    }

    void store(size_t index, const ScanProgress& progress) {
        std::lock_guard lock(mutex_);
        parts_[index] = progress;
    }

    ScanProgress total(std::string currentPath) const {
        ScanProgress sum;
        for (const auto& part : parts_) {
            sum.files = checkedAdd(sum.files, part.files);
            sum.bytes = checkedAdd(sum.bytes, part.bytes);
        }
        sum.currentPath = std::move(currentPath);
        return sum;
    }

private:
    const ProgressReport& report_;
    std::mutex mutex_;
    std::vector<ScanProgress> parts_;
    Clock::time_point lastReport_;
    bool reported_ = false;
};

// One walk of one root: a pool of workers over a queue of folders. A worker walks depth first on its own
// and hands subfolders to the queue only while another worker is idle, so the queue (and the descriptors
// its jobs hold) stays as small as the number of workers.
class Walk {
public:
    Walk(int maxChildren, const DiskScanner::Skipped& skipped, const ProgressReport& report,
         const ScanEnvironment& environment, std::stop_token stop, unsigned threads)
        : maxChildren_(std::max(maxChildren, 1)), skipped_(skipped), report_(report), env_(environment),
          stop_(std::move(stop)), threads_(std::max(threads, 1u)), combined_(report, threads_) {}

    NodeRef run(const std::string& rootPath) {
        fs::EntryValues values;
        if (int err = fs::statPath(rootPath, values)) throw ScanError(rootPath, err, errorText(err));
        if (values.isSymbolicLink)
            throw ScanError(rootPath, 0, "It is a symbolic link to an item that can't be reached");
        if (stopped()) throw ScanCancelled();

        std::string name = rootPath == env_.iCloudDrivePath ? std::string("iCloud Drive")
                                                            : std::string(lastPathComponent(rootPath));
        Worker first(0);
        if (!values.isDirectory) {
            const int64_t size = values.fileSize();
            NodeRef node = FileNode::make(FileNode::Kind::file, name, values.modified);
            node->setSize(size);
            node->setItemCount(1);
            node->setLocation(rootPath);
            countFile(first, size, parentPath(rootPath));
            finalReport({first});
            return node;
        }

        auto root = std::make_shared<Pending>();
        root->path = rootPath;
        root->name = std::move(name);
        root->location = rootPath;
        root->kind = hasPackageExtension(lastPathComponent(rootPath), env_.packageExtensions)
                         ? FileNode::Kind::package
                         : FileNode::Kind::folder;
        root->modified = values.modified;
        root->device = values.device;
        if (root->kind == FileNode::Kind::package) threads_ = 1; // a package root is walked serially

        if (auto reason = env_.mounts ? env_.mounts->reasonNotToEnter(values.device) : std::nullopt) {
            Result r = build(*root);
            r.node->setSkippedReason(*reason);
            finalReport({first});
            return r.node;
        }

        fs::Descriptor fd;
        if (fs::openDirectoryPath(rootPath, fd) != 0) root->couldNotRead = true;
        {
            std::lock_guard lock(mutex_);
            queue_.push_back(Job{root, std::move(fd)});
        }
        root.reset();

        std::vector<Worker> workers;
        workers.reserve(threads_);
        for (unsigned i = 0; i < threads_; ++i) workers.emplace_back(i);
        {
            std::vector<std::jthread> helpers;
            for (unsigned i = 1; i < threads_; ++i) helpers.emplace_back([this, &workers, i] { work(workers[i]); });
            work(workers[0]);
        }
        queue_.clear();
        if (stopped()) throw ScanCancelled();
        finalReport(workers);
        return std::move(result_.node);
    }

private:
    struct Worker {
        explicit Worker(unsigned i) : index(i) {}
        unsigned index;
        ScanProgress progress;
        Clock::time_point lastReport;
        bool reported = false;
    };
    struct Job {
        std::shared_ptr<Pending> dir;
        fs::Descriptor fd;
    };
    struct Frame {
        std::shared_ptr<Pending> dir;
        fs::Descriptor fd;
        std::vector<uint32_t> subfolders; // slots of entries still to walk
        size_t next = 0;
    };

    bool stopped() const { return stop_.stop_requested(); }

    void work(Worker& worker) {
        while (true) {
            Job job;
            {
                std::unique_lock lock(mutex_);
                ++idle_;
                wake_.wait(lock, stop_, [this] { return done_ || !queue_.empty(); });
                --idle_;
                if (done_ || stopped() || queue_.empty()) break;
                job = std::move(queue_.front());
                queue_.pop_front();
            }
            walk(worker, std::move(job));
        }
        if (threads_ > 1) combined_.store(worker.index, worker.progress);
    }

    bool shouldHandOff() {
        if (threads_ == 1 || idle_.load(std::memory_order_relaxed) == 0) return false;
        std::lock_guard lock(mutex_);
        return queue_.size() < threads_;
    }

    void walk(Worker& worker, Job job) {
        std::vector<Frame> stack;
        auto enter = [&](std::shared_ptr<Pending> dir, fs::Descriptor fd) {
            Frame frame{std::move(dir), std::move(fd), {}, 0};
            if (frame.dir->couldNotRead || !list(worker, *frame.dir, frame.fd.get(), frame.subfolders))
                frame.subfolders.clear();
            stack.push_back(std::move(frame));
        };
        enter(std::move(job.dir), std::move(job.fd));
        while (!stack.empty()) {
            if (stopped()) return; // everything held here is dropped; no partial tree survives
            Frame& frame = stack.back();
            if (frame.next < frame.subfolders.size()) {
                const uint32_t slot = frame.subfolders[frame.next++];
                auto child = makeChild(frame.dir, slot);
                const char* name = frame.dir->names.c_str() + frame.dir->items[slot].nameOffset;
                fs::Descriptor fd;
                if (fs::openDirectoryAt(frame.fd.get(), name, fd) != 0) {
                    child->couldNotRead = true;
                    complete(std::move(child));
                } else if (shouldHandOff()) {
                    {
                        std::lock_guard lock(mutex_);
                        queue_.push_back(Job{std::move(child), std::move(fd)});
                    }
                    wake_.notify_one();
                } else {
                    enter(std::move(child), std::move(fd));
                }
                continue;
            }
            auto dir = std::move(frame.dir);
            stack.pop_back();
            complete(std::move(dir));
        }
    }

    std::shared_ptr<Pending> makeChild(const std::shared_ptr<Pending>& parent, uint32_t slot) {
        const Item& item = parent->items[slot];
        auto child = std::make_shared<Pending>();
        std::string_view name(parent->names.data() + item.nameOffset, item.nameLength);
        child->parent = parent;
        child->slot = slot;
        child->path = joinPath(parent->path, name);
        if (child->path == env_.iCloudDrivePath) {
            child->name = "iCloud Drive";
            child->location = child->path;
        } else {
            child->name.assign(name);
        }
        child->kind = item.kind;
        child->device = item.device;
        if (item.hasModified) child->modified = Date{item.modified};
        child->keepsNodes = parent->keepsChildren();
        return child;
    }

    // Lists a folder and measures its files. Answers false when the folder can't be listed.
    bool list(Worker& worker, Pending& dir, int fd, std::vector<uint32_t>& subfolders) {
        if (fs::listDirectory(fd, dir.names) != 0) {
            dir.names.clear();
            dir.couldNotRead = true;
            return false;
        }
        dir.items.reserve(static_cast<size_t>(std::count(dir.names.begin(), dir.names.end(), '\0')));
        const char* base = dir.names.data();
        for (size_t offset = 0; offset < dir.names.size();) {
            if (stopped()) return false;
            const char* name = base + offset;
            const size_t length = std::strlen(name);
            const auto nameOffset = static_cast<uint32_t>(offset);
            offset += length + 1;

            fs::EntryValues values;
            if (const int error = fs::statAt(fd, name, values)) {
                // A folder that may be listed but not entered names its items and hides their sizes: what
                // it holds is unknown, not nothing. An item gone since the listing is simply gone.
                if (error != ENOENT) dir.couldNotRead = true;
                continue;
            }
            if (values.isSymbolicLink) continue;
            Item item;
            item.nameOffset = nameOffset;
            item.nameLength = static_cast<uint16_t>(length);
            if (values.modified) {
                item.hasModified = true;
                item.modified = values.modified->seconds;
            }
            if (!values.isDirectory) {
                item.size = values.fileSize();
                item.count = 1;
                countFile(worker, item.size, dir.path);
            } else {
                std::string_view childName(name, length);
                item.device = values.device;
                item.kind = hasPackageExtension(childName, env_.packageExtensions) ? FileNode::Kind::package
                                                                                   : FileNode::Kind::folder;
                std::optional<std::string> reason;
                if (!skipped_.empty()) {
                    auto found = skipped_.find(joinPath(dir.path, childName));
                    if (found != skipped_.end()) reason = found->second;
                }
                if (!reason && values.device != dir.device && env_.mounts)
                    reason = env_.mounts->reasonNotToEnter(values.device);
                if (reason) {
                    if (dir.keepsChildren()) {
                        item.node = FileNode::make(item.kind, childName, values.modified);
                        item.node->setSkippedReason(*reason);
                    }
                } else {
                    subfolders.push_back(static_cast<uint32_t>(dir.items.size()));
                }
            }
            dir.items.push_back(std::move(item));
        }
        dir.outstanding.fetch_add(static_cast<uint32_t>(subfolders.size()), std::memory_order_relaxed);
        return true;
    }

    void countFile(Worker& worker, int64_t size, const std::string& folder) {
        worker.progress.files = checkedAdd(worker.progress.files, 1);
        worker.progress.bytes = checkedAdd(worker.progress.bytes, size);
        auto now = coarseNow();
        if (!worker.reported || now - worker.lastReport > kReportInterval) {
            worker.reported = true;
            worker.lastReport = now;
            worker.progress.currentPath = folder;
            if (threads_ > 1)
                combined_.update(worker.index, worker.progress);
            else if (report_)
                report_(worker.progress);
        }
    }

    // One part of a folder is done; the last part builds it and passes the result up the chain.
    void complete(std::shared_ptr<Pending> dir) {
        while (dir) {
            if (dir->outstanding.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
            Result r = build(*dir);
            std::shared_ptr<Pending> parent = std::move(dir->parent);
            if (!parent) {
                std::lock_guard lock(mutex_);
                result_ = std::move(r);
                done_ = true;
                wake_.notify_all();
                return;
            }
            Item& item = parent->items[dir->slot];
            item.size = r.size;
            item.count = r.count;
            item.node = std::move(r.node);
            dir = std::move(parent);
        }
    }

    Result build(Pending& dir) {
        Result r;
        for (const Item& item : dir.items) {
            r.size = checkedAdd(r.size, item.size);
            r.count = checkedAdd(r.count, item.count);
        }
        if (!dir.keepsNodes) return r;
        r.node = FileNode::make(dir.kind, dir.name, dir.modified);
        r.node->setSize(r.size);
        r.node->setItemCount(r.count);
        r.node->setCouldNotRead(dir.couldNotRead);
        if (dir.location) r.node->setLocation(*dir.location);
        if (dir.kind == FileNode::Kind::folder) r.node->adoptChildren(group(dir));
        dir.items.clear();
        dir.names.clear();
        return r;
    }

    // Largest first, listing order among equals; past maxChildren the tail folds into one aggregate.
    std::vector<NodeRef> group(Pending& dir) {
        const size_t n = dir.items.size();
        std::vector<uint32_t> order(n);
        std::iota(order.begin(), order.end(), 0u);
        std::stable_sort(order.begin(), order.end(),
                         [&](uint32_t a, uint32_t b) { return dir.items[a].size > dir.items[b].size; });
        const size_t limit = static_cast<size_t>(maxChildren_);
        const size_t keep = limit >= n ? n : limit - 1;
        std::vector<NodeRef> children;
        children.reserve(keep + (keep < n ? 1 : 0));
        for (size_t i = 0; i < keep; ++i) {
            Item& item = dir.items[order[i]];
            if (item.node) {
                children.push_back(std::move(item.node));
                continue;
            }
            std::string_view name(dir.names.data() + item.nameOffset, item.nameLength);
            NodeRef file = FileNode::make(item.kind, name,
                                          item.hasModified ? std::optional<Date>(Date{item.modified}) : std::nullopt);
            file->setSize(item.size);
            file->setItemCount(item.count);
            children.push_back(std::move(file));
        }
        if (keep < n) {
            int64_t size = 0, count = 0;
            auto folded = std::make_unique<FoldedEntries>();
            for (size_t i = keep; i < n; ++i) {
                const Item& item = dir.items[order[i]];
                size = checkedAdd(size, item.size);
                count = checkedAdd(count, item.count);
                folded->add(std::string_view(dir.names.data() + item.nameOffset, item.nameLength),
                            static_cast<uint8_t>(item.kind), item.size, item.count,
                            item.hasModified ? std::optional<Date>(Date{item.modified}) : std::nullopt);
            }
            NodeRef aggregate =
                FileNode::make(FileNode::Kind::aggregate, aggregateName(n - keep));
            aggregate->setSize(size);
            aggregate->setItemCount(count);
            aggregate->setFolded(std::move(folded));
            children.push_back(std::move(aggregate));
        }
        return children;
    }

    void finalReport(const std::vector<Worker>& workers) {
        if (!report_) return;
        if (workers.size() == 1) {
            report_(workers.front().progress);
            return;
        }
        report_(combined_.total({}));
    }

    const int maxChildren_;
    const DiskScanner::Skipped& skipped_;
    const ProgressReport& report_;
    const ScanEnvironment& env_;
    std::stop_token stop_;
    unsigned threads_;
    CombinedProgress combined_;

    std::mutex mutex_; // guards the queue, `done_` and the result
    std::condition_variable_any wake_;
    std::deque<Job> queue_;
    std::atomic<unsigned> idle_{0};
    bool done_ = false;
    Result result_;
};

} // namespace

DiskScanner::DiskScanner(int maxChildren, const Skipped& skipped, ProgressReport report,
                         ScanEnvironment environment)
    : maxChildren_(maxChildren), report_(std::move(report)), environment_(std::move(environment)) {
    // Two spellings of one folder are one folder; the later entry's reason stands.
    for (const auto& [path, reason] : skipped) skipped_.insert_or_assign(realPath(path), reason);
}

std::string DiskScanner::realPath(const std::string& path) {
    std::string out = path;
    if (char* resolved = ::realpath(path.c_str(), nullptr)) {
        out = resolved;
        std::free(resolved);
    }
    return withoutDataVolumePrefix(std::move(out));
}

NodeRef DiskScanner::scan(const std::string& path, std::stop_token stop) { return run(path, std::move(stop), 1); }

NodeRef DiskScanner::scanInParallel(const std::string& path, std::stop_token stop) {
    // Most of a walk is waiting for the file system; on a cold cache many requests in flight finish sooner,
    // and on a warm one the extra threads cost next to nothing.
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    const unsigned threads = environment_.threads ? environment_.threads : std::clamp(16 * cores, 16u, 64u);
    return run(path, std::move(stop), threads);
}

NodeRef DiskScanner::run(const std::string& path, std::stop_token stop, unsigned threads) {
    Walk walk(maxChildren_, skipped_, report_, environment_, std::move(stop), threads);
    return walk.run(realPath(path));
}

} // namespace brenvo
