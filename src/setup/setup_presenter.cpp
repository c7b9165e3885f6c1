#include "setup/setup_presenter.h"

#include "setup/setup_window_controller.h"

namespace {

class SetupWindowPresenter final : public SetupPresenter {
public:
    void present(SetupCallbacks callbacks) override {
        SetupWindowController::present(
            std::move(callbacks.onDismiss), std::move(callbacks.onConnected),
            std::move(callbacks.onSignedOut), std::move(callbacks.onOpenFolder));
    }
};

}  // namespace

SetupPresenter& SetupPresenter::real() {
    static SetupWindowPresenter presenter;
    return presenter;
}
