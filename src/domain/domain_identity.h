#pragma once

#include <QString>

#include "platform/file_provider/file_provider.h"

/// The identifier of the one sync domain this program registers.
inline constexpr const char* DOMAIN_ID = "com.norva.vaskel.domain";

/// The domain's display name, read afresh from the configuration on every call: the account's
/// e-mail address (`account_email`) when it is a non-empty text, else "Vaskel".
QString DOMAIN_NAME();

/// A fresh domain value with `DOMAIN_ID` and the current `DOMAIN_NAME()`.
platform::FileProviderDomain makeDomain();
