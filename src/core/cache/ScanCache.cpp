#include "cache/ScanCache.h"

#include "json/JsonWriter.h"
#include "plist/BinaryReader.h"
#include "plist/BinaryWriter.h"
#include "util/AtomicFile.h"
#include "util/FileURL.h"
#include "util/SerialQueue.h"
#include "util/Sha256.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace brenvo::ScanCache {

namespace {

using plist::BinaryReader;
using plist::BinaryWriter;
using Ref = BinaryWriter::Ref;

// A whole file, read-only, for as long as the object lives; empty files and errors read as nothing.
class MappedFile {
public:
    explicit MappedFile(const std::string& path) {
        int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) return;
        struct stat st;
        if (::fstat(fd, &st) == 0 && st.st_size > 0) {
            void* at = ::mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
            if (at != MAP_FAILED) {
                data_ = static_cast<const char*>(at);
                size_ = static_cast<size_t>(st.st_size);
            }
        }
        ::close(fd);
    }
    ~MappedFile() {
        if (data_) ::munmap(const_cast<char*>(data_), size_);
    }
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;
    explicit operator bool() const { return data_ != nullptr; }
    std::string_view bytes() const { return {data_, size_}; }

private:
    const char* data_ = nullptr;
    size_t size_ = 0;
};

SerialQueue& writeQueue() {
    static SerialQueue queue;
    return queue;
}

std::string withoutExtension(const std::string& path) {
    auto dot = path.rfind('.');
    auto slash = path.rfind('/');
    return dot != std::string::npos && (slash == std::string::npos || dot > slash) ? path.substr(0, dot) : path;
}

// Moves a finished temporary file into place on the write queue, after every earlier write.
void replaceLater(std::string temporary, std::string target) {
    writeQueue().post([temporary = std::move(temporary), target = std::move(target)] {
        if (::rename(temporary.c_str(), target.c_str()) != 0) ::unlink(temporary.c_str());
    });
}

Ref writeEntry(BinaryWriter& out, const FileNode& node, const std::vector<Ref>& children) {
    std::pair<Ref, Ref> members[8];
    size_t count = 0;
    members[count++] = {out.key("n"), out.string(node.name())};
    members[count++] = {out.key("k"), out.integer(static_cast<int64_t>(node.kind()))};
    members[count++] = {out.key("s"), out.integer(node.size())};
    members[count++] = {out.key("c"), out.integer(node.itemCount())};
    if (auto modified = node.modified()) members[count++] = {out.key("m"), out.date(modified->seconds)};
    if (node.couldNotRead()) members[count++] = {out.key("r"), out.boolean(true)};
    if (auto reason = node.skippedReason()) members[count++] = {out.key("x"), out.string(*reason)};
    if (!children.empty()) members[count++] = {out.key("ch"), out.array(children)};
    return out.dict(std::span(members, count));
}

} // namespace

std::string stem(std::string_view locationPath) {
    auto digest = Sha256::of(standardizePath(locationPath));
    return Sha256::hex(digest.data(), 12);
}

std::string fileURL(std::string_view locationPath, const std::string& folder, bool baseline) {
    return joinPath(folder, stem(locationPath) + (baseline ? "-baseline.plist" : ".plist"));
}

std::string summaryPath(std::string_view locationPath, const std::string& folder) {
    return withoutExtension(fileURL(locationPath, folder, false)) + ".summary.json";
}

namespace {

// The snapshot record written in steps: the entries are counted first (to pick the narrowest references
// that can hold them all), then written post-order, so a node's entry follows its children's and their
// references are known.
class Encoder {
public:
    Encoder(const FileNode& root, Date date, std::FILE* file) : root_(root), date_(date), out_(file), file_(file) {
        counting_.push_back(&root);
    }

