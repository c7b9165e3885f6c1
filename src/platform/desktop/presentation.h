#pragma once

namespace platform {

/// How the application presents itself: regular while a window or alert of ours is up (it shows
/// in the task switcher), accessory once it lives in the tray only.
enum class ActivationPolicy { regular, accessory };

/// The application's presentation state; main thread only.
class Presentation {
public:
    static Presentation& shared();

    ActivationPolicy activationPolicy() const { return policy_; }
    void setActivationPolicy(ActivationPolicy policy) { policy_ = policy; }

    /// Brings the application's visible windows to the front.
    void activate();

    /// How often `activate` was called (tests observe it).
    int activations() const { return activations_; }

private:
    ActivationPolicy policy_ = ActivationPolicy::regular;
    int activations_ = 0;
};

}  // namespace platform
