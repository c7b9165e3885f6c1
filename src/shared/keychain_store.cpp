#include "shared/keychain_store.h"

#include <unistd.h>

#include <QFile>
#include <QStringDecoder>

#include "platform/files.h"
#include "platform/keychain_backend.h"
#include "platform/log.h"
#include "platform/seam.h"
#include "shared/config.h"

namespace KeychainStore {
namespace {

platform::KeychainQuery base() {
    return {service, accessGroup};
}

platform::KeychainBackend& keychain() {
    return platform::current<platform::KeychainBackend>();
}

using platform::keychain_status::ITEM_NOT_FOUND;
using platform::keychain_status::SUCCESS;

// A keychain that is locked (or away) when the key is replaced or removed keeps the old item, and
// unlocking it later would bring back a key that the user gave up. The marker remembers that
// the item in the keychain is void until a deletion gets through.
void noteDeletion(OSStatus status) {
    const QString marker = staleItemMarkerPath();
    if (status == SUCCESS || status == ITEM_NOT_FOUND) {
        if (platform::pathExists(marker)) ::unlink(QFile::encodeName(marker).constData());
        return;
    }
    if (platform::pathExists(marker)) return;
    const QString folder = marker.left(marker.lastIndexOf(QLatin1Char('/')));
    const std::optional<QString> error = platform::makeDirectories(folder, 0700);
    if (!error) {
        if (const auto failed = platform::writeFileAtomically(marker, QByteArray(), 0600)) {
            mlog.error(QStringLiteral("could not note the stale keychain item: %1").arg(*failed));
        }
    } else {
        mlog.error(QStringLiteral("could not note the stale keychain item: %1").arg(*error));
    }
}

}  // namespace

QString staleItemMarkerPath() {
    return Shared::home() + QStringLiteral("/.vaskel/keychain_stale");
}

std::optional<QString> readKey() {
    if (platform::pathExists(staleItemMarkerPath())) {
        // Finish the deletion that the keychain refused earlier; until then there is no key.
        noteDeletion(keychain().deleteMatching(base()));
        return std::nullopt;
    }
    const platform::KeychainBackend::Lookup found = keychain().copyMatching(base());
    if (found.status != platform::keychain_status::SUCCESS) return std::nullopt;
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString key = decoder.decode(found.secret);
    if (decoder.hasError() || key.isEmpty()) return std::nullopt;
    return key;
}

OSStatus saveKey(const QString& key, const QString& account) {
    const OSStatus deleted = keychain().deleteMatching(base());
    const OSStatus added = keychain().add({service, accessGroup, account, label, key.toUtf8()});
    // A new item outranks any older one left behind, which is read only when no newer exists.
    noteDeletion(added == SUCCESS ? SUCCESS : deleted);
    return added;
}

void deleteKey() {
    noteDeletion(keychain().deleteMatching(base()));
}

QString describe(OSStatus status) {
    if (std::optional<QString> message = platform::keychainStatusMessage(status)) return *message;
    return QStringLiteral("OSStatus %1").arg(status);
}

}  // namespace KeychainStore
