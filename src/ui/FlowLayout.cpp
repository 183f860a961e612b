#include "FlowLayout.h"

#include <QWidget>
#include <algorithm>

namespace brenvo {

FlowLayout::FlowLayout(QWidget* parent, int spacing) : QLayout(parent), gap_(spacing) {
    setContentsMargins(0, 0, 0, 0);
}

FlowLayout::~FlowLayout() {
    while (QLayoutItem* item = takeAt(0)) delete item;
}

void FlowLayout::addItem(QLayoutItem* item) { items_.append(item); }

QLayoutItem* FlowLayout::takeAt(int index) {
    return index >= 0 && index < items_.size() ? items_.takeAt(index) : nullptr;
}

// As narrow as its widest item; the height follows from the width given.
QSize FlowLayout::minimumSize() const {
    QSize size;
    for (QLayoutItem* item : items_) size = size.expandedTo(item->minimumSize());
    const QMargins m = contentsMargins();
    return size + QSize(m.left() + m.right(), m.top() + m.bottom());
}

void FlowLayout::setGeometry(const QRect& rect) {
    QLayout::setGeometry(rect);
    arrange(rect, true);
}

int FlowLayout::arrange(const QRect& rect, bool place) const {
    const QRect area = rect.marginsRemoved(contentsMargins());
    int x = area.x(), y = area.y(), lineHeight = 0;
    for (QLayoutItem* item : items_) {
        if (item->isEmpty()) continue;
        const QSize hint = item->sizeHint();
        if (x > area.x() && x + hint.width() > area.right() + 1) {
            x = area.x();
            y += lineHeight + gap_;
            lineHeight = 0;
        }
        if (place) item->setGeometry(QRect(QPoint(x, y), QSize(std::min(hint.width(), area.width()), hint.height())));
        x += hint.width() + gap_;
        lineHeight = std::max(lineHeight, hint.height());
    }
    return y + lineHeight - rect.y() + contentsMargins().bottom();
}

} // namespace brenvo
