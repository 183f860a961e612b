#pragma once

#include <QAbstractTableModel>
#include <vector>

namespace brenvo {

class FileNode;
class StorageModel;

// The rows of the folder page's list: what the model lists for the current folder, with each item's
// share of that folder. Rebuilt whenever the folder or the tree changes.
class FileListModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { Name, Size, Change, Share, ColumnCount };
    static constexpr int NodeRole = Qt::UserRole + 1; // the row's FileNode*, as a quintptr

    explicit FileListModel(StorageModel& model, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

    FileNode* node(int row) const;
    int rowOf(quint64 id) const;

private:
    void reload();

    StorageModel& model_;
    std::vector<FileNode*> rows_;
};

} // namespace brenvo
