#include "setup/link_button.h"

#include <QPainter>
#include <QStyle>
#include <QStyleOptionFocusRect>

#include "setup/setup_style.h"

namespace {

// Room around the text for the focus frame.
constexpr int PADDING = 2;

}  // namespace

LinkButton::LinkButton(const QString& text, QWidget* parent) : QAbstractButton(parent) {
    setText(text);
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void LinkButton::setTone(Tone tone) {
    if (tone_ == tone) return;
    tone_ = tone;
    update();
}

QSize LinkButton::sizeHint() const {
    const QFontMetrics metrics = fontMetrics();
    return {metrics.horizontalAdvance(text()) + 2 * PADDING, metrics.height() + 2 * PADDING};
}

void LinkButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    QFont textFont = font();
    textFont.setUnderline(isEnabled() && (hovered_ || isDown()));
    painter.setFont(textFont);
    QColor color = tone_ == Tone::red ? setup_style::red(palette()) : setup_style::link(palette());
    if (!isEnabled()) color = palette().color(QPalette::Disabled, QPalette::WindowText);
    if (isDown()) color = color.darker(120);
    painter.setPen(color);
    painter.drawText(rect().adjusted(PADDING, PADDING, -PADDING, -PADDING),
                     Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine, text());
    if (hasFocus()) {
        QStyleOptionFocusRect option;
        option.initFrom(this);
        option.backgroundColor = palette().color(QPalette::Window);
        style()->drawPrimitive(QStyle::PE_FrameFocusRect, &option, &painter, this);
    }
}

void LinkButton::enterEvent(QEnterEvent* event) {
    hovered_ = true;
    update();
    QAbstractButton::enterEvent(event);
}

void LinkButton::leaveEvent(QEvent* event) {
    hovered_ = false;
    update();
    QAbstractButton::leaveEvent(event);
}
