#pragma once

#include <QLatin1String>
#include <QString>
#include <optional>

#include "platform/keychain_status.h"

// The keychain item that holds the account key: one generic password, found by service and
// access group whatever its account, so that at most one exists. Every call is synchronous and
// may be made from any thread.
namespace KeychainStore {

using platform::OSStatus;

/// The item's service attribute.
inline constexpr QLatin1String service{"com.norva.vaskel.api-key"};
/// The item's access group: the app group of the product, shared with its other components.
inline constexpr QLatin1String accessGroup{"group.com.norva.vaskel"};
/// The label keyring managers show for the item.
inline constexpr QLatin1String label{"Vaskel account key"};

/// The stored key; none when there is no item, the keychain cannot be read or is locked, the
/// stored secret is empty or not UTF-8, or the item is stale (see `staleItemMarkerPath`). Reading
/// a stale item deletes it when the keychain lets it.
std::optional<QString> readKey();

/// Replaces the item with one holding `key` (as UTF-8) under `account`: deletes any item first
/// (whatever the outcome), then adds the new one. Returns the status of the add; 0 is success.
/// When neither the delete nor the add got through, the old item is stale from now on.
OSStatus saveKey(const QString& key, const QString& account);

/// Deletes the item. Nothing is reported; an item that the keychain kept (a locked keyring, a
/// service that is away) is stale from now on.
void deleteKey();

/// `home()` + "/.vaskel/keychain_stale": present while the keychain may still hold an item that
/// was replaced or removed when it could not be deleted (a locked keyring, a service that did not
/// answer). While it exists no item is read, and the next call that manages to delete the item
/// removes it, so the key the user last stored or removed wins once the keychain is back.
QString staleItemMarkerPath();

/// A readable message for a status: ours where we know the status, else "OSStatus " followed by
/// the number in decimal.
QString describe(OSStatus status);

}  // namespace KeychainStore
