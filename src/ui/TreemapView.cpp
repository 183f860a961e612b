#include "TreemapView.h"

#include "Desktop.h"
#include "FileActionsMenu.h"
#include "FileIcons.h"
#include "IconColor.h"
#include "StorageModel.h"
#include "tree/FoldedEntries.h"
#include "Thumbnails.h"
#include "Text.h"
#include "Words.h"
#include "cache/ChangeTracker.h"
#include "platform/Platform.h"
#include "util/Paths.h"

#include <QApplication>
#include <QContextMenuEvent>
#include <QDrag>
#include <QEasingCurve>
#include <QMimeData>
#include <QUrl>
#include <QVariantAnimation>
#include <QHash>
#include <QHelpEvent>
#include <QLinearGradient>
#include <QMenu>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QAccessible>
#include <QAccessibleWidget>
#include <QToolTip>
#include <QWindow>
#include <algorithm>
#include <iterator>

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

// The item's icon as a white silhouette: any colour of its own would fight the tile's. Made once per icon.
QPixmap whiteIcon(const FileNode& node) {
    static QHash<qint64, QPixmap> made;
    const QIcon source = fileIcon(node);
    auto found = made.constFind(source.cacheKey());
    if (found != made.constEnd()) return *found;
    QPixmap picture = source.pixmap(28, 28);
    QPainter tint(&picture);
    tint.setCompositionMode(QPainter::CompositionMode_SourceIn);
    tint.fillRect(picture.rect(), QColor(255, 255, 255, 235));
    tint.end();
    return *made.insert(source.cacheKey(), picture);
}

QRectF toQt(const Rect& r) { return QRectF(r.x, r.y, r.width, r.height); }

QString tileText(const FileNode& node) { return QStringLiteral("%1 \u2014 %2").arg(toQString(shownName(node)), sizeText(node.size())); }

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
    const Profile& profile = platform::profile();
    for (size_t i = 0; i < tiles.size(); ++i)
        out.tiles.push_back({tiles[i], rects[i], tiles[i]->path(), Explainer::category(*tiles[i], profile), {}});
    if (out.hiddenCount > 0) out.tiles.push_back({nullptr, rects.back(), {}, Category::aggregate, {}});
    return out;
}

QAccessibleInterface* treemapAccessible(const QString& key, QObject* object);

TreemapView::TreemapView(StorageModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    static const bool accessible = (QAccessible::installFactory(&treemapAccessible), true);
    (void)accessible;
    setMinimumSize(300, 160);
    setMouseTracking(true);
    setContextMenuPolicy(Qt::DefaultContextMenu);
    setFocusPolicy(Qt::ClickFocus);
    for (auto signal : {&StorageModel::currentChanged, &StorageModel::treeChanged, &StorageModel::selectionChanged})
        connect(&model_, signal, this, &TreemapView::relayout);
    connect(&model_, &StorageModel::selectionChanged, this, &TreemapView::selectionMoved);
    // A reveal asks for attention: the tile it lands on wiggles again even when it was chosen already.
    connect(&model_, &StorageModel::revealed, this, [this] { wiggle(selectedTiles()); });
    connect(&ThumbnailCache::shared(), &ThumbnailCache::ready, this, qOverload<>(&QWidget::update));
    relayout();
    shownSelection_ = selectedTiles();
    for (const std::string& path : shownSelection_) lift_[path] = 1;
}

QString TreemapView::emptyMessage() const {
    const FileNode* current = model_.current();
    if (!current) return {};
    const std::string& cloud = platform::profile().iCloudDrivePath;
    const std::string path = current->path();
    if (cloud.empty() || !isInside(path, cloud)) return QStringLiteral("Nothing here takes up space.");
    // Files kept only in the cloud take no room here, though the list shows them.
    if (!current->children().empty())
        return say("Nothing here is downloaded to this Mac.\nFiles kept only in iCloud use no space here; they're "
                   "listed below.");
    return path == cloud ? QStringLiteral("Your iCloud Drive is empty.") : QStringLiteral("This folder is empty.");
}

std::optional<QColor> TreemapView::tint(const FileNode& node) const {
    if (auto app = const_cast<StorageModel&>(model_).installedApp(node)) return IconColor::dominant(app->path);
    if (Explainer::pathExtension(node.name()) == "app") return IconColor::dominant(node.path());
    return std::nullopt;
}

std::set<std::string> TreemapView::selectedTiles() const {
    std::set<std::string> paths;
    for (const Tile& tile : layout_.tiles)
        if (tile.node && model_.selection().contains(tile.node->id())) paths.insert(tile.path);
    return paths;
}

