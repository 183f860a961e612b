#include "IconColor.h"

#include "FileIcons.h"
#include "Text.h"
#include "explain/AppCatalog.h"
#include "tree/FileNode.h"

#include <QHash>
#include <QPainter>
#include <QPixmap>
#include <algorithm>
#include <array>
#include <string_view>

namespace brenvo {

namespace {

QHash<QString, std::optional<QColor>>& answers() {
    static QHash<QString, std::optional<QColor>> kept;
    return kept;
}

} // namespace

std::optional<QColor> IconColor::dominant(const std::string& path) {
    const QString key = toQString(path);
    auto found = answers().constFind(key);
    if (found != answers().constEnd()) return *found;

    std::optional<QColor> colour;
    const std::string_view name = lastPathComponent(path);
    std::string named;
    if (name.ends_with(".desktop"))
        if (auto entry = AppCatalog::readDesktopEntry(path, std::string(name))) named = entry->icon;
    if (!named.empty()) {
        const QString iconName = toQString(named);
        const QIcon icon =
            iconName.startsWith(QLatin1Char('/')) ? QIcon(iconName) : QIcon::fromTheme(iconName);
        colour = dominant(icon, QStringLiteral("icon:") + iconName);
    } else {
        // Files of one type share an icon, so they share the work too.
        const QIcon icon = iconForFileName(name);
        colour = icon.name().isEmpty() ? dominantColor(icon.pixmap(64).toImage())
                                       : dominant(icon, QStringLiteral("icon:") + icon.name());
    }
    answers().insert(key, colour);
    return colour;
}

std::optional<QColor> IconColor::dominant(const QIcon& icon, const QString& cacheKey) {
    auto found = answers().constFind(cacheKey);
    if (found != answers().constEnd()) return *found;
    const std::optional<QColor> colour =
        icon.isNull() ? std::nullopt : dominantColor(icon.pixmap(64).toImage());
    answers().insert(cacheKey, colour);
    return colour;
}

std::optional<QColor> IconColor::dominantColor(const QImage& image) {
    if (image.isNull()) return std::nullopt;
    QImage small(32, 32, QImage::Format_ARGB32);
    small.fill(Qt::transparent);
    {
        QPainter painter(&small);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(small.rect(), image);
    }

    struct Bucket {
        double weight = 0, r = 0, g = 0, b = 0;
    };
    std::array<Bucket, 12> buckets{};
    for (int y = 0; y < small.height(); ++y)
        for (int x = 0; x < small.width(); ++x) {
            const QColor pixel = small.pixelColor(x, y);
            const float saturation = pixel.hsvSaturationF(), value = pixel.valueF();
            if (pixel.alphaF() <= 0.5f || saturation <= 0.25f || value <= 0.2f) continue;
            const float hue = std::max(pixel.hsvHueF(), 0.0f); // 0…1; -1 only for greys, filtered above
            Bucket& bucket = buckets[size_t(int(hue * 12) % 12)];
            const double weight = double(saturation) * value;
            bucket.weight += weight;
            bucket.r += weight * pixel.redF();
            bucket.g += weight * pixel.greenF();
            bucket.b += weight * pixel.blueF();
        }
    const Bucket& best = *std::max_element(
        buckets.begin(), buckets.end(), [](const Bucket& a, const Bucket& b) { return a.weight < b.weight; });
    // Out of 1,024 pixels: anything less is a grey icon or a small accent on one.
    if (!(best.weight > 20)) return std::nullopt;
    return readable(QColor::fromRgbF(float(best.r / best.weight), float(best.g / best.weight),
                                     float(best.b / best.weight), 1.0f));
}

QColor IconColor::readable(QColor color) {
    const QColor hsv = color.toHsv();
    return QColor::fromHsvF(hsv.hsvHueF(), std::clamp(hsv.hsvSaturationF(), 0.45f, 0.85f),
                            std::clamp(hsv.valueF(), 0.35f, 0.55f));
}

} // namespace brenvo
