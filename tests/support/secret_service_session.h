#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <vector>

#include "platform/keychain_backend.h"

// Helpers for the tests that run against a real Secret Service. Those tests run only inside
// scripts/with-secret-service, which starts a private session bus (and, unless told otherwise, a
// gnome-keyring of its own in a throwaway home) and names the environment it made in
// VASKEL_TEST_SECRET_SERVICE. Outside it they skip, so that no test ever reaches the user's
// own keyring.
namespace testing_support::secret_service {

struct StoredItem {
    QString label;
    QMap<QString, QString> attributes;
    bool locked = false;
    QByteArray secret;  // empty for a locked item
};

/// Every item of the session's Secret Service whose "service" attribute is `service`.
std::vector<StoredItem> itemsWithService(const QString& service);

/// Stores an item with exactly these bytes in the default collection, as another program might
/// have written it. False on failure.
bool storeRawItem(const platform::KeychainItem& item);

/// How many transfer sessions the service holds open, for all clients; -1 when it cannot tell.
int openSessions();

/// Locks the default collection, as the desktop does when the screen locks. False on failure.
bool lockDefaultCollection();

/// A peer that owns the Secret Service's bus name and never answers a call, for its lifetime.
class SilentSecretService {
public:
    SilentSecretService();
    ~SilentSecretService();
    SilentSecretService(const SilentSecretService&) = delete;
    SilentSecretService& operator=(const SilentSecretService&) = delete;

    /// Whether it got the name.
    bool owned() const { return owned_; }

private:
    bool owned_ = false;
};

}  // namespace testing_support::secret_service
