#include "DetailsColumn.h"

#include "Desktop.h"
#include "FileActionsMenu.h"
#include "FileIcons.h"
#include "FlowLayout.h"
#include "Icons.h"
#include "Preferences.h"
#include "Explaining.h"
#include "StorageModel.h"
#include "tree/FoldedEntries.h"
#include "Text.h"
#include "ThumbnailView.h"
#include "Words.h"
#include "format/Formatters.h"
#include "util/Paths.h"

#include <QApplication>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QPainter>
#include <QPushButton>
#include <QScrollBar>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>
#include <cmath>

namespace brenvo {

namespace {

bool isProtected(const Explanation& explanation) { return explanation.safety == Explanation::Safety::protected_; }

QLabel* wrapped(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    label->setTextFormat(Qt::PlainText);
    return label;
}

// A path on one line, shortened in the middle when the column is narrower than it; the whole path is in
// its tooltip. Paths rarely have spaces to wrap at, and one long path must not widen the column.
class PathLabel : public QLabel {
public:
    PathLabel(const QString& path, QWidget* parent) : QLabel(path, parent) {
        setToolTip(path);
        setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    }
    QSize minimumSizeHint() const override { return QSize(40, QLabel::minimumSizeHint().height()); }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setPen(palette().color(QPalette::WindowText));
        p.drawText(rect(), Qt::AlignLeft | Qt::AlignTop, fontMetrics().elidedText(text(), Qt::ElideMiddle, width()));
    }
};

QFont scaled(const QFont& base, double factor, QFont::Weight weight) {
    QFont font = base;
    font.setPointSizeF(base.pointSizeF() * factor);
    font.setWeight(weight);
    return font;
}

// A symbol beside a sentence, the sentence wrapping under itself.
QWidget* symbolLabel(const char* symbol, const QString& text, QWidget* parent, const QColor& colour = {}) {
    auto* row = new QWidget(parent);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);
    auto* picture = new QLabel(row);
    picture->setPixmap(icon(symbol).pixmap(16, 16));
    layout->addWidget(picture, 0, Qt::AlignTop);
    QLabel* words = wrapped(text, row);
    if (colour.isValid()) {
        QPalette palette = words->palette();
        palette.setColor(QPalette::WindowText, colour);
        words->setPalette(palette);
    }
    layout->addWidget(words, 1);
    return row;
}

QPushButton* button(const QString& title, QWidget* parent, const char* name) {
    auto* b = new QPushButton(title, parent);
    b->setObjectName(QString::fromLatin1(name));
    return b;
}

// A destructive action reads red.
void markDestructive(QPushButton* b) {
    QPalette palette = b->palette();
    palette.setColor(QPalette::ButtonText, QColor(0xc0, 0x1c, 0x28));
    b->setPalette(palette);
}

QString changeText(const FileNode& node, Date since) {
    const QString date = QString::fromStdString(format::abbreviatedDate(since));
    const auto change = node.change();
    if (node.isNew() || !change) return QStringLiteral("New since %1").arg(date);
    const int64_t magnitude = *change < 0 ? (*change == INT64_MIN ? INT64_MAX : -*change) : *change;
    return QStringLiteral("%1%2 since %3").arg(*change < 0 ? QStringLiteral("\u2212") : QStringLiteral("+"),
                                               sizeText(magnitude), date);
}

// Buttons side by side, wrapping onto a second line in a narrow column.
FlowLayout* buttonRow(QVBoxLayout* column) {
    auto* holder = new QWidget(column->parentWidget());
    auto* row = new FlowLayout(holder);
    column->addWidget(holder);
    return row;
}

} // namespace

QWidget* infoSection(const QString& title, const QString& text, QWidget* parent) {
    auto* section = new QWidget(parent);
    auto* layout = new QVBoxLayout(section);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    auto* heading = new QLabel(title, section);
    heading->setFont(scaled(section->font(), 0.95, QFont::DemiBold));
    heading->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(heading);
    layout->addWidget(wrapped(text, section));
    return section;
}