double TreemapView::angle(quint64 id) const {
    for (const Tile& tile : layout_.tiles)
        if (tile.node && tile.node->id() == id) return angleOf(tile.path);
    return 0;
}

bool TreemapView::isWiggling(quint64 id) const {
    if (!wiggler_) return false;
    for (const Tile& tile : layout_.tiles)
        if (tile.node && tile.node->id() == id) return wiggling_.contains(tile.path);
    return false;
}

double TreemapView::angleOf(const std::string& path) const {
    if (wiggleTime_ < 0 || !wiggling_.contains(path)) return 0;
    // Each swing takes 0.09 s, eased, and is followed by a rest of 0.09 s.
    static constexpr double kAngles[] = {4, -4, 2.5, -1.5, 0};
    static constexpr double kStep = 0.09;
    const int swing = std::min(static_cast<int>(wiggleTime_ / (2 * kStep)), 4);
    const double into = wiggleTime_ - swing * 2 * kStep;
    const double from = swing == 0 ? 0 : kAngles[swing - 1];
    const double t = std::clamp(into / kStep, 0.0, 1.0);
    return from + (kAngles[swing] - from) * QEasingCurve(QEasingCurve::InOutQuad).valueForProgress(t);
}

void TreemapView::selectionMoved() {
    const std::set<std::string> now = selectedTiles();
    std::set<std::string> added;
    std::set_difference(now.begin(), now.end(), shownSelection_.begin(), shownSelection_.end(),
                        std::inserter(added, added.end()));
    const bool same = now == shownSelection_;
    shownSelection_ = now;
    if (same) return; // the same items under new ids, after a scan or a live change
    std::map<std::string, double> target;
    for (const Tile& tile : layout_.tiles)
        if (tile.node) target[tile.path] = now.contains(tile.path) ? 1 : 0;
    if (prefersReducedMotion()) {
        lift_ = target;
        update();
        return;
    }
    // Rise and settle with a little overshoot, as a spring would.
    liftFrom_ = lift_;
    if (rising_) rising_->stop();
    auto* rise = new QVariantAnimation(this);
    rise->setDuration(300);
    rise->setStartValue(0.0);
    rise->setEndValue(1.0);
    rise->setEasingCurve(QEasingCurve::OutBack);
    connect(rise, &QVariantAnimation::valueChanged, this, [this, target](const QVariant& value) {
        const double t = value.toDouble();
        for (const auto& [path, to] : target) {
            const auto from = liftFrom_.find(path);
            lift_[path] = (from == liftFrom_.end() ? 0.0 : from->second) * (1 - t) + to * t;
        }
        update();
    });
    rise->start(QAbstractAnimation::DeleteWhenStopped);
    rising_ = rise;
    wiggle(added);
}

void TreemapView::wiggle(const std::set<std::string>& paths) {
    if (paths.empty() || prefersReducedMotion()) return;
    wiggling_ = paths;
    if (wiggler_) wiggler_->stop();
    auto* run = new QVariantAnimation(this);
    run->setDuration(900); // five swings, each with its rest
    run->setStartValue(0.0);
    run->setEndValue(0.9);
    connect(run, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        wiggleTime_ = value.toDouble();
        update();
    });
    connect(run, &QVariantAnimation::finished, this, [this] {
        wiggleTime_ = -1;
        wiggling_.clear();
        update();
    });
    run->start(QAbstractAnimation::DeleteWhenStopped);
    wiggler_ = run;
}

