#include "platform/desktop/status_item.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusServiceWatcher>
#include <QTimer>

#include "platform/desktop/menu_attention.h"
#include "platform/desktop/status_item_backend.h"
#include "platform/desktop/status_notifier_item.h"
#include "platform/desktop/symbol_images.h"
#include "platform/desktop/xembed_tray_icon.h"
#include "platform/log.h"

namespace platform {
namespace {

const QString WATCHER_SERVICE = QStringLiteral("org.kde.StatusNotifierWatcher");

// How often to look for an XEmbed tray while no tray shows the item, on X11 only.
// StatusNotifierItem hosts announce themselves on the bus and need no looking for.
constexpr int TRAY_POLL_MS = 5000;

// The item in whichever tray the desktop has: a StatusNotifierItem host when one runs, else an
// XEmbed tray, else none until one of them appears. The item keeps what it shows, so a tray that
// comes (back) shows the current state. Setters pass a change on only when there is one.
class TrayStatusItem final : public QObject, public StatusItem {
public:
    TrayStatusItem() : bus_(QDBusConnection::sessionBus()) {
        trayPoll_.setInterval(TRAY_POLL_MS);
        connect(&trayPoll_, &QTimer::timeout, this, [this] {
            if (XEmbedTrayIcon::trayAvailable()) showIn(std::make_unique<XEmbedTrayIcon>(state_));
        });
        bool watcherRuns = false;
        if (bus_.isConnected()) {
            auto* watcher = new QDBusServiceWatcher(WATCHER_SERVICE, bus_,
                                                    QDBusServiceWatcher::WatchForOwnerChange, this);
            connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
                    [this](const QString&, const QString&, const QString& owner) {
                        watcherChanged(!owner.isEmpty());
                    });
            watcherRuns = bus_.interface()->isServiceRegistered(WATCHER_SERVICE).value();
        }
        watcherRuns ? watcherChanged(true) : lookForXEmbedTray();
    }

    bool hasButton() const override { return backend_ && backend_->showing(); }

    bool setSymbol(const QString& name, const QString& description) override {
        if (!symbolIconName(name)) return false;
        state_.description = description;
        if (state_.symbol == name) return true;
        state_.symbol = name;
        if (backend_) backend_->iconChanged();
        return true;
    }

    void clearImage() override {
        if (state_.symbol.isEmpty()) return;
        state_.symbol.clear();
        if (backend_) backend_->iconChanged();
    }

    void setTitle(const QString& title) override {
        if (state_.title == title) return;
        state_.title = title;
        if (backend_) backend_->titleChanged();
    }

    void setToolTip(const QString& toolTip) override {
        if (state_.toolTip == toolTip) return;
        state_.toolTip = toolTip;
        if (backend_) backend_->toolTipChanged();
    }

    void setMenu(QMenu* menu) override {
        if (state_.menu == menu) return;
        state_.menu = menu;
        drawAttentionText(menu);
        if (backend_) backend_->menuChanged();
    }

    QString symbol() const override { return state_.symbol; }
    QString title() const override { return state_.title; }
    QString toolTip() const override { return state_.toolTip; }

private:
    void watcherChanged(bool running) {
        if (running) {
            // A new watcher (a panel started or restarted) knows nothing of the item yet.
            if (auto* item = dynamic_cast<StatusNotifierItem*>(backend_.get()))
                item->registerWithWatcher();
            else
                showIn(std::make_unique<StatusNotifierItem>(state_, bus_));
        } else if (dynamic_cast<StatusNotifierItem*>(backend_.get())) {
            mlog.info(QStringLiteral("the tray went away; the status item waits for one"));
            backend_.reset();
            lookForXEmbedTray();
        }
    }

    void lookForXEmbedTray() {
        if (XEmbedTrayIcon::trayAvailable())
            showIn(std::make_unique<XEmbedTrayIcon>(state_));
        else if (XEmbedTrayIcon::trayPossible())
            trayPoll_.start();
    }

    void showIn(std::unique_ptr<StatusItemBackend> backend) {
        trayPoll_.stop();
        backend_ = std::move(backend);
        if (!backend_->showing()) {
            backend_.reset();
            if (XEmbedTrayIcon::trayPossible()) trayPoll_.start();
        } else if (dynamic_cast<XEmbedTrayIcon*>(backend_.get())) {
            mlog.info(QStringLiteral("status item shown in the system tray"));
        }
    }

    QDBusConnection bus_;
    StatusItemState state_;
    std::unique_ptr<StatusItemBackend> backend_;
    QTimer trayPoll_;
};

class DesktopStatusBar final : public StatusBar {
public:
    std::unique_ptr<StatusItem> makeStatusItem() override {
        return std::make_unique<TrayStatusItem>();
    }
};

}  // namespace

StatusBar& StatusBar::real() {
    static DesktopStatusBar bar;
    return bar;
}

}  // namespace platform
