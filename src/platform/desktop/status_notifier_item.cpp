#include "platform/desktop/status_notifier_item.h"

#include <unistd.h>

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QPoint>
#include <atomic>

#include "platform/desktop/symbol_images.h"
#include "platform/log.h"

namespace platform {
namespace {

const QString WATCHER_SERVICE = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString WATCHER_PATH = QStringLiteral("/StatusNotifierWatcher");
const QString WATCHER_INTERFACE = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString ITEM_PATH = QStringLiteral("/StatusNotifierItem");
const QString MENU_PATH = QStringLiteral("/MenuBar");

constexpr int REGISTER_TIMEOUT_MS = 5000;
constexpr int FIRST_RETRY_MS = 500;
constexpr int LAST_RETRY_MS = 30000;

// Sizes panels pick from when they draw pixels rather than the themed icon.
const QList<int> PIXMAP_SIZES{16, 22, 24, 32, 48};

QString nextServiceName() {
    static std::atomic<int> count{0};
    return QStringLiteral("org.kde.StatusNotifierItem-%1-%2").arg(::getpid()).arg(++count);
}

}  // namespace

StatusNotifierItem::StatusNotifierItem(const StatusItemState& state, QDBusConnection connection)
    : state_(state),
      connection_(std::move(connection)),
      serviceName_(nextServiceName()),
      retryDelayMs_(FIRST_RETRY_MS) {
    registerStatusNotifierTypes();
    menuExporter_ = std::make_unique<DBusMenuExporter>(connection_, MENU_PATH);
    menuExporter_->setMenu(state_.menu);
    exported_ = menuExporter_->exported() &&
                connection_.registerObject(ITEM_PATH, this,
                                           QDBusConnection::ExportAllSlots |
                                               QDBusConnection::ExportAllSignals |
                                               QDBusConnection::ExportAllProperties);
    if (exported_ && !connection_.registerService(serviceName_)) {
        connection_.unregisterObject(ITEM_PATH);
        exported_ = false;
    }
    if (!exported_) {
        mlog.error(QStringLiteral("status item could not be published on the session bus: %1")
                       .arg(connection_.lastError().message()));
        return;
    }
    retry_.setSingleShot(true);
    connect(&retry_, &QTimer::timeout, this, &StatusNotifierItem::registerWithWatcher);
    registerWithWatcher();
}

StatusNotifierItem::~StatusNotifierItem() {
    if (!exported_) return;
    connection_.unregisterService(serviceName_);
    connection_.unregisterObject(ITEM_PATH);
}

void StatusNotifierItem::registerWithWatcher() {
    if (!exported_) return;
    retry_.stop();
    const int attempt = ++attempt_;
    QDBusMessage call =
        QDBusMessage::createMethodCall(WATCHER_SERVICE, WATCHER_PATH, WATCHER_INTERFACE,
                                       QStringLiteral("RegisterStatusNotifierItem"));
    call << serviceName_;
    auto* watcher =
        new QDBusPendingCallWatcher(connection_.asyncCall(call, REGISTER_TIMEOUT_MS), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, attempt](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                if (attempt != attempt_) return;  // a newer registration is under way
                const QDBusMessage reply = finished->reply();
                if (reply.type() == QDBusMessage::ReplyMessage) {
                    if (!registered_) mlog.info(QStringLiteral("status item shown by the tray"));
                    registered_ = true;
                    retryDelayMs_ = FIRST_RETRY_MS;
                    return;
                }
                registered_ = false;
                mlog.error(QStringLiteral("tray refused the status item; trying again in %1 ms: %2")
                               .arg(retryDelayMs_)
                               .arg(reply.errorMessage()));
                retry_.start(retryDelayMs_);
                retryDelayMs_ = std::min(retryDelayMs_ * 2, LAST_RETRY_MS);
            });
}

void StatusNotifierItem::iconChanged() {
    if (exported_) Q_EMIT NewIcon();
}

void StatusNotifierItem::titleChanged() {
    if (exported_) Q_EMIT XAyatanaNewLabel(label(), label());
}

void StatusNotifierItem::toolTipChanged() {
    if (exported_) Q_EMIT NewToolTip();
}

void StatusNotifierItem::menuChanged() {
    menuExporter_->setMenu(state_.menu);
}

QString StatusNotifierItem::iconName() const {
    return symbolIconName(state_.symbol).value_or(QString());
}

QString StatusNotifierItem::iconThemePath() const {
    return symbolThemePath();
}

StatusNotifierPixmapList StatusNotifierItem::iconPixmap() const {
    if (pixmapSymbol_ != state_.symbol || (pixmaps_.isEmpty() && !state_.symbol.isEmpty())) {
        const std::optional<QIcon> icon = symbolIcon(state_.symbol, trayPixmapColor());
        pixmaps_ = icon ? statusNotifierPixmaps(*icon, PIXMAP_SIZES) : StatusNotifierPixmapList();
        pixmapSymbol_ = state_.symbol;
    }
    return pixmaps_;
}

StatusNotifierToolTip StatusNotifierItem::toolTip() const {
    const qsizetype lineEnd = state_.toolTip.indexOf(QLatin1Char('\n'));
    StatusNotifierToolTip toolTip;
    toolTip.iconName = iconName();
    toolTip.title = lineEnd < 0 ? state_.toolTip : state_.toolTip.left(lineEnd);
    toolTip.description = lineEnd < 0 ? QString() : state_.toolTip.mid(lineEnd + 1);
    return toolTip;
}

QDBusObjectPath StatusNotifierItem::menu() const {
    return QDBusObjectPath(MENU_PATH);
}

// The item is nothing but its menu; panels that do not draw D-Bus menus ask for it this way.
void StatusNotifierItem::Activate(int x, int y) {
    popUpMenu(x, y);
}
void StatusNotifierItem::SecondaryActivate(int, int) {}
void StatusNotifierItem::ContextMenu(int x, int y) {
    popUpMenu(x, y);
}
void StatusNotifierItem::Scroll(int, const QString&) {}
void StatusNotifierItem::ProvideXdgActivationToken(const QString& token) {
    qputenv("XDG_ACTIVATION_TOKEN", token.toUtf8());
}

void StatusNotifierItem::popUpMenu(int x, int y) {
    if (state_.menu) state_.menu->popup(QPoint(x, y));
}

}  // namespace platform
