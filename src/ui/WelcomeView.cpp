#include "WelcomeView.h"

#include "Icons.h"
#include "Words.h"

#include <QLabel>
#include <QVBoxLayout>

namespace brenvo {

WelcomeView::WelcomeView(QWidget* parent) : QWidget(parent) {
    auto* layout = new QVBoxLayout(this);
    layout->addStretch(1);
    auto* symbol = new QLabel(this);
    symbol->setPixmap(icon("internaldrive").pixmap(64, 64));
    layout->addWidget(symbol, 0, Qt::AlignHCenter);
    auto* title = new QLabel(say("See what's filling your Mac"), this);
    QFont big = title->font();
    big.setPointSizeF(big.pointSizeF() * 1.6);
    big.setWeight(QFont::DemiBold);
    title->setFont(big);
    layout->addWidget(title, 0, Qt::AlignHCenter);
    auto* text = new QLabel(say("Pick a place on the left to scan it, or search for a file or folder. Nothing is "
                                "changed or deleted unless you choose to."),
                            this);
    text->setWordWrap(true);
    text->setAlignment(Qt::AlignHCenter);
    text->setFixedWidth(480);
    text->setMinimumHeight(text->heightForWidth(480)); // a wrapped label centred in a layout gets one line otherwise
    text->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(text, 0, Qt::AlignHCenter);
    layout->addStretch(1);
    layout->setSpacing(12);
}

} // namespace brenvo
