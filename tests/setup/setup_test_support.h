#pragma once

#include <QAbstractButton>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QUrl>
#include <QWidget>
#include <chrono>
#include <functional>
#include <optional>
#include <vector>

#include "platform/desktop/alerts.h"
#include "platform/desktop/workspace.h"
#include "platform/host_name.h"
#include "platform/seam.h"
#include "server/account.h"

// Stand-ins and lookups shared by the setup window's tests.
namespace setup_testing {

/// Answers every alert with `answer` and keeps what was asked.
class FakeAlerts final : public platform::Alerts {
public:
    int answer = platform::ALERT_FIRST_BUTTON;
    std::vector<platform::Alert> shown;
    int runModal(const platform::Alert& alert) override {
        shown.push_back(alert);
        return answer;
    }

private:
    platform::StandIn<platform::Alerts> standIn_{*this};
};

/// Records the addresses it is asked to open.
class FakeWorkspace final : public platform::Workspace {
public:
    std::vector<QUrl> opened;
    bool openURL(const QUrl& url) override {
        opened.push_back(url);
        return true;
    }
    void activateFileViewerSelecting(const QStringList&) override {}

private:
    platform::StandIn<platform::Workspace> standIn_{*this};
};

class FakeHostName final : public platform::HostName {
public:
    std::optional<QString> name = QStringLiteral("Test Laptop");
    std::optional<QString> localizedName() const override { return name; }

private:
    platform::StandIn<platform::HostName> standIn_{*this};
};

/// An account known by its e-mail address alone: unlimited, no name, no plan.
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

/// Runs the event loop for `duration`.
inline void spin(std::chrono::milliseconds duration) {
    waitUntil([] { return false; }, duration);
}

/// The button under `root` with exactly this text; none when there is none.
inline QAbstractButton* button(const QWidget& root, const QString& text) {
    for (QAbstractButton* candidate : root.findChildren<QAbstractButton*>()) {
        if (candidate->text() == text) return candidate;
    }
    return nullptr;
}

/// The label under `root` with exactly this text; none when there is none.
inline QLabel* label(const QWidget& root, const QString& text) {
    for (QLabel* candidate : root.findChildren<QLabel*>()) {
        if (candidate->text() == text) return candidate;
    }
    return nullptr;
}

/// Whether a label or button with exactly this text is visible in `root`'s window.
inline bool shows(const QWidget& root, const QString& text) {
    if (const QLabel* found = label(root, text); found && found->isVisibleTo(&root)) return true;
    const QAbstractButton* found = button(root, text);
    return found && found->isVisibleTo(&root);
}

}  // namespace setup_testing
