#include "MainWindow.h"

#include "FolderPage.h"
#include "Icons.h"
#include "Sidebar.h"
#include "StorageModel.h"
#include "Text.h"

#include <QAction>
#include <QLabel>
#include <QMessageBox>
#include <QSplitter>
#include <QStackedWidget>
#include <QToolBar>
#include <QVBoxLayout>

namespace brenvo {

MainWindow::MainWindow(StorageModel& model, QWidget* parent) : QMainWindow(parent), model_(model) {
    setWindowTitle(QStringLiteral("Brenvo"));
    resize(1200, 760);
    setMinimumSize(960, 560);

    auto* toolbar = addToolBar(QStringLiteral("Toolbar"));
    toolbar->setMovable(false);
    toolbar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    toolbar->setIconSize(QSize(18, 18));
    scanAgain_ = toolbar->addAction(icon("arrow.clockwise"), QStringLiteral("Scan Again"));
    scanAgain_->setShortcut(QKeySequence::Refresh);

    auto* split = new QSplitter(Qt::Horizontal, this);
    sidebar_ = new Sidebar(model_, split);
    detail_ = new QStackedWidget(split);
    folderPage_ = new FolderPage(model_, detail_);
    overviewPage_ = placeholder(QStringLiteral("Overview"));
    duplicatesPage_ = placeholder(QStringLiteral("Duplicates"));
    recentlyDeletedPage_ = placeholder(QStringLiteral("Recently Deleted"));
    detail_->addWidget(folderPage_);
    detail_->addWidget(overviewPage_);
    detail_->addWidget(duplicatesPage_);
    detail_->addWidget(recentlyDeletedPage_);
    split->addWidget(sidebar_);
    split->addWidget(detail_);
    split->setStretchFactor(1, 1);
    split->setSizes({220, 980});
    split->setChildrenCollapsible(false);
    setCentralWidget(split);

    // The one place where a scan starts from a change of location.
    connect(&model_, &StorageModel::locationChanged, this, [this] {
        if (model_.location()) model_.scan(*model_.location());
    });
    connect(scanAgain_, &QAction::triggered, this, [this] {
        if (model_.page() == StorageModel::Page::folder && model_.location()) model_.scan(*model_.location());
    });
    connect(&model_, &StorageModel::pageChanged, this, &MainWindow::showPage);
    connect(&model_, &StorageModel::pageChanged, this, &MainWindow::refreshToolbar);
    connect(&model_, &StorageModel::locationChanged, this, &MainWindow::refreshToolbar);
    connect(&model_, &StorageModel::scanStateChanged, this, &MainWindow::refreshToolbar);
    connect(&model_, &StorageModel::treeChanged, this, &MainWindow::refreshTitle);
    connect(&model_, &StorageModel::pageChanged, this, &MainWindow::refreshTitle);
    connect(&model_, &StorageModel::errorMessageChanged, this, &MainWindow::showError);
    showPage();
    refreshToolbar();
}

QWidget* MainWindow::placeholder(const QString& title) {
    auto* page = new QWidget(detail_);
    auto* layout = new QVBoxLayout(page);
    auto* label = new QLabel(title, page);
    QFont big = label->font();
    big.setPointSizeF(big.pointSizeF() * 1.6);
    big.setWeight(QFont::DemiBold);
    label->setFont(big);
    label->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(label, 0, Qt::AlignCenter);
    return page;
}

QMessageBox* MainWindow::errorAlert() const { return errorAlert_.data(); }

void MainWindow::showPage() {
    switch (model_.page()) {
    case StorageModel::Page::folder: detail_->setCurrentWidget(folderPage_); break;
    case StorageModel::Page::overview: detail_->setCurrentWidget(overviewPage_); break;
    case StorageModel::Page::duplicates: detail_->setCurrentWidget(duplicatesPage_); break;
    case StorageModel::Page::recentlyDeleted: detail_->setCurrentWidget(recentlyDeletedPage_); break;
    }
}

void MainWindow::refreshToolbar() {
    const bool folder = model_.page() == StorageModel::Page::folder;
    scanAgain_->setVisible(model_.page() != StorageModel::Page::recentlyDeleted);
    // The other pages bring their own work to run again; until then there is nothing to do there.
    scanAgain_->setEnabled(folder && model_.location() && !model_.isScanning() && !model_.isRefreshing());
}

void MainWindow::refreshTitle() {
    const bool named = model_.page() == StorageModel::Page::folder && model_.root();
    setWindowTitle(named ? toQString(model_.root()->name()) : QStringLiteral("Brenvo"));
}

void MainWindow::showError() {
    if (!model_.errorMessage()) {
        if (errorAlert_) errorAlert_->close();
        return;
    }
    if (!errorAlert_) {
        errorAlert_ = new QMessageBox(QMessageBox::Warning, QStringLiteral("Something went wrong"), QString(),
                                      QMessageBox::Ok, this);
        errorAlert_->setAttribute(Qt::WA_DeleteOnClose);
        connect(errorAlert_, &QMessageBox::finished, &model_, &StorageModel::clearErrorMessage);
    }
    errorAlert_->setText(*model_.errorMessage());
    errorAlert_->open();
}

} // namespace brenvo
