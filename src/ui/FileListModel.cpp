#include "FileListModel.h"

#include "FileIcons.h"
#include "Icons.h"
#include "Explaining.h"
#include "StorageModel.h"
#include "tree/FoldedEntries.h"
#include "Text.h"
#include "Words.h"
#include "cache/ChangeTracker.h"
#include "format/Formatters.h"

#include <QApplication>
#include <QPalette>
#include <unordered_map>

namespace brenvo {

namespace {

using ListColumn = StorageModel::ListColumn;

// Columns with an order, in the list's column numbering.
constexpr std::pair<int, ListColumn> kSortable[] = {
    {FileListModel::Name, ListColumn::name},         {FileListModel::Size, ListColumn::size},
    {FileListModel::Change, ListColumn::change},     {FileListModel::Kind, ListColumn::kind},
    {FileListModel::Modified, ListColumn::modified}, {FileListModel::LastOpened, ListColumn::lastOpened},
};

QString dayText(std::optional<Date> date) {
    return date ? QString::fromStdString(format::abbreviatedDate(*date)) : QString();
}

} // namespace

FileListModel::FileListModel(StorageModel& model, QObject* parent) : QAbstractTableModel(parent), model_(model) {
    for (auto signal : {&StorageModel::currentChanged, &StorageModel::treeChanged, &StorageModel::filtersChanged,
                        &StorageModel::listOrderChanged})
        connect(&model_, signal, this, &FileListModel::reload);
    reload();
}

int FileListModel::columnOf(int listColumn) {
    for (auto [column, key] : kSortable)
        if (static_cast<int>(key) == listColumn) return column;
    return Size;
}

int FileListModel::listColumnOf(int column) {
    for (auto [c, key] : kSortable)
        if (c == column) return static_cast<int>(key);
    return -1;
}

void FileListModel::reload() {
    std::vector<FileNode*> rows = model_.listItems();
    // Each row's kind once: the kind column shows it and may sort by it.
    const ExplainContext context = systemExplainContext(model_.catalog());
    std::unordered_map<const FileNode*, std::string> kindOf;
    kindOf.reserve(rows.size());
    for (FileNode* row : rows) kindOf.emplace(row, Explainer::kindLabel(*row, context));
    // Sorted by last opening, every row's date counts, not only those on screen: ask for all of them at once,
    // so the order settles after one answer.
    if (model_.listOrder().column == StorageModel::ListColumn::lastOpened) model_.loadLastOpened(rows);
    StorageModel::sortRows(rows, model_.listOrder(), [&](const FileNode& node) { return kindOf.at(&node); });
    FileNode* current = model_.current();
    // By path: a fresh scan or a re-measured folder brings new nodes, not another folder.
    const QString key = current ? QStringLiteral("%1|%2|%3|%4")
                                      .arg(toQString(current->path()), toQString(model_.searchText()),
                                           QString::number(static_cast<int>(model_.kindFilter())),
                                           QString::number(static_cast<int64_t>(model_.sizeFilter())))
                                : QString();
    std::vector<QString> kinds;
    kinds.reserve(rows.size());
    for (FileNode* row : rows) kinds.push_back(QString::fromStdString(kindOf.at(row)));
    if (key == rowsKey_ && rows == rows_) {
        // The same rows: sizes, dates or changes may differ, the rows themselves don't.
        kinds_ = std::move(kinds);
        if (!rows_.empty()) emit dataChanged(index(0, 0), index(rowCount() - 1, ColumnCount - 1));
        return;
    }
    beginResetModel();
    rows_ = std::move(rows);
    kinds_ = std::move(kinds);
    const bool newKey = key != rowsKey_;
    rowsKey_ = key;
    endResetModel();
    if (newKey) emit rowsKeyChanged();
}

void FileListModel::sort(int column, Qt::SortOrder order) {
    const int key = listColumnOf(column);
    if (key < 0) return;
    model_.setListOrder({static_cast<ListColumn>(key), order == Qt::AscendingOrder});
}

int FileListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

int FileListModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : ColumnCount; }

FileNode* FileListModel::node(int row) const {
    return row >= 0 && row < static_cast<int>(rows_.size()) ? rows_[static_cast<size_t>(row)] : nullptr;
}

int FileListModel::rowOf(quint64 id) const {
    for (size_t i = 0; i < rows_.size(); ++i)
        if (rows_[i]->id() == id) return static_cast<int>(i);
    return -1;
}

QVariant FileListModel::data(const QModelIndex& index, int role) const {
    const FileNode* item = node(index.row());
    if (!item) return {};
    if (role == NodeRole) return QVariant::fromValue(reinterpret_cast<quintptr>(item));
    switch (index.column()) {
    case Name:
        if (role == Qt::DisplayRole) return toQString(shownName(*item));
        if (role == Qt::DecorationRole) return fileIcon(*item);
        if (role == RelativeFolderRole) {
            if (!model_.isFiltering()) return {};
            auto folder = model_.relativeFolder(*item);
            return folder ? QVariant(toQString(*folder)) : QVariant();
        }
        if (role == Qt::ToolTipRole) {
            if (auto reason = item->skippedReason()) return toQString(*reason);
            return toQString(item->path());
        }
        break;
    case Size:
        if (role == Qt::DisplayRole) {
            // Zero from a folder that wasn't looked into is not a measurement.
            if (item->size() == 0 && (item->couldNotRead() || item->skippedReason())) return QStringLiteral("\u2014");
            return sizeText(item->size());
        }
        if (role == Qt::TextAlignmentRole) return QVariant(Qt::AlignRight | Qt::AlignVCenter);
        break;
    case Change: {
        // Only changes of a megabyte or more are worth a row's attention.
        const auto change = item->change();
        if (!change || *change == 0 || (*change < 1'000'000 && *change > -1'000'000)) break;
        if (role == Qt::DisplayRole) return QString::fromStdString(ChangeTracker::label(*change, item->isNew()));
        if (role == Qt::DecorationRole) return icon(item->isNew() ? "sparkle" : *change > 0 ? "arrow.up" : "arrow.down");
        if (role == Qt::ToolTipRole)
            return item->isNew() ? QStringLiteral("New since the last baseline scan")
                                 : QStringLiteral("Change in size since the last baseline scan");
        if (role == Qt::ForegroundRole) return QApplication::palette().placeholderText();
        if (role == Qt::TextAlignmentRole) return QVariant(Qt::AlignRight | Qt::AlignVCenter);
        break;
    }
    case Share:
        if (role == ShareRole) {
            const FileNode* folder = model_.current();
            if (!folder || folder->size() <= 0) return 0.0;
            return std::clamp(static_cast<double>(item->size()) / static_cast<double>(folder->size()), 0.0, 1.0);
        }
        break;
    case Kind:
        if (role == Qt::DisplayRole) return kinds_[static_cast<size_t>(index.row())];
        break;
    case Modified:
        if (role == Qt::DisplayRole) return dayText(item->modified());
        break;
    case LastOpened:
        if (role == Qt::DisplayRole) return dayText(item->lastOpened());
        if (role == Qt::ToolTipRole && !item->lastOpened())
            return say("macOS has no record of this being opened.");
        break;
    default: break;
    }
    return {};
}

QVariant FileListModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
    switch (section) {
    case Name: return QStringLiteral("Name");
    case Size: return QStringLiteral("Size");
    case Change: return QStringLiteral("Change");
    case Share: return QStringLiteral("Share");
    case Kind: return QStringLiteral("Kind");
    case Modified: return QStringLiteral("Modified");
    case LastOpened: return QStringLiteral("Last Opened");
    default: return {};
    }
}

} // namespace brenvo
