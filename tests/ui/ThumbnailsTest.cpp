#include "Thumbnails.h"
#include "EventLoop.h"
#include "TempTree.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QDir>
#include <QImage>
#include <QUrl>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace brenvo;
using brenvo::test::TempTree;
using brenvo::test::waitFor;

namespace {

QImage solid(QSize size, QColor colour) {
    QImage image(size, QImage::Format_ARGB32);
    image.fill(colour);
    return image;
}

// Written as bytes, so the path may be any name; a thumbnail may carry its file's modification time.
void writePng(const std::string& path, QImage image, std::optional<qint64> mtime = std::nullopt) {
    if (mtime) image.setText(QStringLiteral("Thumb::MTime"), QString::number(*mtime));
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    ASSERT_TRUE(image.save(&buffer, "PNG"));
    std::ofstream(path, std::ios::binary).write(bytes.constData(), bytes.size());
}

qint64 mtimeOf(const std::string& path) {
    struct stat st {};
    ::lstat(path.c_str(), &st);
    return st.st_mtim.tv_sec;
}

// Where a thumbnailer keeps the picture of the file at `uri` in one of the cache's folders.
std::string cacheEntryFor(const std::string& uri, const char* folder) {
    const QString dir =
        qEnvironmentVariable("XDG_CACHE_HOME") + QStringLiteral("/thumbnails/") + QLatin1String(folder);
    QDir().mkpath(dir);
    const QByteArray digest =
        QCryptographicHash::hash(QByteArray::fromStdString(uri), QCryptographicHash::Md5).toHex();
    return dir.toStdString() + "/" + digest.toStdString() + ".png";
}

std::string cacheEntry(const std::string& path, const char* folder) {
    const QUrl url = QUrl::fromLocalFile(QString::fromStdString(path));
    return cacheEntryFor(url.toString(QUrl::FullyEncoded).toStdString(), folder);
}

// Asks for a picture and runs the event loop until the cache says it is done; null for a failure.
QImage picture(ThumbnailCache& cache, const std::string& path, double points) {
    bool done = false;
    const QString key = ThumbnailCache::key(path, points);
    const QMetaObject::Connection watch = QObject::connect(
        &cache, &ThumbnailCache::ready, &cache, [&](const QString& ready) { done |= ready == key; });
    cache.request(path, points);
    EXPECT_TRUE(waitFor([&] { return done; })) << path;
    QObject::disconnect(watch);
    return cache.cached(path, points).value_or(QImage());
}

QColor centre(const QImage& image) {
    return image.pixelColor(image.width() / 2, image.height() / 2);
}

} // namespace

TEST(Thumbnails, SizesClimbALadderThatStopsAt512) {
    const std::pair<double, int> rows[] = {{-4, 32},   {0, 32},    {1, 32},    {32, 32},   {32.5, 64},
                                           {33, 64},   {64, 64},   {100, 128}, {256, 256}, {300, 512},
                                           {512, 512}, {600, 512}, {1e9, 512}};
    for (const auto& [points, size] : rows)
        EXPECT_EQ(ThumbnailCache::ladder(points), size) << points;
    EXPECT_EQ(ThumbnailCache::key("/a/b.png", 33), QStringLiteral("/a/b.png@64"));
    EXPECT_EQ(&ThumbnailCache::shared(), &ThumbnailCache::shared());
}

