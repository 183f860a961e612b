#include "FileListView.h"

#include "FileActionsMenu.h"
#include "FileListModel.h"
#include "StorageModel.h"

#include <QApplication>
#include <QContextMenuEvent>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QResizeEvent>
#include <QScrollBar>
#include <QStyledItemDelegate>
#include <QTimer>

namespace brenvo {

namespace {

struct ColumnWidth {
    int minimum;
    int ideal;
};
// By column: the least a column may be narrowed to, and what it starts at.
constexpr ColumnWidth kWidths[FileListModel::ColumnCount] = {
    {180, 320}, {70, 90}, {70, 90}, {60, 90}, {80, 120}, {80, 110}, {80, 110},
};

// The name with its icon, and while searching the folder it was found in; the share as a bar.
class RowDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override {
        if (index.column() == FileListModel::Share) {
            QStyledItemDelegate::paint(painter, option, index); // background and selection
            const double share = index.data(FileListModel::ShareRole).toDouble();
            const QRectF track = QRectF(option.rect).adjusted(8, 0, -8, 0);
            const QRectF bar(track.left(), track.center().y() - 3, track.width(), 6);
            painter->save();
            painter->setRenderHint(QPainter::Antialiasing);
            QPainterPath whole;
            whole.addRoundedRect(bar, 3, 3);
            QColor trackColor = option.palette.color(QPalette::Text);
            trackColor.setAlphaF(0.12f);
            painter->fillPath(whole, trackColor);
            if (share > 0) {
                QPainterPath filled;
                filled.addRoundedRect(QRectF(bar.left(), bar.top(), std::max(bar.width() * share, 3.0), bar.height()), 3, 3);
                const bool selected = option.state & QStyle::State_Selected;
                painter->fillPath(filled, option.palette.color(selected ? QPalette::HighlightedText : QPalette::Highlight));
            }
            painter->restore();
            return;
        }
        if (index.column() == FileListModel::Name) {
            const QVariant folder = index.data(FileListModel::RelativeFolderRole);
            if (folder.isValid()) {
                QStyleOptionViewItem first = option;
                initStyleOption(&first, index);
                const QString name = first.text;
                first.text.clear();
                const QWidget* widget = option.widget;
                QStyle* style = widget ? widget->style() : QApplication::style();
                style->drawControl(QStyle::CE_ItemViewItem, &first, painter, widget);
                const QRect text = style->subElementRect(QStyle::SE_ItemViewItemText, &first, widget).adjusted(2, 2, -2, -2);
                const bool selected = option.state & QStyle::State_Selected;
                painter->save();
                painter->setPen(option.palette.color(selected ? QPalette::HighlightedText : QPalette::Text));
                const QFontMetrics nameMetrics(option.font);
                painter->drawText(text, Qt::AlignLeft | Qt::AlignTop,
                                  nameMetrics.elidedText(name, Qt::ElideMiddle, text.width()));
                QFont caption = option.font;
                caption.setPointSizeF(option.font.pointSizeF() * 0.85);
                painter->setFont(caption);
                painter->setPen(option.palette.color(selected ? QPalette::HighlightedText : QPalette::PlaceholderText));
                painter->drawText(text, Qt::AlignLeft | Qt::AlignBottom,
                                  QFontMetrics(caption).elidedText(folder.toString(), Qt::ElideMiddle, text.width()));
                painter->restore();
                return;
            }
        }
        QStyledItemDelegate::paint(painter, option, index);
    }

    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override {
        QStyledItemDelegate::initStyleOption(option, index);
        if (index.column() == FileListModel::Name) option->textElideMode = Qt::ElideMiddle;
    }
};

} // namespace

