#include "PreviewWindow.h"

#include "FileIcons.h"
#include "Icons.h"
#include "StorageModel.h"
#include "Text.h"
#include "Words.h"
#include "format/Formatters.h"
#include "scan/FileSystem.h"
#include "tree/FileNode.h"
#include "util/Paths.h"

#include <QAbstractButton>
#include <QAbstractSpinBox>
#include <QApplication>
#include <QComboBox>
#include <QFile>
#include <QFontDatabase>
#include <QFormLayout>
#include <QImageReader>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMimeDatabase>
#include <QPainter>
#include <QPlainTextEdit>
#include <QScreen>
#include <QStackedWidget>
#include <QStringDecoder>
#include <QTextDocument>
#include <QTextEdit>
#include <QVBoxLayout>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace brenvo {

namespace {

// A picture drawn as large as fits, never larger than its own pixels.
class ImageView : public QWidget {
public:
    explicit ImageView(const QImage& image, QWidget* parent) : QWidget(parent), image_(image) {}

protected:
    void paintEvent(QPaintEvent*) override {
        if (image_.isNull()) return;
        const QSizeF natural = QSizeF(image_.size()) / devicePixelRatioF();
        const QRectF area = QRectF(rect()).adjusted(12, 12, -12, -12);
        QSizeF size = natural;
        if (size.width() > area.width() || size.height() > area.height()) size.scale(area.size(), Qt::KeepAspectRatio);
        QRectF target(QPointF(), size);
        target.moveCenter(area.center());
        QPainter painter(this);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(target, image_);
    }

private:
    const QImage& image_;
};

// Where an item is reached from: the working folder and its path, or, for a path too long for one call,
// its opened folder and its name.
struct Place {
    fs::Descriptor folder;
    std::string name;
    int at() const { return folder.valid() ? folder.get() : AT_FDCWD; }
};

Place placeOf(const std::string& path) {
    Place place;
    if (path.size() < PATH_MAX) {
        place.name = path;
    } else if (fs::openDirectoryPath(parentPath(path), place.folder) == 0) {
        place.name = std::string(lastPathComponent(path));
    }
    return place;
}

const QMimeDatabase& types() {
    static const QMimeDatabase database;
    return database;
}

QString typeOfMode(mode_t mode) {
    if (S_ISDIR(mode)) return QStringLiteral("inode/directory");
    if (S_ISLNK(mode)) return QStringLiteral("inode/symlink");
    if (S_ISFIFO(mode)) return QStringLiteral("inode/fifo");
    if (S_ISSOCK(mode)) return QStringLiteral("inode/socket");
    if (S_ISCHR(mode)) return QStringLiteral("inode/chardevice");
    if (S_ISBLK(mode)) return QStringLiteral("inode/blockdevice");
    return {};
}

// The theme's picture of a type, full colour and large; our own drawings behind it.
QIcon iconOf(const QMimeType& type) {
    if (type.name() == QStringLiteral("inode/directory")) return QIcon::fromTheme(QStringLiteral("folder"), icon("folder"));
    return iconForType(type);
}

bool isTextInput(const QWidget* widget) {
    return qobject_cast<const QLineEdit*>(widget) || qobject_cast<const QTextEdit*>(widget) ||
           qobject_cast<const QPlainTextEdit*>(widget) || qobject_cast<const QAbstractSpinBox*>(widget);
}

} // namespace