    // False while there is more to do; `ok` then tells how it ended.
    bool step(size_t budget) {
        while (!counting_.empty()) {
            if (budget-- == 0) return false;
            const FileNode* node = counting_.back();
            counting_.pop_back();
            ++entries_;
            for (const FileNode* child : node->children()) counting_.push_back(child);
            if (counting_.empty()) {
                // At most seven objects an entry (dict, name, size, count, date, reason, children) beside the
                // shared keys and small numbers.
                const uint64_t bound = entries_ * 7 + 300;
                out_.setReferenceWidth(bound < 0xFFFF ? 2 : bound < 0xFFFFFF ? 3 : 4, bound);
                stack_.push_back({&root_, 0, {}});
            }
        }
        while (!stack_.empty()) {
            Frame& top = stack_.back();
            auto children = top.node->children();
            if (top.next < children.size()) {
                stack_.push_back({children[top.next++], 0, {}});
                continue;
            }
            if (budget-- == 0) return false;
            const Ref entry = writeEntry(out_, *top.node, top.children);
            stack_.pop_back();
            if (stack_.empty()) {
                std::pair<Ref, Ref> record[] = {{out_.key("rootPath"), out_.string(root_.path())},
                                                {out_.key("date"), out_.date(date_.seconds)},
                                                {out_.key("root"), entry}};
                top_ = out_.dict(record);
                break;
            }
            stack_.back().children.push_back(entry);
        }
        // The offset table, a little at a time too: it has an entry for each of the millions of objects.
        const auto finished = out_.finishSome(*top_, budget > SIZE_MAX / 4 ? SIZE_MAX : budget * 4);
        if (!finished) return false;
        ok_ = *finished && std::fflush(file_) == 0;
        return true;
    }
    bool ok() const { return ok_; }

private:
    struct Frame {
        const FileNode* node;
        size_t next;
        std::vector<Ref> children;
    };
    const FileNode& root_;
    Date date_;
    BinaryWriter out_;
    std::FILE* file_;
    std::vector<const FileNode*> counting_;
    uint64_t entries_ = 0;
    std::vector<Frame> stack_;
    std::optional<Ref> top_;
    bool ok_ = false;
};

} // namespace

bool encodeSnapshot(const FileNode& root, Date date, std::FILE* file) {
    Encoder encoder(root, date, file);
    while (!encoder.step(SIZE_MAX)) {
    }
    return encoder.ok();
}

struct StepwiseSave::State {
    std::string locationPath, folder, temporary, summary;
    bool alsoBaseline = false;
    std::FILE* file = nullptr;
    std::optional<Encoder> encoder;
    bool done = false;
};

StepwiseSave::StepwiseSave(const FileNode& root, std::string locationPath, Date date, std::string folder,
                           bool alsoBaseline)
    : state_(std::make_unique<State>()) {
    State& s = *state_;
    s.locationPath = std::move(locationPath);
    s.folder = std::move(folder);
    s.alsoBaseline = alsoBaseline;
    s.summary = makeSummary(root, date); // the top level only: cheap
    s.file = openTemporaryIn(s.folder, s.temporary);
    if (s.file)
        s.encoder.emplace(root, date, s.file);
    else
        s.done = true;
}

StepwiseSave::~StepwiseSave() {
    state_->encoder.reset(); // its writer flushes into the file, so it goes first
    if (state_->file) {
        std::fclose(state_->file);
        ::unlink(state_->temporary.c_str());
    }
}

bool StepwiseSave::step(size_t entries) {
    State& s = *state_;
    if (s.done) return true;
    if (!s.encoder->step(entries)) return false;
    s.done = true;
    const bool encoded = s.encoder->ok();
    s.encoder.reset();
    std::FILE* file = std::exchange(s.file, nullptr);
    if (!encoded) {
        std::fclose(file);
        ::unlink(s.temporary.c_str());
        return true;
    }
    if (!closeTemporary(file, s.temporary, false)) return true;
    if (s.alsoBaseline) {
        // The baseline is the same bytes: copied on the queue, before the snapshot takes its place.
        std::string copy = s.temporary + ".baseline";
        writeQueue().post([from = s.temporary, copy, target = fileURL(s.locationPath, s.folder, true)] {
            std::error_code failed;
            std::filesystem::copy_file(from, copy, std::filesystem::copy_options::overwrite_existing, failed);
            if (failed || ::rename(copy.c_str(), target.c_str()) != 0) ::unlink(copy.c_str());
        });
    }
    replaceLater(std::move(s.temporary), fileURL(s.locationPath, s.folder, false));
    writeQueue().post([summary = std::move(s.summary), target = summaryPath(s.locationPath, s.folder)] {
        writeFileAtomically(target, summary, false); // a summary that failed is made again next time
    });
    return true;
}

