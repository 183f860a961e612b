#pragma once

#include <QTableView>

namespace brenvo {

class FileListModel;
class FileNode;
class StorageModel;

// The table under the folder chart: the listed items with their sizes, changes, shares, kinds and dates,
// sorted by the column the user picks. Its selection is the model's; it asks for last-opened dates only
// for the rows on screen.
class FileListView : public QTableView {
    Q_OBJECT
public:
    static constexpr int kRowHeight = 24;
    static constexpr int kFoundRowHeight = 36; // a found item shows its folder on a second line

    explicit FileListView(StorageModel& model, QWidget* parent = nullptr);

    FileListModel* rows() const { return rows_; }
    // The selected rows' primary action: into a folder, or open the item.
    void openRow(int row);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void showSelection();
    void takeSelection();
    void showOrder();
    void startFresh();
    void askForDates();
    void keepMinimumWidth(int column, int oldSize, int newSize);
    void fitName();
    void fitColumns();

    StorageModel& model_;
    FileListModel* rows_;
    bool syncing_ = false;
    bool datesAsked_ = false;
    bool fitting_ = false;
};

} // namespace brenvo
