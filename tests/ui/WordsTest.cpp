// A Linux user never reads a Mac word: every sentence the window and the explanations show, walked under the
// Linux profile the suite runs with.
#include "Driven.h"
#include "EventLoop.h"
#include "FileActionsMenu.h"
#include "FileListView.h"
#include "FolderPage.h"
#include "MainWindow.h"
#include "Scoped.h"
#include "StorageModel.h"
#include "TempTree.h"
#include "UndoBanner.h"
#include "platform/Platform.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QRegularExpression>
#include <QTest>
#include <QTreeWidget>
#include <gtest/gtest.h>

using namespace brenvo;

namespace {

// The words that name Mac things, as whole words; "Library" is the Mac's folder, not "a library".
const QRegularExpression kMacWords(QStringLiteral("\\bMac\\b|\\bmacOS\\b|Finder|iCloud|\\bLibrary\\b|Quick Look|\u2318"));

struct Texts {
    std::vector<std::pair<QString, QString>> seen; // where, what

    void add(const QString& where, const QString& text) {
        if (!text.isEmpty()) seen.emplace_back(where, text);
    }
    void addWidgets(QWidget& top, const QString& where) {
        QList<QWidget*> widgets = top.findChildren<QWidget*>();
        widgets.prepend(&top);
        for (QWidget* w : widgets) {
            if (!w->isVisibleTo(&top) && w != &top) continue; // what is never shown is never read
            add(where, w->toolTip());
            add(where, w->accessibleName());
            add(where, w->accessibleDescription());
            add(where, w->windowTitle());
            if (auto* label = qobject_cast<QLabel*>(w)) add(where, label->text());
            if (auto* button = qobject_cast<QAbstractButton*>(w)) add(where, button->text());
            if (auto* field = qobject_cast<QLineEdit*>(w)) add(where, field->placeholderText());
            if (auto* box = qobject_cast<QMessageBox*>(w)) {
                add(where, box->text());
                add(where, box->informativeText());
            }
            if (auto* tree = qobject_cast<QTreeWidget*>(w)) {
                for (QTreeWidgetItemIterator it(tree); *it; ++it) {
                    add(where, (*it)->text(0));
                    add(where, (*it)->toolTip(0));
                }
            }
            for (QAction* action : w->actions()) addAction(where, *action);
        }
    }
    void addAction(const QString& where, QAction& action) {
        add(where, action.text());
        add(where, action.toolTip());
        if (QMenu* sub = action.menu())
            for (QAction* inner : sub->actions()) addAction(where, *inner);
    }
    void addModel(QAbstractItemModel& rows, const QString& where) {
        for (int r = 0; r < rows.rowCount(); ++r)
            for (int c = 0; c < rows.columnCount(); ++c)
                for (int role : {int(Qt::DisplayRole), int(Qt::ToolTipRole), int(Qt::AccessibleTextRole)})
                    add(where, rows.index(r, c).data(role).toString());
    }
};

} // namespace

TEST(Words, NoMacWordReachesALinuxUser) {
    ASSERT_FALSE(platform::profile().isMac());
    test::TempTree tree;
    tree.file("Movies/trip.mov", 600'000);
    tree.file("setup-2.0.deb", 5000);
    tree.file("photos.zip", 5000);
    tree.folder("photos");
    tree.file("notes.txt", 100);
    tree.file("Tool.app/Contents/bin", 100);
    tree.file("Albums.photoslibrary/db", 100);
    tree.file(".config/app/settings.json", 10);
    tree.file(".local/share/Trash/files/old.txt", 10);
    tree.file("node_modules/x.js", 10);
    tree.file("snap/firefox/common/x", 10);
    for (int i = 0; i < 260; ++i) tree.file("many/f" + std::to_string(i), 10);
    tree.file("locked/x", 10);

    StorageModel model;
    MainWindow window(model);
    QObject::connect(&model, &StorageModel::locationChanged, &model, [&] {
        if (model.location()) model.scan(*model.location());
    });
    window.resize(1200, 800);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    Texts texts;

    // Every page, with and without a folder.
    for (auto page : {StorageModel::Page::overview, StorageModel::Page::duplicates, StorageModel::Page::recentlyDeleted,
                      StorageModel::Page::folder}) {
        model.setPage(page);
        QCoreApplication::sendPostedEvents();
        texts.addWidgets(window, QStringLiteral("page"));
    }
    model.explore(tree.root());
    ASSERT_TRUE(test::waitFor([&] { return model.root() && !model.isScanning() && !model.isRefreshing(); }));
    texts.addWidgets(window, QStringLiteral("folder page"));
    texts.addModel(*window.folderPage()->list()->model(), QStringLiteral("list"));

    // Each item: its explanation, the inspector on it, and its menu.
    std::vector<FileNode*> items;
    std::vector<FileNode*> stack{model.root()};
    while (!stack.empty()) {
        FileNode* n = stack.back();
        stack.pop_back();
        items.push_back(n);
        for (FileNode* c : n->children()) stack.push_back(c);
    }
    model.root()->find(tree.path("locked"))->setCouldNotRead(true);
    for (FileNode* item : items) {
        const QString where = QString::fromStdString(item->path());
        const Explanation e = model.explain(*item);
        texts.add(where, QString::fromStdString(e.summary));
        texts.add(where, QString::fromStdString(e.suggestion.value_or("")));
        texts.add(where, QString::fromStdString(e.safetyNote.value_or("")));
        if (item->parent()) {
            model.setCurrent(item->parent());
            model.setSelection({item->id()});
            QCoreApplication::sendPostedEvents();
            texts.addWidgets(window, where);
        }
        QMenu menu;
        FileActionsMenu::addActions(menu, model, {item});
        for (QAction* action : menu.actions()) texts.addAction(where, *action);
    }

    // The questions and banners.
    model.setCurrent(model.root());
    model.requestDelete({model.find(tree.path("notes.txt")), model.root()});
    ASSERT_NE(window.deleteConfirmation(), nullptr);
    texts.addWidgets(*window.deleteConfirmation(), QStringLiteral("confirmation"));
    test::ScopedUndoSeconds undo(30);
    model.confirmDelete();
    QCoreApplication::sendPostedEvents();
    texts.addWidgets(*window.undoBanner(), QStringLiteral("banner"));
    texts.add(QStringLiteral("banner"), window.undoBanner()->announcement());
    model.deletions().undoPending();

    ASSERT_FALSE(texts.seen.empty());
    for (const auto& [where, text] : texts.seen)
        EXPECT_FALSE(kMacWords.match(text).hasMatch()) << where.toStdString() << ": " << text.toStdString();
}
