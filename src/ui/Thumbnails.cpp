#include "Thumbnails.h"

#include "MainThread.h"
#include "Text.h"
#include "scan/FileSystem.h"

#include <QCryptographicHash>
#include <QFile>
#include <QGuiApplication>
#include <QImageReader>
#include <QPointer>
#include <QScreen>
#include <QThreadPool>
#include <QUrl>
#include <algorithm>
#include <cmath>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace brenvo {

namespace {

// A file bigger than this is not decoded for a picture: the decode would cost more than the picture is worth.
constexpr off_t kLargestImageFile = off_t(200) << 20;

struct Job {
    std::string path;
    std::string thumbnails; // the freedesktop cache's folder, as bytes
    int pixels = 0;         // the longer side the picture may have
};

// Where the freedesktop thumbnail cache lives, by the XDG rules: a relative XDG_CACHE_HOME is ignored.
std::string thumbnailFolder() {
    std::string base = qgetenv("XDG_CACHE_HOME").toStdString();
    if (base.empty() || base.front() != '/') base = qgetenv("HOME").toStdString() + "/.cache";
    return base + "/thumbnails";
}

// The file's URI as GLib spells it, which is what most thumbnailers hash: every byte outside the few a
// path may keep is percent-encoded, so a name that is not UTF-8 is found too.
std::string glibURI(std::string_view path) {
    static constexpr std::string_view kept = "!$&'()*+,-./:=@_~";
    static const char digits[] = "0123456789ABCDEF";
    std::string out = "file://";
    for (unsigned char c : path) {
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
            kept.find(char(c)) != std::string_view::npos) {
            out.push_back(char(c));
        } else {
            out.push_back('%');
            out.push_back(digits[c >> 4]);
            out.push_back(digits[c & 15]);
        }
    }
    return out;
}

// The names the cache may hold the file under: GLib's, and Qt's where that differs (as for ';').
std::vector<std::string> thumbnailNames(const std::string& path) {
    std::vector<std::string> uris{glibURI(path)};
    const QString text = QString::fromUtf8(path);
    if (text.toUtf8().toStdString() == path) { // Qt can't spell a name that is not UTF-8
        std::string qt = QUrl::fromLocalFile(text).toString(QUrl::FullyEncoded).toStdString();
        if (qt != uris.front()) uris.push_back(std::move(qt));
    }
    std::vector<std::string> names;
    for (const std::string& uri : uris) {
        const QByteArray digest =
            QCryptographicHash::hash(QByteArray::fromStdString(uri), QCryptographicHash::Md5);
        names.push_back(digest.toHex().toStdString() + ".png");
    }
    return names;
}