QWidget* itemDetail(StorageModel& model, FileNode& node, bool actions, QWidget* parent) {
    const Explanation explanation = model.explain(node);
    const ExplainContext context = systemExplainContext(model.catalog());
    NodeRef held(&node);
    auto* detail = new QWidget(parent);
    auto* column = new QVBoxLayout(detail);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(16);

    // The header: icon, name and size, and the item's menu.
    auto* header = new QHBoxLayout;
    header->setSpacing(10);
    const Category category = Explainer::category(node, *context.profile);
    const bool pictured = node.kind() == FileNode::Kind::file &&
                          (category == Category::video || category == Category::image || category == Category::document);
    QWidget* picture;
    if (pictured) {
        picture = new ThumbnailView(node.path(), 40, fileIcon(node), detail);
    } else {
        auto* plain = new QLabel(detail);
        plain->setPixmap(fileIcon(node).pixmap(40, 40));
        picture = plain;
    }
    picture->setFixedSize(40, 40);
    header->addWidget(picture, 0, Qt::AlignTop);
    auto* titles = new QVBoxLayout;
    titles->setSpacing(2);
    QLabel* name = wrapped(toQString(shownName(node)), detail);
    name->setObjectName(QStringLiteral("name"));
    name->setFont(scaled(detail->font(), 1.05, QFont::DemiBold));
    titles->addWidget(name);
    const bool unmeasured = (node.couldNotRead() || node.skippedReason()) && node.size() == 0;
    auto* size = new QLabel(unmeasured ? QStringLiteral("Size not measured") : sizeText(node.size()), detail);
    size->setObjectName(QStringLiteral("size"));
    size->setFont(scaled(detail->font(), 1.35, QFont::Normal));
    titles->addWidget(size);
    header->addLayout(titles, 1);
    if (actions && !node.isAggregate()) {
        auto* more = new QToolButton(detail);
        more->setObjectName(QStringLiteral("more"));
        more->setIcon(icon("ellipsis.circle"));
        more->setIconSize(QSize(20, 20));
        more->setAutoRaise(true);
        more->setToolTip(say("More: Quick Look, Open With, Copy, Move to\u2026"));
        more->setAccessibleName(QStringLiteral("More actions"));
        more->setAccessibleName(QStringLiteral("More actions"));
        more->setPopupMode(QToolButton::InstantPopup);
        auto* menu = new QMenu(more);
        QObject::connect(menu, &QMenu::aboutToShow, menu, [menu, &model, held] {
            menu->clear();
            FileActionsMenu::addActions(*menu, model, {held.get()});
        });
        more->setMenu(menu);
        header->addWidget(more, 0, Qt::AlignTop);
    }
    column->addLayout(header);

    if (pictured) {
        auto* preview = new ThumbnailView(node.path(), 256, fileIcon(node), detail);
        preview->setObjectName(QStringLiteral("preview"));
        preview->setCornerRadius(6);
        preview->setFixedHeight(220);
        preview->setToolTip(QStringLiteral("Double-click to open"));
        QObject::connect(preview, &ThumbnailView::activated, preview, [&model, held] { model.openInDefaultApp(*held); });
        column->addWidget(preview);
    }

    // The facts.
    auto* facts = new QGridLayout;
    facts->setHorizontalSpacing(10);
    facts->setVerticalSpacing(4);
    facts->setColumnStretch(1, 1);
    auto fact = [&](const QString& label, const QString& value, bool path = false) {
        const int row = facts->rowCount();
        auto* key = new QLabel(label, detail);
        key->setForegroundRole(QPalette::PlaceholderText);
        facts->addWidget(key, row, 0, Qt::AlignTop | Qt::AlignLeft);
        QLabel* text = path ? new PathLabel(value, detail) : wrapped(value, detail);
        text->setObjectName(QStringLiteral("fact:") + label);
        facts->addWidget(text, row, 1);
    };
    const std::string location = node.isAggregate() && node.parent() ? node.parent()->path() : node.path();
    fact(QStringLiteral("Location"), displayPath(location), true);
    fact(QStringLiteral("Kind"), QString::fromStdString(Explainer::kindLabel(node, context)));
    if (node.kind() != FileNode::Kind::file)
        fact(QStringLiteral("Files"), node.couldNotRead() ? QStringLiteral("Unknown") : countText(node.itemCount()));
    if (auto modified = node.modified())
        fact(QStringLiteral("Modified"), QString::fromStdString(format::abbreviatedDateTime(*modified)));
    if (auto since = model.changesSince(); since && (node.change() || node.isNew()))
        fact(QStringLiteral("Change"), changeText(node, *since));
    if (node.kind() == FileNode::Kind::file || node.kind() == FileNode::Kind::package) {
        fact(QStringLiteral("Last opened"),
             node.lastOpened() ? QString::fromStdString(format::abbreviatedDateTime(*node.lastOpened()))
                               : QStringLiteral("No record"));
        if (!node.lastOpenedLoaded()) {
            // Asked once the column is on screen; the answer redraws it.
            QTimer::singleShot(0, detail, [&model, held] { model.loadLastOpened({held.get()}); });
        }
    }
    if (context.cloudState) {
        if (auto state = context.cloudState(node.path())) {
            QString text;
            switch (*state) {
            case FileFacts::CloudState::downloaded: text = say("Stored in iCloud and on this Mac"); break;
            case FileFacts::CloudState::cloudOnly:
                text = QStringLiteral("Stored only in iCloud");
                if (auto full = FileFacts::fullSize(node.path())) text += QStringLiteral(" (%1)").arg(sizeText(*full));
                break;
            case FileFacts::CloudState::syncing: text = QStringLiteral("Syncing"); break;
            }
            fact(QStringLiteral("iCloud"), text);
        }
    }
    column->addLayout(facts);

    if (node.couldNotRead()) {
        QWidget* warning = symbolLabel("exclamationmark.triangle",
                                       say("macOS didn't allow this app to look inside, so the size may be too small."),
                                       detail, QColor(0xc6, 0x5d, 0x00));
        warning->setObjectName(QStringLiteral("couldNotRead"));
        column->addWidget(warning);
    }
    column->addWidget(infoSection(QStringLiteral("What this is"), QString::fromStdString(explanation.summary), detail));
    if (explanation.suggestion)
        column->addWidget(
            infoSection(QStringLiteral("Suggested next step"), QString::fromStdString(*explanation.suggestion), detail));
    if (explanation.safetyNote) {
        QWidget* note = symbolLabel(isProtected(explanation) ? "lock" : "info.circle",
                                    QString::fromStdString(*explanation.safetyNote), detail);
        note->setObjectName(QStringLiteral("safetyNote"));
        column->addWidget(note);
    }

    // What can be done.
    const std::string path = node.path();
    if (!actions) {
        if (node.parent()) {
            FlowLayout* row = buttonRow(column);
            QPushButton* reveal = button(say("Reveal in Finder"), detail, "reveal");
            QObject::connect(reveal, &QPushButton::clicked, reveal, [path] { showInFolder({path}); });
            row->addWidget(reveal);
        }
        return detail;
    }
    FlowLayout* row = buttonRow(column);
    if (!node.isAggregate()) {
        QPushButton* open = button(model.installedApp(node) ? QStringLiteral("Open\u2026") : QStringLiteral("Open"), detail, "open");
        QObject::connect(open, &QPushButton::clicked, open, [&model, held] { model.openInDefaultApp(*held); });
        row->addWidget(open);
    }
    QPushButton* reveal = button(say("Reveal in Finder"), detail, "reveal");
    QObject::connect(reveal, &QPushButton::clicked, reveal, [path] { showInFolder({path}); });
    row->addWidget(reveal);
    if (!isProtected(explanation)) {
        QPushButton* remove = button(QStringLiteral("Delete\u2026"), detail, "delete");
        markDestructive(remove);
        QObject::connect(remove, &QPushButton::clicked, remove, [&model, held] { model.requestDelete({held.get()}); });
        row->addWidget(remove);
    }
    if (Explainer::pathExtension(node.name()) == "app") {
        QPushButton* uninstall = button(QStringLiteral("Uninstall\u2026"), detail, "uninstall");
        uninstall->setToolTip(say("Remove the app and the files it keeps in your Library"));
        QObject::connect(uninstall, &QPushButton::clicked, uninstall, [uninstall] {
            QMessageBox::information(uninstall->window(), QStringLiteral("Uninstall"),
                                     QStringLiteral("Uninstalling apps isn't available in this version of Brenvo yet. "
                                                    "Nothing was changed."));
        });
        FlowLayout* second = buttonRow(column);
        second->addWidget(uninstall);
    }
    return detail;
}

