#include "Driven.h"
#include "EventLoop.h"
#include "FilterBar.h"
#include "FolderPage.h"
#include "MainWindow.h"
#include "PreviewWindow.h"
#include "StorageModel.h"
#include "TempTree.h"
#include "Unprivileged.h"
#include "Words.h"

#include <QApplication>
#include <QDir>
#include <QImage>
#include <QLineEdit>
#include <QMimeDatabase>
#include <QPainter>
#include <QPlainTextEdit>
#include <QTableView>
#include <QTest>
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>

using namespace brenvo;
using brenvo::test::TempTree;
using brenvo::test::waitFor;

namespace {

void saveScreenshot(QWidget& widget, const char* name) {
    QDir().mkpath(QStringLiteral(BRENVO_SCREENSHOT_DIR));
    widget.grab().save(QStringLiteral(BRENVO_SCREENSHOT_DIR "/%1.png").arg(QString::fromLatin1(name)));
}

void writePicture(const std::string& path, QSize size) {
    QImage picture(size, QImage::Format_RGB32);
    picture.fill(QColor(40, 110, 200));
    QPainter painter(&picture);
    painter.fillRect(QRect(QPoint(), size / 2), QColor(240, 180, 40));
    painter.end();
    ASSERT_TRUE(picture.save(QString::fromStdString(path), "PNG"));
}

void writeBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// What the window says a type is: the type's description, as a heading.
QString kindOf(const char* type) {
    QString text = QMimeDatabase().mimeTypeForName(QString::fromLatin1(type)).comment();
    text[0] = text[0].toUpper();
    return text;
}

// A model over a scanned folder, and the preview window of an owner window.
struct Previewing : test::Driven {
    QWidget owner;
    PreviewWindow* window = nullptr;

    explicit Previewing(const std::string& folder) {
        EXPECT_TRUE(open(folder) && model.root());
        window = new PreviewWindow(model, &owner);
    }
    // Selects items of the folder and opens the preview on them.
    void look(std::initializer_list<std::string> paths) {
        model.closePreview();
        QSet<quint64> ids;
        for (const std::string& path : paths) {
            FileNode* node = model.root()->find(path);
            ASSERT_NE(node, nullptr) << path;
            ids.insert(node->id());
        }
        model.setSelection(ids);
        model.toggleQuickLook();
    }
};

} // namespace

TEST(PreviewWindow, ShowsAPictureATextOrTheFactsAndNeverFollowsALink) {
    TempTree tree;
    writePicture(tree.path("photo.png"), QSize(1600, 1000));
    writeBytes(tree.path("notes.txt"), "Shopping\n\tcaf\xe9 au lait\n");
    writeBytes(tree.path("long.log"), std::string(300 * 1024, 'x'));
    writeBytes(tree.path("broken.png"), std::string("\x89PNG\r\n\x1a\n", 8) + std::string(500, 'z'));
    tree.file("stuff/inside.bin", 40000);
    tree.file("shortcut.png", 10);
    Previewing p(tree.root());
    // Replaced by a link to the picture since the scan.
    std::remove(tree.path("shortcut.png").c_str());
    tree.symlink(tree.path("photo.png"), "shortcut.png");
    PreviewWindow& window = *p.window;
    EXPECT_FALSE(window.isVisible());

    p.look({tree.path("photo.png")});
    EXPECT_TRUE(window.isVisible());
    EXPECT_EQ(window.windowTitle(), QStringLiteral("photo.png"));
    ASSERT_EQ(window.showing(), PreviewWindow::Showing::image);
    // Read no larger than the screen, in the picture's proportions.
    const QSize screen = window.screen()->availableSize() * window.screen()->devicePixelRatio();
    EXPECT_LE(window.image().width(), screen.width());
    EXPECT_LE(window.image().height(), screen.height());
    EXPECT_NEAR(double(window.image().width()) / window.image().height(), 1.6, 0.02);
    EXPECT_EQ(window.image().pixelColor(1, 1), QColor(240, 180, 40));
    saveScreenshot(window, "preview-picture");

    // A link to the picture shows as a link.
    p.look({tree.path("shortcut.png")});
    EXPECT_EQ(window.showing(), PreviewWindow::Showing::facts);
    EXPECT_TRUE(window.image().isNull());
    EXPECT_EQ(window.name(), QStringLiteral("shortcut.png"));
    EXPECT_TRUE(window.message().contains(QStringLiteral("doesn't follow links"))) << window.message().toStdString();

    // Text in a fixed-pitch font; a byte that isn't UTF-8 shows as a replacement character.
    p.look({tree.path("notes.txt")});
    ASSERT_EQ(window.showing(), PreviewWindow::Showing::text);
    EXPECT_EQ(window.textView()->toPlainText(), QStringLiteral("Shopping\n\tcaf\ufffd au lait\n"));
    EXPECT_TRUE(window.textView()->isReadOnly());
    const QFontMetrics glyphs(window.textView()->font());
    EXPECT_EQ(glyphs.horizontalAdvance(QLatin1Char('i')), glyphs.horizontalAdvance(QLatin1Char('M')));
    QCoreApplication::sendPostedEvents(); // the scroll bars are set through posted layout requests
    saveScreenshot(window, "preview-text");

    // Only the beginning of a long text.
    p.look({tree.path("long.log")});
    ASSERT_EQ(window.showing(), PreviewWindow::Showing::text);
    EXPECT_EQ(window.textView()->toPlainText().size(), PreviewWindow::kTextLimit);

    // A folder: its icon and facts, its size with everything inside.
    p.look({tree.path("stuff")});
    ASSERT_EQ(window.showing(), PreviewWindow::Showing::facts);
    EXPECT_EQ(window.name(), QStringLiteral("stuff"));
    EXPECT_EQ(window.fact(QStringLiteral("Size")), sizeText(p.model.root()->find(tree.path("stuff"))->size()));
    EXPECT_EQ(window.fact(QStringLiteral("Kind")), kindOf("inode/directory"));
    EXPECT_FALSE(window.fact(QStringLiteral("Modified")).isEmpty());
    EXPECT_EQ(window.message(), QString());
    saveScreenshot(window, "preview-folder");

    // A picture that doesn't decode says so.
    p.look({tree.path("broken.png")});
    ASSERT_EQ(window.showing(), PreviewWindow::Showing::facts);
    EXPECT_TRUE(window.message().startsWith(QStringLiteral("Brenvo can't show this picture."))) << window.message().toStdString();
    EXPECT_EQ(window.fact(QStringLiteral("Kind")), kindOf("image/png"));
    saveScreenshot(window, "preview-damaged");

    // Once the item is gone, the window says that rather than failing.
    std::remove(tree.path("notes.txt").c_str());
    p.look({tree.path("notes.txt")});
    EXPECT_EQ(window.message(), QStringLiteral("This item is no longer there."));
}

