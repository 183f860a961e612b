#pragma once

#include <QColor>
#include <QPointer>
#include <QWidget>

class QVariantAnimation;

#ifndef Q_MOC_RUN
#include "geometry/TreemapLayout.h"
#include "tree/FileNode.h"

#include "explain/Explainer.h"

#include <map>
#include <optional>
#include <set>
#include <string>
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
        // Worked out once per layout rather than on every frame of an animation.
        std::string path;
        Category category = Category::other;
        std::optional<QColor> tint;
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
    ~TreemapView() override;

    const Layout& currentLayout() const { return layout_; }
    QString emptyMessage() const;
    // The colour a tile takes from an application's icon: the app the item belongs to, or an app bundle's
    // own icon; none for anything else or a grey icon.
    std::optional<QColor> tint(const FileNode& node) const;
    // How far the tile of `id` is tilted now, in degrees; for tests.
    double angle(quint64 id) const;
    // Whether the item's tile is wiggling now.
    bool isWiggling(quint64 id) const;
    // What a tile says to a pointer resting on it and to assistive technology: "{name} — {size}", with
    // ", selected" for a chosen one; the "more" tile sums up what it holds.
    QString tileLabel(const Tile& tile) const;

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    bool event(QEvent* event) override;

private:
    void relayout();
    void selectionMoved();
    void wiggle(const std::set<std::string>& paths);
    std::set<std::string> selectedTiles() const;
    double angleOf(const std::string& path) const;
    const Tile* tileAt(QPointF point) const;
    void paintTile(QPainter& p, const Tile& tile, const QFont& nameFont, const QFont& sizeFont);

    friend class TreemapAccessible;
    friend class TileAccessible;
    void forgetAccessibleTiles();

    StorageModel& model_;
    Layout layout_;
    // The assistive technology's handles on tiles, made when asked for and dropped with each layout.
    mutable std::map<int, unsigned> accessibleTiles_;
    // Motion is kept by path: a fresh scan gives every item a new id, and that is no new choice.
    // The rise of each tile, 0 lying flat to 1 raised, eased towards the selection.
    std::map<std::string, double> lift_;
    std::map<std::string, double> liftFrom_;
    std::set<std::string> shownSelection_;
    QPointer<QVariantAnimation> rising_;
    std::set<std::string> wiggling_;
    double wiggleTime_ = -1; // seconds into the wiggle; below 0 when none runs
    QPointer<QVariantAnimation> wiggler_;
    QPointF pressedAt_;
    bool pressed_ = false;
};

} // namespace brenvo
