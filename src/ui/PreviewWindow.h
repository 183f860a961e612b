#pragma once

#include <QImage>
#include <QString>
#include <QWidget>

#ifndef Q_MOC_RUN // moc can't parse the C++20 standard headers the engine uses
#include <string>
#endif

class QFormLayout;
class QLabel;
class QPlainTextEdit;
class QStackedWidget;
struct stat;

namespace brenvo {

class StorageModel;

// A look at the item the model previews, in a tool window of the main window: a picture, the beginning
// of a text, or else the item's icon and facts. Space or Escape close it, the arrow keys page through the
// items previewed together (or, for one item, move the selection and the preview with it). It also takes
// Space in its owner window to open and close the preview there, except where Space is typed or presses
// something.
class PreviewWindow : public QWidget {
    Q_OBJECT
public:
    enum class Showing { nothing, image, text, facts };

    PreviewWindow(StorageModel& model, QWidget* owner);

    Showing showing() const { return showing_; }
    // The picture as read: scaled down to fit the screen, turned as its orientation says.
    const QImage& image() const { return image_; }
    QPlainTextEdit* textView() const { return text_; }
    // On the facts page: the item's name, and the value of "Size", "Kind" or "Modified" (empty if unknown).
    QString name() const;
    QString fact(const QString& title) const;
    // Why the item shows no more than its facts; empty when nothing is wrong.
    QString message() const;

    // Bytes of a text file shown at most.
    static constexpr qint64 kTextLimit = 256 * 1024;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void refresh();
    void load(const std::string& path);
    void showFacts(const std::string& path, const QString& typeName, const struct stat* info, const QString& why);
    bool previewKey(int key);
    bool ownerSpace(bool repeated);

    StorageModel& model_;
    Showing showing_ = Showing::nothing;
    QImage image_;
    QStackedWidget* pages_;
    QWidget* imagePage_;
    QWidget* textPage_;
    QPlainTextEdit* text_;
    QLabel* textNote_;
    QWidget* factsPage_;
    QLabel* icon_;
    QLabel* name_;
    QFormLayout* facts_;
    QLabel* message_;
    bool placed_ = false;
};

} // namespace brenvo