void TreemapView::relayout() {
    forgetAccessibleTiles();
    layout_ = layout(model_.current(), model_.selection(), QSizeF(size()));
    for (Tile& tile : layout_.tiles)
        if (tile.node) tile.tint = tint(*tile.node);
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
    p.setRenderHint(QPainter::SmoothPixmapTransform);
    if (layout_.tiles.empty()) {
        p.setPen(palette().color(QPalette::PlaceholderText));
        p.drawText(rect().adjusted(24, 0, -24, 0), Qt::AlignCenter | Qt::TextWordWrap, emptyMessage());
        return;
    }
    QFont nameFont = font();
    nameFont.setWeight(QFont::Medium);
    QFont sizeFont = font();
    sizeFont.setPointSizeF(font().pointSizeF() * 0.85);
    // Raised tiles last, so their shadow falls over their neighbours.
    std::vector<const Tile*> order;
    for (const Tile& tile : layout_.tiles) order.push_back(&tile);
    auto liftOf = [this](const Tile* t) {
        if (!t->node) return 0.0;
        const auto found = lift_.find(t->path);
        return found == lift_.end() ? 0.0 : found->second;
    };
    std::stable_sort(order.begin(), order.end(), [&](const Tile* a, const Tile* b) { return liftOf(a) < liftOf(b); });
    for (const Tile* tile : order) {
        p.save();
        if (tile->node) {
            if (const double degrees = angleOf(tile->path); degrees != 0) {
                const QPointF centre = toQt(tile->rect).center();
                p.translate(centre);
                p.rotate(degrees);
                p.translate(-centre);
            }
            if (const double lift = std::clamp(liftOf(tile), 0.0, 1.2); lift > 0.01) {
                // A soft shadow, dark and wide, a little below the tile.
                const QRectF r = toQt(tile->rect).adjusted(1, 1, -1, -1).translated(0, 6 * lift);
                for (int ring = 7; ring >= 1; --ring) {
                    QPainterPath halo;
                    halo.addRoundedRect(r.adjusted(-ring * 2, -ring * 2, ring * 2, ring * 2), 4 + ring * 2, 4 + ring * 2);
                    p.fillPath(halo, QColor(0, 0, 0, static_cast<int>(std::min(lift, 1.0) * 0.6 * 255 / 9)));
                }
            }
        }
        paintTile(p, *tile, nameFont, sizeFont);
        p.restore();
    }
}

void TreemapView::paintTile(QPainter& p, const Tile& tile, const QFont& nameFont, const QFont& sizeFont) {
    const QRectF r = toQt(tile.rect).adjusted(1, 1, -1, -1);
    if (r.width() <= 0 || r.height() <= 0) return;
    const FileNode* node = tile.node;
    const bool selected = node && model_.selection().contains(node->id());
    QColor base = QColor::fromRgbF(0.28f, 0.30f, 0.33f);
    if (node) base = tile.tint.value_or(fileTypeColor(tile.category));
    QPainterPath shape;
    shape.addRoundedRect(r, 4, 4);
    QLinearGradient gradient(r.topLeft(), r.bottomLeft());
    gradient.setColorAt(0, base.lighter(112));
    gradient.setColorAt(1, base.darker(108));
    p.fillPath(shape, gradient);

    // A picture of the file in the bottom trailing corner, when there is room for one.
    if (node && node->kind() == FileNode::Kind::file) {
        const Category category = tile.category;
        const double side = std::min(std::min(r.width(), r.height()) * 0.5, 140.0);
        if ((category == Category::video || category == Category::image || category == Category::document) && side >= 40) {
            ThumbnailCache& thumbnails = ThumbnailCache::shared();
            const std::string& path = tile.path;
            if (auto image = thumbnails.cached(path, side)) {
                QSizeF shown = QSizeF(image->size()) / image->devicePixelRatio();
                shown.scale(side, side, Qt::KeepAspectRatio);
                const QRectF spot(r.right() - 8 - shown.width(), r.bottom() - 8 - shown.height(), shown.width(), shown.height());
                QPainterPath corner;
                corner.addRoundedRect(spot, 3, 3);
                p.save();
                p.setClipPath(corner);
                p.drawImage(spot, *image);
                p.restore();
            } else {
                thumbnails.request(path, side); // nothing when it failed before or is on its way
            }
        }
    }

    if (selected)
        p.setPen(QPen(Qt::white, 3));
    else if (node)
        p.setPen(QPen(QColor(0, 0, 0, 38), 0.5));
    else
        p.setPen(QPen(QColor(255, 255, 255, 64), 0.5));
    p.drawPath(shape);

    if (r.width() <= 70 || r.height() <= 34) return;
    QRectF text = r.adjusted(8, 6, -8, -6);
    if (node && r.height() > 70) {
        p.drawPixmap(QPointF(text.left(), text.top()), whiteIcon(*node));
        text.adjust(0, 32, 0, 0);
    }
    QString name, size;
    if (node) {
        name = toQString(shownName(*node));
        size = sizeText(node->size());
    } else {
        name = QStringLiteral("%1 more items").arg(countText(layout_.hiddenCount));
        size = sizeText(layout_.hiddenSize);
    }
    p.setFont(nameFont);
    const QFontMetricsF nameMetrics(nameFont);
    // A name keeps its ending (its extension); the count of the "more" tile keeps its beginning.
    const QString elided = nameMetrics.elidedText(name, node ? Qt::ElideMiddle : Qt::ElideRight, text.width());
    p.setPen(QColor(0, 0, 0, 90)); // a drop shadow keeps the text legible on light tints
    p.drawText(text.translated(0, 1), Qt::AlignLeft | Qt::AlignTop, elided);
    p.setPen(Qt::white);
    p.drawText(text, Qt::AlignLeft | Qt::AlignTop, elided);
    p.setFont(sizeFont);
    p.setPen(QColor(255, 255, 255, 217));
    p.drawText(text.adjusted(0, nameMetrics.height() + 1, 0, 0), Qt::AlignLeft | Qt::AlignTop, size);

    // Growth worth noticing on a map: 10 MB or more, and a twentieth of the item.
    const auto change = node ? node->change() : std::nullopt;
    if (!change || *change == 0 || r.height() <= 70) return;
    const int64_t magnitude = *change < 0 ? (*change == INT64_MIN ? INT64_MAX : -*change) : *change;
    if (magnitude < 10'000'000 || magnitude < std::max<int64_t>(node->size(), 1) / 20) return;
    const QString label = QString::fromStdString(ChangeTracker::label(*change, node->isNew()));
    QFont chipFont = sizeFont;
    chipFont.setWeight(QFont::DemiBold);
    p.setFont(chipFont);
    const QString chip = (*change > 0 ? QStringLiteral("\u2191 ") : QStringLiteral("\u2193 ")) + label;
    const QRectF chipRect(text.left(), r.bottom() - 6 - 18, QFontMetricsF(chipFont).horizontalAdvance(chip) + 14, 18);
    QPainterPath capsule;
    capsule.addRoundedRect(chipRect, 9, 9);
    p.fillPath(capsule, QColor(0, 0, 0, 89));
    p.setPen(Qt::white);
    p.drawText(chipRect, Qt::AlignCenter, chip);
}

