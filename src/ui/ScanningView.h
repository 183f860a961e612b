#pragma once

#include <QWidget>

class QLabel;
class QPushButton;

namespace brenvo {

class StorageModel;

// What the folder page shows while a scan has nothing to show yet: what is being opened, how far it
// got, and a way out.
class ScanningView : public QWidget {
    Q_OBJECT
public:
    explicit ScanningView(StorageModel& model, QWidget* parent = nullptr);

    QPushButton* cancelButton() const { return cancel_; }
    QString headline() const;

private:
    void refresh();

    StorageModel& model_;
    QLabel* headline_;
    QLabel* counts_;
    QLabel* path_;
    QPushButton* cancel_;
};

// The title of a location's sidebar row, also used by the scanning view.
class ScanLocation;
QString locationTitle(const ScanLocation& location);

} // namespace brenvo
