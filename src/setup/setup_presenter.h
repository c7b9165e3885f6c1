#pragma once

#include <functional>

/// What the setup window reports back to whoever opened it. Each callback runs on the main
/// thread, takes nothing and returns nothing; an empty one is not called.
struct SetupCallbacks {
    std::function<void()> onDismiss;     // "Done" or "Skip for Now" closed the window
    std::function<void()> onConnected;   // a sign-in stored its key and server
    std::function<void()> onSignedOut;   // a confirmed sign-out forgot the key
    std::function<void()> onOpenFolder;  // the enable step asks to open the synced folder
};

/// How the tray agent shows the setup window; tests put a recorder in place.
class SetupPresenter {
public:
    virtual ~SetupPresenter() = default;

    /// Shows the one setup window, creating it when there is none (with these callbacks) and
    /// bringing the existing one to the front otherwise (its callbacks stay those of the call
    /// that created it).
    virtual void present(SetupCallbacks callbacks) = 0;

    /// The real one: SetupWindowController::present.
    static SetupPresenter& real();
};
