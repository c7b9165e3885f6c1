#pragma once

#include <QMap>
#include <QStringList>
#include <QUrl>
#include <QVariant>
#include <deque>
#include <vector>

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
class FakeStatusItem final : public platform::StatusItem {
public:
    bool button = true;
    QStringList known{"cloud", "icloud.slash", "pause.circle", "arrow.up.arrow.down.circle",
                      "exclamationmark.icloud"};
    QString shownSymbol, description, shownTitle, shownToolTip;
    QMenu* menu = nullptr;

    bool hasButton() const override { return button; }
    bool setSymbol(const QString& name, const QString& text) override {
        if (!known.contains(name)) return false;
        shownSymbol = name;
        description = text;
        return true;
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
class FakeStatusBar final : public platform::StatusBar {
public:
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
class FakeNotificationCenter final : public platform::NotificationCenter {
public:
    std::optional<QString> error;
    std::vector<platform::NotificationRequest> shown;
    void requestAuthorization(std::function<void(bool)> completion) override { completion(true); }
    void add(const platform::NotificationRequest& request,
             std::function<void(std::optional<QString>)> completion) override {
        shown.push_back(request);
        completion(error);
    }
};

class FakeUserDefaults final : public platform::UserDefaults {
public:
    QVariantMap values;
    std::optional<QString> string(const QString& key) const override {
        if (values.value(key).typeId() != QMetaType::QString) return std::nullopt;
        return values.value(key).toString();
    }
    bool boolean(const QString& key) const override { return values.value(key).toBool(); }
    void setString(const QString& key, const QString& value) override { values[key] = value; }
    void setBoolean(const QString& key, bool value) override { values[key] = value; }
    void remove(const QString& key) override { values.remove(key); }
};

/// Answers alerts from `answers` (first button when empty) and records them.
class FakeAlerts final : public platform::Alerts {
public:
    std::deque<int> answers;
    std::vector<platform::Alert> shown;
    int runModal(const platform::Alert& alert) override {
        shown.push_back(alert);
        if (answers.empty()) return platform::ALERT_FIRST_BUTTON;
        const int answer = answers.front();
        answers.pop_front();
        return answer;
    }
};

/// Records the addresses opened and the files shown in the file manager.
class FakeWorkspace final : public platform::Workspace {
public:
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

class FakeLoginItems final : public platform::LoginItems {
public:
    bool enabled = false;
    std::optional<QString> failure;
    platform::LoginItemStatus status() const override {
        return enabled ? platform::LoginItemStatus::enabled
                       : platform::LoginItemStatus::notRegistered;
    }
    std::optional<QString> registerApplication() override { return change(true); }
    std::optional<QString> unregisterApplication() override { return change(false); }

private:
    std::optional<QString> change(bool to) {
        if (!failure) enabled = to;
        return failure;
    }
};

/// Records each request to show the setup window with its callbacks.
class FakeSetupPresenter final : public SetupPresenter {
public:
    std::vector<SetupCallbacks> presented;
    void present(SetupCallbacks callbacks) override { presented.push_back(std::move(callbacks)); }
};

/// Every desktop facility of the tray agent replaced for one test.
class FakeDesktop {
public:
    FakeStatusBar statusBar;
    FakeNotificationCenter notifications;
    FakeUserDefaults defaults;
    FakeAlerts alerts;
    FakeWorkspace workspace;
    FakeLoginItems loginItems;
    FakeSetupPresenter setup;

private:
    platform::StandIn<platform::StatusBar> s1_{statusBar};
    platform::StandIn<platform::NotificationCenter> s2_{notifications};
    platform::StandIn<platform::UserDefaults> s3_{defaults};
    platform::StandIn<platform::Alerts> s4_{alerts};
    platform::StandIn<platform::Workspace> s5_{workspace};
    platform::StandIn<platform::LoginItems> s6_{loginItems};
    platform::StandIn<SetupPresenter> s7_{setup};
};

}  // namespace testing_support
