#include "setup/symbol_label.h"

#include <QPainter>

#include "platform/desktop/symbol_images.h"
#include "setup/setup_style.h"

SymbolLabel::SymbolLabel(const QString& symbol, Tone tone, int size, QWidget* parent)
    : QLabel(parent), symbol_(symbol), tone_(tone), size_(size) {
    setFixedSize(size, size);
}

void SymbolLabel::setSymbolSize(int size) {
    size_ = size;
    setFixedSize(size, size);
}

QColor SymbolLabel::color() const {
    switch (tone_) {
        case Tone::tint:
            return setup_style::tint(palette());
        case Tone::secondary:
            return setup_style::secondary(palette());
        case Tone::red:
            return setup_style::red(palette());
        case Tone::text:
            break;
    }
    return palette().color(QPalette::WindowText);
}

void SymbolLabel::paintEvent(QPaintEvent*) {
    const QColor ink = color();
    if (!cached_ || cached_->first != ink.rgba()) {
        cached_.emplace(ink.rgba(), platform::symbolIcon(symbol_, ink));
    }
    if (!cached_->second) return;
    // Rendered at the screen's pixel density and drawn one to one, so that scaled displays get
    // sharp edges instead of an enlarged small image.
    const QPixmap pixmap = cached_->second->pixmap(size(), devicePixelRatioF());
    QPainter painter(this);
    const QSizeF drawn = pixmap.deviceIndependentSize();
    painter.drawPixmap(QPointF((width() - drawn.width()) / 2, (height() - drawn.height()) / 2),
                       pixmap);
}
