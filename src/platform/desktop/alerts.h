#pragma once

#include <QString>
#include <QStringList>

namespace platform {

/// A modal alert: a message, an explanation and buttons in the order given.
struct Alert {
    enum class Style { informational, warning, critical };
    Style style = Style::warning;
    QString messageText;
    QString informativeText;
    QStringList buttons;
};

/// The answer for the first button; the second is ALERT_FIRST_BUTTON + 1, and so on.
inline constexpr int ALERT_FIRST_BUTTON = 1000;

/// Shows alerts and waits for the user.
class Alerts {
public:
    virtual ~Alerts() = default;

    /// Runs `alert` modally and gives the answer of the chosen button. Closing the alert without
    /// choosing counts as the last button.
    virtual int runModal(const Alert& alert) = 0;

    static Alerts& real();
};

}  // namespace platform
