#pragma once

#include <QWidget>

namespace brenvo {

// The folder page before any place has been chosen.
class WelcomeView : public QWidget {
    Q_OBJECT
public:
    explicit WelcomeView(QWidget* parent = nullptr);
};

} // namespace brenvo
