#pragma once

#include <QCache>
#include <QImage>
#include <QObject>
#include <QSet>
#include <QString>

#ifndef Q_MOC_RUN
#include <optional>
#include <string>
#endif

namespace brenvo {

// Small pictures of files, made off the GUI thread and kept for the screens. A picture comes from the
// freedesktop thumbnail cache when it holds a current one, else from the file itself when Qt can read it
// as an image; anything else is remembered as a failure for the life of the process and never tried
// again. Sizes go up a ladder so a row and a tile of slightly different sizes share one picture. Pictures
// are in device pixels: at most ladder(points) × the primary screen's pixel ratio (1 without a screen,
// as a headless run draws at 1) on their longer side, with that ratio set on the image.
// The API is for the GUI thread only.
class ThumbnailCache : public QObject {
    Q_OBJECT
public:
    explicit ThumbnailCache(QObject* parent = nullptr);

    // The instance the screens share; it lives as long as the process.
    static ThumbnailCache& shared();

    // Points rounded up to 32, 64, 128, 256 or 512; never more than 512, never less than 32.
    static int ladder(double points);
    // "path@size", the name a picture goes by and the one `ready` announces.
    static QString key(const std::string& path, double points);

    std::optional<QImage> cached(const std::string& path, double points);
    // Whether the file has been found to give no picture (at any size).
    bool failed(const std::string& path) const;
    // Starts making the picture unless it is kept, failed or already on its way; `ready` follows either way
    // it ends, so a view can look again.
    void request(const std::string& path, double points);

    // How many pictures this cache has set out to make: lets tests see that a failure is not retried.
    int attempts() const { return attempts_; }

signals:
    void ready(const QString& key);

private:
    void finish(const QString& key, const QString& path, const QImage& image);

    // Kilobytes. Generous, as the pictures are small, but bounded so a long session browsing photo
    // folders gives the oldest back.
    static constexpr qsizetype kCostLimit = 256 * 1024;
    QCache<QString, QImage> images_{kCostLimit};
    QSet<QString> failures_; // by path
    QSet<QString> inFlight_; // by key
    int attempts_ = 0;
};

} // namespace brenvo
