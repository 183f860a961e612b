#pragma once

#include <QWidget>

class QButtonGroup;
class QHBoxLayout;
class QLabel;
class QProgressBar;
class QToolButton;

namespace brenvo {

class StorageModel;

// Above the folder's contents: back to the enclosing folder, the way from the root as buttons, and the
// scan's status beside the folder's total, as much of it as fits; last, the choice of chart.
class PathBar : public QWidget {
    Q_OBJECT
public:
    explicit PathBar(StorageModel& model, QWidget* parent = nullptr);

    QToolButton* backButton() const { return back_; }
    QString statusText() const;
    bool isSpinning() const;
    QString totalText() const;
    QString changeText() const;
    // "map" or "rings", as stored in the settings.
    QString chart() const;
    void setChart(const QString& chart);

signals:
    void chartChanged(const QString& chart);

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void rebuildCrumbs();
    void refreshRight();
    void fitRight();

    StorageModel& model_;
    QToolButton* back_;
    QHBoxLayout* crumbs_;
    QWidget* crumbHolder_;
    QProgressBar* spinner_ = nullptr;
    QLabel* status_;
    QLabel* changeIcon_;
    QLabel* change_;
    QLabel* total_;
    QButtonGroup* chartPicker_;
    QWidget* pickerHolder_;
};

} // namespace brenvo
