#include "UndoBanner.h"

#include "DeletionLog.h"
#include "Icons.h"
#include "Text.h"
#include "Words.h"

#include <QAccessible>
#include <QEvent>
#include <QGraphicsDropShadowEffect>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>

namespace brenvo {

namespace {

QString planTitle(const DeletionLog::Pending& plan) {
    int64_t size = 0;
    for (const auto& t : plan.targets) size += t.size;
    if (plan.targets.size() == 1)
        return QStringLiteral("\u201c%1\u201d deleted \u00b7 %2").arg(toQString(plan.targets.front().name), sizeText(size));
    return QStringLiteral("%1 items deleted \u00b7 %2").arg(countText(static_cast<int64_t>(plan.targets.size())), sizeText(size));
}

} // namespace

UndoBanner::UndoBanner(DeletionLog& log, QWidget* parent) : QFrame(parent), log_(log) {
    setObjectName(QStringLiteral("UndoBanner"));
    setStyleSheet(QStringLiteral("#UndoBanner { background: palette(window); border: 1px solid palette(mid);"
                                 " border-radius: 18px; }"));
    auto* shadow = new QGraphicsDropShadowEffect(this);
    shadow->setBlurRadius(20);
    shadow->setOffset(0, 4);
    shadow->setColor(QColor(0, 0, 0, 51));
    setGraphicsEffect(shadow);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(16, 10, 16, 10);
    layout->setSpacing(10);
    icon_ = new QLabel(this);
    title_ = new QLabel(this);
    countdown_ = new QProgressBar(this);
    countdown_->setFixedWidth(70);
    countdown_->setFixedHeight(6);
    countdown_->setTextVisible(false);
    countdown_->setRange(0, 1000);
    undo_ = new QPushButton(QStringLiteral("Undo"), this);
    undo_->setToolTip(QStringLiteral("Puts them back. You can also press Ctrl+Z."));
    undo_->setAccessibleDescription(QStringLiteral("Puts the deleted items back"));
    deleteNow_ = new QPushButton(QStringLiteral("Delete Now"), this);
    deleteNow_->setFlat(true);
    for (QWidget* w : std::initializer_list<QWidget*>{icon_, title_, countdown_, undo_, deleteNow_}) layout->addWidget(w);
    clock_ = new QTimer(this);
    clock_->setInterval(50);
    connect(clock_, &QTimer::timeout, this, &UndoBanner::tick);
    connect(undo_, &QPushButton::clicked, &log_, &DeletionLog::undoPending);
    connect(deleteNow_, &QPushButton::clicked, &log_, &DeletionLog::deleteNow);
    connect(&log_, &DeletionLog::changed, this, &UndoBanner::refresh);
    parent->installEventFilter(this);
    refresh();
}

QString UndoBanner::title() const { return title_->text(); }

void UndoBanner::refresh() {
    const auto phase = log_.phase();
    const bool waiting = phase == DeletionLog::Phase::waiting;
    countdown_->setVisible(waiting);
    undo_->setVisible(waiting);
    deleteNow_->setVisible(waiting);
    QString said;
    switch (phase) {
    case DeletionLog::Phase::idle:
        hide();
        clock_->stop();
        lastPhase_ = static_cast<int>(phase);
        return;
    case DeletionLog::Phase::waiting: {
        icon_->setPixmap(icon("trash").pixmap(18, 18));
        title_->setText(planTitle(*log_.pending()));
        said = QStringLiteral("%1. Undo is available for %2 seconds, press Control Z.")
                   .arg(title_->text())
                   .arg(static_cast<long long>(DeletionLog::windowSeconds()));
        countdown_->setRange(0, 1000);
        clock_->start();
        tick();
        break;
    }
    case DeletionLog::Phase::deleting:
        icon_->clear();
        countdown_->setVisible(true);
        countdown_->setRange(0, 0); // a spinner: how long is not known
        title_->setText(QStringLiteral("Deleting\u2026"));
        clock_->stop();
        break;
    case DeletionLog::Phase::done: {
        clock_->stop();
        const auto& done = *log_.recentlyDone();
        if (done.count > 0) {
            icon_->setPixmap(icon("checkmark.circle.fill").pixmap(18, 18));
            title_->setText(QStringLiteral("Freed %1").arg(sizeText(done.size)));
            said = QStringLiteral("Freed %1.").arg(sizeText(done.size));
        } else {
            icon_->setPixmap(icon("exclamationmark.triangle").pixmap(18, 18));
            title_->setText(QStringLiteral("Nothing was deleted"));
            said = QStringLiteral("Nothing was deleted.");
        }
        break;
    }
    }
    if (static_cast<int>(phase) != lastPhase_ && !said.isEmpty()) announce(said);
    lastPhase_ = static_cast<int>(phase);
    adjustSize();
    place();
    show();
    raise();
}

// The bar shrinks from the window's start to its deadline.
void UndoBanner::tick() {
    if (!log_.pending()) return;
    const double window = DeletionLog::windowSeconds();
    const double left = log_.pending()->deadline.seconds - Date::now().seconds;
    const double share = window > 0 ? std::clamp(left / window, 0.0, 1.0) : 1.0;
    countdown_->setValue(static_cast<int>(share * 1000));
}

void UndoBanner::place() {
    if (!parentWidget()) return;
    const QSize hint = sizeHint();
    move((parentWidget()->width() - hint.width()) / 2, parentWidget()->height() - hint.height() - 14);
    resize(hint);
}

bool UndoBanner::eventFilter(QObject* watched, QEvent* event) {
    if (watched == parentWidget() && event->type() == QEvent::Resize) place();
    return QFrame::eventFilter(watched, event);
}

void UndoBanner::announce(const QString& text) {
    announcement_ = text;
    setAccessibleName(text);
    QAccessibleEvent event(this, QAccessible::Alert);
    QAccessible::updateAccessibility(&event);
}

} // namespace brenvo
