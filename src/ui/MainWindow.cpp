#include "MainWindow.h"

#include "Desktop.h"
#include "FolderPage.h"
#include "Icons.h"
#include "DetailsColumn.h"
#include "PreviewWindow.h"
#include "RecentlyDeletedView.h"
#include "Sidebar.h"
#include "UndoBanner.h"
#include "Words.h"
#include "format/Formatters.h"
#include "StorageModel.h"
#include "removal/DeleteWords.h"
#include "Text.h"

#include <QAction>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QShortcut>
#include <QSplitter>
#include <QTimer>
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
    auto* spacer = new QWidget(toolbar);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    toolbar->addWidget(spacer);
    details_ = toolbar->addAction(icon("sidebar.trailing"), QStringLiteral("Details"));
    details_->setCheckable(true);
    details_->setChecked(true);
    details_->setToolTip(QStringLiteral("Show or hide the details of the selection"));

    auto* split = new QSplitter(Qt::Horizontal, this);
    sidebar_ = new Sidebar(model_, split);
    detail_ = new QStackedWidget(split);
    folderPage_ = new FolderPage(model_, detail_);
    overviewPage_ = placeholder(QStringLiteral("Overview"));
    duplicatesPage_ = placeholder(QStringLiteral("Duplicates"));
    recentlyDeletedPage_ = new RecentlyDeletedView(model_.deletions(), detail_);
    detail_->addWidget(folderPage_);
    detail_->addWidget(overviewPage_);
    detail_->addWidget(duplicatesPage_);
    detail_->addWidget(recentlyDeletedPage_);
    inspector_ = new InspectorView(model_, split);
    split->addWidget(sidebar_);
    split->addWidget(detail_);
    split->addWidget(inspector_);
    split->setStretchFactor(1, 1);
    split->setSizes({200, 700, 300});
    connect(details_, &QAction::toggled, inspector_, &QWidget::setVisible);
    split->setChildrenCollapsible(false);
    setCentralWidget(split);
    // Across the whole window, at its foot, over whichever page and column are on show.
    banner_ = new UndoBanner(model_.deletions(), this);
    banner_->raise();
    preview_ = new PreviewWindow(model_, this);

    // Ctrl+Z takes back a deletion still inside its undo window.
    auto* undo = new QShortcut(QKeySequence::Undo, this);
    connect(undo, &QShortcut::activated, &model_.deletions(), &DeletionLog::undoPending);
    connect(&model_, &StorageModel::pendingDeleteChanged, this, &MainWindow::confirmDeletion);
    connect(&model_.deletions(), &DeletionLog::changed, this, &MainWindow::offerToFinishDeleting);
    connect(&model_, &StorageModel::errorMessageChanged, this, &MainWindow::offerToFinishDeleting);
    QTimer::singleShot(0, this, &MainWindow::offerToFinishDeleting);
    connect(&model_, &StorageModel::installerChoiceChanged, this, &MainWindow::askAboutInstaller);
    connect(&model_, &StorageModel::openRequested, this, [](const std::string& path) { openItem(path); });
    connect(&model_, &StorageModel::revealRequested, this, [](const std::string& path) { showInFolder({path}); });

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

QMessageBox* MainWindow::installerAlert() const { return installer_.data(); }

// Every way a question ends (a button, Escape, the title bar's close button) comes here once: the
// answer `yes` runs `accepted`, anything else `declined`, so nothing is left waiting for an answer.
void MainWindow::whenAnswered(QMessageBox* box, QAbstractButton* yes, std::function<void()> accepted,
                              std::function<void()> declined) {
    connect(box, &QMessageBox::finished, this, [box, yes, accepted = std::move(accepted), declined = std::move(declined)] {
        if (box->clickedButton() == yes)
            accepted();
        else
            declined();
    });
}

void MainWindow::askAboutInstaller() {
    const auto& choice = model_.installerChoice();
    if (!choice) {
        if (installer_) installer_->close();
        return;
    }
    const QString app = toQString(choice->app.name);
    if (!installer_) {
        installer_ = new QMessageBox(QMessageBox::Question, QString(), QString(), QMessageBox::NoButton, this);
        installer_->setAttribute(Qt::WA_DeleteOnClose);
        connect(installer_, &QMessageBox::finished, &model_, &StorageModel::clearInstallerChoice);
    } else {
        for (QAbstractButton* button : installer_->buttons()) installer_->removeButton(button);
    }
    installer_->setWindowTitle(QStringLiteral("%1 is already installed").arg(app));
    installer_->setText(installer_->windowTitle());
    installer_->setInformativeText(QString::fromStdString(choice->message()));
    QPushButton* open = installer_->addButton(QStringLiteral("Open %1").arg(app), QMessageBox::AcceptRole);
    QPushButton* install = installer_->addButton(
        choice->installerIsNewer() ? QStringLiteral("Install Update") : QStringLiteral("Install Anyway"),
        QMessageBox::ActionRole);
    installer_->addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
    const std::string appPath = choice->app.path;
    const std::string installerPath = choice->installer->path();
    connect(open, &QPushButton::clicked, this, [appPath] { openItem(appPath); });
    connect(install, &QPushButton::clicked, this, [installerPath] { openItem(installerPath); });
    installer_->open();
}

