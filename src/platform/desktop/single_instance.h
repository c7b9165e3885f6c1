#pragma once

#include <functional>

namespace platform {

/// Makes this process the one running instance of the application in the desktop session: it
/// takes the bus name "com.norva.vaskel" and answers org.freedesktop.Application.Activate on
/// /com/norva/vaskel by calling `onActivate` (main thread). When another instance holds the
/// name, asks that one to activate and gives false: this process should end. Without a session
/// bus there is nothing to guard with, and it gives true.
bool becomePrimaryInstance(std::function<void()> onActivate);

}  // namespace platform
