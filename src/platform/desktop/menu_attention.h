#pragma once

class QAction;
class QIcon;
class QMenu;

namespace platform {

/// Marks a menu item as one that needs the user's attention: its text is drawn in the desktop's
/// red where the menu is ours to draw, and it carries a red icon where the panel draws the menu
/// itself (a D-Bus menu carries no text colour).
void markAttention(QAction* action);

/// Whether `action` was marked with `markAttention`.
bool needsAttention(const QAction* action);

/// Makes `menu` draw the text of its marked items in red. `markAttention` does this for the menus
/// that already hold the item; the tray does it for the menu it shows, so that items added later
/// are covered too. Calling it again does nothing.
void drawAttentionText(QMenu* menu);

/// The red icon that marked items carry.
QIcon attentionIcon();

}  // namespace platform
