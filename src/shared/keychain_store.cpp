#include "shared/keychain_store.h"

#include <QStringDecoder>

#include "platform/keychain_backend.h"
#include "platform/seam.h"

namespace KeychainStore {
namespace {

platform::KeychainQuery base() {
    return {service, accessGroup};
}

platform::KeychainBackend& keychain() {
    return platform::current<platform::KeychainBackend>();
}

}  // namespace

std::optional<QString> readKey() {
    const platform::KeychainBackend::Lookup found = keychain().copyMatching(base());
    if (found.status != platform::keychain_status::SUCCESS) return std::nullopt;
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString key = decoder.decode(found.secret);
    if (decoder.hasError() || key.isEmpty()) return std::nullopt;
    return key;
}

OSStatus saveKey(const QString& key, const QString& account) {
    (void)keychain().deleteMatching(base());
    return keychain().add({service, accessGroup, account, label, key.toUtf8()});
}

void deleteKey() {
    (void)keychain().deleteMatching(base());
}

QString describe(OSStatus status) {
    if (std::optional<QString> message = platform::keychainStatusMessage(status)) return *message;
    return QStringLiteral("OSStatus %1").arg(status);
}

}  // namespace KeychainStore
