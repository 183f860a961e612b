#include "Icons.h"

#include <QApplication>
#include <QFileInfo>
#include <QImage>
#include <QPalette>
#include <QPixmap>
#include <gtest/gtest.h>
#include <set>

using namespace brenvo;

namespace {

struct Ink {
    int pixels = 0;    // pixels with any coverage
    int lightness = 0; // average lightness of those pixels
};

Ink inkOf(const QPixmap& pixmap) {
    const QImage image = pixmap.toImage().convertToFormat(QImage::Format_ARGB32);
    Ink ink;
    long long sum = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const QColor colour = image.pixelColor(x, y);
            if (colour.alpha() < 128) continue;
            ++ink.pixels;
            sum += colour.lightness();
        }
    ink.lightness = ink.pixels ? int(sum / ink.pixels) : 0;
    return ink;
}

QByteArray bytesOf(const QIcon& icon) {
    const QImage image = icon.pixmap(32).toImage().convertToFormat(QImage::Format_ARGB32_Premultiplied);
    return {reinterpret_cast<const char*>(image.constBits()), qsizetype(image.sizeInBytes())};
}

QString settledTheme() {
    (void)icon("folder"); // the first icon sets the theme up
    return QIcon::themeName();
}

// Puts the application's theme and palette back when a test changes them.
struct ThemeGuard {
    QString theme = settledTheme();
    QPalette palette = QApplication::palette();
    ~ThemeGuard() {
        QIcon::setThemeName(theme);
        QApplication::setPalette(palette);
    }
};

void useInk(QColor text) {
    QPalette palette = QApplication::palette();
    palette.setColor(QPalette::WindowText, text);
    QApplication::setPalette(palette);
}

} // namespace

TEST(Icons, EveryTableEntryShowsAndComesFromTheThemeWhenItHasOne) {
    const bool adwaita = settledTheme() == QStringLiteral("Adwaita");
    for (const auto& [symbol, themeName] : iconTable()) {
        SCOPED_TRACE(symbol);
        const QIcon shown = icon(symbol);
        ASSERT_FALSE(shown.isNull());
        EXPECT_GT(inkOf(shown.pixmap(16)).pixels, 8);
        // Every name in the table is one Adwaita really has, so a misspelling shows here.
        if (adwaita) {
            EXPECT_TRUE(shown.name().startsWith(QString::fromLatin1(themeName)))
                << shown.name().toStdString();
        }
    }
    if (!adwaita) GTEST_SKIP() << "the Adwaita icon theme is not installed";
}

TEST(Icons, UnknownSymbolsAndMissingThemesGetDistinctDrawings) {
    ThemeGuard guard;
    const QIcon unknown = icon("no.such.symbol");
    EXPECT_TRUE(unknown.name().isEmpty());
    EXPECT_GT(inkOf(unknown.pixmap(16)).pixels, 8);

    QIcon::setThemeName(QStringLiteral("brenvo-no-such-theme"));
    std::set<QByteArray> drawings{bytesOf(unknown)};
    for (const auto& [symbol, themeName] : iconTable()) {
        SCOPED_TRACE(symbol);
        const QIcon drawn = icon(symbol);
        EXPECT_TRUE(drawn.name().isEmpty()) << "still the theme's " << drawn.name().toStdString();
        EXPECT_GT(inkOf(drawn.pixmap(16)).pixels, 8);
        drawings.insert(bytesOf(drawn));
    }
    EXPECT_EQ(drawings.size(), iconTable().size() + 1) << "two symbols share a drawing";
}

TEST(Icons, MonochromeIconsTakeTheTextColourOfThePalette) {
    ThemeGuard guard;
    for (const char* theme : {"", "brenvo-no-such-theme"}) { // the theme's symbolic icon, then our drawing
        if (*theme) QIcon::setThemeName(QString::fromLatin1(theme));
        SCOPED_TRACE(icon("house").name().toStdString());
        useInk(Qt::white);
        EXPECT_GT(inkOf(icon("house").pixmap(24)).lightness, 200);
        useInk(Qt::black);
        EXPECT_LT(inkOf(icon("house").pixmap(24)).lightness, 50);
    }
}
