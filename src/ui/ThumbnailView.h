#pragma once

#include <QIcon>
#include <QImage>
#include <QWidget>

#include <string>

namespace brenvo {

// A file's thumbnail, fitted to the widget and centred, with a placeholder icon until it has come (or for
// good, when the file gives none). Double-clicking it sends `activated`.
class ThumbnailView : public QWidget {
    Q_OBJECT
public:
    ThumbnailView(const std::string& path, double points, QIcon placeholder, QWidget* parent = nullptr);

    void setCornerRadius(double radius) { radius_ = radius; }

signals:
    void activated();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;

private:
    void look();

    std::string path_;
    double points_;
    QIcon placeholder_;
    QImage image_;
    double radius_ = 0;
};

} // namespace brenvo
