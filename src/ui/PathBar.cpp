#include "PathBar.h"

#include "Icons.h"
#include "Preferences.h"
#include "StorageModel.h"
#include "Text.h"
#include "Words.h"
#include "format/Formatters.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QResizeEvent>
#include <QShortcut>
#include <QTimer>
#include <QToolButton>

namespace brenvo {

PathBar::PathBar(StorageModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(8, 4, 8, 4);
    back_ = new QToolButton(this);
    back_->setIcon(icon("chevron.left"));
    back_->setText(QStringLiteral("Back to the enclosing folder"));
    back_->setToolTip(QStringLiteral("Back to the enclosing folder"));
    back_->setAutoRaise(true);
    back_->setShortcut(QKeySequence(Qt::ALT | Qt::Key_Up));
    layout->addWidget(back_);
    crumbHolder_ = new QWidget(this);
    crumbs_ = new QHBoxLayout(crumbHolder_);
    crumbs_->setContentsMargins(0, 0, 0, 0);
    crumbs_->setSpacing(0);
    layout->addWidget(crumbHolder_);
    layout->addStretch(1);
    // Turns while a fresh scan runs behind the last one on show.
    spinner_ = new QProgressBar(this);
    spinner_->setRange(0, 0);
    spinner_->setTextVisible(false);
    spinner_->setFixedSize(36, 8);
    spinner_->hide();
    layout->addWidget(spinner_);
    status_ = new QLabel(this);
    status_->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(status_);
    layout->addSpacing(12);
    changeIcon_ = new QLabel(this);
    change_ = new QLabel(this);
    change_->setToolTip(QStringLiteral("Sort the list by Change to see what grew most."));
    changeIcon_->setToolTip(change_->toolTip());
    layout->addWidget(changeIcon_);
    layout->addWidget(change_);
    layout->addSpacing(12);
    total_ = new QLabel(this);
    total_->setToolTip(QStringLiteral("Includes its subfolders"));
    layout->addWidget(total_);
    layout->addSpacing(12);

    // "Show as": a two-segment switch between the map and the rings.
    pickerHolder_ = new QWidget(this);
    pickerHolder_->setAccessibleName(QStringLiteral("Show as"));
    pickerHolder_->setToolTip(QStringLiteral("Show this folder as a map of rectangles, or as rings like the Overview"));
    auto* segments = new QHBoxLayout(pickerHolder_);
    segments->setContentsMargins(0, 0, 0, 0);
    segments->setSpacing(0);
    chartPicker_ = new QButtonGroup(this);
    chartPicker_->setExclusive(true);
    for (const auto& [title, value] : {std::pair{"Map", "map"}, std::pair{"Rings", "rings"}}) {
        auto* segment = new QToolButton(pickerHolder_);
        segment->setText(QString::fromLatin1(title));
        segment->setCheckable(true);
        segment->setProperty("chart", QString::fromLatin1(value));
        segment->setToolButtonStyle(Qt::ToolButtonTextOnly);
        chartPicker_->addButton(segment);
        segments->addWidget(segment);
    }
    layout->addWidget(pickerHolder_);
    setChart(Preferences::folderChart());
    connect(chartPicker_, &QButtonGroup::buttonClicked, this, [this](QAbstractButton* button) {
        const QString value = button->property("chart").toString();
        Preferences::setFolderChart(value);
        emit chartChanged(value);
    });

    connect(back_, &QToolButton::clicked, &model_, &StorageModel::goUp);
    connect(&model_, &StorageModel::currentChanged, this, &PathBar::rebuildCrumbs);
    connect(&model_, &StorageModel::treeChanged, this, &PathBar::rebuildCrumbs);
    connect(&model_, &StorageModel::scanStateChanged, this, &PathBar::refreshRight);
    // "Scanned 5 minutes ago" ages while it is on screen.
    auto* clock = new QTimer(this);
    clock->setInterval(30'000);
    connect(clock, &QTimer::timeout, this, &PathBar::refreshRight);
    clock->start();
    rebuildCrumbs();
}

QString PathBar::chart() const {
    QAbstractButton* checked = chartPicker_->checkedButton();
    return checked ? checked->property("chart").toString() : QStringLiteral("map");
}

// Any stored value but "rings" means the map.
void PathBar::setChart(const QString& chart) {
    const QString value = chart == QStringLiteral("rings") ? chart : QStringLiteral("map");
    for (QAbstractButton* button : chartPicker_->buttons())
        button->setChecked(button->property("chart").toString() == value);
}

bool PathBar::isSpinning() const { return !spinner_->isHidden(); }

QString PathBar::statusText() const { return status_->isHidden() ? QString() : status_->text(); }
QString PathBar::totalText() const { return total_->text(); }
QString PathBar::changeText() const { return change_->isHidden() ? QString() : change_->text(); }

void PathBar::rebuildCrumbs() {
    while (QLayoutItem* item = crumbs_->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    FileNode* current = model_.current();
    back_->setEnabled(current && current->parent());
    std::vector<FileNode*> way;
    for (FileNode* n = current; n; n = n->parent()) way.insert(way.begin(), n);
    for (size_t i = 0; i < way.size(); ++i) {
        if (i > 0) {
            auto* chevron = new QLabel(crumbHolder_);
            chevron->setPixmap(icon("chevron.right").pixmap(12, 12));
            crumbs_->addWidget(chevron);
        }
        auto* crumb = new QToolButton(crumbHolder_);
        crumb->setText(toQString(way[i]->name()));
        crumb->setAutoRaise(true);
        crumb->setToolTip(toQString(way[i]->path()));
        if (i + 1 == way.size()) {
            QFont bold = crumb->font();
            bold.setWeight(QFont::DemiBold);
            crumb->setFont(bold);
        }
        NodeRef target(way[i]);
        connect(crumb, &QToolButton::clicked, this, [this, target] {
            model_.setCurrent(target.get());
            model_.setSelection({});
        });
        crumbs_->addWidget(crumb);
    }
    refreshRight();
}

void PathBar::refreshRight() {
    status_->setToolTip(QString());
    if (model_.isRefreshing())
        status_->setText(QStringLiteral("Showing your last scan while a fresh one runs."));
    else if (model_.watcher().state() == FolderWatcher::State::exhausted) {
        status_->setText(QStringLiteral("Changes here show only after you scan again."));
        status_->setToolTip(QStringLiteral("The system can't watch any more folders, so Brenvo can't follow changes "
                                           "in this one as they happen. Scan Again brings it up to date."));
    } else if (auto at = model_.scannedAt())
        status_->setText(QStringLiteral("Scanned %1").arg(QString::fromStdString(format::relativeDate(*at, Date::now()))));
    else
        status_->clear();
    FileNode* current = model_.current();
    change_->clear();
    const auto change = current ? current->change() : std::nullopt;
    if (change && *change != 0 && (*change >= 1'000'000 || *change <= -1'000'000) && model_.changesSince()) {
        const QString sign = *change > 0 ? QStringLiteral("+") : QStringLiteral("\u2212");
        const int64_t magnitude = *change > 0 ? *change : (*change == INT64_MIN ? INT64_MAX : -*change);
        change_->setText(QStringLiteral("%1%2 since %3")
                             .arg(sign, sizeText(magnitude),
                                  QString::fromStdString(format::abbreviatedDate(*model_.changesSince()))));
        changeIcon_->setPixmap(icon(*change > 0 ? "arrow.up.right" : "arrow.down.right").pixmap(14, 14));
    }
    total_->setText(current ? QStringLiteral("%1 in %2 files").arg(sizeText(current->size()), countText(current->itemCount()))
                            : QString());
    fitRight();
}

// The widest that fits of: status, change and total; change and total; the total alone.
void PathBar::fitRight() {
    // The crumbs just made aren't shown yet, and a layout counts only what is shown: add them up here.
    int crumbs = 0;
    for (int i = 0; i < crumbs_->count(); ++i)
        if (QWidget* crumb = crumbs_->itemAt(i)->widget()) crumbs += crumb->sizeHint().width();
    const int base = back_->sizeHint().width() + crumbs + total_->sizeHint().width() +
                     pickerHolder_->sizeHint().width() + 72;
    const bool hasChange = !change_->text().isEmpty();
    const int changeWidth = hasChange ? change_->sizeHint().width() + 30 : 0;
    const bool showChange = hasChange && base + changeWidth <= width();
    const bool showStatus = !status_->text().isEmpty() && (!hasChange || showChange) &&
                            base + changeWidth + status_->sizeHint().width() <= width();
    change_->setVisible(showChange);
    changeIcon_->setVisible(showChange);
    status_->setVisible(showStatus);
    spinner_->setVisible(model_.isRefreshing()); // small enough to stay when the words don't fit
}

void PathBar::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    fitRight();
}

} // namespace brenvo
