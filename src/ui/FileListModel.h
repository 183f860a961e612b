#pragma once

#include <QAbstractTableModel>
#include <QString>
#include <vector>

namespace brenvo {

class FileNode;
class StorageModel;

// The rows of the folder page's list: what the model lists for the current folder, in the order the model
// keeps for the list, with the texts each column shows. Rebuilt when the folder, the filters, the order or
// the tree change; a change that keeps the same rows only repaints them, so scrolling and selection stay.
class FileListModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { Name, Size, Change, Share, Kind, Modified, LastOpened, ColumnCount };
    static constexpr int NodeRole = Qt::UserRole + 1;           // the row's FileNode*, as a quintptr
    static constexpr int RelativeFolderRole = Qt::UserRole + 2; // the second line of a found item's name
    static constexpr int ShareRole = Qt::UserRole + 3;          // size against the current folder, 0…1

    explicit FileListModel(StorageModel& model, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    void sort(int column, Qt::SortOrder order) override;

    FileNode* node(int row) const;
    int rowOf(quint64 id) const;
    // The column a sort by `column` of the model stands in, and back; Share has no order.
    static int columnOf(int listColumn);
    static int listColumnOf(int column); // -1 for a column without a sort key

signals:
    // The rows are of another folder, search or filter: the list starts again at the top.
    void rowsKeyChanged();

private:
    void reload();

    StorageModel& model_;
    std::vector<FileNode*> rows_;
    std::vector<QString> kinds_;
    QString rowsKey_; // the folder's path, the search and the filters
};

} // namespace brenvo
