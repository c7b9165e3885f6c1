#include "setup/setup_style.h"

#include <algorithm>
#include <cmath>

namespace setup_style {
namespace {

double channel(double value) {
    value /= 255.0;
    return value <= 0.03928 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
}

// Relative luminance as the WCAG contrast formula defines it.
double luminance(const QColor& color) {
    return 0.2126 * channel(color.red()) + 0.7152 * channel(color.green()) +
           0.0722 * channel(color.blue());
}

double contrast(const QColor& a, const QColor& b) {
    const double la = luminance(a);
    const double lb = luminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

bool darkBackground(const QPalette& palette) {
    return luminance(palette.color(QPalette::Window)) < 0.25;
}

// Large enough for text that is read, not just noticed.
constexpr double READABLE_CONTRAST = 3.0;

}  // namespace

QFont font(const QFont& base, FontRole role) {
    QFont result = base;
    const auto scaled = [&result](double factor) {
        if (result.pointSizeF() > 0) {
            result.setPointSizeF(result.pointSizeF() * factor);
        } else {
            result.setPixelSize(std::max(1, int(std::lround(result.pixelSize() * factor))));
        }
    };
    switch (role) {
        case FontRole::body:
            break;
        case FontRole::title2:
            scaled(1.4);
            result.setBold(true);
            break;
        case FontRole::callout:
            scaled(0.95);
            break;
        case FontRole::caption:
            scaled(0.85);
            break;
        case FontRole::headline:
            result.setBold(true);
            break;
    }
    return result;
}

QColor secondary(const QPalette& palette) {
    const QColor placeholder = palette.color(QPalette::PlaceholderText);
    if (contrast(placeholder, palette.color(QPalette::Window)) >= READABLE_CONTRAST) {
        return placeholder;
    }
    // Some themes make placeholders too faint for labels; mix the text colour halfway instead.
    const QColor text = palette.color(QPalette::WindowText);
    const QColor window = palette.color(QPalette::Window);
    return QColor((text.red() * 2 + window.red()) / 3, (text.green() * 2 + window.green()) / 3,
                  (text.blue() * 2 + window.blue()) / 3);
}

QColor tint(const QPalette& palette) {
    return palette.color(QPalette::Highlight);
}

QColor link(const QPalette& palette) {
    const QColor window = palette.color(QPalette::Window);
    const QColor linkColor = palette.color(QPalette::Link);
    if (contrast(linkColor, window) >= READABLE_CONTRAST) return linkColor;
    const QColor highlight = palette.color(QPalette::Highlight);
    if (contrast(highlight, window) >= READABLE_CONTRAST) return highlight;
    return darkBackground(palette) ? highlight.lighter(160) : highlight.darker(160);
}

QColor red(const QPalette& palette) {
    return darkBackground(palette) ? QColor(0xff, 0x6b, 0x6b) : QColor(0xc0, 0x1c, 0x28);
}

}  // namespace setup_style