QMessageBox* MainWindow::deleteConfirmation() const { return confirmation_.data(); }
QMessageBox* MainWindow::finishDeletingAlert() const { return finishDeleting_.data(); }

void MainWindow::confirmDeletion() {
    const auto& nodes = model_.pendingDelete();
    if (nodes.empty()) {
        if (confirmation_) confirmation_->close();
        return;
    }
    std::optional<int64_t> total = 0;
    for (const auto& node : nodes) {
        if (node->couldNotRead()) total.reset();
        if (total) *total += node->size();
    }
    const QString title = toQString(DeleteWords::question(static_cast<int64_t>(nodes.size()), nodes.front()->name()));
    QString message = deletionPromise(total);
    if (const int skipped = model_.pendingDeleteSkipped(); skipped > 0)
        message += QStringLiteral("\n\n") + toQString(DeleteWords::protectedLeft(skipped));
    if (!confirmation_) {
        confirmation_ = new QMessageBox(QMessageBox::Warning, QString(), QString(), QMessageBox::NoButton, this);
        confirmation_->setAttribute(Qt::WA_DeleteOnClose);
        QPushButton* remove = confirmation_->addButton(QStringLiteral("Delete"), QMessageBox::DestructiveRole);
        QPushButton* cancel = confirmation_->addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
        confirmation_->setDefaultButton(cancel);
        confirmation_->setEscapeButton(cancel);
        whenAnswered(confirmation_, remove, [this] { model_.confirmDelete(); }, [this] { model_.cancelDelete(); });
    }
    confirmation_->setWindowTitle(title);
    confirmation_->setText(title);
    confirmation_->setInformativeText(message);
    confirmation_->open();
}

// Asks about what an earlier run left undeleted; an error alert goes first and this waits behind it.
void MainWindow::offerToFinishDeleting() {
    const auto& unfinished = model_.deletions().unfinished();
    if (unfinished.empty() || model_.errorMessage()) {
        if (finishDeleting_ && unfinished.empty()) finishDeleting_->close();
        return;
    }
    if (finishDeleting_) return;
    std::vector<std::string> names;
    int64_t total = 0;
    for (const auto& t : unfinished) {
        names.push_back("\u201c" + t.name + "\u201d");
        total += t.size;
    }
    const QString text = say("Brenvo was closed before it finished deleting {names} ({size}). They're still on your "
                             "Mac. Delete them now? This can't be undone.")
                             .replace(QStringLiteral("{names}"), QString::fromStdString(format::list(names)))
                             .replace(QStringLiteral("{size}"), sizeText(total));
    finishDeleting_ = new QMessageBox(QMessageBox::Warning, QStringLiteral("Finish deleting?"), text,
                                      QMessageBox::NoButton, this);
    finishDeleting_->setAttribute(Qt::WA_DeleteOnClose);
    QPushButton* remove = finishDeleting_->addButton(QStringLiteral("Delete"), QMessageBox::DestructiveRole);
    QPushButton* keep = finishDeleting_->addButton(QStringLiteral("Keep Them"), QMessageBox::RejectRole);
    finishDeleting_->setDefaultButton(keep);
    finishDeleting_->setEscapeButton(keep);
    whenAnswered(finishDeleting_, remove, [this] { model_.finishUnfinishedDeletions(); },
                 [this] { model_.deletions().keepUnfinished(); });
    finishDeleting_->open();
}

void MainWindow::showPage() {
    switch (model_.page()) {
    case StorageModel::Page::folder: detail_->setCurrentWidget(folderPage_); break;
    case StorageModel::Page::overview: detail_->setCurrentWidget(overviewPage_); break;
    case StorageModel::Page::duplicates: detail_->setCurrentWidget(duplicatesPage_); break;
    case StorageModel::Page::recentlyDeleted: detail_->setCurrentWidget(recentlyDeletedPage_); break;
    }
    if (banner_) banner_->raise(); // it floats over whichever page is on show
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
