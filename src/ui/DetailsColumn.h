#pragma once

#include <QScrollArea>

#include <vector>

class QVBoxLayout;

namespace brenvo {

class FileNode;
class StorageModel;

// The right-hand column that the Details button shows: what the selection is, the facts about it and what
// can be done with it. It holds nothing of its own; every change of the model draws it again from the model.
class InspectorView : public QScrollArea {
    Q_OBJECT
public:
    explicit InspectorView(StorageModel& model, QWidget* parent = nullptr);

    // What the column shows now, for tests: "item", "folder", "multiple", "about", "none".
    QString route() const { return route_; }
    // Drawn from the model as it is now; false while a redraw is waiting for its turn.
    bool isUpToDate() const { return !stale_; }
    QSize sizeHint() const override;

protected:
    void showEvent(QShowEvent* event) override;

private:
    void rebuild();
    void scheduleRebuild();

    StorageModel& model_;
    QString route_;
    bool pending_ = false;
    bool stale_ = false; // the model changed since the column was last drawn
};

// A titled block of text that wraps rather than cuts.
QWidget* infoSection(const QString& title, const QString& text, QWidget* parent);

// One item: its header, preview, facts, explanation and actions. `actions` is false for the folder on
// show, as against an item chosen in it.
QWidget* itemDetail(StorageModel& model, FileNode& node, bool actions, QWidget* parent);

// Two or more items: their count and total, how many are protected, and what can be done to all.
QWidget* multipleDetail(StorageModel& model, const std::vector<FileNode*>& nodes, QWidget* parent);

} // namespace brenvo