FileListView::FileListView(StorageModel& model, QWidget* parent) : QTableView(parent), model_(model) {
    rows_ = new FileListModel(model_, this);
    setModel(rows_);
    setItemDelegate(new RowDelegate(this));
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setShowGrid(false);
    setAlternatingRowColors(true);
    setFrameShape(QFrame::NoFrame);
    setWordWrap(false);
    setIconSize(QSize(16, 16));
    setTextElideMode(Qt::ElideRight);
    setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    verticalHeader()->hide();
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    QHeaderView* header = horizontalHeader();
    header->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    header->setHighlightSections(false);
    header->setMinimumSectionSize(40);
    for (int column = 0; column < FileListModel::ColumnCount; ++column) {
        header->resizeSection(column, kWidths[column].ideal);
        header->setSectionResizeMode(column, QHeaderView::Interactive);
    }
    // Sorting starts from the model's order: enabling it sorts by whatever the header shows.
    showOrder();
    setSortingEnabled(true);

    connect(header, &QHeaderView::sectionResized, this, &FileListView::keepMinimumWidth);
    connect(header, &QHeaderView::sortIndicatorChanged, this, [this](int column, Qt::SortOrder) {
        if (FileListModel::listColumnOf(column) < 0) showOrder(); // the share column has no order
    });
    connect(this, &QTableView::doubleClicked, this, [this](const QModelIndex& index) { openRow(index.row()); });
    connect(selectionModel(), &QItemSelectionModel::selectionChanged, this, &FileListView::takeSelection);
    connect(rows_, &QAbstractItemModel::modelReset, this, &FileListView::showSelection);
    connect(rows_, &QAbstractItemModel::modelReset, this, [this] {
        datesAsked_ = false;
        askForDates();
    });
    connect(rows_, &FileListModel::rowsKeyChanged, this, &FileListView::startFresh);
    connect(&model_, &StorageModel::selectionChanged, this, &FileListView::showSelection);
    connect(&model_, &StorageModel::listOrderChanged, this, &FileListView::showOrder);
    startFresh();
}

void FileListView::showOrder() {
    const auto& order = model_.listOrder();
    QSignalBlocker quiet(horizontalHeader());
    horizontalHeader()->setSortIndicator(FileListModel::columnOf(static_cast<int>(order.column)),
                                         order.ascending ? Qt::AscendingOrder : Qt::DescendingOrder);
    horizontalHeader()->viewport()->update();
}

// Another folder or another search: from the top, with rows tall enough for what they show.
void FileListView::startFresh() {
    verticalHeader()->setDefaultSectionSize(model_.isFiltering() ? kFoundRowHeight : kRowHeight);
    scrollToTop();
    askForDates();
}

void FileListView::keepMinimumWidth(int column, int, int newSize) {
    if (column < 0 || column >= FileListModel::ColumnCount || fitting_) return;
    if (newSize < kWidths[column].minimum) horizontalHeader()->resizeSection(column, kWidths[column].minimum);
    else if (column != FileListModel::Name) fitName();
}

// Columns fit the width: the others at their ideal widths and the name taking the rest; when that leaves
// the name less than its minimum, the others give way down to their own minimums, and only then does the
// list scroll sideways.
void FileListView::fitColumns() {
    const int nameMinimum = kWidths[FileListModel::Name].minimum;
    int ideal = 0, least = 0;
    for (int column = 0; column < FileListModel::ColumnCount; ++column) {
        if (column == FileListModel::Name) continue;
        ideal += kWidths[column].ideal;
        least += kWidths[column].minimum;
    }
    const int room = viewport()->width();
    const double give = ideal == least ? 0 : std::clamp(double(room - nameMinimum - least) / (ideal - least), 0.0, 1.0);
    fitting_ = true;
    for (int column = 0; column < FileListModel::ColumnCount; ++column) {
        if (column == FileListModel::Name) continue;
        horizontalHeader()->resizeSection(
            column, kWidths[column].minimum + int((kWidths[column].ideal - kWidths[column].minimum) * give));
    }
    fitting_ = false;
    fitName();
}

// A column the user widens or narrows keeps its width; the name makes up the difference.
void FileListView::fitName() {
    int others = 0;
    for (int column = 0; column < FileListModel::ColumnCount; ++column)
        if (column != FileListModel::Name) others += horizontalHeader()->sectionSize(column);
    fitting_ = true;
    horizontalHeader()->resizeSection(FileListModel::Name,
                                      std::max(kWidths[FileListModel::Name].minimum, viewport()->width() - others));
    fitting_ = false;
}

