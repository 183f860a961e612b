#include "TreemapView.h"

#include "StorageModel.h"
#include "Text.h"
#include "Words.h"
#include "cache/ChangeTracker.h"
#include "platform/Platform.h"

#include <QContextMenuEvent>
#include <QHelpEvent>
#include <QLinearGradient>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QToolTip>
#include <algorithm>

namespace brenvo {

namespace {

// Dark, muted colours that carry white text.
QColor fileTypeColor(Category category) {
    switch (category) {
    case Category::folder: return QColor::fromRgbF(0.18f, 0.38f, 0.66f);
    case Category::video: return QColor::fromRgbF(0.40f, 0.27f, 0.62f);
    case Category::image: return QColor::fromRgbF(0.08f, 0.43f, 0.47f);
    case Category::audio: return QColor::fromRgbF(0.62f, 0.22f, 0.40f);
    case Category::archive:
    case Category::installer: return QColor::fromRgbF(0.66f, 0.36f, 0.13f);
    case Category::document: return QColor::fromRgbF(0.20f, 0.45f, 0.25f);
    case Category::app: return QColor::fromRgbF(0.28f, 0.29f, 0.62f);
    case Category::library: return QColor::fromRgbF(0.45f, 0.33f, 0.22f);
    case Category::other: return QColor::fromRgbF(0.35f, 0.38f, 0.42f);
    case Category::aggregate: return QColor::fromRgbF(0.28f, 0.30f, 0.33f);
    }
    return QColor::fromRgbF(0.35f, 0.38f, 0.42f);
}

QRectF toQt(const Rect& r) { return QRectF(r.x, r.y, r.width, r.height); }

QString tileText(const FileNode& node) { return QStringLiteral("%1 \u2014 %2").arg(toQString(node.name()), sizeText(node.size())); }

} // namespace

std::vector<FileNode*> TreemapView::chooseTiles(const std::vector<FileNode*>& sorted, int maxTiles,
                                                const QSet<quint64>& selection) {
    const auto limit = static_cast<size_t>(std::max(maxTiles, 0));
    if (sorted.size() <= limit) return sorted;
    std::vector<FileNode*> taken;
    for (size_t i = limit; i < sorted.size() && taken.size() < limit; ++i)
        if (selection.contains(sorted[i]->id())) taken.push_back(sorted[i]);
    std::vector<FileNode*> tiles(sorted.begin(), sorted.begin() + static_cast<long>(limit - taken.size()));
    tiles.insert(tiles.end(), taken.begin(), taken.end());
    std::stable_sort(tiles.begin(), tiles.end(), [](FileNode* a, FileNode* b) { return a->size() > b->size(); });
    return tiles;
}

TreemapView::Layout TreemapView::layout(FileNode* folder, const QSet<quint64>& selection, QSizeF size, int maxTiles) {
    Layout out;
    if (!folder) return out;
    std::vector<FileNode*> sorted;
    for (FileNode* child : folder->children())
        if (child->size() > 0) sorted.push_back(child);
    std::stable_sort(sorted.begin(), sorted.end(), [](FileNode* a, FileNode* b) { return a->size() > b->size(); });
    const std::vector<FileNode*> tiles = chooseTiles(sorted, maxTiles, selection);
    std::vector<double> weights;
    for (FileNode* tile : tiles) weights.push_back(static_cast<double>(tile->size()));
    for (FileNode* item : sorted) {
        if (std::find(tiles.begin(), tiles.end(), item) != tiles.end()) continue;
        ++out.hiddenCount;
        out.hiddenSize += item->size();
    }
    if (out.hiddenCount > 0) weights.push_back(static_cast<double>(out.hiddenSize));
    auto rects = TreemapLayout::squarify(TreemapLayout::displayWeights(weights, kMinShare),
                                         Rect{0, 0, size.width(), size.height()});
    for (size_t i = 0; i < tiles.size(); ++i) out.tiles.push_back({tiles[i], rects[i]});
    if (out.hiddenCount > 0) out.tiles.push_back({nullptr, rects.back()});
    return out;
}

TreemapView::TreemapView(StorageModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    setMinimumSize(300, 160);
    setMouseTracking(true);
    setContextMenuPolicy(Qt::DefaultContextMenu);
    for (auto signal : {&StorageModel::currentChanged, &StorageModel::treeChanged, &StorageModel::selectionChanged})
        connect(&model_, signal, this, &TreemapView::relayout);
    relayout();
}

QString TreemapView::emptyMessage() const {
    if (!model_.current()) return {};
    return QStringLiteral("Nothing here takes up space.");
}

void TreemapView::relayout() {
    layout_ = layout(model_.current(), model_.selection(), QSizeF(size()));
    update();
}

void TreemapView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    relayout();
}

