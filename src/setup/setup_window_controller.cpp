#include "setup/setup_window_controller.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>

#include "platform/desktop/presentation.h"
#include "platform/log.h"
#include "setup/setup_view.h"
#include "setup/setup_view_widget.h"

namespace {

// The live controller. It owns itself: `close()` schedules its deletion; a window still open
// when the process ends is left to the operating system.
SetupWindowController* liveController = nullptr;

constexpr int WINDOW_WIDTH = 460;
constexpr int WINDOW_HEIGHT = 320;

void bringToFront(QWidget* window) {
    platform::Presentation::shared().activate();
    window->show();
    window->raise();
    window->activateWindow();
}

// Centres `window` on the screen under the pointer, else on the primary screen.
void centre(QWidget* window) {
    QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen) screen = QGuiApplication::primaryScreen();
    if (!screen) return;
    QRect frame(QPoint(0, 0), window->size());
    frame.moveCenter(screen->availableGeometry().center());
    window->move(frame.topLeft());
}

}  // namespace

void SetupWindowController::present(std::function<void()> onDismiss,
                                    std::function<void()> onConnected,
                                    std::function<void()> onSignedOut,
                                    std::function<void()> onOpenFolder) {
    if (liveController && liveController->window_) {
        bringToFront(liveController->window_);
        return;
    }

    auto* controller = new SetupWindowController;
    // The view's close buttons reach the controller without keeping it alive.
    const QPointer<SetupWindowController> holder(controller);
    auto* view = new SetupView(std::move(onConnected), std::move(onSignedOut),
                               std::move(onOpenFolder), [holder] {
                                   if (holder) holder->close();
                               });
    auto* window = new SetupViewWidget(view);
    window->setWindowTitle(QStringLiteral("Vaskel"));
    window->setWindowFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                           Qt::WindowCloseButtonHint);
    window->setAttribute(Qt::WA_DeleteOnClose, false);
    window->setFixedSize(WINDOW_WIDTH, WINDOW_HEIGHT);
    centre(window);

    controller->window_ = window;
    controller->onDismiss_ = std::move(onDismiss);
    liveController = controller;

    bringToFront(window);
    mlog.info(QStringLiteral("setup window shown"));
}

SetupWindowController* SetupWindowController::shared() {
    return liveController;
}

void SetupWindowController::close() {
    if (window_) window_->close();
    if (onDismiss_) onDismiss_();
    if (liveController == this) liveController = nullptr;
    deleteLater();
}

SetupWindowController::~SetupWindowController() {
    // Runs from the event loop (see close()), never inside a handler of the window.
    delete window_;
}
