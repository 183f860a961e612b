#include "ThumbnailView.h"

#include "Thumbnails.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

namespace brenvo {

ThumbnailView::ThumbnailView(const std::string& path, double points, QIcon placeholder, QWidget* parent)
    : QWidget(parent), path_(path), points_(points), placeholder_(std::move(placeholder)) {
    ThumbnailCache& cache = ThumbnailCache::shared();
    connect(&cache, &ThumbnailCache::ready, this, [this](const QString& key) {
        if (key == ThumbnailCache::key(path_, points_)) look();
    });
    look();
    if (image_.isNull()) cache.request(path_, points_);
}

void ThumbnailView::look() {
    if (auto image = ThumbnailCache::shared().cached(path_, points_)) {
        image_ = *image;
        update();
    }
}

void ThumbnailView::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::SmoothPixmapTransform);
    if (image_.isNull()) {
        const int side = std::min(width(), height());
        placeholder_.paint(&p, QRect((width() - side) / 2, (height() - side) / 2, side, side));
        return;
    }
    // Fitted whole, never enlarged past the picture's own pixels.
    QSizeF shown = QSizeF(image_.size()) / image_.devicePixelRatio();
    if (shown.width() > width() || shown.height() > height()) shown.scale(size(), Qt::KeepAspectRatio);
    const QRectF spot((width() - shown.width()) / 2, (height() - shown.height()) / 2, shown.width(), shown.height());
    if (radius_ > 0) {
        QPainterPath clip;
        clip.addRoundedRect(spot, radius_, radius_);
        p.setClipPath(clip);
    }
    p.drawImage(spot, image_);
}

void ThumbnailView::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) emit activated();
}

} // namespace brenvo