QString TreemapView::tileLabel(const Tile& tile) const {
    if (!tile.node)
        return QStringLiteral("%1 smaller items, %2 in total. They're all in the list below.")
            .arg(countText(layout_.hiddenCount), sizeText(layout_.hiddenSize));
    QString text = tileText(*tile.node);
    if (model_.selection().contains(tile.node->id())) text += QStringLiteral(", selected");
    return text;
}

// Tiles are drawn, not widgets: each gets an accessible item of its own inside the map's list.
class TileAccessible final : public QAccessibleInterface {
public:
    TileAccessible(TreemapView* view, int index) : view_(view), index_(index) {}
    bool isValid() const override { return view_ && index_ < static_cast<int>(view_->currentLayout().tiles.size()); }
    QObject* object() const override { return nullptr; }
    QWindow* window() const override { return view_ ? view_->window()->windowHandle() : nullptr; }
    QAccessibleInterface* parent() const override { return QAccessible::queryAccessibleInterface(view_); }
    QAccessibleInterface* child(int) const override { return nullptr; }
    QAccessibleInterface* childAt(int, int) const override { return nullptr; }
    QAccessibleInterface* focusChild() const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface*) const override { return -1; }
    QString text(QAccessible::Text t) const override {
        return isValid() && t == QAccessible::Name ? view_->tileLabel(tile()) : QString();
    }
    void setText(QAccessible::Text, const QString&) override {}
    QRect rect() const override {
        if (!isValid()) return {};
        const auto& r = tile().rect;
        const QRect local(QPointF(r.x, r.y).toPoint(), QSizeF(r.width, r.height).toSize());
        return QRect(view_->mapToGlobal(local.topLeft()), local.size());
    }
    QAccessible::Role role() const override { return QAccessible::ListItem; }
    QAccessible::State state() const override {
        QAccessible::State s;
        s.selectable = true;
        s.selected = isValid() && tile().node && view_->model_.selection().contains(tile().node->id());
        return s;
    }

private:
    const TreemapView::Tile& tile() const { return view_->currentLayout().tiles[static_cast<size_t>(index_)]; }
    QPointer<TreemapView> view_;
    int index_;
};