const TreemapView::Tile* TreemapView::tileAt(QPointF point) const {
    for (const Tile& tile : layout_.tiles)
        if (toQt(tile.rect).contains(point)) return &tile;
    return nullptr;
}

void TreemapView::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    if (layout_.tiles.empty()) {
        p.setPen(palette().color(QPalette::PlaceholderText));
        p.drawText(rect().adjusted(24, 0, -24, 0), Qt::AlignCenter | Qt::TextWordWrap, emptyMessage());
        return;
    }
    QFont nameFont = font();
    nameFont.setWeight(QFont::Medium);
    QFont sizeFont = font();
    sizeFont.setPointSizeF(font().pointSizeF() * 0.85);
    const Profile& profile = platform::profile();
    // Selected tiles last, so their raised shadow falls over their neighbours.
    std::vector<const Tile*> order;
    for (const Tile& tile : layout_.tiles) order.push_back(&tile);
    std::stable_partition(order.begin(), order.end(), [this](const Tile* t) {
        return !(t->node && model_.selection().contains(t->node->id()));
    });
    for (const Tile* tile : order) {
        const QRectF r = toQt(tile->rect).adjusted(1, 1, -1, -1);
        if (r.width() <= 0 || r.height() <= 0) continue;
        const bool selected = tile->node && model_.selection().contains(tile->node->id());
        const QColor base = tile->node ? fileTypeColor(Explainer::category(*tile->node, profile))
                                       : QColor::fromRgbF(0.28f, 0.30f, 0.33f);
        QPainterPath shape;
        shape.addRoundedRect(r, 4, 4);
        if (selected) {
            for (int i = 6; i > 0; --i) // a soft shadow under the raised tile
                p.fillPath(shape.translated(0, i), QColor(0, 0, 0, 18));
        }
        QLinearGradient gradient(r.topLeft(), r.bottomLeft());
        gradient.setColorAt(0, base.lighter(112));
        gradient.setColorAt(1, base.darker(108));
        p.fillPath(shape, gradient);
        if (selected)
            p.setPen(QPen(Qt::white, 3));
        else if (tile->node)
            p.setPen(QPen(QColor(0, 0, 0, 38), 0.5));
        else
            p.setPen(QPen(QColor(255, 255, 255, 64), 0.5));
        p.drawPath(shape);

        if (r.width() <= 70 || r.height() <= 34) continue;
        const QRectF text = r.adjusted(8, 6, -8, -6);
        QString name, size;
        if (tile->node) {
            name = toQString(tile->node->name());
            size = sizeText(tile->node->size());
        } else {
            name = QStringLiteral("%1 more items").arg(countText(layout_.hiddenCount));
            size = sizeText(layout_.hiddenSize);
        }
        p.setFont(nameFont);
        const QFontMetricsF nameMetrics(nameFont);
        const QString elided = nameMetrics.elidedText(name, Qt::ElideMiddle, text.width());
        p.setPen(QColor(0, 0, 0, 90)); // a drop shadow keeps the text legible on light tints
        p.drawText(text.translated(0, 1), Qt::AlignLeft | Qt::AlignTop, elided);
        p.setPen(Qt::white);
        p.drawText(text, Qt::AlignLeft | Qt::AlignTop, elided);
        p.setFont(sizeFont);
        p.setPen(QColor(255, 255, 255, 217));
        p.drawText(text.adjusted(0, nameMetrics.height() + 1, 0, 0), Qt::AlignLeft | Qt::AlignTop, size);

        // Growth worth noticing on a map: 10 MB or more, and a twentieth of the item.
        const auto change = tile->node ? tile->node->change() : std::nullopt;
        if (change && *change != 0 && r.height() > 70) {
            const int64_t magnitude = *change < 0 ? -*change : *change;
            if (magnitude >= 10'000'000 && magnitude >= std::max<int64_t>(tile->node->size(), 1) / 20) {
                const QString label = QString::fromStdString(ChangeTracker::label(*change, tile->node->isNew()));
                QFont chipFont = sizeFont;
                chipFont.setWeight(QFont::DemiBold);
                p.setFont(chipFont);
                const QString chip = (*change > 0 ? QStringLiteral("\u2191 ") : QStringLiteral("\u2193 ")) + label;
                const QRectF chipRect(text.left(), text.bottom() - 18,
                                      QFontMetricsF(chipFont).horizontalAdvance(chip) + 14, 18);
                QPainterPath capsule;
                capsule.addRoundedRect(chipRect, 9, 9);
                p.fillPath(capsule, QColor(0, 0, 0, 89));
                p.setPen(Qt::white);
                p.drawText(chipRect, Qt::AlignCenter, chip);
            }
        }
    }
}

