#include "shared/key_storage.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <functional>

#include "shared/config.h"
#include "shared/keychain_store.h"
#include "support/fake_platform.h"
#include "support/test_files.h"

using testing_support::writeFile;

namespace {

namespace status = platform::keychain_status;

const QString SECRET = QStringLiteral("secret-key-7f3a");
const QByteArray FILE_KEY = R"({"api_key":"secret-key-7f3a"})";
const QByteArray WITH_ACCOUNT = R"({"account_email":"a@example.com","api_key":"secret-key-7f3a"})";
const QString ME = QStringLiteral("a@example.com");
constexpr platform::OSStatus LOCKED = status::INTERACTION_NOT_ALLOWED;

class KeyStorageTest : public ::testing::Test {
protected:
    testing_support::FakePlatform platform;
    testing_support::FakeKeychain& keychain = platform.keychain;

    void TearDown() override {
        for (const QString& line : platform.log.messages())
            EXPECT_FALSE(line.contains(SECRET)) << "logged the key: " << line.toStdString();
    }

    // Starts a row from `config`, no item, no marker, no log and a keychain that works.
    void reset(const QByteArray& config) {
        KeychainStore::deleteKey();
        QFile::remove(Shared::keychainMarkerPath());
        platform.log.clear();
        keychain.refuseCopy(std::nullopt);
        keychain.refuseAdd(std::nullopt);
        keychain.setReadableAcrossSession(true);
        writeFile(Shared::configPath(), config);
    }
    QJsonValue fileKey() { return Shared::readConfig().value("api_key"); }
};

TEST_F(KeyStorageTest, StoredKeyPrefersTheKeychainThenANonEmptyFileString) {
    reset(R"({"api_key":"from-file"})");
    EXPECT_EQ(Shared::storedKey(), "from-file");
    KeychainStore::saveKey("from-keychain", ME);
    EXPECT_EQ(Shared::storedKey(), "from-keychain");
    keychain.refuseCopy(LOCKED);
    EXPECT_EQ(Shared::storedKey(), "from-file");
    reset(R"({"api_key":""})");
    EXPECT_EQ(Shared::storedKey(), std::nullopt) << "signed out";
}

TEST_F(KeyStorageTest, KeyStoredOrRemovedWhileTheKeychainIsLockedWinsAfterUnlocking) {
    const struct {
        const char* name;
        std::function<void()> change;  // what the user does while the keyring is locked
        std::optional<QString> expected;
    } cases[] = {
        {"sign-in", [] { Shared::storeKey(SECRET, ME); }, SECRET},
        {"sign-out",
         [] {
             KeychainStore::deleteKey();
             Shared::setConfig("api_key", "");
         },
         std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        reset(R"({"server":"https://x"})");
        Shared::storeKey("given-up-key", ME);
        keychain.refuseAll(LOCKED);
        c.change();
        EXPECT_EQ(Shared::storedKey(), c.expected) << "locked";

        keychain.refuseCopy(std::nullopt);
        keychain.refuseAdd(std::nullopt);
        keychain.refuseDelete(std::nullopt);
        EXPECT_EQ(Shared::storedKey(), c.expected) << "unlocked";
        Shared::migrateKeyToKeychain();  // the next start
        EXPECT_EQ(Shared::storedKey(), c.expected) << "next start";
        for (const auto& item : keychain.items()) EXPECT_NE(item.secret, "given-up-key");
    }
}

TEST_F(KeyStorageTest, StoreKeyKeepsAFileCopyOnlyWhereTheKeychainCannotServe) {
    const QString refused =
        "keychain refused the key (" + KeychainStore::describe(LOCKED) + "); keeping it in config";
    const struct {
        const char* name;
        std::optional<platform::OSStatus> addRefused;
        bool othersReadKeychain;
        QString fileKey;
        QStringList log;
    } cases[] = {
        {"keychain for all", {}, true, "", {"set api_key"}},
        {"keychain not for all", {}, false, SECRET, {"set api_key"}},
        {"keychain refuses", LOCKED, true, SECRET, {refused, "set api_key"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        reset(R"({"server":"https://x"})");
        keychain.refuseAdd(c.addRefused);
        keychain.setReadableAcrossSession(c.othersReadKeychain);
        Shared::storeKey(SECRET, ME);

        EXPECT_EQ(fileKey(), QJsonValue(c.fileKey));
        EXPECT_EQ(platform.log.messages(), c.log);
        EXPECT_EQ(keychain.items().size(), c.addRefused ? 0u : 1u);
        EXPECT_EQ(Shared::storedKey(), SECRET);
    }
    EXPECT_EQ(platform.log.lines().front().level, platform::LogLevel::error);
}

// One row per state the key can be in when the agent starts.
TEST_F(KeyStorageTest, MigrationMovesOrClearsTheFileCopyByState) {
    const QString moved = "moved account key to the keychain: ok";
    const QString refused = "moved account key to the keychain: " + KeychainStore::describe(LOCKED);
    const QString cleared = "removed the config.json copy of the account key";
    const struct {
        const char* name;
        bool inKeychain, marker, othersReadKeychain;
        std::optional<platform::OSStatus> addRefused;
        QByteArray config;
        bool fileCopyCleared;
        std::optional<QString> itemAccount;  // none: no item afterwards
        QStringList log;
    } cases[] = {
        {"signed out", false, false, true, {}, R"({"api_key":""})", false, {}, {}},
        {"file key, no account", false, false, true, {}, FILE_KEY, false, "vaskel", {moved}},
        {"file key with account", false, true, true, {}, WITH_ACCOUNT, false, ME, {moved}},
        {"keychain refuses", false, false, true, LOCKED, FILE_KEY, false, {}, {refused}},
        {"both, marker", true, true, true, {}, FILE_KEY, true, ME, {"set api_key", cleared}},
        {"both, no marker", true, false, true, {}, FILE_KEY, false, ME, {}},
        {"both, marker, keychain not for all", true, true, false, {}, FILE_KEY, false, ME, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        reset(c.config);
        if (c.inKeychain) KeychainStore::saveKey(SECRET, ME);
        keychain.refuseAdd(c.addRefused);
        keychain.setReadableAcrossSession(c.othersReadKeychain);
        if (c.marker) writeFile(Shared::keychainMarkerPath(), "");

        Shared::migrateKeyToKeychain();

        // The log shows every write of the file.
        if (c.fileCopyCleared) {
            EXPECT_EQ(fileKey(), QJsonValue(""));
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