class TreemapAccessible final : public QAccessibleWidget {
public:
    explicit TreemapAccessible(TreemapView* view) : QAccessibleWidget(view, QAccessible::List) {}
    int childCount() const override { return static_cast<int>(view()->currentLayout().tiles.size()); }
    QAccessibleInterface* child(int index) const override {
        if (index < 0 || index >= childCount()) return nullptr;
        auto& ids = view()->accessibleTiles_;
        auto found = ids.find(index);
        if (found == ids.end())
            found = ids.emplace(index, QAccessible::registerAccessibleInterface(new TileAccessible(view(), index))).first;
        return QAccessible::accessibleInterface(found->second);
    }
    int indexOfChild(const QAccessibleInterface* child) const override {
        for (const auto& [index, id] : view()->accessibleTiles_)
            if (QAccessible::accessibleInterface(id) == child) return index;
        return -1;
    }

private:
    TreemapView* view() const { return static_cast<TreemapView*>(widget()); }
};

QAccessibleInterface* treemapAccessible(const QString& key, QObject* object) {
    if (key == QLatin1String("brenvo::TreemapView"))
        if (auto* view = qobject_cast<TreemapView*>(object)) return new TreemapAccessible(view);
    return nullptr;
}

TreemapView::~TreemapView() { forgetAccessibleTiles(); }

void TreemapView::forgetAccessibleTiles() {
    for (const auto& [index, id] : accessibleTiles_) QAccessible::deleteAccessibleInterface(id);
    accessibleTiles_.clear();
}

bool TreemapView::event(QEvent* event) {
    if (event->type() == QEvent::ToolTip) {
        auto* help = static_cast<QHelpEvent*>(event);
        const Tile* tile = tileAt(help->pos());
        if (!tile) {
            QToolTip::hideText();
            return true;
        }
        QToolTip::showText(help->globalPos(), tileLabel(*tile), this);
        return true;
    }
    return QWidget::event(event);
}

void TreemapView::mousePressEvent(QMouseEvent* event) {
    const Tile* tile = tileAt(event->position());
    pressed_ = false;
    if (!tile || !tile->node || event->button() != Qt::LeftButton) return;
    pressed_ = true;
    pressedAt_ = event->position();
    const quint64 id = tile->node->id();
    if (event->modifiers() & Qt::ControlModifier) {
        QSet<quint64> selection = model_.selection();
        if (!selection.remove(id)) selection.insert(id);
        model_.setSelection(std::move(selection));
    } else {
        model_.setSelection({id});
    }
}

// Dragging a tile hands the file to other programs, as a file manager would.
void TreemapView::mouseMoveEvent(QMouseEvent* event) {
    if (!(event->buttons() & Qt::LeftButton) || !pressed_) return;
    if ((event->position() - pressedAt_).manhattanLength() < QApplication::startDragDistance()) return;
    const Tile* tile = tileAt(pressedAt_);
    pressed_ = false;
    if (!tile || !tile->node || tile->node->isAggregate()) return;
    auto* offered = new QMimeData;
    offered->setUrls({urlOf(tile->path, tile->node->isFolder())});
    auto* drag = new QDrag(this);
    drag->setMimeData(offered);
    drag->setPixmap(fileIcon(*tile->node).pixmap(32, 32));
    drag->exec(Qt::CopyAction | Qt::LinkAction, Qt::CopyAction);
}

// With the map in focus, arrows walk the items by size and Return opens the one chosen.
void TreemapView::keyPressEvent(QKeyEvent* event) {
    if (event->modifiers() & ~Qt::KeypadModifier) return QWidget::keyPressEvent(event);
    switch (event->key()) {
    case Qt::Key_Left:
    case Qt::Key_Up: model_.selectNeighbour(false); return;
    case Qt::Key_Right:
    case Qt::Key_Down: model_.selectNeighbour(true); return;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (const auto selected = model_.selectedNodes(); selected.size() == 1) {
            FileActionsMenu::activate(model_, selected.front());
            return;
        }
        break;
    case Qt::Key_Escape:
        if (!model_.selection().isEmpty()) {
            model_.setSelection({});
            return;
        }
        break;
    default: break;
    }
    QWidget::keyPressEvent(event);
}

void TreemapView::mouseDoubleClickEvent(QMouseEvent* event) {
    const Tile* tile = tileAt(event->position());
    if (tile && tile->node) FileActionsMenu::activate(model_, tile->node);
}

void TreemapView::contextMenuEvent(QContextMenuEvent* event) {
    const Tile* tile = tileAt(event->pos());
    if (!tile || !tile->node) return;
    QMenu menu(this);
    auto primary = FileActionsMenu::primaryAction(model_, tile->node, QStringLiteral("Open folder"));
    if (primary.run) menu.addAction(primary.title, &menu, primary.run);
    FileActionsMenu::addActions(menu, model_, {tile->node});
    menu.exec(event->globalPos());
}

} // namespace brenvo
