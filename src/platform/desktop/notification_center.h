#pragma once

#include <QString>
#include <functional>
#include <optional>

namespace platform {

/// A notification shown at once.
struct NotificationRequest {
    QString identifier;  // a request with the identifier of an earlier one replaces it
    QString title;
    QString body;
};

/// The desktop's notification server (org.freedesktop.Notifications). Main thread only;
/// completions run on the main thread, later, never inside the call.
class NotificationCenter {
public:
    virtual ~NotificationCenter() = default;

    /// Whether notifications can be shown: granted when a notification server answers.
    virtual void requestAuthorization(std::function<void(bool granted)> completion) = 0;

    /// Shows `request`, replacing the notification shown earlier under the same identifier. The
    /// completion gets a readable error when the server refused or did not answer.
    virtual void add(const NotificationRequest& request,
                     std::function<void(std::optional<QString> error)> completion) = 0;

    static NotificationCenter& real();
};

}  // namespace platform
