#pragma once

#include <QByteArray>
#include <utility>
#include <vector>

/// Headers of the server's requests.
namespace request_headers {

using Headers = std::vector<std::pair<QByteArray, QByteArray>>;

/// "User-Agent" and "X-Vaskel-Client" of sign-in and sign-out.
Headers signInIdentity();

/// "User-Agent" and "X-Vaskel-Client" of the account-status request.
Headers accountStatusIdentity();

}  // namespace request_headers
