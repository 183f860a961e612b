// How long the window can stall while live changes keep a scanned tree's remembered copy up to date.
//
//   brenvo_stall_bench TREE [SECONDS]
//
// Scans TREE (e.g. the million-file tree bench/make-tree writes) as the window does, then for SECONDS
// (default 20) writes a new file somewhere in it every 300 ms, as a download or a build would. Meanwhile a
// 1 ms timer on the main thread notes every turn of the event loop; the longest gap between two turns is
// the longest stall. For comparison it also times one save of the whole tree done in one go on the main
// thread, which is what every finished re-measure used to cost.
#include "StorageModel.h"
#include "cache/ScanCache.h"
#include "platform/Platform.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using namespace brenvo;

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: brenvo_stall_bench TREE [SECONDS]\n");
        return 2;
    }
    QCoreApplication app(argc, argv);
    const std::string tree = DiskScanner::realPath(argv[1]);
    const int seconds = argc > 2 ? std::atoi(argv[2]) : 20;

    StorageModel model;
    QElapsedTimer clock;
    clock.start();
    model.explore(tree);
    model.scan(*model.location());
    while (model.isScanning() || model.isRefreshing() || !model.watcher().isWatching())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    std::printf("scanned %s: %lld nodes' worth of files in %.2f s\n", tree.c_str(),
                static_cast<long long>(model.root()->itemCount()), clock.elapsed() / 1000.0);

    // What one save of the whole tree costs when it is done in one go.
    clock.restart();
    ScanCache::save(*model.root(), tree, Date::now(), platform::scansFolder(), false);
    const qint64 wholeSave = clock.elapsed();
    ScanCache::waitForWrites();

    // The folders to write into: every folder of the top two levels.
    std::vector<std::string> folders;
    for (FileNode* child : model.root()->children())
        if (child->isFolder()) {
            folders.push_back(child->path());
            for (FileNode* inner : child->children())
                if (inner->isFolder()) folders.push_back(inner->path());
        }
    std::vector<std::string> written;
    int next = 0;
    QTimer writer;
    QObject::connect(&writer, &QTimer::timeout, &model, [&] {
        const std::string path = folders[static_cast<size_t>(next) % folders.size()] + "/stall-bench-" +
                                 std::to_string(next) + ".bin";
        ++next;
        std::ofstream(path) << std::string(64 * 1024, 'x');
        written.push_back(path);
    });
    writer.start(300);

    qint64 longest = 0, last = 0;
    QElapsedTimer beat;
    beat.start();
    QTimer pulse;
    QObject::connect(&pulse, &QTimer::timeout, &model, [&] {
        const qint64 now = beat.elapsed();
        longest = std::max(longest, now - last);
        last = now;
    });
    pulse.start(1);
    QTimer::singleShot(seconds * 1000, &model, [] { QCoreApplication::quit(); });
    QCoreApplication::exec();
    writer.stop();
    pulse.stop();

    std::printf("one save of the whole tree on the main thread: %lld ms\n", static_cast<long long>(wholeSave));
    std::printf("%d files written over %d s; saves made: %d\n", next, seconds, model.snapshotSaves());
    std::printf("longest stall of the event loop: %lld ms\n", static_cast<long long>(longest));
    for (const std::string& path : written) std::filesystem::remove(path);
    return 0;
}