bool TreemapView::event(QEvent* event) {
    if (event->type() == QEvent::ToolTip) {
        auto* help = static_cast<QHelpEvent*>(event);
        const Tile* tile = tileAt(help->pos());
        if (!tile) {
            QToolTip::hideText();
            return true;
        }
        QString text;
        if (tile->node) {
            text = tileText(*tile->node);
            if (model_.selection().contains(tile->node->id())) text += QStringLiteral(", selected");
        } else {
            text = QStringLiteral("%1 smaller items, %2 in total. They're all in the list below.")
                       .arg(countText(layout_.hiddenCount), sizeText(layout_.hiddenSize));
        }
        QToolTip::showText(help->globalPos(), text, this);
        return true;
    }
    return QWidget::event(event);
}

void TreemapView::mousePressEvent(QMouseEvent* event) {
    const Tile* tile = tileAt(event->position());
    if (!tile || !tile->node || event->button() != Qt::LeftButton) return;
    const quint64 id = tile->node->id();
    if (event->modifiers() & Qt::ControlModifier) {
        QSet<quint64> selection = model_.selection();
        if (!selection.remove(id)) selection.insert(id);
        model_.setSelection(std::move(selection));
    } else {
        model_.setSelection({id});
    }
}

void TreemapView::mouseDoubleClickEvent(QMouseEvent* event) {
    const Tile* tile = tileAt(event->position());
    if (!tile || !tile->node) return;
    FileNode* node = tile->node;
    if (node->isFolder() && !node->children().empty()) {
        model_.setCurrent(node);
        model_.setSelection({});
    } else {
        model_.openInDefaultApp(*node);
    }
}

void TreemapView::contextMenuEvent(QContextMenuEvent* event) {
    const Tile* tile = tileAt(event->pos());
    if (!tile || !tile->node) return;
    NodeRef node(tile->node);
    QMenu menu(this);
    const bool folder = node->isFolder() && !node->children().empty();
    if (folder) {
        menu.addAction(QStringLiteral("Open folder"), this, [this, node] {
            model_.setCurrent(node.get());
            model_.setSelection({});
        });
    } else if (!node->isAggregate()) {
        menu.addAction(QStringLiteral("Open"), this, [this, node] { model_.openInDefaultApp(*node); });
    }
    menu.addAction(say("Reveal in Finder"), this, [this, node] { model_.showInFolder(node->path()); });
    menu.addSeparator();
    menu.addAction(QStringLiteral("Delete\u2026"), this, [this, node] { model_.requestDelete({node.get()}); });
    menu.exec(event->globalPos());
}

} // namespace brenvo
