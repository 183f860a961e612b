#include "FolderPage.h"

#include "FileListView.h"
#include "FilterBar.h"
#include "PathBar.h"
#include "ScanningView.h"
#include "StorageModel.h"
#include "TreemapView.h"
#include "WelcomeView.h"

#include <QFrame>
#include <QLabel>
#include <QSplitter>
#include <QVBoxLayout>

namespace brenvo {

FolderPage::FolderPage(StorageModel& model, QWidget* parent) : QStackedWidget(parent), model_(model) {
    scanning_ = new ScanningView(model_, this);
    welcome_ = new WelcomeView(this);
    folder_ = new QWidget(this);
    auto* column = new QVBoxLayout(folder_);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    pathBar_ = new PathBar(model_, folder_);
    column->addWidget(pathBar_);
    auto* line = new QFrame(folder_);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    column->addWidget(line);
    // The map above, the filters and the list below; the split keeps both usable.
    auto* split = new QSplitter(Qt::Vertical, folder_);
    split->setChildrenCollapsible(false);
    charts_ = new QStackedWidget(split);
    charts_->setContentsMargins(8, 8, 8, 8);
    charts_->setMinimumSize(300 + 16, 160 + 16);
    map_ = new TreemapView(model_, charts_);
    charts_->addWidget(map_);
    // The rings aren't drawn yet; saying so beats a chart that shows something else.
    rings_ = new QLabel(QStringLiteral("Rings for folders are coming soon. Choose Map to see this folder."), charts_);
    rings_->setAlignment(Qt::AlignCenter);
    rings_->setWordWrap(true);
    rings_->setForegroundRole(QPalette::PlaceholderText);
    charts_->addWidget(rings_);
    showChart(pathBar_->chart());
    connect(pathBar_, &PathBar::chartChanged, this, &FolderPage::showChart);
    auto* lower = new QWidget(split);
    lower->setMinimumHeight(160);
    auto* lowerLayout = new QVBoxLayout(lower);
    lowerLayout->setContentsMargins(0, 0, 0, 0);
    lowerLayout->setSpacing(0);
    filterBar_ = new FilterBar(model_, lower);
    lowerLayout->addWidget(filterBar_);
    auto* divider = new QFrame(lower);
    divider->setFrameShape(QFrame::HLine);
    divider->setFrameShadow(QFrame::Sunken);
    lowerLayout->addWidget(divider);
    list_ = new FileListView(model_, lower);
    lowerLayout->addWidget(list_, 1);
    split->addWidget(charts_);
    split->addWidget(lower);
    split->setStretchFactor(0, 3);
    split->setStretchFactor(1, 2);
    split->setSizes({450, 300}); // the map a little taller than the list to begin with
    column->addWidget(split, 1);
    addWidget(scanning_);
    addWidget(welcome_);
    addWidget(folder_);

    connect(&model_, &StorageModel::scanStateChanged, this, &FolderPage::choose);
    connect(&model_, &StorageModel::currentChanged, this, &FolderPage::choose);
    choose();
}

void FolderPage::showChart(const QString& chart) {
    charts_->setCurrentWidget(chart == QStringLiteral("rings") ? static_cast<QWidget*>(rings_) : map_);
}

void FolderPage::choose() {
    if (model_.isScanning())
        setCurrentWidget(scanning_);
    else if (!model_.current())
        setCurrentWidget(welcome_);
    else
        setCurrentWidget(folder_);
}

} // namespace brenvo