TEST(Thumbnails, AnImageGivesAPictureThatFitsItsRungAndIsKept) {
    TempTree tree;
    const std::string wide = tree.path("wide.png"), oddName = tree.path("caf\xe9-\xff.png");
    writePng(wide, solid({1000, 500}, Qt::red));
    writePng(oddName, solid({50, 80}, Qt::blue)); // smaller than asked: not enlarged
    ThumbnailCache cache;

    const QImage shown = picture(cache, wide, 40); // offscreen screens draw at ratio 1
    EXPECT_EQ(shown.size(), QSize(64, 32));
    EXPECT_EQ(centre(shown), QColor(Qt::red));
    EXPECT_EQ(picture(cache, wide, 300).size(), QSize(512, 256));
    const QImage odd = picture(cache, oddName, 100);
    EXPECT_EQ(odd.size(), QSize(50, 80));
    EXPECT_EQ(centre(odd), QColor(Qt::blue));

    const int attempts = cache.attempts();
    cache.request(wide, 60); // the same rung: kept, not made again
    EXPECT_EQ(cache.attempts(), attempts);
    EXPECT_FALSE(cache.failed(wide));
}

TEST(Thumbnails, WhatGivesNoPictureFailsOnceAndIsNeverTriedAgain) {
    TempTree tree;
    tree.file("notes.txt", 5000);
    tree.file("empty.png");
    writePng(tree.path("real.png"), solid({20, 20}, Qt::green));
    tree.symlink("real.png", "link.png"); // a link is never followed, even to a good picture
    std::ofstream(tree.path("damaged.png"), std::ios::binary) << "\x89PNG\r\n\x1a\n" << std::string(300, 'x');
    ASSERT_EQ(::mkfifo(tree.path("pipe.png").c_str(), 0600), 0); // must not block a worker
    tree.folder("folder.png");
    ThumbnailCache cache;

    for (const char* name :
         {"notes.txt", "empty.png", "link.png", "damaged.png", "pipe.png", "folder.png", "missing.png"}) {
        SCOPED_TRACE(name);
        const std::string path = tree.path(name);
        EXPECT_TRUE(picture(cache, path, 64).isNull());
        EXPECT_TRUE(cache.failed(path));
        const int attempts = cache.attempts();
        cache.request(path, 64);
        cache.request(path, 512);
        EXPECT_EQ(cache.attempts(), attempts);
    }
    EXPECT_FALSE(picture(cache, tree.path("real.png"), 64).isNull());
}

TEST(Thumbnails, TheDesktopThumbnailCacheIsUsedWhileItIsCurrent) {
    TempTree tree;
    const std::string current = tree.path("current.png"), stale = tree.path("stale.png"),
                      sized = tree.path("sized.png");
    for (const std::string& path : {current, stale, sized})
        writePng(path, solid({300, 300}, Qt::red));
    writePng(cacheEntry(current, "normal"), solid({128, 128}, Qt::green), mtimeOf(current));
    writePng(cacheEntry(stale, "normal"), solid({128, 128}, Qt::green), mtimeOf(stale) - 60);
    // The smallest folder that is big enough wins; without one, the biggest there is.
    writePng(cacheEntry(sized, "normal"), solid({128, 128}, Qt::green), mtimeOf(sized));
    writePng(cacheEntry(sized, "large"), solid({256, 256}, Qt::blue), mtimeOf(sized));
    ThumbnailCache cache;

    const QImage fromCache = picture(cache, current, 64);
    EXPECT_EQ(fromCache.size(), QSize(64, 64));
    EXPECT_EQ(centre(fromCache), QColor(Qt::green));
    EXPECT_EQ(centre(picture(cache, stale, 64)), QColor(Qt::red));
    EXPECT_EQ(centre(picture(cache, sized, 100)), QColor(Qt::green));
    EXPECT_EQ(centre(picture(cache, sized, 200)), QColor(Qt::blue));
    EXPECT_EQ(centre(picture(cache, sized, 512)), QColor(Qt::blue));

    // A name that is not UTF-8 is found under the URI GLib gives it, every other byte percent-encoded.
    const std::string odd = tree.path("odd \xe9;.png");
    writePng(odd, solid({300, 300}, Qt::red));
    writePng(cacheEntryFor("file://" + tree.root() + "/odd%20%E9%3B.png", "normal"),
             solid({128, 128}, Qt::green), mtimeOf(odd));
    EXPECT_EQ(centre(picture(cache, odd, 64)), QColor(Qt::green));
}