PreviewWindow::PreviewWindow(StorageModel& model, QWidget* owner) : QWidget(owner, Qt::Tool), model_(model) {
    resize(760, 560);
    setMinimumSize(320, 240);
    pages_ = new QStackedWidget(this);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(pages_);

    imagePage_ = new ImageView(image_, pages_);

    textPage_ = new QWidget(pages_);
    auto* textLayout = new QVBoxLayout(textPage_);
    textLayout->setContentsMargins(0, 0, 0, 0);
    text_ = new QPlainTextEdit(textPage_);
    text_->setReadOnly(true);
    text_->setFrameShape(QFrame::NoFrame);
    text_->document()->setDocumentMargin(10);
    text_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    text_->setTabStopDistance(text_->fontMetrics().horizontalAdvance(QLatin1Char(' ')) * 4);
    textNote_ = new QLabel(QStringLiteral("Only the beginning of this file is shown."), textPage_);
    textNote_->setForegroundRole(QPalette::PlaceholderText);
    textNote_->setContentsMargins(8, 4, 8, 6);
    textLayout->addWidget(text_);
    textLayout->addWidget(textNote_);

    factsPage_ = new QWidget(pages_);
    auto* column = new QVBoxLayout(factsPage_);
    column->setContentsMargins(24, 24, 24, 24);
    column->setSpacing(12);
    icon_ = new QLabel(factsPage_);
    icon_->setAlignment(Qt::AlignCenter);
    name_ = new QLabel(factsPage_);
    QFont big = name_->font();
    big.setPointSizeF(big.pointSizeF() * 1.4);
    big.setWeight(QFont::DemiBold);
    name_->setFont(big);
    name_->setAlignment(Qt::AlignCenter);
    name_->setWordWrap(true);
    name_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    facts_ = new QFormLayout;
    facts_->setLabelAlignment(Qt::AlignRight);
    facts_->setFormAlignment(Qt::AlignHCenter | Qt::AlignTop);
    facts_->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    for (const char* title : {"Size", "Kind", "Modified"}) {
        auto* value = new QLabel(factsPage_);
        value->setTextInteractionFlags(Qt::TextSelectableByMouse);
        facts_->addRow(QString::fromLatin1(title), value);
        facts_->labelForField(value)->setForegroundRole(QPalette::PlaceholderText);
    }
    message_ = new QLabel(factsPage_);
    message_->setAlignment(Qt::AlignCenter);
    message_->setWordWrap(true);
    column->addStretch(1);
    column->addWidget(icon_);
    column->addWidget(name_);
    column->addLayout(facts_);
    column->addWidget(message_);
    column->addStretch(1);

    pages_->addWidget(imagePage_);
    pages_->addWidget(textPage_);
    pages_->addWidget(factsPage_);

    // Keys are taken before the widget with focus sees them: the text view would keep the arrows, and
    // the owner's list would keep Space.
    qApp->installEventFilter(this);
    connect(&model_, &StorageModel::previewChanged, this, &PreviewWindow::refresh);
    refresh();
}

QString PreviewWindow::name() const { return showing_ == Showing::facts ? name_->text() : QString(); }

QString PreviewWindow::fact(const QString& title) const {
    if (showing_ != Showing::facts) return {};
    for (int row = 0; row < facts_->rowCount(); ++row) {
        auto* label = qobject_cast<QLabel*>(facts_->itemAt(row, QFormLayout::LabelRole)->widget());
        if (label && label->text() == title && facts_->isRowVisible(row))
            return qobject_cast<QLabel*>(facts_->itemAt(row, QFormLayout::FieldRole)->widget())->text();
    }
    return {};
}

QString PreviewWindow::message() const { return showing_ == Showing::facts ? message_->text() : QString(); }

void PreviewWindow::refresh() {
    const auto& url = model_.previewURL();
    if (!url) {
        if (isVisible()) {
            const bool active = isActiveWindow();
            hide();
            if (active && parentWidget()) parentWidget()->activateWindow();
        }
        showing_ = Showing::nothing;
        image_ = QImage();
        text_->clear();
        return;
    }
    const auto& list = model_.previewList();
    const auto at = std::find(list.begin(), list.end(), *url);
    QString title = toQString(lastPathComponent(*url));
    if (list.size() > 1 && at != list.end())
        title = QStringLiteral("%1 (%2 of %3)").arg(title).arg(at - list.begin() + 1).arg(list.size());
    setWindowTitle(title);
    load(*url);
    if (!isVisible()) {
        // Over the middle of the window it belongs to, the first time; where the user left it after that.
        if (!placed_ && parentWidget()) {
            const QRect owner = parentWidget()->window()->frameGeometry();
            move(owner.center() - QPoint(width() / 2, height() / 2));
            placed_ = true;
        }
        show();
        activateWindow();
    } else if (!isActiveWindow()) {
        raise();
        activateWindow();
    }
}