QWidget* multipleDetail(StorageModel& model, const std::vector<FileNode*>& nodes, QWidget* parent) {
    auto* detail = new QWidget(parent);
    auto* column = new QVBoxLayout(detail);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(16);
    int64_t total = 0;
    int protectedCount = 0;
    std::vector<std::string> paths;
    for (FileNode* node : nodes) {
        total += node->size();
        protectedCount += isProtected(model.explain(*node)) ? 1 : 0;
        paths.push_back(node->path());
    }
    const int deletable = static_cast<int>(nodes.size()) - protectedCount;
    auto* titles = new QVBoxLayout;
    titles->setSpacing(2);
    auto* count = new QLabel(QStringLiteral("%1 items selected").arg(countText(static_cast<int64_t>(nodes.size()))), detail);
    count->setObjectName(QStringLiteral("name"));
    count->setFont(scaled(detail->font(), 1.05, QFont::DemiBold));
    titles->addWidget(count);
    auto* size = new QLabel(sizeText(total), detail);
    size->setObjectName(QStringLiteral("size"));
    size->setFont(scaled(detail->font(), 1.35, QFont::Normal));
    titles->addWidget(size);
    column->addLayout(titles);
    if (protectedCount > 0) {
        QWidget* note = symbolLabel(
            "lock", QStringLiteral("%1 of these are protected and won't be deleted.").arg(countText(protectedCount)), detail);
        note->setObjectName(QStringLiteral("safetyNote"));
        column->addWidget(note);
    }
    FlowLayout* row = buttonRow(column);
    QPushButton* reveal = button(say("Reveal in Finder"), detail, "reveal");
    QObject::connect(reveal, &QPushButton::clicked, reveal, [paths] { showInFolder(paths); });
    row->addWidget(reveal);
    if (deletable > 0) {
        std::vector<NodeRef> held(nodes.begin(), nodes.end());
        QPushButton* remove = button(QStringLiteral("Delete %1\u2026").arg(countText(deletable)), detail, "delete");
        markDestructive(remove);
        QObject::connect(remove, &QPushButton::clicked, remove, [&model, held] {
            std::vector<FileNode*> all;
            for (const NodeRef& n : held) all.push_back(n.get());
            model.requestDelete(all); // the request itself sets the protected ones aside
        });
        row->addWidget(remove);
    }
    return detail;
}