void FileListView::openRow(int row) { FileActionsMenu::activate(model_, rows_->node(row)); }

void FileListView::keyPressEvent(QKeyEvent* event) {
    const bool plain = !(event->modifiers() & ~Qt::KeypadModifier);
    if (plain && (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter)) {
        const auto selected = selectionModel()->selectedRows();
        if (selected.size() == 1) {
            openRow(selected.front().row());
            return;
        }
    }
    if (event->matches(QKeySequence::Delete) || (event->key() == Qt::Key_Backspace && event->modifiers() == Qt::ControlModifier)) {
        const auto nodes = model_.selectedNodes();
        if (!nodes.empty()) {
            model_.requestDelete(nodes);
            return;
        }
    }
    QTableView::keyPressEvent(event);
}

void FileListView::contextMenuEvent(QContextMenuEvent* event) {
    const QModelIndex index = indexAt(viewport()->mapFromGlobal(event->globalPos()));
    if (!index.isValid()) return;
    // A right-click outside the selection acts on that row alone, as file managers do.
    if (!selectionModel()->isRowSelected(index.row(), {}))
        selectionModel()->select(index, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    std::vector<FileNode*> nodes = model_.selectedNodes();
    if (nodes.empty()) return;
    QMenu menu(this);
    if (nodes.size() == 1) {
        auto primary = FileActionsMenu::primaryAction(model_, nodes.front(), QStringLiteral("Open folder"));
        if (primary.run) menu.addAction(primary.title, &menu, primary.run);
    }
    FileActionsMenu::addActions(menu, model_, nodes);
    menu.exec(event->globalPos());
}

void FileListView::scrollContentsBy(int dx, int dy) {
    QTableView::scrollContentsBy(dx, dy);
    if (dy) askForDates();
}

void FileListView::resizeEvent(QResizeEvent* event) {
    QTableView::resizeEvent(event);
    if (event->size().width() != event->oldSize().width()) fitColumns();
    askForDates();
}

// Last-opened dates are asked for the rows on screen only, once the view has settled.
void FileListView::askForDates() {
    if (datesAsked_) return;
    datesAsked_ = true;
    QTimer::singleShot(50, this, [this] {
        datesAsked_ = false;
        if (!isVisible() || rows_->rowCount() == 0) return;
        const int first = std::max(rowAt(0), 0);
        int last = rowAt(viewport()->height() - 1);
        if (last < 0) last = rows_->rowCount() - 1;
        std::vector<FileNode*> visible;
        for (int row = first; row <= last; ++row)
            if (FileNode* node = rows_->node(row); node && !node->lastOpenedLoaded()) visible.push_back(node);
        if (!visible.empty()) model_.loadLastOpened(visible);
    });
}

// The model's selection, shown; a change from elsewhere (the map, a search, a reveal) brings its first row
// into view.
void FileListView::showSelection() {
    if (syncing_) return;
    syncing_ = true;
    QItemSelection rows;
    int first = -1;
    for (quint64 id : model_.selection()) {
        const int row = rows_->rowOf(id);
        if (row < 0) continue;
        rows.select(rows_->index(row, 0), rows_->index(row, FileListModel::ColumnCount - 1));
        if (first < 0 || row < first) first = row;
    }
    selectionModel()->select(rows, QItemSelectionModel::ClearAndSelect);
    if (first >= 0) {
        selectionModel()->setCurrentIndex(rows_->index(first, 0), QItemSelectionModel::NoUpdate);
        scrollTo(rows_->index(first, 0));
    }
    syncing_ = false;
}

void FileListView::takeSelection() {
    if (syncing_) return;
    QSet<quint64> ids;
    for (const QModelIndex& index : selectionModel()->selectedRows())
        if (FileNode* item = rows_->node(index.row())) ids.insert(item->id());
    syncing_ = true; // the model's echo is what the view already shows
    model_.setSelection(std::move(ids));
    syncing_ = false;
}

} // namespace brenvo
