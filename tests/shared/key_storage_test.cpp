#include "shared/key_storage.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonDocument>

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

    void writeConfigText(const QByteArray& text) {
        QDir().mkpath(platform.home.dir + "/.vaskel");
        QFile file(Shared::configPath());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
    }
    QByteArray configText() {
        QFile file(Shared::configPath());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    void putKeychainKey(const QString& key) {
        keychain.insert({KeychainStore::service, KeychainStore::accessGroup, "a@example.com",
                         KeychainStore::label, key.toUtf8()});
    }
    void createMarker() {
        QFile marker(Shared::keychainMarkerPath());
        ASSERT_TRUE(marker.open(QIODevice::WriteOnly));
    }
    QJsonValue fileKey() { return Shared::readConfig().value("api_key"); }
};

TEST_F(KeyStorageTest, StoredKeyPrefersTheKeychainThenANonEmptyFileString) {
    const struct {
        const char* name;
        std::optional<QByteArray> keychainSecret;
        std::optional<platform::OSStatus> keychainRefuses;
        QByteArray config;  // empty: no file
        std::optional<QString> expected;
    } cases[] = {
        {"keychain wins over file",
         "from-keychain",
         {},
         R"({"api_key":"from-file"})",
         "from-keychain"},
        {"keychain only", "from-keychain", {}, "", "from-keychain"},
        {"file only", {}, {}, R"({"api_key":"from-file"})", "from-file"},
        {"signed out", {}, {}, R"({"api_key":""})", std::nullopt},
        {"no file", {}, {}, "", std::nullopt},
        {"key is a number", {}, {}, R"({"api_key":12345})", std::nullopt},
        {"key is null", {}, {}, R"({"api_key":null})", std::nullopt},
        {"damaged file", {}, {}, R"({"api_key":"x)", std::nullopt},
        {"locked keychain", "from-keychain", status::INTERACTION_NOT_ALLOWED,
         R"({"api_key":"from-file"})", "from-file"},
        {"no keychain", {}, status::NOT_AVAILABLE, R"({"api_key":"from-file"})", "from-file"},
        {"keychain secret not UTF-8",
         QByteArray("\xff\xfe", 2),
         {},
         R"({"api_key":"from-file"})",
         "from-file"},
        {"keychain secret empty", QByteArray(""), {}, R"({"api_key":"from-file"})", "from-file"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        KeychainStore::deleteKey();
        QFile::remove(Shared::configPath());
        keychain.refuseCopy(c.keychainRefuses);
        if (c.keychainSecret) {
            keychain.insert({KeychainStore::service, KeychainStore::accessGroup, "a",
                             KeychainStore::label, *c.keychainSecret});
        }
        if (!c.config.isEmpty()) writeConfigText(c.config);
        EXPECT_EQ(Shared::storedKey(), c.expected);
    }
}

TEST_F(KeyStorageTest, StoreKeyKeepsNoFileCopyWhenTheOtherComponentsReadTheKeychain) {
    Shared::storeKey(SECRET, "a@example.com");

    ASSERT_EQ(keychain.items().size(), 1u);
    EXPECT_EQ(keychain.items()[0].account, "a@example.com");
    EXPECT_EQ(fileKey(), QJsonValue(""));
    EXPECT_EQ(Shared::storedKey(), SECRET);
    EXPECT_EQ(platform.log.messages(), QStringList{"set api_key"});
}

TEST_F(KeyStorageTest, StoreKeyKeepsAFileCopyWhenTheOtherComponentsCannotReadTheKeychain) {
    keychain.setReadableAcrossSession(false);
    Shared::storeKey(SECRET, "a@example.com");

    EXPECT_EQ(keychain.items().size(), 1u);
    EXPECT_EQ(fileKey(), QJsonValue(SECRET));
}

TEST_F(KeyStorageTest, RefusedKeyIsLoggedWithTheReasonAndKeptInTheFile) {
    for (platform::OSStatus refusal :
         {status::INTERACTION_NOT_ALLOWED, status::NOT_AVAILABLE, platform::OSStatus(-99)}) {
        SCOPED_TRACE(refusal);
        platform.log.clear();
        keychain.refuseAdd(refusal);
        Shared::storeKey(SECRET, "a@example.com");

        EXPECT_TRUE(keychain.items().empty());
        EXPECT_EQ(fileKey(), QJsonValue(SECRET));
        EXPECT_EQ(Shared::storedKey(), SECRET);
        const auto lines = platform.log.lines();
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_EQ(lines[0].level, platform::LogLevel::error);
        EXPECT_EQ(lines[0].message, "keychain refused the key (" +
                                        KeychainStore::describe(refusal) +
                                        "); keeping it in config");
        EXPECT_EQ(lines[1].message, "set api_key");
    }
}

// Migration, one row per state the key can be in at start-up.
TEST_F(KeyStorageTest, MigrationMovesOrClearsTheFileCopyByState) {
    const struct {
        const char* name;
        bool keychainHasKey;
        bool marker;
        bool othersReadKeychain;
        std::optional<platform::OSStatus> addRefused;
        QByteArray config;
        // Expected afterwards:
        QJsonValue fileKey;
        std::optional<QString> keychainAccount;  // none: no item
        QStringList log;
    } cases[] = {
        {"signed out", false, false, true, {}, R"({"api_key":""})", QJsonValue(""), {}, {}},
        {"no file at all", false, true, true, {}, "", QJsonValue(QJsonValue::Undefined), {}, {}},
        {"file key is a number", false, false, true, {}, R"({"api_key":5})", QJsonValue(5), {}, {}},
        {"file key, no account",
         false,
         false,
         true,
         {},
         R"({"api_key":"secret-key-7f3a"})",
         QJsonValue(SECRET),
         "vaskel",
         {"moved account key to the keychain: ok"}},
        {"file key with account",
         false,
         true,
         true,
         {},
         R"({"account_email":"a@example.com","api_key":"secret-key-7f3a"})",
         QJsonValue(SECRET),
         "a@example.com",
         {"moved account key to the keychain: ok"}},
        {"account not a string",
         false,
         false,
         true,
         {},
         R"({"account_email":7,"api_key":"secret-key-7f3a"})",
         QJsonValue(SECRET),
         "vaskel",
         {"moved account key to the keychain: ok"}},
        {"keychain refuses",
         false,
         false,
         true,
         status::INTERACTION_NOT_ALLOWED,
         R"({"api_key":"secret-key-7f3a"})",
         QJsonValue(SECRET),
         {},
         {"moved account key to the keychain: " +
          KeychainStore::describe(status::INTERACTION_NOT_ALLOWED)}},
        {"both, marker, others read keychain",
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
        {"both, marker, others cannot read keychain",
         true,
         true,
         false,
         {},
         R"({"api_key":"secret-key-7f3a"})",
         QJsonValue(SECRET),
         "a@example.com",
         {}},
        {"keychain only, marker",
         true,
         true,
         true,
         {},
         R"({"api_key":""})",
         QJsonValue(""),
         "a@example.com",
         {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        KeychainStore::deleteKey();
        QFile::remove(Shared::configPath());
        QFile::remove(Shared::keychainMarkerPath());
        platform.log.clear();
        keychain.refuseAdd(c.addRefused);
        keychain.setReadableAcrossSession(c.othersReadKeychain);
        if (c.keychainHasKey) putKeychainKey(SECRET);
        if (!c.config.isEmpty()) writeConfigText(c.config);
        if (c.marker) createMarker();
        const QByteArray before = configText();

        Shared::migrateKeyToKeychain();

        EXPECT_EQ(fileKey(), c.fileKey);
        if (c.log.isEmpty() || c.log.front() != "set api_key") {
            EXPECT_EQ(configText(), before) << "the file must stay byte for byte";
        }
        const auto items = keychain.items();
        ASSERT_EQ(items.size(), c.keychainAccount ? 1u : 0u);
        if (c.keychainAccount) {
            EXPECT_EQ(items[0].account, *c.keychainAccount);
            EXPECT_EQ(items[0].secret, SECRET.toUtf8());
        }
        EXPECT_EQ(platform.log.messages(), c.log);
        EXPECT_EQ(QFile::exists(Shared::keychainMarkerPath()), c.marker)
            << "the marker is never created or removed here";
    }
}

// The key's whole life: a sign-in the keychain refuses, two starts, the marker, sign-out.
TEST_F(KeyStorageTest, KeyMovesIntoTheKeychainOverSuccessiveStarts) {
    Shared::setConfig("account_email", "a@example.com");
    keychain.refuseAdd(status::NOT_AVAILABLE);
    Shared::storeKey(SECRET, "a@example.com");
    EXPECT_EQ(fileKey(), QJsonValue(SECRET));

    keychain.refuseAdd(std::nullopt);
    Shared::migrateKeyToKeychain();  // first start with a working keychain: copied, file kept
    EXPECT_EQ(KeychainStore::readKey(), SECRET);
    EXPECT_EQ(fileKey(), QJsonValue(SECRET));
    Shared::migrateKeyToKeychain();  // no marker yet: nothing changes
    EXPECT_EQ(fileKey(), QJsonValue(SECRET));

    createMarker();
    Shared::migrateKeyToKeychain();
    EXPECT_EQ(fileKey(), QJsonValue(""));
    EXPECT_EQ(Shared::storedKey(), SECRET);

    // Sign-out as the setup window does it.
    KeychainStore::deleteKey();
    QFile::remove(Shared::keychainMarkerPath());
    Shared::setConfig("api_key", "");
    EXPECT_EQ(Shared::storedKey(), std::nullopt);
    Shared::migrateKeyToKeychain();
    EXPECT_TRUE(keychain.items().empty());
}

}  // namespace
