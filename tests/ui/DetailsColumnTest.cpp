#include "Driven.h"
#include "EventLoop.h"
#include "DetailsColumn.h"
#include "StorageModel.h"
#include "TempTree.h"
#include "Words.h"

#include <QLabel>
#include <QPushButton>
#include <QToolButton>
#include <gtest/gtest.h>

using namespace brenvo;
using brenvo::test::waitFor;

namespace {

// The model as the shell drives it, with the column beside it.
struct Column : test::Driven {
    InspectorView view{model};
    Column() {
        view.resize(300, 700);
        view.show();
    }
    void select(std::initializer_list<FileNode*> nodes) {
        QSet<quint64> ids;
        for (FileNode* n : nodes) ids.insert(n->id());
        model.setSelection(ids);
        drawn();
    }
    // The column has drawn every change made so far.
    void drawn() { ASSERT_TRUE(test::waitFor([this] { return view.isUpToDate(); })); }
    QStringList buttons() const {
        QStringList names;
        for (auto* b : view.widget()->findChildren<QPushButton*>()) names << b->objectName();
        return names;
    }
    bool has(const QString& name) const { return view.widget()->findChild<QWidget*>(name); }
    QString text(const QString& name) const {
        // A label, or a symbol beside one.
        auto* found = view.widget()->findChild<QWidget*>(name);
        if (auto* label = qobject_cast<QLabel*>(found)) return label->text();
        if (found)
            for (auto* label : found->findChildren<QLabel*>())
                if (!label->text().isEmpty()) return label->text();
        return {};
    }
};

} // namespace

TEST(InspectorView, TheFolderOnShowAndAnItemChosenInIt) {
    test::TempTree tree;
    tree.file("photos/a.jpg", 3000);
    tree.file("notes.txt", 100);
    Column c;
    ASSERT_TRUE(c.open(tree.root()));
    c.drawn();

    // The scan root with nothing chosen: its facts, and no button at all, as it has no folder to show it in.
    EXPECT_EQ(c.view.route(), QStringLiteral("folder"));
    EXPECT_TRUE(c.buttons().isEmpty());
    EXPECT_FALSE(c.has(QStringLiteral("more")));
    EXPECT_EQ(c.text(QStringLiteral("fact:Files")), QStringLiteral("2"));
    EXPECT_TRUE(c.text(QStringLiteral("fact:Location")).endsWith(QString::fromStdString(tree.root()).section(QLatin1Char('/'), -1)));

    // A folder below the root, on show: only the way to it in the file manager.
    FileNode* photos = c.model.root()->find(tree.path("photos"));
    c.model.setCurrent(photos);
    c.drawn();
    EXPECT_EQ(c.buttons(), QStringList{QStringLiteral("reveal")});

    // An item chosen: its own facts, its menu and the actions that fit it.
    c.model.setCurrent(c.model.root());
    FileNode* notes = c.model.root()->find(tree.path("notes.txt"));
    c.select({notes});
    EXPECT_EQ(c.view.route(), QStringLiteral("item"));
    EXPECT_EQ(c.text(QStringLiteral("name")), QStringLiteral("notes.txt"));
    EXPECT_EQ(c.buttons(), (QStringList{QStringLiteral("open"), QStringLiteral("reveal"), QStringLiteral("delete")}));
    EXPECT_TRUE(c.has(QStringLiteral("more")));
    EXPECT_EQ(c.text(QStringLiteral("fact:Files")), QString()); // a file has no count of files
    EXPECT_FALSE(c.text(QStringLiteral("fact:Last opened")).isEmpty());
    EXPECT_FALSE(c.text(QStringLiteral("fact:Kind")).isEmpty());

    EXPECT_TRUE(c.has(QStringLiteral("preview"))); // a document gets a preview, its icon until a picture comes
    c.select({});
    EXPECT_FALSE(c.has(QStringLiteral("preview")));
    c.model.setCurrent(photos);
    c.select({photos->children().front()});
    EXPECT_TRUE(c.has(QStringLiteral("preview"))); // a picture gets a large preview above its facts

    // A selection that goes away falls back to the folder on show.
    c.select({});
    EXPECT_EQ(c.view.route(), QStringLiteral("folder"));
}

TEST(InspectorView, UnmeasuredFoldersAndProtectedItems) {
    test::TempTree tree;
    for (int i = 0; i < 261; ++i) tree.file("many/f" + std::to_string(i), 10 + i); // folds its smallest
    tree.file("locked/inside.txt", 500);
    Column c;
    ASSERT_TRUE(c.open(tree.root()));

    // A folder the scan couldn't enter reads as unmeasured, with the warning; with a size it keeps it.
    FileNode* locked = c.model.root()->find(tree.path("locked"));
    locked->setCouldNotRead(true);
    c.select({locked});
    EXPECT_EQ(c.text(QStringLiteral("size")), sizeText(locked->size())); // what was measured still counts
    EXPECT_TRUE(c.has(QStringLiteral("couldNotRead")));
    c.model.setCurrent(locked);
    c.model.forget({tree.path("locked/inside.txt")}); // nothing measured inside
    c.model.setCurrent(c.model.root());
    c.select({locked});
    EXPECT_EQ(c.text(QStringLiteral("size")), QStringLiteral("Size not measured"));
    EXPECT_TRUE(c.has(QStringLiteral("couldNotRead")));
    EXPECT_EQ(c.text(QStringLiteral("fact:Files")), QStringLiteral("Unknown")); // not "0"

    // The "smaller items" row is protected: it can be shown in its folder, nothing else.
    FileNode* many = c.model.root()->find(tree.path("many"));
    c.model.setCurrent(many);
    FileNode* folded = many->children().back();
    ASSERT_TRUE(folded->isAggregate());
    c.select({folded});
    EXPECT_EQ(c.buttons(), QStringList{QStringLiteral("reveal")});
    EXPECT_FALSE(c.has(QStringLiteral("more")));
    EXPECT_TRUE(c.has(QStringLiteral("safetyNote")));

    // Several at once: the count, the total and what may go.
    FileNode* first = many->children().front();
    c.select({first, folded});
    EXPECT_EQ(c.view.route(), QStringLiteral("multiple"));
    EXPECT_EQ(c.text(QStringLiteral("name")), QStringLiteral("2 items selected"));
    EXPECT_TRUE(c.text(QStringLiteral("safetyNote")).startsWith(QStringLiteral("1 of these are protected")));
    auto* remove = c.view.widget()->findChild<QPushButton*>(QStringLiteral("delete"));
    ASSERT_TRUE(remove);
    EXPECT_EQ(remove->text(), QStringLiteral("Delete 1\u2026"));
}

TEST(InspectorView, OtherPagesExplainThemselves) {
    Column c;
    EXPECT_EQ(c.view.route(), QStringLiteral("about")); // the overview comes first
    c.model.setPage(StorageModel::Page::folder);
    c.drawn();
    EXPECT_EQ(c.view.route(), QStringLiteral("none"));
    c.model.setPage(StorageModel::Page::recentlyDeleted);
    c.drawn();
    EXPECT_EQ(c.view.route(), QStringLiteral("about"));
}
