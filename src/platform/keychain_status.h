#pragma once

#include <QString>
#include <cstdint>
#include <optional>

// Result codes of keychain operations. The program and its sync extension share one set of
// numbers for keychain outcomes, so the codes keep the values that the other desktop platforms
// of the product use; each carries a message of our own.
namespace platform {

/// A keychain result code: 0 is success, anything else a failure.
using OSStatus = std::int32_t;

namespace keychain_status {

inline constexpr OSStatus SUCCESS = 0;
/// The keychain was asked for something it does not do.
inline constexpr OSStatus UNIMPLEMENTED = -4;
/// A parameter was not acceptable (for example an attribute the keychain cannot store).
inline constexpr OSStatus PARAM = -50;
/// The operation was cancelled.
inline constexpr OSStatus USER_CANCELED = -128;
/// No keychain answered: no session bus, no Secret Service on it, or it did not answer in time.
inline constexpr OSStatus NOT_AVAILABLE = -25291;
/// The keychain refused the caller's credentials.
inline constexpr OSStatus AUTH_FAILED = -25293;
/// An item with these attributes exists already.
inline constexpr OSStatus DUPLICATE_ITEM = -25299;
/// No item matches.
inline constexpr OSStatus ITEM_NOT_FOUND = -25300;
/// The keychain has no default collection to store new items in.
inline constexpr OSStatus NO_DEFAULT_KEYCHAIN = -25307;
/// The item or collection is locked and unlocking it would need the user.
inline constexpr OSStatus INTERACTION_NOT_ALLOWED = -25308;
/// The keychain's answer could not be understood.
inline constexpr OSStatus DECODE = -26275;

}  // namespace keychain_status

/// Our message for a keychain result code; none for a code we do not know.
std::optional<QString> keychainStatusMessage(OSStatus status);

}  // namespace platform
