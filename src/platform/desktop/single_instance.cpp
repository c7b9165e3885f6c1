#include "platform/desktop/single_instance.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QVariantMap>

namespace platform {
namespace {

const QString SERVICE = QStringLiteral("com.norva.vaskel");
const QString PATH = QStringLiteral("/com/norva/vaskel");

// org.freedesktop.Application: what a launcher (or a second start) asks of the running
// instance.
class ApplicationAdaptor final : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")
public:
    ApplicationAdaptor(QObject* parent, std::function<void()> onActivate)
        : QDBusAbstractAdaptor(parent), onActivate_(std::move(onActivate)) {}

public Q_SLOTS:
    void Activate(const QVariantMap&) { onActivate_(); }
    void Open(const QStringList&, const QVariantMap&) { onActivate_(); }
    void ActivateAction(const QString&, const QVariantList&, const QVariantMap&) {}

private:
    std::function<void()> onActivate_;
};

}  // namespace

bool becomePrimaryInstance(std::function<void()> onActivate) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return true;
    if (!bus.registerService(SERVICE)) {
        QDBusMessage activate = QDBusMessage::createMethodCall(
            SERVICE, PATH, QStringLiteral("org.freedesktop.Application"),
            QStringLiteral("Activate"));
        activate << QVariantMap();
        bus.call(activate, QDBus::Block, 5000);
        return false;
    }
    static QObject root;
    new ApplicationAdaptor(&root, std::move(onActivate));
    bus.registerObject(PATH, &root);
    return true;
}

}  // namespace platform

#include "single_instance.moc"
