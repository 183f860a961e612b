#include "FolderPage.h"

#include "FileListModel.h"
#include "FilterBar.h"
#include "PathBar.h"
#include "ScanningView.h"
#include "StorageModel.h"
#include "TreemapView.h"
#include "WelcomeView.h"

#include <QAction>
#include <QFrame>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QSplitter>
#include <QTableView>
#include <QVBoxLayout>

namespace brenvo {

FolderPage::FolderPage(StorageModel& model, QWidget* parent) : QStackedWidget(parent), model_(model) {
    scanning_ = new ScanningView(model_, this);
    welcome_ = new WelcomeView(this);
    folder_ = new QWidget(this);
    auto* column = new QVBoxLayout(folder_);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    pathBar_ = new PathBar(model_, folder_);
    column->addWidget(pathBar_);
    auto* line = new QFrame(folder_);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    column->addWidget(line);
    // The map above, the filters and the list below; the split keeps both usable.
    auto* split = new QSplitter(Qt::Vertical, folder_);
    split->setChildrenCollapsible(false);
    auto* chart = new QWidget(split);
    auto* chartLayout = new QVBoxLayout(chart);
    chartLayout->setContentsMargins(8, 8, 8, 8);
    map_ = new TreemapView(model_, chart);
    chartLayout->addWidget(map_);
    auto* lower = new QWidget(split);
    lower->setMinimumHeight(160);
    auto* lowerLayout = new QVBoxLayout(lower);
    lowerLayout->setContentsMargins(0, 0, 0, 0);
    lowerLayout->setSpacing(0);
    filterBar_ = new FilterBar(model_, lower);
    lowerLayout->addWidget(filterBar_);
    list_ = new QTableView(lower);
    rows_ = new FileListModel(model_, list_);
    list_->setModel(rows_);
    list_->setSelectionBehavior(QAbstractItemView::SelectRows);
    list_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    list_->setShowGrid(false);
    list_->setAlternatingRowColors(true);
    list_->setFrameShape(QFrame::NoFrame);
    list_->verticalHeader()->hide();
    list_->verticalHeader()->setDefaultSectionSize(24);
    list_->horizontalHeader()->setSectionResizeMode(FileListModel::Name, QHeaderView::Stretch);
    list_->horizontalHeader()->setSectionResizeMode(FileListModel::Size, QHeaderView::Fixed);
    list_->horizontalHeader()->setSectionResizeMode(FileListModel::Share, QHeaderView::Fixed);
    list_->horizontalHeader()->setSectionResizeMode(FileListModel::Change, QHeaderView::Fixed);
    list_->horizontalHeader()->resizeSection(FileListModel::Size, 110);
    list_->horizontalHeader()->resizeSection(FileListModel::Change, 110);
    list_->horizontalHeader()->resizeSection(FileListModel::Share, 80);
    list_->horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    lowerLayout->addWidget(list_, 1);
    split->addWidget(chart);
    split->addWidget(lower);
    split->setStretchFactor(0, 3);
    split->setStretchFactor(1, 2);
    column->addWidget(split, 1);
    addWidget(scanning_);
    addWidget(welcome_);
    addWidget(folder_);

    connect(list_, &QTableView::doubleClicked, this, &FolderPage::open);
    // Deleting starts from the selection: the Delete key, or the list's menu.
    auto* remove = new QAction(QStringLiteral("Delete\u2026"), list_);
    remove->setShortcut(QKeySequence::Delete);
    remove->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    connect(remove, &QAction::triggered, this, [this] { model_.requestDelete(model_.selectedNodes()); });
    list_->addAction(remove);
    list_->setContextMenuPolicy(Qt::ActionsContextMenu);
    connect(list_->selectionModel(), &QItemSelectionModel::selectionChanged, this, &FolderPage::takeSelection);
    connect(rows_, &QAbstractItemModel::modelReset, this, &FolderPage::showSelection);
    connect(&model_, &StorageModel::selectionChanged, this, &FolderPage::showSelection);
    connect(&model_, &StorageModel::scanStateChanged, this, &FolderPage::choose);
    connect(&model_, &StorageModel::currentChanged, this, &FolderPage::choose);
    choose();
}

void FolderPage::choose() {
    if (model_.isScanning())
        setCurrentWidget(scanning_);
    else if (!model_.current())
        setCurrentWidget(welcome_);
    else
        setCurrentWidget(folder_);
}

// A folder opens in place; anything else opens in its application.
void FolderPage::open(const QModelIndex& index) {
    FileNode* item = rows_->node(index.row());
    if (!item) return;
    if (!item->isFolder()) {
        model_.openInDefaultApp(*item);
        return;
    }
    model_.setCurrent(item);
    model_.setSelection({});
}

void FolderPage::showSelection() {
    syncing_ = true;
    QItemSelection rows;
    int first = -1;
    for (quint64 id : model_.selection()) {
        int row = rows_->rowOf(id);
        if (row < 0) continue;
        rows.select(rows_->index(row, 0), rows_->index(row, FileListModel::ColumnCount - 1));
        if (first < 0 || row < first) first = row;
    }
    list_->selectionModel()->select(rows, QItemSelectionModel::ClearAndSelect);
    if (first >= 0) list_->scrollTo(rows_->index(first, 0));
    syncing_ = false;
}

void FolderPage::takeSelection() {
    if (syncing_) return;
    QSet<quint64> ids;
    for (const QModelIndex& index : list_->selectionModel()->selectedRows())
        if (FileNode* item = rows_->node(index.row())) ids.insert(item->id());
    model_.setSelection(std::move(ids));
}

} // namespace brenvo
