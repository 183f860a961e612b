// The folder page's frames, drawn offscreen: the map and the list of a folder of 250 items, and the list
// of a search that finds 2,000. Each frame is what a repaint costs: the map's tile choice and layout and
// its painting, the list's painting of the rows on screen, and the rebuilding of the rows that a change of
// the tree or the order asks for.
#include "FileListModel.h"
#include "FileListView.h"
#include "FolderPage.h"
#include "DetailsColumn.h"
#include "StorageModel.h"
#include "TreemapView.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QPainter>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

using namespace brenvo;

namespace {

namespace fs = std::filesystem;

// A folder of 250 files of varied sizes and kinds, and below it 25 folders of 100 "photo" files each.
struct Fixture {
    fs::path root;
    StorageModel model;
    std::unique_ptr<FolderPage> page;

    Fixture() {
        root = fs::temp_directory_path() / ("brenvo-page-bench-" + std::to_string(::getpid()));
        fs::create_directories(root / "wide");
        const char* kinds[] = {".jpg", ".mov", ".pdf", ".zip", ".txt", ".mp3", ".dmg", ""};
        for (int i = 0; i < 250; ++i) {
            std::ofstream out(root / "wide" / ("item " + std::to_string(i) + kinds[i % 8]));
            out << std::string(static_cast<size_t>(1000 + (i * 7919) % 200000), 'x');
        }
        for (int f = 0; f < 25; ++f) {
            fs::create_directories(root / "deep" / ("album " + std::to_string(f)));
            for (int i = 0; i < 100; ++i)
                std::ofstream(root / "deep" / ("album " + std::to_string(f)) / ("photo " + std::to_string(i) + ".jpg"))
                    << std::string(static_cast<size_t>(100 + i), 'x');
        }
        QObject::connect(&model, &StorageModel::locationChanged, &model, [this] {
            if (model.location()) model.scan(*model.location());
        });
        model.explore(root.string());
        QElapsedTimer waited;
        waited.start();
        while ((model.isScanning() || !model.current()) && waited.elapsed() < 60'000)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        page = std::make_unique<FolderPage>(model);
        page->resize(900, 700);
        page->show();
        QCoreApplication::processEvents();
    }
    ~Fixture() {
        page.reset();
        std::error_code ignored;
        fs::remove_all(root, ignored);
    }
    void open(const char* folder, const char* search) {
        model.clearFilters();
        model.setCurrent(model.root()->find((root / folder).string()));
        if (*search) model.setSearchText(search);
        QCoreApplication::processEvents();
    }
};

Fixture* fixture;

void drawInto(QWidget* widget, benchmark::State& state) {
    QImage frame(widget->size(), QImage::Format_ARGB32_Premultiplied);
    for (auto _ : state) {
        QPainter painter(&frame);
        widget->render(&painter);
        benchmark::DoNotOptimize(frame.constBits());
    }
}

void MapFrame250(benchmark::State& state) {
    fixture->open("wide", "");
    TreemapView* map = fixture->page->map();
    QImage frame(map->size(), QImage::Format_ARGB32_Premultiplied);
    for (auto _ : state) {
        // A new layout each frame, as a change of the tree or the selection asks for.
        auto layout = TreemapView::layout(fixture->model.current(), fixture->model.selection(), QSizeF(map->size()));
        benchmark::DoNotOptimize(layout.tiles.data());
        QPainter painter(&frame);
        map->render(&painter);
    }
}

void ListFrame250(benchmark::State& state) {
    fixture->open("wide", "");
    drawInto(fixture->page->list(), state);
}

void ListFrameFound2000(benchmark::State& state) {
    fixture->open("deep", "photo");
    state.counters["rows"] = fixture->page->list()->model()->rowCount();
    drawInto(fixture->page->list(), state);
}

// Rebuilding the rows as a change of the tree does: listing, kinds, and sorting by kind, the dearest order.
void ListRowsFound2000(benchmark::State& state) {
    fixture->open("deep", "photo");
    fixture->model.setListOrder({StorageModel::ListColumn::kind, true});
    for (auto _ : state) {
        fixture->model.bumpRevision();
        benchmark::DoNotOptimize(fixture->page->list()->rows()->rowCount());
    }
    fixture->model.setListOrder({});
}

// The inspector drawn for 2,000 chosen items: each is explained to count the protected ones.
void InspectorAll2000(benchmark::State& state) {
    fixture->open("deep", "photo");
    QSet<quint64> all;
    for (FileNode* item : fixture->model.listItems()) all.insert(item->id());
    fixture->model.setSelection(all);
    for (auto _ : state) {
        std::unique_ptr<QWidget> detail(multipleDetail(fixture->model, fixture->model.selectedNodes(), nullptr));
        benchmark::DoNotOptimize(detail.get());
    }
    fixture->model.setSelection({});
}

void WholePageFound2000(benchmark::State& state) {
    fixture->open("deep", "photo");
    drawInto(fixture->page.get(), state);
}

} // namespace

BENCHMARK(MapFrame250)->Unit(benchmark::kMillisecond);
BENCHMARK(ListFrame250)->Unit(benchmark::kMillisecond);
BENCHMARK(ListFrameFound2000)->Unit(benchmark::kMillisecond);
BENCHMARK(ListRowsFound2000)->Unit(benchmark::kMillisecond);
BENCHMARK(InspectorAll2000)->Unit(benchmark::kMillisecond);
BENCHMARK(WholePageFound2000)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    Fixture made;
    fixture = &made;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
