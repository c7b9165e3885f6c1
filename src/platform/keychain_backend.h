#pragma once

#include <QByteArray>
#include <QString>

#include "platform/keychain_status.h"

namespace platform {

/// The attributes that find an item: an item matches when it carries both values.
struct KeychainQuery {
    QString service;
    QString accessGroup;
};

/// A generic-password item as it is stored.
struct KeychainItem {
    QString service;
    QString accessGroup;
    QString account;
    QString label;
    QByteArray secret;
};

/// The user's keychain: generic-password items found by service and access group. Every call is
/// synchronous, may be made from any thread, and returns within a bounded time: an unreachable,
/// silent or locked keychain gives a failure status, never a prompt or a hang. A keychain that
/// once made a call wait out that bound is not waited for again while it stays the same.
class KeychainBackend {
public:
    virtual ~KeychainBackend() = default;

    struct Lookup {
        OSStatus status = keychain_status::ITEM_NOT_FOUND;
        /// The secret of the first matching item when `status` is success.
        QByteArray secret;
    };

    /// The secret of one item matching `query`. ITEM_NOT_FOUND when there is none,
    /// INTERACTION_NOT_ALLOWED when the only matches are locked.
    virtual Lookup copyMatching(const KeychainQuery& query) = 0;

    /// Stores a new item next to any existing ones.
    virtual OSStatus add(const KeychainItem& item) = 0;

    /// Deletes every item matching `query`; ITEM_NOT_FOUND when there was none.
    virtual OSStatus deleteMatching(const KeychainQuery& query) = 0;

    /// Whether every process of the user's session (the product's other components included)
    /// can read the items this keychain holds.
    virtual bool readableAcrossSession() const = 0;

    /// The Secret Service of the session bus (libsecret).
    static KeychainBackend& real();
};

}  // namespace platform
