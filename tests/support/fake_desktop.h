#pragma once

#include <QUrl>
#include <QVariantMap>
#include <deque>

#include "platform/desktop/alerts.h"
#include "platform/desktop/login_items.h"
#include "platform/desktop/notification_center.h"
#include "platform/desktop/status_item.h"
#include "platform/desktop/workspace.h"
#include "platform/seam.h"
#include "platform/user_defaults.h"
#include "setup/setup_presenter.h"

namespace testing_support {

/// A status item that remembers what it shows; symbols outside `known` do not exist.
struct FakeStatusItem : platform::StatusItem {
    bool button = true;
    QStringList known{"cloud", "icloud.slash", "pause.circle", "arrow.up.arrow.down.circle",
                      "exclamationmark.icloud"};
    QString shownSymbol, description, shownTitle, shownToolTip;
    QMenu* menu = nullptr;

    bool hasButton() const override { return button; }
    bool setSymbol(const QString& name, const QString& text) override {
        return known.contains(name) && (shownSymbol = name, description = text, true);
    }
    void clearImage() override { shownSymbol.clear(); }
    void setTitle(const QString& title) override { shownTitle = title; }
    void setToolTip(const QString& toolTip) override { shownToolTip = toolTip; }
    void setMenu(QMenu* m) override { menu = m; }
    QString symbol() const override { return shownSymbol; }
    QString title() const override { return shownTitle; }
    QString toolTip() const override { return shownToolTip; }
};

/// Hands out FakeStatusItems; `item` is the last one made.
struct FakeStatusBar : platform::StatusBar {
    bool button = true;
    FakeStatusItem* item = nullptr;
    std::unique_ptr<platform::StatusItem> makeStatusItem() override {
        auto made = std::make_unique<FakeStatusItem>();
        made->button = button;
        item = made.get();
        return made;
    }
};

/// Records notifications; grants authorisation and answers each request with `error`.
struct FakeNotificationCenter : platform::NotificationCenter {
    std::optional<QString> error;
    std::vector<platform::NotificationRequest> shown;
    void requestAuthorization(std::function<void(bool)> completion) override { completion(true); }
    void add(const platform::NotificationRequest& request,
             std::function<void(std::optional<QString>)> completion) override {
        shown.push_back(request);
        completion(error);
    }
};

struct FakeUserDefaults : platform::UserDefaults {
    QVariantMap values;
    std::optional<QString> string(const QString& key) const override {
        return values.contains(key) ? std::optional(values[key].toString()) : std::nullopt;
    }
    bool boolean(const QString& key) const override { return values.value(key).toBool(); }
    void setString(const QString& key, const QString& value) override { values[key] = value; }
    void setBoolean(const QString& key, bool value) override { values[key] = value; }
    void remove(const QString& key) override { values.remove(key); }
};

/// Answers alerts from `answers` (first button when empty) and records them.
struct FakeAlerts : platform::Alerts {
    std::deque<int> answers;
    std::vector<platform::Alert> shown;
    int runModal(const platform::Alert& alert) override {
        shown.push_back(alert);
        const int answer = answers.empty() ? platform::ALERT_FIRST_BUTTON : answers.front();
        if (!answers.empty()) answers.pop_front();
        return answer;
    }
};

/// Records the addresses opened and the files shown in the file manager.
struct FakeWorkspace : platform::Workspace {
    std::vector<QUrl> opened;
    std::vector<QStringList> revealed;
    bool openURL(const QUrl& url) override {
        opened.push_back(url);
        return true;
    }
    void activateFileViewerSelecting(const QStringList& paths) override {
        revealed.push_back(paths);
    }
};

struct FakeLoginItems : platform::LoginItems {
    bool enabled = false;
    platform::LoginItemStatus status() const override {
        return enabled ? platform::LoginItemStatus::enabled
                       : platform::LoginItemStatus::notRegistered;
    }
    std::optional<QString> registerApplication() override { return enabled = true, std::nullopt; }
    std::optional<QString> unregisterApplication() override {
        return enabled = false, std::nullopt;
    }
};

/// Records each request to show the setup window with its callbacks.
struct FakeSetupPresenter : SetupPresenter {
    std::vector<SetupCallbacks> presented;
    void present(SetupCallbacks callbacks) override { presented.push_back(std::move(callbacks)); }
};

/// `Fake` standing in for `Facility` while it lives.
template <class Fake, class Facility>
struct Installed : Fake {
    platform::StandIn<Facility> standIn{*this};
};

/// Every desktop facility of the tray agent replaced for one test.
struct FakeDesktop {
    Installed<FakeStatusBar, platform::StatusBar> statusBar;
    Installed<FakeNotificationCenter, platform::NotificationCenter> notifications;
    Installed<FakeUserDefaults, platform::UserDefaults> defaults;
    Installed<FakeAlerts, platform::Alerts> alerts;
    Installed<FakeWorkspace, platform::Workspace> workspace;
    Installed<FakeLoginItems, platform::LoginItems> loginItems;
    Installed<FakeSetupPresenter, SetupPresenter> setup;
};

}  // namespace testing_support
