#include "support/fake_panel.h"

#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusObjectPath>
#include <QDBusPendingReply>
#include <QDBusVariant>

#include "support/event_loop_wait.h"

namespace testing_support {
namespace {

const QString ITEM_PATH = QStringLiteral("/StatusNotifierItem");
const QString ITEM_INTERFACE = QStringLiteral("org.kde.StatusNotifierItem");
const QString MENU_INTERFACE = QStringLiteral("com.canonical.dbusmenu");

FakePanel::MenuEntry readEntry(const QDBusArgument& argument) {
    FakePanel::MenuEntry entry;
    argument.beginStructure();
    argument >> entry.id >> entry.properties;
    argument.beginArray();
    while (!argument.atEnd()) {
        QDBusVariant child;
        argument >> child;
        entry.children.append(readEntry(qvariant_cast<QDBusArgument>(child.variant())));
    }
    argument.endArray();
    argument.endStructure();
    return entry;
}

QList<PanelPixmap> readPixmaps(const QDBusArgument& argument) {
    QList<PanelPixmap> pixmaps;
    argument.beginArray();
    while (!argument.atEnd()) {
        PanelPixmap pixmap;
        argument.beginStructure();
        argument >> pixmap.width >> pixmap.height >> pixmap.bytes;
        argument.endStructure();
        pixmaps.append(pixmap);
    }
    argument.endArray();
    return pixmaps;
}

}  // namespace

bool FakePanel::start() {
    static int count = 0;
    connectionName_ = QStringLiteral("vaskel-fake-panel-%1").arg(++count);
    QDBusConnection bus =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, connectionName_);
    return bus.isConnected() &&
           bus.registerObject(QStringLiteral("/StatusNotifierWatcher"), this,
                              QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals |
                                  QDBusConnection::ExportAllProperties) &&
           bus.registerService(QStringLiteral("org.kde.StatusNotifierWatcher"));
}

void FakePanel::stop() {
    if (connectionName_.isEmpty()) return;
    QDBusConnection::disconnectFromBus(connectionName_);
    connectionName_.clear();
}

QDBusConnection FakePanel::connection() const {
    return QDBusConnection(connectionName_);
}

void FakePanel::RegisterStatusNotifierItem(const QString& service) {
    ++attempts_;
    if (refusals > 0) {
        --refusals;
        sendErrorReply(QDBusError::AccessDenied, QStringLiteral("the test refuses this item"));
        return;
    }
    // Some items register an object path; the service is then the caller.
    const QString name = service.startsWith(QLatin1Char('/')) ? message().service() : service;
    for (const char* signal : {"NewTitle", "NewIcon", "NewAttentionIcon", "NewOverlayIcon",
                               "NewToolTip", "NewStatus", "XAyatanaNewLabel", "NewMenu"})
        connection().connect(name, ITEM_PATH, ITEM_INTERFACE, QLatin1String(signal), this,
                             SLOT(recordSignal(QDBusMessage)));
    for (const char* signal :
         {"LayoutUpdated", "ItemsPropertiesUpdated", "ItemActivationRequested"})
        connection().connect(name, QString(), MENU_INTERFACE, QLatin1String(signal), this,
                             SLOT(recordSignal(QDBusMessage)));
    registrations_ << name;
    Q_EMIT StatusNotifierItemRegistered(name);
}

void FakePanel::RegisterStatusNotifierHost(const QString&) {}

void FakePanel::recordSignal(const QDBusMessage& message) {
    signals_ << message.member();
}

bool FakePanel::waitForRegistrations(int count, int timeoutMs) {
    return runEventsUntil([&] { return registrations_.size() >= count; }, timeoutMs);
}

bool FakePanel::waitForSignal(const QString& name, int timeoutMs) {
    return runEventsUntil([&] { return signals_.contains(name); }, timeoutMs);
}

QDBusMessage FakePanel::callAndWait(const QDBusMessage& call) {
    QDBusPendingCall pending = connection().asyncCall(call, 5000);
    runEventsUntil([&] { return pending.isFinished(); }, 6000);
    return QDBusPendingReply<>(pending).reply();
}

QVariant FakePanel::itemProperty(const QString& name) {
    if (registrations_.isEmpty()) return {};
    QDBusMessage get = QDBusMessage::createMethodCall(
        registrations_.last(), ITEM_PATH, QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"));
    get << ITEM_INTERFACE << name;
    const QDBusMessage reply = callAndWait(get);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return {};
    return qvariant_cast<QDBusVariant>(reply.arguments().first()).variant();
}

QDBusMessage FakePanel::callMenu(const QString& method, const QVariantList& arguments) {
    const QString path =
        qvariant_cast<QDBusObjectPath>(itemProperty(QStringLiteral("Menu"))).path();
    QDBusMessage call = QDBusMessage::createMethodCall(
        registrations_.value(registrations_.size() - 1), path, MENU_INTERFACE, method);
    call.setArguments(arguments);
    return callAndWait(call);
}

std::optional<FakePanel::MenuEntry> FakePanel::menuLayout(uint* revision) {
    const QDBusMessage reply = callMenu(QStringLiteral("GetLayout"), {0, -1, QStringList()});
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() != 2) return {};
    if (revision) *revision = reply.arguments()[0].toUInt();
    return readEntry(qvariant_cast<QDBusArgument>(reply.arguments()[1]));
}

QList<QStringList> menuShortcut(const QVariant& value) {
    QList<QStringList> shortcut;
    const auto argument = qvariant_cast<QDBusArgument>(value);
    argument.beginArray();
    while (!argument.atEnd()) {
        QStringList keys;
        argument >> keys;
        shortcut << keys;
    }
    argument.endArray();
    return shortcut;
}

QList<PanelPixmap> panelPixmaps(const QVariant& value) {
    return readPixmaps(qvariant_cast<QDBusArgument>(value));
}

PanelToolTip panelToolTip(const QVariant& value) {
    PanelToolTip toolTip;
    const auto argument = qvariant_cast<QDBusArgument>(value);
    argument.beginStructure();
    argument >> toolTip.iconName;
    readPixmaps(argument);
    argument >> toolTip.title >> toolTip.description;
    argument.endStructure();
    return toolTip;
}

}  // namespace testing_support
