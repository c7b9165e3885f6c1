#pragma once

#include <QColor>
#include <QFont>
#include <QPalette>

// The setup window's text styles and colours, derived from the application's font and the
// widget's palette, so that they follow the desktop's size and light or dark theme.
namespace setup_style {

/// Text roles, relative to the base font: title (1.4×, bold), callout (0.95×), caption (0.85×),
/// headline (base size, bold) and body (the base font).
enum class FontRole { body, title2, callout, caption, headline };

/// `base` in the size and weight of `role`.
QFont font(const QFont& base, FontRole role);

/// Secondary text: the palette's placeholder colour.
QColor secondary(const QPalette& palette);

/// The accent colour of symbols: the palette's highlight.
QColor tint(const QPalette& palette);

/// Link text: the palette's link colour, or the highlight where the link colour would be hard
/// to read on the window background (dark themes often keep a dark blue link colour).
QColor link(const QPalette& palette);

/// A red that reads well on the window background, light or dark.
QColor red(const QPalette& palette);

}  // namespace setup_style
