#pragma once

#include <QAbstractButton>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <chrono>
#include <functional>
#include <vector>

#include "platform/desktop/alerts.h"
#include "platform/desktop/workspace.h"
#include "platform/host_name.h"
#include "platform/seam.h"
#include "server/account.h"

// Stand-ins and lookups shared by the setup window's tests.
namespace setup_testing {

/// Answers every alert with `answer` and keeps what was asked.
struct FakeAlerts final : platform::Alerts {
    int answer = platform::ALERT_FIRST_BUTTON;
    std::vector<platform::Alert> shown;
    int runModal(const platform::Alert& alert) override {
        shown.push_back(alert);
        return answer;
    }
    platform::StandIn<platform::Alerts> standIn{*this};
};

/// Records the addresses it is asked to open.
struct FakeWorkspace final : platform::Workspace {
    std::vector<QUrl> opened;
    bool openURL(const QUrl& url) override {
        opened.push_back(url);
        return true;
    }
    void activateFileViewerSelecting(const QStringList&) override {}
    platform::StandIn<platform::Workspace> standIn{*this};
};

struct FakeHostName final : platform::HostName {
    std::optional<QString> name = QStringLiteral("Test Laptop");
    std::optional<QString> localizedName() const override { return name; }
    platform::StandIn<platform::HostName> standIn{*this};
};

/// An unlimited account known by its e-mail address alone.
inline Account accountFor(const QString& email) {
    Account account;
    account.email = email;
    return account;
}

/// Runs the event loop until `done` holds or `limit` passes; gives whether it held.
inline bool waitUntil(const std::function<bool()>& done,
                      std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > limit.count()) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    return true;
}

inline void spin(std::chrono::milliseconds duration) {
    waitUntil([] { return false; }, duration);
}

/// The widget of type W under `root` whose text is `text`; none when there is none.
template <class W = QAbstractButton>
W* withText(const QWidget& root, const QString& text) {
    for (W* candidate : root.findChildren<W*>()) {
        if (candidate->text() == text) return candidate;
    }
    return nullptr;
}

inline QAbstractButton* button(const QWidget& root, const QString& text) {
    return withText<QAbstractButton>(root, text);
}

/// Whether a label or button with exactly this text shows in `root`.
inline bool shows(const QWidget& root, const QString& text) {
    const QWidget* found = withText<QLabel>(root, text);
    if (!found || !found->isVisibleTo(&root)) found = button(root, text);
    return found && found->isVisibleTo(&root);
}

}  // namespace setup_testing
