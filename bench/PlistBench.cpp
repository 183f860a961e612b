// Binary property-list codec on a snapshot-shaped tree of about a million entries: writing it, and
// reading every field of every entry back.
#include "plist/BinaryReader.h"
#include "plist/BinaryWriter.h"

#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

using namespace brenvo::plist;

namespace {

using Ref = BinaryWriter::Ref;

// Folders five deep with eight subfolders and thirty files each: 37,449 folders, 1,123,470 files.
constexpr int kDepth = 5;
constexpr int kSubfolders = 8;
constexpr int kFiles = 30;

struct Written {
    Ref ref;
    std::int64_t size;
    std::int64_t count;
};

std::uint64_t mix(std::uint64_t x) {
    x ^= x >> 33;
    x *= 0xff51afd7ed558ccdULL;
    return x ^ (x >> 29);
}

Written writeFolder(BinaryWriter& w, int depth, std::uint64_t& serial) {
    std::vector<Ref> children;
    std::int64_t size = 0, count = 0;
    if (depth < kDepth) {
        for (int i = 0; i < kSubfolders; ++i) {
            const Written sub = writeFolder(w, depth + 1, serial);
            children.push_back(sub.ref);
            size += sub.size;
            count += sub.count;
        }
    }
    for (int i = 0; i < kFiles; ++i) {
        const std::uint64_t h = mix(++serial);
        // One name in fifty is not ASCII, and one in five hundred not valid UTF-8.
        std::string name = (h % 50 == 0 ? "r\xc3\xa9sum\xc3\xa9-" : "document-") + std::to_string(serial);
        if (h % 500 == 0) name += "\xff";
        name += ".dat";
        const auto fileSize = static_cast<std::int64_t>(h % 10'000'000);
        const std::pair<Ref, Ref> m[] = {
            {w.key("n"), w.string(name)},
            {w.key("k"), w.integer(0)},
            {w.key("s"), w.integer(fileSize)},
            {w.key("c"), w.integer(1)},
            {w.key("m"), w.date(700'000'000.0 + static_cast<double>(h % 100'000'000))},
        };
        children.push_back(w.dict(m));
        size += fileSize;
        ++count;
    }
    const std::pair<Ref, Ref> m[] = {
        {w.key("n"), w.string("folder-" + std::to_string(++serial))},
        {w.key("k"), w.integer(1)},
        {w.key("s"), w.integer(size)},
        {w.key("c"), w.integer(count + 1)},
        {w.key("ch"), w.array(children)},
    };
    return {w.dict(m), size, count + 1};
}

std::string writeSnapshot(std::size_t* overhead = nullptr, std::int64_t* entries = nullptr) {
    std::string out;
    BinaryWriter w(out);
    std::uint64_t serial = 0;
    const Written root = writeFolder(w, 0, serial);
    const std::pair<Ref, Ref> top[] = {
        {w.key("rootPath"), w.string("/Volumes/Data")},
        {w.key("date"), w.date(760'000'000.0)},
        {w.key("root"), root.ref},
    };
    if (overhead) *overhead = w.overheadBytes();
    if (entries) *entries = root.count;
    if (!w.finish(w.dict(top))) std::abort();
    return out;
}

void BM_PlistWriteTree(benchmark::State& state) {
    std::int64_t entries = 0;
    std::size_t overhead = 0, bytes = 0;
    for (auto _ : state) {
        const std::string out = writeSnapshot(&overhead, &entries);
        bytes = out.size();
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * entries);
    state.counters["entries"] = static_cast<double>(entries);
    state.counters["bytes_per_entry"] = static_cast<double>(bytes) / static_cast<double>(entries);
    state.counters["writer_overhead_per_entry"] =
        static_cast<double>(overhead) / static_cast<double>(entries);
}
BENCHMARK(BM_PlistWriteTree)->Unit(benchmark::kMillisecond);

// Every field of every entry, the way a snapshot loader reads them.
void BM_PlistReadTree(benchmark::State& state) {
    const std::string file = writeSnapshot();
    std::int64_t entries = 0;
    for (auto _ : state) {
        const auto reader = BinaryReader::open(file);
        if (!reader || !reader->isTree(reader->top(), 4096)) std::abort();
        const auto top = reader->dict(reader->top());
        std::vector<BinaryReader::Ref> pending{top->find("root")};
        std::int64_t total = 0;
        entries = 0;
        while (!pending.empty()) {
            const auto entry = reader->dict(pending.back());
            pending.pop_back();
            const auto name = reader->string(entry->find("n"));
            total += name->size() + *reader->integer(entry->find("k")) + *reader->integer(entry->find("s")) +
                     *reader->integer(entry->find("c"));
            total += static_cast<std::int64_t>(reader->date(entry->find("m")).value_or(0));
            total += reader->boolean(entry->find("r")).value_or(false);
            total += static_cast<std::int64_t>(reader->string(entry->find("x")).value_or("").size());
            if (const auto children = reader->array(entry->find("ch"))) {
                for (std::size_t i = 0; i < children->size(); ++i)
                    pending.push_back(children->at(i));
            }
            ++entries;
        }
        benchmark::DoNotOptimize(total);
    }
    state.SetItemsProcessed(state.iterations() * entries);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(file.size()));
    state.counters["entries"] = static_cast<double>(entries);
}
BENCHMARK(BM_PlistReadTree)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
