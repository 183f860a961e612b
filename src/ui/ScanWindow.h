#pragma once

#ifndef Q_MOC_RUN // moc can't parse the C++20 standard headers the engine uses
#include "tree/FileNode.h"
#endif

#include <QMainWindow>
#include <memory>

class QLabel;
class QTreeWidget;

namespace brenvo {

// A first window: scans one folder and lists what is in it, largest first.
class ScanWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit ScanWindow(QString path, QWidget* parent = nullptr);
    ~ScanWindow() override;

    void startScan();

private:
    void showProgress(qint64 files, qint64 bytes);
    void showTree(NodeRef root);
    void showError(const QString& message);

    QString path_;
    QLabel* status_;
    QTreeWidget* list_;
    NodeRef root_;
    struct Running; // the scan thread, kept out of this header for moc's sake
    std::unique_ptr<Running> running_;
};

} // namespace brenvo
