#pragma once

class QAction;

namespace platform {

/// Marks a menu item as one that needs the user's attention: its text is drawn in the desktop's
/// red where the menu is ours to draw, and it carries a red icon where the panel draws the menu
/// itself (a D-Bus menu carries no text colour).
void markAttention(QAction* action);

/// Whether `action` was marked with `markAttention`.
bool needsAttention(const QAction* action);

}  // namespace platform