std::optional<Snapshot> decodeSnapshot(std::string_view data) {
    auto reader = BinaryReader::open(data);
    if (!reader) return std::nullopt;
    auto top = reader->dict(reader->top());
    if (!top) return std::nullopt;
    auto rootPath = reader->string(top->find("rootPath"));
    auto date = reader->date(top->find("date"));
    const Ref rootRef = top->find("root");
    if (!rootPath || !date || rootRef == BinaryReader::kNoRef) return std::nullopt;

    // One node per entry; a valid file holds each entry once, so more nodes than objects means a loop.
    size_t budget = reader->objectCount();
    auto makeNode = [&](Ref ref, std::optional<BinaryReader::ArrayView>& children, bool isRoot) -> NodeRef {
        if (budget-- == 0) return nullptr;
        auto entry = reader->dict(ref);
        if (!entry) return nullptr;
        auto name = reader->string(entry->find("n"));
        auto kind = reader->integer(entry->find("k"));
        auto size = reader->integer(entry->find("s"));
        auto count = reader->integer(entry->find("c"));
        // A name must be one path component (the root of "/" is called "/"), and sizes can't be negative:
        // anything else is damage.
        if (!name || !kind || !size || !count || *kind < 0 || *size < 0 || *count < 0) return nullptr;
        const bool wholeDisk = isRoot && *name == "/" && *rootPath == "/";
        if (!wholeDisk && (name->empty() || *name == "." || *name == ".." ||
                           name->find_first_of(std::string("/\0", 2)) != std::string::npos))
            return nullptr;
        const auto nodeKind = *kind >= 4 ? FileNode::Kind::file : static_cast<FileNode::Kind>(*kind);
        std::optional<Date> modified;
        if (Ref m = entry->find("m"); m != BinaryReader::kNoRef) {
            auto seconds = reader->date(m);
            if (!seconds) return nullptr;
            modified = Date{*seconds};
        }
        if (name->size() > UINT16_MAX) return nullptr;
        NodeRef node = FileNode::make(nodeKind, *name, modified);
        node->setSize(*size);
        node->setItemCount(*count);
        if (Ref r = entry->find("r"); r != BinaryReader::kNoRef) node->setCouldNotRead(reader->boolean(r).value_or(false));
        if (Ref x = entry->find("x"); x != BinaryReader::kNoRef) {
            auto reason = reader->string(x);
            if (!reason) return nullptr;
            node->setSkippedReason(*reason);
        }
        children.reset();
        if (Ref ch = entry->find("ch"); ch != BinaryReader::kNoRef) {
            children = reader->array(ch);
            if (!children) return nullptr;
        }
        return node;
    };

    struct Frame {
        NodeRef node;
        std::optional<BinaryReader::ArrayView> entries;
        size_t next = 0;
        std::vector<NodeRef> built;
    };
    std::vector<Frame> stack;
    Frame first;
    first.node = makeNode(rootRef, first.entries, true);
    if (!first.node) return std::nullopt;
    first.node->setLocation(*rootPath);
    stack.push_back(std::move(first));
    NodeRef root = stack.front().node;
    while (!stack.empty()) {
        Frame& frame = stack.back();
        if (frame.entries && frame.next < frame.entries->size()) {
            Frame child;
            child.node = makeNode(frame.entries->at(frame.next++), child.entries, false);
            if (!child.node) return std::nullopt;
            stack.push_back(std::move(child));
            continue;
        }
        NodeRef done = std::move(frame.node);
        done->adoptChildren(std::move(frame.built));
        stack.pop_back();
        if (!stack.empty()) stack.back().built.push_back(std::move(done));
    }
    return Snapshot{*rootPath, Date{*date}, root};
}

std::optional<Snapshot> readSnapshot(const std::string& file) {
    MappedFile mapped(file);
    if (!mapped) return std::nullopt;
    return decodeSnapshot(mapped.bytes());
}

