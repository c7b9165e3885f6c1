#include "platform/desktop/notification_center.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QFileInfo>
#include <QHash>
#include <deque>

#include "platform/desktop/symbol_images.h"

namespace platform {
namespace {

const QString SERVICE = QStringLiteral("org.freedesktop.Notifications");
const QString PATH = QStringLiteral("/org/freedesktop/Notifications");
const QString INTERFACE = QStringLiteral("org.freedesktop.Notifications");

// A server that takes longer than this is as good as absent; nobody waits for a notice.
constexpr int ANSWER_TIMEOUT_MS = 5000;

QString errorText(const QDBusMessage& reply) {
    if (!reply.errorMessage().isEmpty()) return reply.errorMessage();
    if (!reply.errorName().isEmpty()) return reply.errorName();
    return QStringLiteral("the notification server gave no answer");
}

// The program's own icon, by file where the build or installation has it, else by theme name.
QString applicationIcon() {
    const QString themePath = symbolThemePath();
    const QString file = themePath + QStringLiteral("/hicolor/scalable/apps/vaskel.svg");
    return !themePath.isEmpty() && QFileInfo::exists(file) ? file : QStringLiteral("vaskel");
}

// Calls `handler` with the reply (or the error) of `message`, on this thread, always later.
template <class Handler>
void callAsync(const QDBusMessage& message, Handler handler) {
    QDBusPendingCall pending = QDBusConnection::sessionBus().asyncCall(message, ANSWER_TIMEOUT_MS);
    auto* watcher = new QDBusPendingCallWatcher(pending);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [handler = std::move(handler)](QDBusPendingCallWatcher* finished) {
                         finished->deleteLater();
                         handler(finished->reply());
                     });
}

// org.freedesktop.Notifications. A notice is sent with the id the server gave the last notice of
// the same identifier as its replaces_id, so that it takes that one's place instead of stacking.
// Notices of one identifier go out one at a time, each once the id of the one before is known.
class DesktopNotifications final : public NotificationCenter {
public:
    void requestAuthorization(std::function<void(bool granted)> completion) override {
        callAsync(QDBusMessage::createMethodCall(SERVICE, PATH, INTERFACE,
                                                 QStringLiteral("GetServerInformation")),
                  [completion = std::move(completion)](const QDBusMessage& reply) {
                      completion(reply.type() == QDBusMessage::ReplyMessage);
                  });
    }

    void add(const NotificationRequest& request,
             std::function<void(std::optional<QString> error)> completion) override {
        Occasion& occasion = occasions_[request.identifier];
        occasion.waiting.push_back({request, std::move(completion)});
        if (!occasion.sending) sendNext(request.identifier);
    }

private:
    struct Pending {
        NotificationRequest request;
        std::function<void(std::optional<QString>)> completion;
    };
    struct Occasion {
        uint serverId = 0;  // 0: nothing of this identifier shown yet
        bool sending = false;
        std::deque<Pending> waiting;
    };

    void sendNext(const QString& identifier) {
        Occasion& occasion = occasions_[identifier];
        if (occasion.waiting.empty()) {
            occasion.sending = false;
            return;
        }
        occasion.sending = true;
        Pending next = std::move(occasion.waiting.front());
        occasion.waiting.pop_front();
        QDBusMessage notify =
            QDBusMessage::createMethodCall(SERVICE, PATH, INTERFACE, QStringLiteral("Notify"));
        const QVariantMap hints{{QStringLiteral("desktop-entry"), QStringLiteral("vaskel")}};
        notify << QStringLiteral("Vaskel") << occasion.serverId << applicationIcon()
               << next.request.title << next.request.body << QStringList() << hints << int(-1);
        callAsync(notify, [this, identifier,
                           completion = std::move(next.completion)](const QDBusMessage& reply) {
            std::optional<QString> error;
            const QVariant id = reply.arguments().value(0);
            if (reply.type() != QDBusMessage::ReplyMessage)
                error = errorText(reply);
            else if (id.typeId() != QMetaType::UInt)
                error =
                    QStringLiteral("the notification server answered without a notification id");
            else
                occasions_[identifier].serverId = id.toUInt();
            if (completion) completion(error);
            sendNext(identifier);
        });
    }

    QHash<QString, Occasion> occasions_;
};

}  // namespace

NotificationCenter& NotificationCenter::real() {
    static DesktopNotifications center;
    return center;
}

}  // namespace platform
