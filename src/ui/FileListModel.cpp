#include "FileListModel.h"

#include "Icons.h"
#include "StorageModel.h"
#include "Text.h"
#include "Words.h"
#include "cache/ChangeTracker.h"

#include <QApplication>
#include <QPalette>

namespace brenvo {

FileListModel::FileListModel(StorageModel& model, QObject* parent) : QAbstractTableModel(parent), model_(model) {
    connect(&model_, &StorageModel::currentChanged, this, &FileListModel::reload);
    connect(&model_, &StorageModel::treeChanged, this, &FileListModel::reload);
    connect(&model_, &StorageModel::filtersChanged, this, &FileListModel::reload);
    reload();
}

void FileListModel::reload() {
    beginResetModel();
    rows_ = model_.listItems();
    endResetModel();
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
    const FileNode* folder = model_.current();
    const double total = folder && folder->size() > 0 ? static_cast<double>(folder->size()) : 0;
    const double share = total > 0 ? static_cast<double>(item->size()) / total : 0;
    switch (index.column()) {
    case Name:
        if (role == Qt::DisplayRole) return toQString(item->name());
        if (role == Qt::DecorationRole) {
            if (item->isFolder()) return icon(item->couldNotRead() || item->skippedReason() ? "folder.badge.questionmark" : "folder");
            return icon(item->isAggregate() ? "ellipsis.circle" : "doc.text");
        }
        if (role == Qt::ToolTipRole) {
            if (auto reason = item->skippedReason()) return toQString(*reason);
            return toQString(item->path());
        }
        break;
    case Size:
        if (role == Qt::DisplayRole) return sizeText(item->size());
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
        if (role == Qt::DisplayRole) return QStringLiteral("%1%").arg(share * 100, 0, 'f', share < 0.1 && share > 0 ? 1 : 0);
        if (role == Qt::UserRole) return share;
        if (role == Qt::TextAlignmentRole) return QVariant(Qt::AlignRight | Qt::AlignVCenter);
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
    default: return {};
    }
}

} // namespace brenvo
