#pragma once

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QObject>
#include <QStringList>
#include <QVariantMap>
#include <optional>

namespace testing_support {

/// A tray host as the item sees it, on a bus connection of its own: it runs the
/// org.kde.StatusNotifierWatcher, takes (or refuses) registrations, reads the registered item's
/// properties and D-Bus menu, sends menu events and records every signal the item sends. All
/// calls to the item are asynchronous and wait in the event loop, so the item answers from the
/// same thread. Start and stop it like a panel that starts, crashes or restarts.
class FakePanel final : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems READ registrations)
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ hostRegistered)
    Q_PROPERTY(int ProtocolVersion READ protocolVersion)

public:
    /// One entry of the item's menu as the panel reads it.
    struct MenuEntry {
        int id = 0;
        QVariantMap properties;
        QList<MenuEntry> children;
        QString label() const { return properties.value(QStringLiteral("label")).toString(); }
    };

    FakePanel() = default;
    ~FakePanel() override { stop(); }

    /// Takes the watcher's name; false when that failed.
    bool start();
    /// Leaves the bus at once, as a crashing panel does.
    void stop();

    /// Refuse this many registrations before taking one.
    int refusals = 0;
    /// Registration calls received, refused ones included.
    int attempts() const { return attempts_; }
    /// The accepted items' service names, in order.
    QStringList registrations() const { return registrations_; }
    bool waitForRegistrations(int count, int timeoutMs = 5000);

    /// A property of the last registered item; invalid when the call failed. Structures come
    /// as QDBusArgument.
    QVariant itemProperty(const QString& name);
    /// Calls `method` of the item's menu with `arguments`; the reply (or error) message.
    QDBusMessage callMenu(const QString& method, const QVariantList& arguments);
    /// The whole menu layout and its revision; none when the call failed.
    std::optional<MenuEntry> menuLayout(uint* revision = nullptr);

    /// Names of the signals the item sent (item and menu), in order of arrival.
    QStringList signalNames() const { return signals_; }
    void clearSignals() { signals_.clear(); }
    bool waitForSignal(const QString& name, int timeoutMs = 5000);

    bool hostRegistered() const { return true; }
    int protocolVersion() const { return 0; }

public Q_SLOTS:
    void RegisterStatusNotifierItem(const QString& service);
    void RegisterStatusNotifierHost(const QString& service);

Q_SIGNALS:
    void StatusNotifierItemRegistered(const QString& service);
    void StatusNotifierItemUnregistered(const QString& service);
    void StatusNotifierHostRegistered();

private Q_SLOTS:
    void recordSignal(const QDBusMessage& message);

private:
    QDBusMessage callAndWait(const QDBusMessage& call);
    QDBusConnection connection() const;

    QString connectionName_;
    int attempts_ = 0;
    QStringList registrations_;
    QStringList signals_;
};

/// The shortcut property of a menu entry, e.g. {{"Control", "r"}}.
QList<QStringList> menuShortcut(const QVariant& value);

/// The pixmaps of an IconPixmap property as (width, height, ARGB bytes in network order).
struct PanelPixmap {
    int width = 0;
    int height = 0;
    QByteArray bytes;
};
QList<PanelPixmap> panelPixmaps(const QVariant& value);

/// The ToolTip property: (icon name, pixmaps, title, description).
struct PanelToolTip {
    QString iconName;
    QString title;
    QString description;
};
PanelToolTip panelToolTip(const QVariant& value);

}  // namespace testing_support
