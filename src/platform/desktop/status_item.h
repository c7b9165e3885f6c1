#pragma once

#include <QString>
#include <memory>

class QMenu;

namespace platform {

/// The application's item in the desktop's tray: an icon, an optional text label beside it, a
/// tooltip and a menu. Main thread only.
///
/// Implementations send the panel nothing when a setter leaves a value as it was, so that
/// redrawing the item every second costs nothing while nothing changes.
class StatusItem {
public:
    virtual ~StatusItem() = default;

    /// Whether a tray shows the item now. Without one every setter only remembers its value;
    /// the item shows the remembered state as soon as a tray appears.
    virtual bool hasButton() const = 0;

    /// Shows the bundled symbol `name` (see symbol_images.h) as the icon, with `description` as
    /// its accessible name. False, leaving the image as it was, when there is no such symbol.
    virtual bool setSymbol(const QString& name, const QString& description) = 0;
    /// Removes the icon, so that only the title shows.
    virtual void clearImage() = 0;
    /// The text shown beside the icon where the panel supports it; empty for none.
    virtual void setTitle(const QString& title) = 0;
    /// The tooltip: lines separated by "\n", the first one being the headline.
    virtual void setToolTip(const QString& toolTip) = 0;
    /// The menu the item opens. It is not owned. Its `aboutToShow` signal is emitted each time
    /// before the panel shows it, also when the panel draws the menu itself (D-Bus menus), so a
    /// receiver of that signal may rebuild the menu from scratch. Actions are triggered on the
    /// main thread when the user chooses them.
    virtual void setMenu(QMenu* menu) = 0;

    // What the item shows now (for tests and diagnostics).
    virtual QString symbol() const = 0;
    virtual QString title() const = 0;
    virtual QString toolTip() const = 0;
};

/// Makes the application's status item.
class StatusBar {
public:
    virtual ~StatusBar() = default;

    /// A new status item: a StatusNotifierItem when a status-notifier host runs, else an XEmbed
    /// tray icon when there is such a tray, else an item without button that appears as soon as
    /// either kind of tray does.
    virtual std::unique_ptr<StatusItem> makeStatusItem() = 0;

    static StatusBar& real();
};

}  // namespace platform
