#include "shared/key_storage.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>

#include "shared/config.h"
#include "shared/keychain_store.h"
#include "support/fake_platform.h"

namespace {

namespace status = platform::keychain_status;

const QString SECRET = QStringLiteral("secret-key-7f3a");

class KeyStorageTest : public ::testing::Test {
protected:
    testing_support::FakePlatform platform;
    testing_support::FakeKeychain& keychain = platform.keychain;

    void TearDown() override {
        for (const QString& line : platform.log.messages())
            EXPECT_FALSE(line.contains(SECRET)) << "logged the key: " << line.toStdString();
    }

    // Starts a row from nothing: no item, no file, no marker, no log, a keychain that works.
    void reset() {
        KeychainStore::deleteKey();
        QFile::remove(Shared::configPath());
        QFile::remove(Shared::keychainMarkerPath());
        platform.log.clear();
        keychain.refuseCopy(std::nullopt);
        keychain.refuseAdd(std::nullopt);
        keychain.setReadableAcrossSession(true);
    }
    void writeFile(const QString& path, const QByteArray& text) {
        QDir().mkpath(platform.home.dir + "/.vaskel");
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
    }
    QByteArray configText() {
        QFile file(Shared::configPath());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    void putKeychainSecret(const QByteArray& secret) {
        keychain.insert({KeychainStore::service, KeychainStore::accessGroup, "a@example.com",
                         KeychainStore::label, secret});
    }
    QJsonValue fileKey() { return Shared::readConfig().value("api_key"); }
};

TEST_F(KeyStorageTest, StoredKeyPrefersTheKeychainThenANonEmptyFileString) {
    const struct {
        const char* name;
        std::optional<QByteArray> keychainSecret;
        std::optional<platform::OSStatus> keychainRefuses;
        QByteArray config;
        std::optional<QString> expected;
    } cases[] = {
        {"keychain wins", "from-keychain", {}, R"({"api_key":"from-file"})", "from-keychain"},
        {"file only", {}, {}, R"({"api_key":"from-file"})", "from-file"},
        {"signed out", {}, {}, R"({"api_key":""})", std::nullopt},
        {"key is a number", {}, {}, R"({"api_key":12345})", std::nullopt},
        {"locked keychain", "k", status::INTERACTION_NOT_ALLOWED, R"({"api_key":"from-file"})",
         "from-file"},
        {"unusable keychain secret", "", {}, R"({"api_key":"from-file"})", "from-file"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        reset();
        keychain.refuseCopy(c.keychainRefuses);
        if (c.keychainSecret) putKeychainSecret(*c.keychainSecret);
        writeFile(Shared::configPath(), c.config);
        EXPECT_EQ(Shared::storedKey(), c.expected);
    }
}

TEST_F(KeyStorageTest, StoreKeyKeepsAFileCopyOnlyWhereTheKeychainCannotServe) {
    const QString refused = "keychain refused the key (" +
                            KeychainStore::describe(status::INTERACTION_NOT_ALLOWED) +
                            "); keeping it in config";
    const struct {
        const char* name;
        std::optional<platform::OSStatus> addRefused;
        bool othersReadKeychain;
        QJsonValue fileKey;
        QStringList log;
    } cases[] = {
        {"keychain for all", {}, true, QJsonValue(""), {"set api_key"}},
        {"keychain not for all", {}, false, QJsonValue(SECRET), {"set api_key"}},
        {"keychain refuses",
         status::INTERACTION_NOT_ALLOWED,
         true,
         QJsonValue(SECRET),
         {refused, "set api_key"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        reset();
        keychain.refuseAdd(c.addRefused);
        keychain.setReadableAcrossSession(c.othersReadKeychain);
        Shared::storeKey(SECRET, "a@example.com");

        EXPECT_EQ(fileKey(), c.fileKey);
        EXPECT_EQ(platform.log.messages(), c.log);
        EXPECT_EQ(keychain.items().size(), c.addRefused ? 0u : 1u);
        EXPECT_EQ(Shared::storedKey(), SECRET);
    }
    EXPECT_EQ(platform.log.lines().front().level, platform::LogLevel::error);
}

// One row per state the key can be in when the agent starts.
TEST_F(KeyStorageTest, MigrationMovesOrClearsTheFileCopyByState) {
    const QString moved = "moved account key to the keychain: ";
    const struct {
        const char* name;
        bool keychainHasKey;
        bool marker;
        bool othersReadKeychain;
        std::optional<platform::OSStatus> addRefused;
        QByteArray config;
        QJsonValue fileKeyAfter;
        std::optional<QString> itemAccount;  // none: no item afterwards
        QStringList log;
    } cases[] = {
        {"signed out", false, false, true, {}, R"({"api_key":""})", QJsonValue(""), {}, {}},
        {"file key is a number", false, true, true, {}, R"({"api_key":5})", QJsonValue(5), {}, {}},
        {"file key, no account",
         false,
         false,
         true,
         {},
         R"({"api_key":"secret-key-7f3a"})",
         QJsonValue(SECRET),
         "vaskel",
         {moved + "ok"}},
        {"file key with account",
         false,
         true,
         true,
         {},
         R"({"account_email":"a@example.com","api_key":"secret-key-7f3a"})",
         QJsonValue(SECRET),
         "a@example.com",
         {moved + "ok"}},
        {"keychain refuses",
         false,
         false,
         true,
         status::INTERACTION_NOT_ALLOWED,
         R"({"api_key":"secret-key-7f3a"})",
         QJsonValue(SECRET),
         {},
         {moved + KeychainStore::describe(status::INTERACTION_NOT_ALLOWED)}},
        {"both, marker",
         true,
         true,
         true,
         {},
         R"({"api_key":"secret-key-7f3a"})",
         QJsonValue(""),
         "a@example.com",
         {"set api_key", "removed the config.json copy of the account key"}},
        {"both, no marker",
         true,
         false,
         true,
         {},
         R"({"api_key":"secret-key-7f3a"})",
         QJsonValue(SECRET),
         "a@example.com",
         {}},
        {"both, marker, keychain not for all",
         true,
         true,
         false,
         {},
         R"({"api_key":"secret-key-7f3a"})",
         QJsonValue(SECRET),
         "a@example.com",
         {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        reset();
        keychain.refuseAdd(c.addRefused);
        keychain.setReadableAcrossSession(c.othersReadKeychain);
        if (c.keychainHasKey) putKeychainSecret(SECRET.toUtf8());
        writeFile(Shared::configPath(), c.config);
        if (c.marker) writeFile(Shared::keychainMarkerPath(), "");
        const QByteArray before = configText();

        Shared::migrateKeyToKeychain();

        EXPECT_EQ(fileKey(), c.fileKeyAfter);
        if (c.fileKeyAfter != QJsonValue("")) {
            EXPECT_EQ(configText(), before) << "file rewritten";
        }
        const auto items = keychain.items();
        ASSERT_EQ(items.size(), c.itemAccount ? 1u : 0u);
        if (c.itemAccount) {
            EXPECT_EQ(items[0].account, *c.itemAccount);
            EXPECT_EQ(items[0].secret, SECRET.toUtf8());
        }
        EXPECT_EQ(platform.log.messages(), c.log);
        EXPECT_EQ(QFile::exists(Shared::keychainMarkerPath()), c.marker) << "marker touched";
    }
}

}  // namespace
