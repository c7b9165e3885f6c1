#include "platform/keychain_status.h"

namespace platform {

std::optional<QString> keychainStatusMessage(OSStatus status) {
    using namespace keychain_status;
    switch (status) {
        case SUCCESS:
            return QStringLiteral("No error.");
        case UNIMPLEMENTED:
            return QStringLiteral("The keychain does not support this operation.");
        case PARAM:
            return QStringLiteral("The keychain did not accept the item's attributes.");
        case USER_CANCELED:
            return QStringLiteral("The keychain operation was cancelled.");
        case NOT_AVAILABLE:
            return QStringLiteral(
                "No keychain is available: no Secret Service answered on the session bus.");
        case AUTH_FAILED:
            return QStringLiteral("The keychain refused access to the item.");
        case DUPLICATE_ITEM:
            return QStringLiteral("The item already exists in the keychain.");
        case ITEM_NOT_FOUND:
            return QStringLiteral("The item could not be found in the keychain.");
        case NO_DEFAULT_KEYCHAIN:
            return QStringLiteral("The keychain has no default collection to store the item in.");
        case INTERACTION_NOT_ALLOWED:
            return QStringLiteral(
                "The keychain is locked and cannot be unlocked without the user.");
        case DECODE:
            return QStringLiteral("The keychain's answer could not be decoded.");
        default:
            return std::nullopt;
    }
}

}  // namespace platform
