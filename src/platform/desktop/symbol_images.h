#pragma once

#include <QIcon>
#include <QString>
#include <optional>

namespace platform {

/// The symbol images the program draws with, by the names the interface uses ("cloud",
/// "icloud.slash", "pause.circle", "arrow.up.arrow.down.circle", "exclamationmark.icloud", ...).
/// Each is a bundled fill-only SVG that panels recolour like their own symbolic icons.

/// The icon-theme name under which the symbol is installed ("vaskel-cloud-symbolic"); none for a
/// name the program has no symbol for.
std::optional<QString> symbolIconName(const QString& symbol);

/// The symbol as an icon in `color` (for menus, windows and pixmap-only trays); none for an
/// unknown name. An invalid colour means the palette's text colour.
std::optional<QIcon> symbolIcon(const QString& symbol, const QColor& color = QColor());

/// The folder holding the bundled icons as an icon theme (`hicolor/scalable/...` below it), for
/// panels that look icons up by name.
QString symbolThemePath();

}  // namespace platform
