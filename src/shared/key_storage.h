#pragma once

#include <QString>
#include <optional>

// Where the account key is kept: in the keychain item (KeychainStore) and, while another
// component of the product cannot read the keychain or the keychain refused the key, also under
// `api_key` in the configuration file. Every user of the key looks it up through `storedKey`.
// No line logged here ever carries the key.
namespace Shared {

/// The account key: the keychain's when it holds one, else a non-empty string `api_key` of the
/// configuration, else none. The keychain always wins over the file.
std::optional<QString> storedKey();

/// Keeps the key of a fresh sign-in: saves it to the keychain under `account`; when the keychain
/// refuses, logs why and keeps the key in the configuration file instead. When the keychain takes
/// it, the file copy is cleared if the other components read the keychain, else kept.
void storeKey(const QString& key, const QString& account);

/// Moves a key found only in the configuration file into the keychain (under `account_email`,
/// else "vaskel"), leaving the file copy for this run. Once the keychain holds a key, the
/// "keychain_ok" marker exists and the other components read the keychain, clears the file copy.
/// Called once at each start of the agent.
void migrateKeyToKeychain();

/// Whether the product's action-UI extension can read the keychain item, so that the key need
/// not be kept in the configuration file for it. On Linux every process of the user's session
/// can read an unlocked Secret Service item, so this is true wherever the keychain is the Secret
/// Service. Computed on every use.
bool actionUIReadsKeychain();

/// `home()` + "/.vaskel/keychain_ok": the marker that another component of the product writes
/// once it reads the key from the keychain. This program only tests for it and deletes it at
/// sign-out.
QString keychainMarkerPath();

}  // namespace Shared
