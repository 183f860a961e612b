#include "ScanWindow.h"

#include "Text.h"
#include "format/Formatters.h"
#include "platform/Platform.h"
#include "scan/DiskScanner.h"

#include <QHeaderView>
#include <QLabel>
#include <QPointer>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <thread>

namespace brenvo {

struct ScanWindow::Running {
    std::jthread thread;
};

ScanWindow::ScanWindow(QString path, QWidget* parent) : QMainWindow(parent), path_(std::move(path)) {
    setWindowTitle(QStringLiteral("Brenvo"));
    resize(1200, 760);
    setMinimumSize(960, 560);
    auto* central = new QWidget(this);
    auto* layout = new QVBoxLayout(central);
    status_ = new QLabel(central);
    list_ = new QTreeWidget(central);
    list_->setRootIsDecorated(false);
    list_->setHeaderLabels({QStringLiteral("Name"), QStringLiteral("Size"), QStringLiteral("Share")});
    list_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    list_->header()->setStretchLastSection(false);
    list_->setColumnWidth(1, 120);
    list_->setColumnWidth(2, 90);
    layout->addWidget(status_);
    layout->addWidget(list_);
    setCentralWidget(central);
}

ScanWindow::~ScanWindow() = default; // the thread is asked to stop and joined

void ScanWindow::startScan() {
    status_->setText(QStringLiteral("Scanning %1…").arg(path_));
    QPointer<ScanWindow> self(this);
    const std::string path = toBytes(path_);
    running_ = std::make_unique<Running>();
    running_->thread = std::jthread([self, path](std::stop_token stop) {
        auto report = [self](const ScanProgress& p) {
            QMetaObject::invokeMethod(
                self.data(), [self, files = p.files, bytes = p.bytes] { if (self) self->showProgress(files, bytes); },
                Qt::QueuedConnection);
        };
        DiskScanner scanner(250, {}, report, platform::scanEnvironment());
        try {
            NodeRef root = scanner.scanInParallel(path, stop);
            // The tree passes to the main thread whole; nothing here touches it afterwards.
            QMetaObject::invokeMethod(
                self.data(), [self, root = std::move(root)] { if (self) self->showTree(root); },
                Qt::QueuedConnection);
        } catch (const ScanError& error) {
            QString message = QString::fromUtf8(error.what());
            QMetaObject::invokeMethod(
                self.data(), [self, message] { if (self) self->showError(message); }, Qt::QueuedConnection);
        } catch (const ScanCancelled&) {
        }
    });
}

void ScanWindow::showProgress(qint64 files, qint64 bytes) {
    status_->setText(QStringLiteral("Scanning %1… %2 files, %3")
                         .arg(path_, QString::fromStdString(format::count(files)),
                              QString::fromStdString(format::bytes(bytes))));
}

void ScanWindow::showTree(NodeRef root) {
    root_ = std::move(root);
    status_->setText(QStringLiteral("%1: %2 in %3 files")
                         .arg(toQString(root_->path()), QString::fromStdString(format::bytes(root_->size())),
                              QString::fromStdString(format::count(root_->itemCount()))));
    list_->clear();
    const double total = static_cast<double>(std::max<int64_t>(root_->size(), 1));
    for (FileNode* child : root_->children()) {
        auto* row = new QTreeWidgetItem(list_);
        row->setText(0, toQString(child->name()));
        row->setText(1, QString::fromStdString(format::bytes(child->size())));
        row->setText(2, QStringLiteral("%1%").arg(100.0 * static_cast<double>(child->size()) / total, 0, 'f', 1));
        row->setTextAlignment(1, Qt::AlignRight | Qt::AlignVCenter);
        row->setTextAlignment(2, Qt::AlignRight | Qt::AlignVCenter);
    }
}

void ScanWindow::showError(const QString& message) {
    status_->setText(QStringLiteral("Something went wrong: %1").arg(message));
}

} // namespace brenvo