InspectorView::InspectorView(StorageModel& model, QWidget* parent) : QScrollArea(parent), model_(model) {
    setWidgetResizable(true);
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    setMinimumWidth(260);
    setMaximumWidth(420);
    for (auto signal : {&StorageModel::selectionChanged, &StorageModel::currentChanged, &StorageModel::treeChanged,
                        &StorageModel::pageChanged, &StorageModel::filtersChanged})
        connect(&model_, signal, this, &InspectorView::scheduleRebuild);
    rebuild();
}

QSize InspectorView::sizeHint() const { return QSize(300, 400); }

// Several changes in one turn of the event loop (a selection and a tree change) draw the column once. A
// hidden column waits until it is shown; an open menu or dialog of the column's is never pulled from under
// the user, so the drawing waits for it to close.
void InspectorView::scheduleRebuild() {
    stale_ = true;
    if (pending_) return;
    pending_ = true;
    QTimer::singleShot(0, this, [this] {
        pending_ = false;
        if (!isVisible()) return;
        if (QApplication::activePopupWidget() || QApplication::activeModalWidget()) {
            QTimer::singleShot(250, this, &InspectorView::scheduleRebuild);
            return;
        }
        rebuild();
    });
}

void InspectorView::showEvent(QShowEvent* event) {
    QScrollArea::showEvent(event);
    if (stale_) rebuild();
}

