#pragma once

#include <functional>

/// How long `providerResponds` waits when the caller names no time-out, in seconds.
inline constexpr double PROVIDER_RESPONDS_DEFAULT_TIMEOUT = 6;

/// Decides whether the sync extension answers: true when listing the registered domain's folder
/// returns (with entries or with an error) within `timeout` seconds of the folder being known;
/// false at once when there is no domain, manager or folder, and false at the deadline when the
/// listing has not returned (the listing is left to finish on its own). Non-finite or negative
/// time-outs count as 0. The completion runs exactly once, never on the main thread.
void providerResponds(double timeout, std::function<void(bool)> completion);

/// `providerResponds` with the default time-out of 6 seconds.
inline void providerResponds(std::function<void(bool)> completion) {
    providerResponds(PROVIDER_RESPONDS_DEFAULT_TIMEOUT, std::move(completion));
}
