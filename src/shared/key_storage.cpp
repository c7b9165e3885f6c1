#include "shared/key_storage.h"

#include <QJsonObject>

#include "platform/files.h"
#include "platform/keychain_backend.h"
#include "platform/log.h"
#include "platform/seam.h"
#include "shared/config.h"
#include "shared/keychain_store.h"

namespace Shared {
namespace {

const QString API_KEY = QStringLiteral("api_key");

}  // namespace

std::optional<QString> storedKey() {
    if (std::optional<QString> key = KeychainStore::readKey()) return key;
    std::optional<QString> fileKey = configString(readConfig(), API_KEY);
    if (fileKey && !fileKey->isEmpty()) return fileKey;
    return std::nullopt;
}

void storeKey(const QString& key, const QString& account) {
    const platform::OSStatus status = KeychainStore::saveKey(key, account);
    if (status != platform::keychain_status::SUCCESS) {
        mlog.error(QStringLiteral("keychain refused the key (%1); keeping it in config")
                       .arg(KeychainStore::describe(status)));
        setConfig(API_KEY, key);
        return;
    }
    setConfig(API_KEY, actionUIReadsKeychain() ? QString() : key);
}

void migrateKeyToKeychain() {
    const QJsonObject config = readConfig();
    const QString fileKey = configString(config, API_KEY).value_or(QString());
    const QString account =
        configString(config, QStringLiteral("account_email")).value_or(QStringLiteral("vaskel"));

    if (KeychainStore::readKey()) {
        if (!fileKey.isEmpty() && platform::pathExists(keychainMarkerPath()) &&
            actionUIReadsKeychain()) {
            setConfig(API_KEY, QString());
            mlog.info(QStringLiteral("removed the config.json copy of the account key"));
        }
        return;
    }
    if (fileKey.isEmpty()) return;
    // The file copy stays in this run whatever the outcome; a later start removes it.
    const platform::OSStatus status = KeychainStore::saveKey(fileKey, account);
    mlog.info(QStringLiteral("moved account key to the keychain: %1")
                  .arg(status == platform::keychain_status::SUCCESS
                           ? QStringLiteral("ok")
                           : KeychainStore::describe(status)));
}

bool actionUIReadsKeychain() {
    return platform::current<platform::KeychainBackend>().readableAcrossSession();
}

QString keychainMarkerPath() {
    return home() + QStringLiteral("/.vaskel/keychain_ok");
}

}  // namespace Shared