void PreviewWindow::load(const std::string& path) {
    image_ = QImage();
    text_->clear();
    const Place place = placeOf(path);
    struct stat info {};
    const int error = place.name.empty() ? EACCES
                      : ::fstatat(place.at(), place.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 ? errno
                                                                                                   : 0;
    if (error) {
        showFacts(path, QString(), nullptr,
                  error == ENOENT ? QStringLiteral("This item is no longer there.")
                                  : QStringLiteral("Brenvo can't read this item."));
        return;
    }
    if (!S_ISREG(info.st_mode)) {
        showFacts(path, typeOfMode(info.st_mode), &info,
                  S_ISLNK(info.st_mode) ? QStringLiteral("This is a link to another item. Brenvo doesn't follow links.")
                                        : QString());
        return;
    }
    // No link is followed, and opening never waits (on a pipe put in place since the look above).
    const int fd = ::openat(place.at(), place.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    const QString unreadable = QStringLiteral("Brenvo can't read this file.");
    if (fd < 0) {
        showFacts(path, QString(), &info, unreadable);
        return;
    }
    QFile file;
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || !file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        showFacts(path, QString(), &info, unreadable);
        return;
    }

    QImageReader reader(&file);
    reader.setDecideFormatFromContent(true);
    reader.setAutoTransform(true);
    if (reader.canRead()) {
        // Read no larger than the screen can show; the size the file holds is before its turn.
        const bool turned = reader.transformation() & QImageIOHandler::TransformationRotate90;
        QSize stored = reader.size();
        QScreen* display = screen() ? screen() : QGuiApplication::primaryScreen();
        QSize bound = display ? display->availableSize() * display->devicePixelRatio() : QSize(2048, 2048);
        if (turned) bound.transpose();
        if (stored.isValid() && (stored.width() > bound.width() || stored.height() > bound.height()))
            reader.setScaledSize(stored.scaled(bound, Qt::KeepAspectRatio));
        image_ = reader.read();
        if (!image_.isNull()) {
            showing_ = Showing::image;
            pages_->setCurrentWidget(imagePage_);
            imagePage_->update();
            return;
        }
        showFacts(path, QString(), &info, QStringLiteral("Brenvo can't show this picture. The file may be damaged."));
        return;
    }

    file.seek(0);
    QByteArray head = file.read(kTextLimit + 1);
    if (file.error() != QFileDevice::NoError) {
        showFacts(path, QString(), &info, unreadable);
        return;
    }
    const QMimeType type = types().mimeTypeForFileNameAndData(toQString(lastPathComponent(path)), head);
    if (type.inherits(QStringLiteral("text/plain"))) {
        const bool cut = head.size() > kTextLimit;
        head.truncate(kTextLimit);
        // Bytes that aren't text in the encoding become replacement characters; a character cut off at the
        // limit is left out.
        const auto encoding = QStringConverter::encodingForData(head).value_or(QStringConverter::Utf8);
        QStringDecoder decode(encoding, cut ? QStringConverter::Flag::Default : QStringConverter::Flag::Stateless);
        text_->setPlainText(decode(head));
        textNote_->setVisible(cut);
        showing_ = Showing::text;
        pages_->setCurrentWidget(textPage_);
        return;
    }
    const bool picture = type.name().startsWith(QStringLiteral("image/")) &&
                         QImageReader::supportedMimeTypes().contains(type.name().toLatin1());
    showFacts(path, type.name(), &info,
              picture ? QStringLiteral("Brenvo can't show this picture. The file may be damaged.") : QString());
}

void PreviewWindow::showFacts(const std::string& path, const QString& typeName, const struct stat* info, const QString& why) {
    const std::string_view name = lastPathComponent(path);
    QMimeType type = types().mimeTypeForName(typeName);
    if (!type.isValid()) type = types().mimeTypeForFile(toQString(name), QMimeDatabase::MatchExtension);
    // Sizes as the list shows them (a folder's with everything in it) where the tree has the item.
    FileNode* node = model_.root() ? model_.root()->find(path) : nullptr;
    std::optional<int64_t> size;
    std::optional<Date> modified;
    if (node) {
        size = node->size();
        modified = node->modified();
    }
    if (info) {
        if (!size && !S_ISDIR(info->st_mode)) size = static_cast<int64_t>(info->st_blocks) * 512;
        if (!modified) modified = Date::fromTimespec(info->st_mtim.tv_sec, info->st_mtim.tv_nsec);
    }

    const int side = 128;
    icon_->setPixmap(iconOf(type).pixmap(QSize(side, side), devicePixelRatioF()));
    name_->setText(toQString(name.empty() ? std::string_view(path) : name));
    // Type descriptions begin in lower case ("folder", "PNG image"); here each stands alone.
    QString kind = info || node ? type.comment() : QString();
    if (!kind.isEmpty()) kind[0] = kind[0].toUpper();
    const QString values[] = {
        size ? sizeText(*size) : QString(),
        kind,
        modified ? QString::fromStdString(format::abbreviatedDateTime(*modified)) : QString(),
    };
    for (int row = 0; row < facts_->rowCount(); ++row) {
        qobject_cast<QLabel*>(facts_->itemAt(row, QFormLayout::FieldRole)->widget())->setText(values[row]);
        facts_->setRowVisible(row, !values[row].isEmpty());
    }
    message_->setText(why);
    message_->setVisible(!why.isEmpty());
    showing_ = Showing::facts;
    pages_->setCurrentWidget(factsPage_);
}

bool PreviewWindow::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::KeyPress || !watched->isWidgetType()) return false;
    auto* key = static_cast<QKeyEvent*>(event);
    if (key->modifiers() & ~Qt::KeyboardModifiers(Qt::KeypadModifier)) return false;
    const QWidget* window = static_cast<QWidget*>(watched)->window();
    // A held Space is taken and does nothing, so it can't reopen what its first press closed.
    if (window == this) return (key->isAutoRepeat() && key->key() == Qt::Key_Space) || previewKey(key->key());
    if (parentWidget() && window == parentWidget()->window() && key->key() == Qt::Key_Space)
        return ownerSpace(key->isAutoRepeat());
    return false;
}

