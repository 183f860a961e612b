#include "ScanningView.h"
#include "platform/Platform.h"

#include "StorageModel.h"
#include "Text.h"
#include "Words.h"

#include <QFontDatabase>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

namespace brenvo {

QString locationTitle(const ScanLocation& location) {
    switch (location.kind()) {
    case ScanLocation::Kind::custom: return toQString(lastPathComponent(location.path(platform::profile())));
    case ScanLocation::Kind::downloads: return QStringLiteral("Downloads");
    case ScanLocation::Kind::desktop: return QStringLiteral("Desktop");
    case ScanLocation::Kind::documents: return QStringLiteral("Documents");
    case ScanLocation::Kind::home: return QStringLiteral("Home Folder");
    case ScanLocation::Kind::iCloudDrive: return QStringLiteral("iCloud Drive");
    }
    return {};
}

ScanningView::ScanningView(StorageModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* layout = new QVBoxLayout(this);
    layout->addStretch(1);
    auto* busy = new QProgressBar(this);
    busy->setRange(0, 0); // no end is known while walking
    busy->setTextVisible(false);
    busy->setFixedWidth(220);
    layout->addWidget(busy, 0, Qt::AlignHCenter);
    headline_ = new QLabel(this);
    QFont big = headline_->font();
    big.setPointSizeF(big.pointSizeF() * 1.35);
    big.setWeight(QFont::DemiBold);
    headline_->setFont(big);
    layout->addWidget(headline_, 0, Qt::AlignHCenter);
    counts_ = new QLabel(this);
    // Digits of even width, so the line doesn't jitter as the numbers grow.
    QFont digits = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    digits.setPointSizeF(counts_->font().pointSizeF());
    counts_->setFont(digits);
    layout->addWidget(counts_, 0, Qt::AlignHCenter);
    path_ = new QLabel(this);
    QFont small = path_->font();
    small.setPointSizeF(small.pointSizeF() * 0.85);
    path_->setFont(small);
    path_->setForegroundRole(QPalette::PlaceholderText);
    path_->setFixedWidth(420);
    path_->setAlignment(Qt::AlignHCenter);
    layout->addWidget(path_, 0, Qt::AlignHCenter);
    cancel_ = new QPushButton(QStringLiteral("Cancel"), this);
    layout->addSpacing(8);
    layout->addWidget(cancel_, 0, Qt::AlignHCenter);
    layout->addStretch(1);
    layout->setSpacing(8);

    connect(cancel_, &QPushButton::clicked, &model_, &StorageModel::cancelScan);
    connect(&model_, &StorageModel::progressChanged, this, &ScanningView::refresh);
    connect(&model_, &StorageModel::locationChanged, this, &ScanningView::refresh);
    connect(&model_, &StorageModel::scanStateChanged, this, &ScanningView::refresh);
    refresh();
}

QString ScanningView::headline() const { return headline_->text(); }

void ScanningView::refresh() {
    const ScanProgress& progress = model_.progress();
    const QString title = model_.location() ? locationTitle(*model_.location()) : QString();
    if (title.isEmpty())
        headline_->clear();
    else
        headline_->setText((progress.files == 0 ? QStringLiteral("Opening %1\u2026") : QStringLiteral("Scanning %1\u2026"))
                               .arg(title));
    counts_->setText(QStringLiteral("%1 files \u00b7 %2").arg(countText(progress.files), sizeText(progress.bytes)));
    const QString path = toQString(progress.currentPath);
    path_->setText(path_->fontMetrics().elidedText(path, Qt::ElideMiddle, path_->width()));
}

} // namespace brenvo