void InspectorView::rebuild() {
    stale_ = false;
    const int scrolled = verticalScrollBar()->value();
    auto* content = new QWidget;
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(14, 14, 14, 14);
    column->setSpacing(16);
    // The pages other than the folder's explain themselves.
    QString aboutTitle, aboutText;
    switch (model_.page()) {
    case StorageModel::Page::duplicates:
        aboutTitle = QStringLiteral("About duplicates");
        aboutText = say("Brenvo looks through every file over 1 MB in the chosen place and compares their full "
                        "contents. Files that are byte-for-byte identical form a group. Hidden files, your Library "
                        "folder and the insides of apps and Photos libraries are left out.") +
                    QStringLiteral("\n\nOne copy in every group is always kept. Only the extra copies are offered, "
                                   "and they're deleted for good, so check before confirming.");
        break;
    case StorageModel::Page::recentlyDeleted:
        aboutTitle = QStringLiteral("About deleting");
        aboutText = QStringLiteral("Brenvo deletes items directly instead of moving them to the Trash, so the space "
                                   "comes back straight away with no extra step.\n\nThat also means deleted items "
                                   "can't be put back. This page is a record of what was deleted, from where, and how "
                                   "much space it freed.");
        break;
    case StorageModel::Page::overview:
        aboutTitle = QStringLiteral("About the overview");
        aboutText = say("Brenvo measures places known to fill up a Mac and explains each one. Suggestions only "
                        "include things it's confident are safe to remove: caches apps rebuild, installers for apps "
                        "you already have, and archives you've already unpacked.") +
                    QStringLiteral("\n\nTick anything you want gone to add it to the collector below, then delete "
                                   "it all together. Deleting skips the Trash, but you get %1 seconds to undo.")
                        .arg(static_cast<int>(std::floor(Preferences::undoSeconds())));
        break;
    case StorageModel::Page::folder: {
        const std::vector<FileNode*> selected = model_.selectedNodes();
        if (selected.size() == 1) {
            route_ = QStringLiteral("item");
            column->addWidget(itemDetail(model_, *selected.front(), true, content));
        } else if (selected.size() > 1) {
            route_ = QStringLiteral("multiple");
            column->addWidget(multipleDetail(model_, selected, content));
        } else if (FileNode* current = model_.current()) {
            route_ = QStringLiteral("folder");
            column->addWidget(itemDetail(model_, *current, false, content));
        } else {
            route_ = QStringLiteral("none");
            auto* hint = new QLabel(QStringLiteral("Choose a location to see what's using space."), content);
            hint->setWordWrap(true);
            hint->setForegroundRole(QPalette::PlaceholderText);
            column->addWidget(hint);
        }
        break;
    }
    }
    if (!aboutTitle.isEmpty()) {
        route_ = QStringLiteral("about");
        column->addWidget(infoSection(aboutTitle, aboutText, content));
    }
    column->addStretch(1);
    setWidget(content); // the previous content goes with it
    verticalScrollBar()->setValue(scrolled);
}

} // namespace brenvo
