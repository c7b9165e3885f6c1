#pragma once

#include <QString>

#include "platform/application_bundle.h"

/// The platform word that opens the client description.
inline constexpr char CLIENT_PLATFORM[] = "linux";

/// The client description for a build: "linux/" + short version + " (" + build + "); " +
/// executable name. A missing version or build reads "0"; a missing executable name falls back
/// to the product name, then to "Vaskel".
QString clientHeaderFor(const platform::BundleInfo& info);

/// This program's client description, computed from its build facts on first use and never
/// changed afterwards. Sent on every request in "X-Vaskel-Client", so that the server knows the
/// running version when it decides whether to offer an update.
const QString& vaskelClientHeader();
