#include "FilterBar.h"

#include "StorageModel.h"
#include "Text.h"
#include "Words.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

namespace brenvo {

FilterBar::FilterBar(StorageModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(8, 4, 8, 4);
    search_ = new QLineEdit(this);
    search_->setPlaceholderText(QStringLiteral("Search this folder"));
    search_->setClearButtonEnabled(true);
    search_->setMaximumWidth(260);
    layout->addWidget(search_);
    kind_ = new QComboBox(this);
    for (auto filter : StorageModel::kindFilters())
        kind_->addItem(QString::fromLatin1(StorageModel::text(filter)), static_cast<int>(filter));
    layout->addWidget(kind_);
    size_ = new QComboBox(this);
    for (auto filter : StorageModel::sizeFilters())
        size_->addItem(QString::fromLatin1(StorageModel::label(filter)), QVariant::fromValue(static_cast<qint64>(filter)));
    layout->addWidget(size_);
    for (QComboBox* picker : {kind_, size_}) {
        picker->setSizeAdjustPolicy(QComboBox::AdjustToContents);
        picker->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    }
    matches_ = new QLabel(this);
    matches_->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(matches_, 1);
    clear_ = new QPushButton(QStringLiteral("Clear"), this);
    layout->addWidget(clear_);
    layout->addStretch(0);

    connect(search_, &QLineEdit::textChanged, this, [this](const QString& text) {
        if (!updating_) model_.setSearchText(toBytes(text));
    });
    connect(kind_, &QComboBox::currentIndexChanged, this, [this] {
        if (!updating_) model_.setKindFilter(static_cast<StorageModel::KindFilter>(kind_->currentData().toInt()));
    });
    connect(size_, &QComboBox::currentIndexChanged, this, [this] {
        if (!updating_)
            model_.setSizeFilter(static_cast<StorageModel::SizeFilter>(size_->currentData().toLongLong()));
    });
    connect(clear_, &QPushButton::clicked, &model_, &StorageModel::clearFilters);
    connect(&model_, &StorageModel::filtersChanged, this, &FilterBar::showModel);
    connect(&model_, &StorageModel::currentChanged, this, &FilterBar::refreshMatches);
    connect(&model_, &StorageModel::treeChanged, this, &FilterBar::refreshMatches);
    showModel();
}

void FilterBar::showModel() {
    updating_ = true;
    if (toBytes(search_->text()) != model_.searchText()) search_->setText(toQString(model_.searchText()));
    kind_->setCurrentIndex(kind_->findData(static_cast<int>(model_.kindFilter())));
    size_->setCurrentIndex(size_->findData(QVariant::fromValue(static_cast<qint64>(model_.sizeFilter()))));
    updating_ = false;
    refreshMatches();
}

void FilterBar::refreshMatches() {
    const bool filtering = model_.isFiltering() && model_.current();
    clear_->setVisible(filtering);
    matches_->setVisible(filtering);
    if (!filtering) return;
    const size_t count = model_.listItems().size();
    const QString name = QStringLiteral("\u201c%1\u201d").arg(toQString(model_.current()->name()));
    if (count >= StorageModel::kMatchLimit)
        shortText_ = QStringLiteral("Showing the first %1 matches in %2").arg(countText(static_cast<int64_t>(count)), name);
    else
        shortText_ = QStringLiteral("%1 %2 in %3")
                         .arg(countText(static_cast<int64_t>(count)),
                              count == 1 ? QStringLiteral("match") : QStringLiteral("matches"), name);
    longText_ = shortText_ + QStringLiteral(" and its subfolders");
    resizeEvent(nullptr);
}

// The long text when it fits; otherwise the short one, with the rest in its tooltip.
void FilterBar::resizeEvent(QResizeEvent* event) {
    if (event) QWidget::resizeEvent(event);
    if (!matches_->isVisibleTo(this) && !model_.isFiltering()) return;
    const bool fits = matches_->fontMetrics().horizontalAdvance(longText_) <= matches_->width() || matches_->width() == 0;
    matches_->setText(fits ? longText_ : shortText_);
    matches_->setToolTip(fits ? QString() : QStringLiteral("Includes its subfolders"));
}

} // namespace brenvo
