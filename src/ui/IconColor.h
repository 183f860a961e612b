#pragma once

#include <QColor>
#include <QIcon>
#include <QImage>
#include <QString>
#include <optional>
#include <string>

namespace brenvo {

// The colour an icon is mostly painted in, made dark enough to carry white text: the map tints an item's
// tile with it. Answers are kept for the life of the process, "none" too. For the GUI thread only.
class IconColor {
public:
    // For a file, the colour of its type's icon; for a desktop entry (".desktop"), of the icon it names.
    static std::optional<QColor> dominant(const std::string& path);
    // For any icon, such as a running application's; `cacheKey` names it in the kept answers.
    static std::optional<QColor> dominant(const QIcon& icon, const QString& cacheKey);

    // The strongest hue among the image's clearly coloured, opaque pixels, as their weighted mean colour
    // passed through `readable`; none when too little of the image is coloured.
    static std::optional<QColor> dominantColor(const QImage& image);
    // The same hue with saturation held to 0.45…0.85 and value to 0.35…0.55.
    static QColor readable(QColor color);
};

} // namespace brenvo