bool PreviewWindow::previewKey(int key) {
    switch (key) {
    case Qt::Key_Space:
    case Qt::Key_Escape: model_.closePreview(); return true;
    case Qt::Key_Left:
    case Qt::Key_Up:
    case Qt::Key_Right:
    case Qt::Key_Down: {
        const bool forward = key == Qt::Key_Right || key == Qt::Key_Down;
        if (model_.previewList().size() > 1) model_.pagePreview(forward ? 1 : -1);
        else model_.selectNeighbour(forward);
        return true;
    }
    default: return false;
    }
}

// Space in the folder page opens or closes the preview, but it still types into a text field and still
// presses a focused button or opens a focused menu.
bool PreviewWindow::ownerSpace(bool repeated) {
    if (model_.page() != StorageModel::Page::folder || !model_.current()) return false;
    const QWidget* focus = QApplication::focusWidget();
    if (isTextInput(focus) || qobject_cast<const QAbstractButton*>(focus) || qobject_cast<const QComboBox*>(focus))
        return false;
    if (!model_.previewURL() && model_.previewItems().empty()) return false;
    if (!repeated) model_.toggleQuickLook();
    return true;
}

void PreviewWindow::closeEvent(QCloseEvent* event) {
    model_.closePreview();
    QWidget::closeEvent(event);
}

} // namespace brenvo
