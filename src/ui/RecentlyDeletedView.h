#pragma once

#include <QWidget>

class QLabel;
class QTreeWidget;
class QPushButton;

namespace brenvo {

class DeletionLog;

// Everything the program has deleted, newest first, from the deletion record.
class RecentlyDeletedView : public QWidget {
    Q_OBJECT
public:
    explicit RecentlyDeletedView(DeletionLog& log, QWidget* parent = nullptr);

    QTreeWidget* rows() const { return rows_; }
    QLabel* summary() const { return summary_; }
    QPushButton* clearButton() const { return clear_; }

private:
    void refresh();

    DeletionLog& log_;
    QLabel* empty_;
    QLabel* summary_;
    QPushButton* clear_;
    QTreeWidget* rows_;
};

} // namespace brenvo