std::string makeSummary(const FileNode& root, Date date) {
    std::string text;
    {
        JsonWriter out(text);
        out.beginObject();
        out.field("date", date.seconds);
        out.field("size", root.size());
        out.key("children");
        out.beginArray();
        for (const FileNode* child : root.children()) {
            const std::string path = child->path();
            out.beginObject();
            out.field("id", child->isAggregate() ? path + "#small" : path);
            out.field("title", child->name());
            out.field("size", child->size());
            if (!child->isAggregate()) out.field("url", brenvo::fileURL(path, child->kind() != FileNode::Kind::file));
            out.field("isFolder", child->isFolder());
            out.endObject();
        }
        out.endArray();
        out.endObject();
        out.finish();
    }
    return text;
}

void save(const FileNode& root, std::string_view locationPath, Date date, const std::string& folder, bool baseline) {
    if (!baseline) {
        StepwiseSave whole(root, std::string(locationPath), date, folder, false);
        while (!whole.step(SIZE_MAX)) {
        }
        return;
    }
    std::string temporary;
    std::FILE* file = openTemporaryIn(folder, temporary);
    if (!file) return;
    if (!encodeSnapshot(root, date, file)) {
        std::fclose(file);
        ::unlink(temporary.c_str());
        return;
    }
    if (!closeTemporary(file, temporary, false)) return;
    replaceLater(std::move(temporary), fileURL(locationPath, folder, true));
}

void waitForWrites() { writeQueue().drain(); }

std::optional<std::pair<ChangeTracker::Baseline, Date>> baselineSizes(std::string_view locationPath,
                                                                      const std::string& folder,
                                                                      int64_t minimumFileSize) {
    // The tree is never built: the entries are read straight off the file.
    MappedFile mapped(fileURL(locationPath, folder, true));
    if (!mapped) return std::nullopt;
    auto reader = BinaryReader::open(mapped.bytes());
    if (!reader) return std::nullopt;
    auto top = reader->dict(reader->top());
    if (!top) return std::nullopt;
    auto rootPath = reader->string(top->find("rootPath"));
    auto date = reader->date(top->find("date"));
    if (!rootPath || !date) return std::nullopt;

    ChangeTracker::Baseline sizes;
    std::vector<std::pair<Ref, std::string>> stack{{top->find("root"), *rootPath}};
    size_t budget = reader->objectCount();
    while (!stack.empty()) {
        if (budget-- == 0) return std::nullopt; // more entries than objects: a loop
        auto [ref, path] = std::move(stack.back());
        stack.pop_back();
        auto entry = reader->dict(ref);
        if (!entry) return std::nullopt;
        auto name = reader->string(entry->find("n"));
        auto kind = reader->integer(entry->find("k"));
        auto bytes = reader->integer(entry->find("s"));
        if (!name || !kind || !bytes || !reader->integer(entry->find("c")) || *bytes < 0) return std::nullopt;
        if (*kind == 3) continue;
        if (*kind == 0 || *bytes >= minimumFileSize) sizes[path] = *bytes;
        if (Ref ch = entry->find("ch"); ch != BinaryReader::kNoRef) {
            auto children = reader->array(ch);
            if (!children) return std::nullopt;
            for (size_t i = 0; i < children->size(); ++i) {
                auto child = reader->dict(children->at(i));
                auto childName = child ? reader->string(child->find("n")) : std::nullopt;
                if (!childName) return std::nullopt;
                stack.emplace_back(children->at(i), joinPath(path, *childName));
            }
        }
    }
    return std::make_pair(std::move(sizes), Date{*date});
}

std::optional<Date> markChanges(FileNode& tree, std::string_view locationPath, const std::string& folder) {
    waitForWrites(); // a baseline written just now is read, not the one it replaces
    auto baseline = baselineSizes(locationPath, folder, ChangeTracker::kMinimumNewSize);
    if (!baseline) return std::nullopt;
    ChangeTracker::apply(baseline->first, tree, ChangeTracker::kMinimumNewSize);
    return baseline->second;
}

bool baselineDue(std::optional<Date> baselineDate, Date now) {
    constexpr double kBaselineMaxAge = 604800; // seconds: a week
    return !baselineDate || now.seconds - baselineDate->seconds > kBaselineMaxAge;
}

void remember(const FileNode& tree, std::string_view locationPath, Date now, std::optional<Date> baselineDate,
              const std::string& folder) {
    save(tree, locationPath, now, folder, false);
    if (baselineDue(baselineDate, now)) save(tree, locationPath, now, folder, true);
}

} // namespace brenvo::ScanCache
