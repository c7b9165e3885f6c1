#pragma once

#include <QObject>
#include <QPointer>
#include <QWidget>
#include <functional>

/// Owns the one setup window of the application: a fixed 460 × 320 window titled "Vaskel"
/// whose whole content is a SetupView. Main thread only.
///
/// The window lives from `present` to `close`. Its title-bar button only hides it: presenting
/// again shows the same window with its state (a half-typed form, the account summary). The
/// footer's "Done" and "Skip for Now" call `close`, after which the next `present` builds a
/// fresh window whose view starts over.
class SetupWindowController final : public QObject {
    Q_OBJECT
public:
    /// Shows the setup window. When there is none, creates it with these callbacks, centred on
    /// the screen, and logs "setup window shown"; the view's `onConnected`, `onSignedOut` and
    /// `onOpenFolder` are the ones given, and its close buttons call `close()`. When there is
    /// one, brings it to the front and discards the callbacks given: the window keeps those of
    /// the call that created it. Empty callbacks are not called.
    static void present(std::function<void()> onDismiss, std::function<void()> onConnected,
                        std::function<void()> onSignedOut, std::function<void()> onOpenFolder);

    /// The live controller, none when no window exists (read by tests).
    static SetupWindowController* shared();

    /// Closes the window, calls `onDismiss` and forgets this controller, so that the next
    /// `present` creates a new window. The window and this controller are deleted once control
    /// returns to the event loop (this is called from a button of the window).
    void close();

    /// The window; none once it has been deleted.
    QWidget* window() const { return window_; }

private:
    SetupWindowController() = default;
    ~SetupWindowController() override;

    std::function<void()> onDismiss_;
    QPointer<QWidget> window_;
};
