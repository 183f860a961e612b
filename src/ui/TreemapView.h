#pragma once

#include <QWidget>

#ifndef Q_MOC_RUN
#include "geometry/TreemapLayout.h"
#include "tree/FileNode.h"

#include <vector>
#endif

namespace brenvo {

class StorageModel;

// The current folder's children as rectangles whose areas follow their sizes: the largest items as tiles,
// the rest gathered in one "more" tile. Selection and navigation go through the model.
class TreemapView : public QWidget {
    Q_OBJECT
public:
    static constexpr int kMaxTiles = 24;
    static constexpr double kMinShare = 0.03;

    struct Tile {
        FileNode* node = nullptr; // none for the "more" tile
        Rect rect;
    };
    struct Layout {
        std::vector<Tile> tiles;
        int hiddenCount = 0;
        int64_t hiddenSize = 0;
    };

    // The items that get a tile: the largest, and any selected one that would otherwise be hidden, keeping
    // the count at `maxTiles`; the rest are summed for the "more" tile.
    static std::vector<FileNode*> chooseTiles(const std::vector<FileNode*>& sorted, int maxTiles,
                                              const QSet<quint64>& selection);
    static Layout layout(FileNode* folder, const QSet<quint64>& selection, QSizeF size, int maxTiles = kMaxTiles);

    explicit TreemapView(StorageModel& model, QWidget* parent = nullptr);

    const Layout& currentLayout() const { return layout_; }
    QString emptyMessage() const;

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    bool event(QEvent* event) override;

private:
    void relayout();
    const Tile* tileAt(QPointF point) const;

    StorageModel& model_;
    Layout layout_;
};

} // namespace brenvo
