// Engine benchmarks: scanning a real tree (serial and parallel) and the tree's own operations.
// The tree to scan is BRENVO_BENCH_TREE (make one with make-tree); without it a small tree is made.
#include "cache/ScanCache.h"
#include "platform/Platform.h"
#include "scan/DiskScanner.h"
#include "tree/FileNode.h"
#include "tree/NodeArena.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <fstream>
#include <string>
#include <unistd.h>

using namespace brenvo;

namespace {

std::string benchTree() {
    if (const char* given = std::getenv("BRENVO_BENCH_TREE")) return given;
    static std::string made = [] {
        std::string dir = "/tmp/brenvo-bench-small";
        if (access(dir.c_str(), F_OK) != 0) {
            std::string command = "mkdir -p " + dir + " && cd " + dir +
                                  " && for d in $(seq 1 200); do mkdir -p d$d/e; for f in $(seq 1 100); do "
                                  "echo $f > d$d/e/f$f; done; done";
            if (std::system(command.c_str()) != 0) std::abort();
        }
        return dir;
    }();
    return made;
}

long residentBytes() {
    std::ifstream statm("/proc/self/statm");
    long size = 0, resident = 0;
    statm >> size >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

long long countNodes(const FileNode& root) {
    long long n = 0;
    std::vector<const FileNode*> stack{&root};
    while (!stack.empty()) {
        const FileNode* node = stack.back();
        stack.pop_back();
        ++n;
        for (const FileNode* c : node->children()) stack.push_back(c);
    }
    return n;
}

void scanBenchmark(benchmark::State& state, bool parallel) {
    const std::string tree = benchTree();
    ScanEnvironment env = platform::scanEnvironment();
    env.threads = static_cast<unsigned>(state.range(0));
    long long nodes = 0, files = 0;
    double bytesPerNode = 0, arenaPerNode = 0;
    for (auto _ : state) {
        const long before = residentBytes();
        DiskScanner scanner(250, {}, {}, env);
        NodeRef root = parallel ? scanner.scanInParallel(tree) : scanner.scan(tree);
        const long after = residentBytes();
        nodes = countNodes(*root);
        files = root->itemCount();
        bytesPerNode = static_cast<double>(after - before) / static_cast<double>(nodes);
        arenaPerNode = static_cast<double>(NodeArena::liveBlocks() * NodeArena::kBlockSize) / static_cast<double>(nodes);
        state.PauseTiming();
        root = nullptr; // freeing is not part of the scan
        state.ResumeTiming();
    }
    state.counters["nodes"] = static_cast<double>(nodes);
    state.counters["files/s"] = benchmark::Counter(static_cast<double>(files), benchmark::Counter::kIsIterationInvariantRate);
    state.counters["rssBytesPerNode"] = bytesPerNode;
    state.counters["arenaBytesPerNode"] = arenaPerNode;
}

void BM_ScanSerial(benchmark::State& state) { scanBenchmark(state, false); }
void BM_ScanParallel(benchmark::State& state) { scanBenchmark(state, true); }
BENCHMARK(BM_ScanSerial)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ScanParallel)->Arg(2)->Arg(4)->Arg(8)->Unit(benchmark::kMillisecond)->UseRealTime();

// A balanced tree of folders of 20 files each, like the scanner builds.
NodeRef buildTree(int64_t files) {
    NodeRef root = FileNode::make(FileNode::Kind::folder, "root");
    root->setLocation("/root");
    std::vector<NodeRef> folders;
    for (int64_t made = 0; made < files;) {
        NodeRef folder = FileNode::make(FileNode::Kind::folder, "folder-" + std::to_string(made));
        std::vector<NodeRef> children;
        for (int i = 0; i < 20 && made < files; ++i, ++made) {
            NodeRef f = FileNode::make(FileNode::Kind::file, "file-" + std::to_string(i) + ".txt", Date{1e8});
            f->setSize(4096 * (20 - i));
            f->setItemCount(1);
            folder->setSize(folder->size() + f->size());
            folder->setItemCount(folder->itemCount() + 1);
            children.push_back(std::move(f));
        }
        folder->adoptChildren(std::move(children));
        root->setSize(root->size() + folder->size());
        root->setItemCount(root->itemCount() + folder->itemCount());
        folders.push_back(std::move(folder));
    }
    root->adoptChildren(std::move(folders));
    return root;
}

void BM_TreeBuildAndFree(benchmark::State& state) {
    for (auto _ : state) {
        NodeRef root = buildTree(state.range(0));
        benchmark::DoNotOptimize(root.get());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_TreeBuildAndFree)->Arg(1'000'000)->Unit(benchmark::kMillisecond);

void BM_TreeMemory(benchmark::State& state) {
    double perNode = 0;
    for (auto _ : state) {
        const long before = residentBytes();
        NodeRef root = buildTree(state.range(0));
        perNode = static_cast<double>(residentBytes() - before) / static_cast<double>(countNodes(*root));
    }
    state.counters["rssBytesPerNode"] = perNode;
}
BENCHMARK(BM_TreeMemory)->Arg(1'000'000)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_FindDeepest(benchmark::State& state) {
    NodeRef root = buildTree(1'000'000);
    const std::string path = "/root/folder-999980/file-19.txt";
    for (auto _ : state) benchmark::DoNotOptimize(root->find(path));
}
BENCHMARK(BM_FindDeepest)->Unit(benchmark::kMicrosecond);

void BM_RemoveAndReinsert(benchmark::State& state) {
    NodeRef root = buildTree(1'000'000);
    FileNode* folder = root->children()[25'000];
    NodeRef file(folder->children()[10]);
    for (auto _ : state) {
        file->removeFromParent();
        file->reinsert(folder);
    }
}
BENCHMARK(BM_RemoveAndReinsert)->Unit(benchmark::kMicrosecond);

// Peak resident memory since the last reset, in bytes; resetting needs Linux 4.0 or later.
void resetPeak() { std::ofstream("/proc/self/clear_refs") << "5"; }
long peakBytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.starts_with("VmHWM:")) return std::stol(line.substr(6)) * 1024;
    return 0;
}

NodeRef scannedTree() {
    static NodeRef tree = DiskScanner(250, {}, {}, platform::scanEnvironment()).scanInParallel(benchTree());
    return tree;
}

// Writing the snapshot of the scanned tree: time, file bytes per entry, and the peak memory it adds to the
// tree's own.
void BM_SnapshotWrite(benchmark::State& state) {
    NodeRef root = scannedTree();
    const long long nodes = countNodes(*root);
    const std::string file = "/tmp/brenvo-bench-snapshot.plist";
    double extra = 0, bytesPerEntry = 0;
    for (auto _ : state) {
        resetPeak();
        const long before = residentBytes();
        std::FILE* out = std::fopen(file.c_str(), "wb");
        ScanCache::encodeSnapshot(*root, Date::now(), out);
        bytesPerEntry = static_cast<double>(std::ftell(out)) / static_cast<double>(nodes);
        std::fclose(out);
        extra = static_cast<double>(peakBytes() - before);
    }
    state.counters["fileBytesPerEntry"] = bytesPerEntry;
    state.counters["peakExtraMB"] = extra / 1e6;
}
BENCHMARK(BM_SnapshotWrite)->Unit(benchmark::kMillisecond)->Iterations(3);

// Reading it back into a tree. The extra memory is what reading costs beyond the tree it builds; the
// mapped file's pages are the system's cache, counted apart.
void BM_SnapshotRead(benchmark::State& state) {
    const std::string file = "/tmp/brenvo-bench-snapshot.plist";
    double extra = 0, treeMB = 0;
    for (auto _ : state) {
        resetPeak();
        const long before = residentBytes();
        auto snapshot = ScanCache::readSnapshot(file);
        const long after = residentBytes();
        extra = static_cast<double>(peakBytes() - after);
        treeMB = static_cast<double>(after - before) / 1e6;
        benchmark::DoNotOptimize(snapshot);
        state.PauseTiming();
        snapshot.reset();
        state.ResumeTiming();
    }
    state.counters["treeMB"] = treeMB;
    state.counters["peakExtraMB"] = extra / 1e6;
}
BENCHMARK(BM_SnapshotRead)->Unit(benchmark::kMillisecond)->Iterations(3);

} // namespace

BENCHMARK_MAIN();
