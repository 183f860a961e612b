#pragma once

#include <QFrame>

class QLabel;
class QProgressBar;
class QPushButton;
class QTimer;

namespace brenvo {

class DeletionLog;

// Floats over the bottom of the main area while a deletion waits out its undo window, while it runs, and
// for a moment after it is done. It keeps nothing of its own: it re-reads the log's phase.
class UndoBanner : public QFrame {
    Q_OBJECT
public:
    explicit UndoBanner(DeletionLog& log, QWidget* parent);

    QPushButton* undoButton() const { return undo_; }
    QPushButton* deleteNowButton() const { return deleteNow_; }
    QString title() const;
    QString announcement() const { return announcement_; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void refresh();
    void tick();
    void place();
    void announce(const QString& text);

    DeletionLog& log_;
    QLabel* icon_;
    QLabel* title_;
    QProgressBar* countdown_;
    QPushButton* undo_;
    QPushButton* deleteNow_;
    QTimer* clock_;
    QString announcement_;
    int lastPhase_ = 0;
};

} // namespace brenvo