QImage fitted(QImage image, int pixels) {
    if (image.width() > pixels || image.height() > pixels)
        image = image.scaled(pixels, pixels, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    return image;
}

// Reads an image from a regular file through a descriptor of our own: the path stays bytes, a symbolic
// link is never followed, and a FIFO swapped in after a check can't block the read. `stamp` receives the
// image's modification-time text, if it carries one.
QImage readImage(const std::string& path, int pixels, QString* stamp = nullptr) {
    fs::Descriptor file{::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)};
    struct stat st {};
    if (!file.valid() || ::fstat(file.get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > kLargestImageFile)
        return {};
    QFile device;
    if (!device.open(file.get(), QIODevice::ReadOnly, QFileDevice::DontCloseHandle)) return {};
    QImageReader reader(&device);
    reader.setDecideFormatFromContent(true);
    reader.setAutoTransform(true);
    if (!reader.canRead()) return {};
    const QSize size = reader.size();
    if (size.isValid() && (size.width() > pixels || size.height() > pixels))
        reader.setScaledSize(size.scaled(pixels, pixels, Qt::KeepAspectRatio).expandedTo(QSize(1, 1)));
    const QImage image = reader.read();
    if (image.isNull()) return image;
    if (stamp) {
        const QString name = QStringLiteral("Thumb::MTime");
        *stamp = image.text(name);
        if (stamp->isEmpty()) *stamp = reader.text(name);
    }
    return fitted(image, pixels);
}

// A current picture from the freedesktop cache: the smallest folder that is big enough, else the biggest
// there is. One made before the file last changed is passed over.
QImage fromThumbnailCache(const Job& job, const struct stat& file) {
    struct Folder {
        const char* name;
        int pixels;
    };
    static constexpr Folder kFolders[] = {
        {"normal", 128}, {"large", 256}, {"x-large", 512}, {"xx-large", 1024}};
    std::vector<Folder> order;
    for (const Folder& folder : kFolders)
        if (folder.pixels >= job.pixels) order.push_back(folder);
    for (auto it = std::rbegin(kFolders); it != std::rend(kFolders); ++it)
        if (it->pixels < job.pixels) order.push_back(*it);

    const std::vector<std::string> names = thumbnailNames(job.path);
    for (const Folder& folder : order)
        for (const std::string& name : names) {
            QString stamp;
            const QImage image =
                readImage(job.thumbnails + "/" + folder.name + "/" + name, job.pixels, &stamp);
            if (image.isNull()) continue;
            bool ok = true;
            if (!stamp.isEmpty() && (stamp.trimmed().toLongLong(&ok) != qint64(file.st_mtim.tv_sec) || !ok))
                continue;
            return image;
        }
    return {};
}

// Runs on a pool thread; a null image is a failure.
QImage makePicture(const Job& job) {
    struct stat st {};
    if (::lstat(job.path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return {};
    QImage image = fromThumbnailCache(job, st);
    if (image.isNull()) image = readImage(job.path, job.pixels);
    return image;
}

} // namespace

ThumbnailCache::ThumbnailCache(QObject* parent) : QObject(parent) {}

ThumbnailCache& ThumbnailCache::shared() {
    static ThumbnailCache cache;
    return cache;
}

int ThumbnailCache::ladder(double points) {
    for (int size : {32, 64, 128, 256})
        if (!(points > size)) return size; // NaN lands on the smallest
    return 512;
}

QString ThumbnailCache::key(const std::string& path, double points) {
    return toQString(path) + QLatin1Char('@') + QString::number(ladder(points));
}

std::optional<QImage> ThumbnailCache::cached(const std::string& path, double points) {
    if (const QImage* image = images_.object(key(path, points))) return *image;
    return std::nullopt;
}

bool ThumbnailCache::failed(const std::string& path) const {
    return failures_.contains(toQString(path));
}

void ThumbnailCache::request(const std::string& path, double points) {
    const QString name = key(path, points);
    if (images_.contains(name) || failed(path) || inFlight_.contains(name)) return;
    inFlight_.insert(name);
    ++attempts_;

    const QScreen* screen = QGuiApplication::primaryScreen();
    const qreal ratio = screen ? screen->devicePixelRatio() : 1.0;
    Job job{path, thumbnailFolder(), int(std::ceil(ladder(points) * ratio))};
    QThreadPool::globalInstance()->start([job = std::move(job), name, ratio, target = QPointer(this)] {
        QImage image = makePicture(job);
        if (!image.isNull()) image.setDevicePixelRatio(ratio);
        // The pointer is only read back on the GUI thread; the pool is drained before the application goes.
        postToMain(target, [name, path = toQString(job.path), image](ThumbnailCache& cache) {
            cache.finish(name, path, image);
        });
    });
}

void ThumbnailCache::finish(const QString& key, const QString& path, const QImage& image) {
    inFlight_.remove(key);
    if (image.isNull()) {
        failures_.insert(path);
    } else {
        images_.insert(key, new QImage(image), std::max<qsizetype>(1, image.sizeInBytes() / 1024));
    }
    emit ready(key);
}

} // namespace brenvo
