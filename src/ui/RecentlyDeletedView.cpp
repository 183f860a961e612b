#include "RecentlyDeletedView.h"

#include "DeletionLog.h"
#include "Icons.h"
#include "Text.h"
#include "Words.h"
#include "format/Formatters.h"
#include "platform/Platform.h"
#include "util/Paths.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QHeaderView>
#include <QTreeWidget>
#include <QPushButton>
#include <QVBoxLayout>

namespace brenvo {

RecentlyDeletedView::RecentlyDeletedView(DeletionLog& log, QWidget* parent) : QWidget(parent), log_(log) {
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(24, 20, 24, 20);
    auto* title = new QLabel(QStringLiteral("Recently Deleted"), this);
    QFont big = title->font();
    big.setPointSizeF(big.pointSizeF() * 1.5);
    big.setWeight(QFont::DemiBold);
    title->setFont(big);
    outer->addWidget(title);
    auto* text = new QLabel(QStringLiteral("Everything Brenvo has deleted, newest first. Deleted items skip the Trash, "
                                           "so their space is freed straight away and they can't be recovered from here."),
                            this);
    text->setWordWrap(true);
    text->setMaximumWidth(900);
    outer->addWidget(text);
    empty_ = new QLabel(QStringLiteral("Nothing deleted yet. Anything you delete in Brenvo will be listed here, with "
                                       "where it was and how much space it freed."),
                        this);
    empty_->setWordWrap(true);
    empty_->setForegroundRole(QPalette::PlaceholderText);
    outer->addWidget(empty_);
    auto* header = new QHBoxLayout;
    summary_ = new QLabel(this);
    QFont bold = summary_->font();
    bold.setWeight(QFont::DemiBold);
    summary_->setFont(bold);
    header->addWidget(summary_);
    header->addStretch(1);
    clear_ = new QPushButton(QStringLiteral("Clear List"), this);
    clear_->setToolTip(QStringLiteral("Clears this record. It doesn't affect any files."));
    header->addWidget(clear_);
    outer->addLayout(header);
    rows_ = new QTreeWidget(this);
    rows_->setColumnCount(2);
    rows_->header()->hide();
    rows_->header()->setStretchLastSection(false);
    rows_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    rows_->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    rows_->setRootIsDecorated(false);
    rows_->setIconSize(QSize(28, 28));
    rows_->setMaximumWidth(900);
    outer->addWidget(rows_, 1);
    connect(clear_, &QPushButton::clicked, &log_, &DeletionLog::clearRecord);
    connect(&log_, &DeletionLog::changed, this, &RecentlyDeletedView::refresh);
    refresh();
}

void RecentlyDeletedView::refresh() {
    const auto& items = log_.items();
    empty_->setVisible(items.empty());
    summary_->setVisible(!items.empty());
    clear_->setVisible(!items.empty());
    rows_->setVisible(!items.empty());
    rows_->clear();
    int64_t total = 0;
    const Date now = Date::now();
    for (const auto& item : items) {
        total += item.size;
        const std::string folder = parentPath(item.originalPath);
        auto* row = new QTreeWidgetItem(rows_);
        row->setText(0, QStringLiteral("%1\nFrom %2 \u00b7 %3")
                            .arg(toQString(item.name), displayPath(folder),
                                 QString::fromStdString(format::relativeDate(item.date, now))));
        row->setIcon(0, icon("doc.text"));
        row->setText(1, sizeText(item.size));
        row->setTextAlignment(1, Qt::AlignRight | Qt::AlignVCenter);
    }
    summary_->setText(QStringLiteral("%1 items \u00b7 %2 freed").arg(countText(static_cast<int64_t>(items.size())), sizeText(total)));
}

} // namespace brenvo
