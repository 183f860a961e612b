#include "IconColor.h"

#include "FileIcons.h"
#include "Text.h"

#include <QHash>
#include <QPainter>
#include <QPixmap>
#include <algorithm>
#include <array>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace brenvo {

namespace {

QHash<QString, std::optional<QColor>>& answers() {
    static QHash<QString, std::optional<QColor>> kept;
    return kept;
}

// The Icon= value of a desktop entry's main group; empty when there is none or the file can't be read.
// A link is not followed and only the first 64 KiB count: an entry is a few lines.
std::string desktopEntryIcon(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) return {};
    std::string text;
    struct stat st {};
    if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
        text.resize(64 * 1024);
        const ssize_t got = ::read(fd, text.data(), text.size());
        text.resize(got > 0 ? size_t(got) : 0);
    }
    ::close(fd);

    bool inEntry = false;
    std::string_view rest = text;
    while (!rest.empty()) {
        const size_t end = std::min(rest.find('\n'), rest.size());
        std::string_view line = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        if (line.starts_with('[')) {
            inEntry = line == "[Desktop Entry]";
        } else if (inEntry && line.starts_with("Icon")) {
            line.remove_prefix(4);
            while (line.starts_with(' '))
                line.remove_prefix(1);
            if (!line.starts_with('=')) continue; // Icon[de]= and the like
            line.remove_prefix(1);
            while (line.starts_with(' '))
                line.remove_prefix(1);
            while (line.ends_with(' '))
                line.remove_suffix(1);
            return std::string(line);
        }
    }
    return {};
}

std::string_view fileName(std::string_view path) {
    const size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

} // namespace

std::optional<QColor> IconColor::dominant(const std::string& path) {
    const QString key = toQString(path);
    auto found = answers().constFind(key);
    if (found != answers().constEnd()) return *found;

    std::optional<QColor> colour;
    const std::string_view name = fileName(path);
    const std::string named = name.ends_with(".desktop") ? desktopEntryIcon(path) : std::string();
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
