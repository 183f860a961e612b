#include "IconColor.h"
#include "FileIcons.h"
#include "Icons.h"
#include "TempTree.h"
#include "tree/FileNode.h"

#include <QPainter>
#include <fstream>
#include <gtest/gtest.h>

using namespace brenvo;
using brenvo::test::TempTree;

namespace {

QImage filled(QColor colour, QSize size = {64, 64}) {
    QImage image(size, QImage::Format_ARGB32);
    image.fill(colour);
    return image;
}

void expectReadable(const QColor& colour, int hue) {
    const QColor hsv = colour.toHsv();
    const int off = std::abs(hsv.hsvHue() - hue);
    EXPECT_LE(std::min(off, 360 - off), 8) << hsv.hsvHue();
    EXPECT_GE(hsv.hsvSaturationF(), 0.45f - 1e-3f);
    EXPECT_LE(hsv.hsvSaturationF(), 0.85f + 1e-3f);
    EXPECT_GE(hsv.valueF(), 0.35f - 1e-3f);
    EXPECT_LE(hsv.valueF(), 0.55f + 1e-3f);
    EXPECT_EQ(colour.alpha(), 255);
}

} // namespace

TEST(IconColor, TheStrongestHueWinsAndComesOutReadable) {
    const std::optional<QColor> red = IconColor::dominantColor(filled(Qt::red));
    ASSERT_TRUE(red);
    expectReadable(*red, 0);

    // Mostly grey with a blue third: the blue is what the eye takes from it.
    QImage mixed = filled(Qt::gray, {90, 90});
    QPainter(&mixed).fillRect(0, 0, 30, 90, QColor(30, 80, 220));
    const std::optional<QColor> blue = IconColor::dominantColor(mixed);
    ASSERT_TRUE(blue);
    expectReadable(*blue, QColor(30, 80, 220).hsvHue());

    // Pale and dark colours are pulled into the band white text reads on.
    expectReadable(IconColor::readable(QColor::fromHsvF(0.33f, 0.1f, 1.0f)), 119);
    expectReadable(IconColor::readable(QColor::fromHsvF(0.66f, 1.0f, 0.25f)), 238);
}

TEST(IconColor, GreyFaintOrTinyColourIsNone) {
    EXPECT_FALSE(IconColor::dominantColor(filled(Qt::gray)));
    EXPECT_FALSE(IconColor::dominantColor(filled(QColor(255, 0, 0, 100)))); // mostly see-through
    EXPECT_FALSE(IconColor::dominantColor(filled(QColor(40, 0, 0))));       // too dark to be a colour
    EXPECT_FALSE(IconColor::dominantColor(QImage()));
    QImage dot = filled(Qt::transparent);
    QPainter(&dot).fillRect(30, 30, 4, 4, Qt::red);
    EXPECT_FALSE(IconColor::dominantColor(dot));
}

TEST(IconColor, ADesktopEntryGivesItsIconsColourAndAnswersAreKept) {
    TempTree tree;
    const std::string picture = tree.path("green.png");
    ASSERT_TRUE(filled(QColor(20, 200, 40)).save(QString::fromStdString(picture)));
    const std::string entry = tree.path("Tool \xff.desktop");
    std::ofstream(entry) << "[Desktop Action x]\nIcon=nothing\n[Desktop Entry]\nName=Tool\nIcon[de]=nothing\n"
                         << "Icon = " << picture << "\n";
    const std::optional<QColor> green = IconColor::dominant(entry);
    ASSERT_TRUE(green);
    expectReadable(*green, QColor(20, 200, 40).hsvHue());

    ASSERT_TRUE(filled(Qt::blue).save(QString::fromStdString(picture)));
    EXPECT_EQ(IconColor::dominant(entry), green); // kept for the life of the process

    EXPECT_EQ(IconColor::dominant(QIcon(QPixmap::fromImage(filled(Qt::gray))), QStringLiteral("test:grey")),
              std::nullopt);
    EXPECT_EQ(IconColor::dominant(QIcon(QPixmap::fromImage(filled(Qt::red))), QStringLiteral("test:grey")),
              std::nullopt);
}

TEST(FileIcons, FoldersAndTheFoldedTailGetSymbolsAndFilesTheirTypesIcon) {
    NodeRef folder = FileNode::make(FileNode::Kind::folder, "Music");
    NodeRef unreadable = FileNode::make(FileNode::Kind::folder, "private");
    unreadable->setCouldNotRead(true);
    NodeRef skipped = FileNode::make(FileNode::Kind::folder, "proc");
    skipped->setSkippedReason("a kernel file system");
    NodeRef tail = FileNode::make(FileNode::Kind::aggregate, "12 more");
    EXPECT_EQ(fileIcon(*folder).cacheKey(), icon("folder").cacheKey());
    EXPECT_EQ(fileIcon(*unreadable).cacheKey(), icon("folder.badge.questionmark").cacheKey());
    EXPECT_EQ(fileIcon(*skipped).cacheKey(), icon("folder.badge.questionmark").cacheKey());
    EXPECT_EQ(fileIcon(*tail).cacheKey(), icon("square.stack.3d.up").cacheKey());

    const QIcon png = fileIcon(*FileNode::make(FileNode::Kind::file, "photo.png"));
    const QIcon text = fileIcon(*FileNode::make(FileNode::Kind::file, "notes.txt"));
    // Same type, same icon object: the answer was kept.
    EXPECT_EQ(fileIcon(*FileNode::make(FileNode::Kind::file, "other \xff.PNG")).cacheKey(), png.cacheKey());
    for (const char* name : {"photo.png", "notes.txt", "no-extension", "odd.\xff\xfe", "x.qqqzzz"}) {
        SCOPED_TRACE(name);
        EXPECT_FALSE(fileIcon(*FileNode::make(FileNode::Kind::file, name)).pixmap(16).isNull());
    }
    if (QIcon::themeName() != QStringLiteral("Adwaita"))
        GTEST_SKIP() << "the Adwaita icon theme is not installed";
    EXPECT_TRUE(png.name().startsWith(QStringLiteral("image"))) << png.name().toStdString();
    EXPECT_TRUE(text.name().startsWith(QStringLiteral("text"))) << text.name().toStdString();
}