TEST(PreviewWindow, AFileThatCantBeReadSaysSo) {
    TempTree tree;
    writeBytes(tree.path("secret.txt"), "not for everyone\n");
    tree.chmod("secret.txt", 0);
    Previewing p(tree.root());
    const std::string outcome = [&] {
        test::ScopedUnprivileged nobody;
        p.look({tree.path("secret.txt")});
        return p.window->message().toStdString() + "|" + p.window->name().toStdString() + "|" +
               p.window->fact(QStringLiteral("Kind")).toStdString();
    }();
    EXPECT_EQ(outcome, "Brenvo can't read this file.|secret.txt|" + kindOf("text/plain").toStdString());
}

TEST(PreviewWindow, KeysCloseThePreviewAndPageThroughIt) {
    TempTree tree;
    tree.file("big", 30000);
    tree.file("mid", 20000);
    tree.file("small", 5000);
    Previewing p(tree.root());
    PreviewWindow& window = *p.window;
    StorageModel& model = p.model;

    // Several items: the arrows page through them and stop at the ends.
    p.look({tree.path("big"), tree.path("mid"), tree.path("small")});
    EXPECT_EQ(window.windowTitle(), QStringLiteral("big (1 of 3)"));
    QTest::keyClick(&window, Qt::Key_Right);
    EXPECT_EQ(model.previewURL(), tree.path("mid"));
    EXPECT_EQ(window.windowTitle(), QStringLiteral("mid (2 of 3)"));
    QTest::keyClick(&window, Qt::Key_Down);
    QTest::keyClick(&window, Qt::Key_Right);
    EXPECT_EQ(model.previewURL(), tree.path("small"));
    QTest::keyClick(&window, Qt::Key_Left);
    QTest::keyClick(&window, Qt::Key_Up);
    QTest::keyClick(&window, Qt::Key_Up);
    EXPECT_EQ(model.previewURL(), tree.path("big"));
    EXPECT_EQ(model.selection().size(), 3);

    // Space closes, and the window goes with the preview.
    QTest::keyClick(&window, Qt::Key_Space);
    EXPECT_FALSE(model.previewURL());
    EXPECT_FALSE(window.isVisible());

    // One item: the arrows move the selection, and the preview follows.
    p.look({tree.path("big")});
    EXPECT_EQ(window.windowTitle(), QStringLiteral("big"));
    QTest::keyClick(window.textView(), Qt::Key_Right); // the text view doesn't keep the arrows
    EXPECT_EQ(model.previewURL(), tree.path("mid"));
    EXPECT_EQ(model.selection(), QSet<quint64>{model.root()->find(tree.path("mid"))->id()});

    QTest::keyClick(&window, Qt::Key_Escape);
    EXPECT_FALSE(model.previewURL());

    // Closing the window by its frame ends the preview too.
    p.look({tree.path("small")});
    EXPECT_TRUE(window.isVisible());
    window.close();
    EXPECT_FALSE(model.previewURL());
}

TEST(PreviewWindow, SpaceInTheFolderPageOpensAndClosesItButStillTypesInTextFields) {
    TempTree tree;
    tree.file("one.bin", 30000);
    tree.file("two.bin", 20000);
    StorageModel model;
    MainWindow main(model);
    main.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&main));
    QApplication::setActiveWindow(&main);
    model.explore(tree.root());
    ASSERT_TRUE(waitFor([&] { return !model.isScanning() && !model.isRefreshing() && model.root(); }));
    model.setSelection({model.root()->find(tree.path("one.bin"))->id()});

    QLineEdit* search = main.folderPage()->filterBar()->searchField();
    search->setFocus();
    QTest::keyClick(search, Qt::Key_Space);
    EXPECT_EQ(search->text(), QStringLiteral(" "));
    EXPECT_FALSE(model.previewURL());
    search->clear();

    QWidget* list = main.folderPage()->findChild<QTableView*>();
    ASSERT_NE(list, nullptr);
    list->setFocus();
    QTest::keyClick(list, Qt::Key_Space);
    EXPECT_EQ(model.previewURL(), tree.path("one.bin"));
    EXPECT_TRUE(main.previewWindow()->isVisible());
    QTest::keyClick(list, Qt::Key_Space);
    EXPECT_FALSE(model.previewURL());
    EXPECT_FALSE(main.previewWindow()->isVisible());

    // Other pages have nothing to preview.
    model.setPage(StorageModel::Page::recentlyDeleted);
    QTest::keyClick(&main, Qt::Key_Space);
    EXPECT_FALSE(model.previewURL());
}
