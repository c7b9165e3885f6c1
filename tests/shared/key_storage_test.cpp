#include "shared/key_storage.h"

#include <gtest/gtest.h>

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
    void putOurItem(const QByteArray& secret) {
        keychain.insert({KeychainStore::service, KeychainStore::accessGroup, "someone-else",
                         KeychainStore::label, secret});
    }
    QJsonValue fileKey() { return Shared::readConfig().value("api_key"); }
};

TEST_F(KeyStorageTest, SavingReplacesOurOneItemLeavesOthersAloneAndOutranksTheFile) {
    writeFile(Shared::configPath(), R"({"api_key":"from-file"})");
    keychain.insert({"other.service", KeychainStore::accessGroup, "x", "x", "other-service"});
    keychain.insert({KeychainStore::service, "other.group", "x", "x", "other-group"});
    putOurItem("old");
    const QString key = QStringLiteral("k-\u00e9\u6f22-42");
    ASSERT_EQ(KeychainStore::saveKey(key, "b@example.com"), status::SUCCESS);

    const auto items = keychain.items();
    ASSERT_EQ(items.size(), 3u);
    const platform::KeychainItem& ours = items.back();
    EXPECT_EQ((QStringList{ours.service, ours.accessGroup, ours.account, ours.label}),
              (QStringList{"com.norva.vaskel.api-key", "group.com.norva.vaskel", "b@example.com",
                           "Vaskel account key"}));
    EXPECT_EQ(ours.secret, key.toUtf8());
    EXPECT_EQ(Shared::storedKey(), key);

    KeychainStore::deleteKey();
    EXPECT_EQ(KeychainStore::readKey(), std::nullopt);
    EXPECT_EQ(keychain.items().size(), 2u);
    EXPECT_EQ(Shared::storedKey(), "from-file");
}

TEST_F(KeyStorageTest, UnusableSecretsAndReadFailuresReadAsNoKey) {
    const std::pair<QByteArray, std::optional<platform::OSStatus>> cases[] = {
        {"", {}},
        {QByteArray("\xff\xfe key", 6), {}},  // invalid UTF-8
        {QByteArray("key\xc3", 4), {}},       // a truncated sequence
        {QByteArray("\xed\xa0\x80", 3), {}},  // an encoded surrogate
        {"good", LOCKED},
    };
    for (const auto& [secret, refusal] : cases) {
        KeychainStore::deleteKey();
        putOurItem(secret);
        keychain.refuseCopy(refusal);
        EXPECT_EQ(KeychainStore::readKey(), std::nullopt) << secret.toHex().toStdString();
    }
}

TEST_F(KeyStorageTest, SaveReturnsTheAddStatusAndIgnoresTheDelete) {
    putOurItem("old");
    keychain.refuseDelete(LOCKED);
    EXPECT_EQ(KeychainStore::saveKey("new", ME), status::SUCCESS);
    EXPECT_EQ(KeychainStore::readKey(), "new") << "the new item outranks the one left behind";

    keychain.refuseDelete(std::nullopt);
    keychain.refuseAdd(status::NOT_AVAILABLE);
    EXPECT_EQ(KeychainStore::saveKey("newer", ME), status::NOT_AVAILABLE);
    EXPECT_EQ(KeychainStore::readKey(), std::nullopt) << "a refused add after the delete";

    EXPECT_FALSE(KeychainStore::describe(LOCKED).startsWith("OSStatus"));
    EXPECT_EQ(KeychainStore::describe(1), "OSStatus 1");
    EXPECT_EQ(KeychainStore::describe(-2147483647 - 1), "OSStatus -2147483648");
}

TEST_F(KeyStorageTest, KeyStoredOrRemovedWhileTheKeychainIsLockedWinsAfterUnlocking) {
    // What the user does while the keyring is locked; the key that counts from then on.
    const std::pair<std::function<void()>, std::optional<QString>> cases[] = {
        {[] { Shared::storeKey(SECRET, ME); }, SECRET},  // a sign-in
        {[] {
             KeychainStore::deleteKey();
             Shared::setConfig("api_key", "");
         },
         std::nullopt},  // a sign-out
    };
    for (const auto& [change, expected] : cases) {
        reset(R"({"server":"https://x"})");
        Shared::storeKey("given-up-key", ME);
        keychain.refuseAll(LOCKED);
        change();
        EXPECT_EQ(Shared::storedKey(), expected) << "locked";

        keychain.refuseCopy(std::nullopt);
        keychain.refuseAdd(std::nullopt);
        keychain.refuseDelete(std::nullopt);
        EXPECT_EQ(Shared::storedKey(), expected) << "unlocked";
        Shared::migrateKeyToKeychain();  // the next start
        EXPECT_EQ(Shared::storedKey(), expected) << "next start";
        for (const auto& item : keychain.items()) EXPECT_NE(item.secret, "given-up-key");
    }
}

TEST_F(KeyStorageTest, StoreKeyKeepsAFileCopyOnlyWhereTheKeychainCannotServe) {
    const QString refused =
        "keychain refused the key (" + KeychainStore::describe(LOCKED) + "); keeping it in config";
    // Whether the keychain refuses the item and whether others read it; then the file's copy
    // and the log.
    const std::tuple<std::optional<platform::OSStatus>, bool, QString, QStringList> cases[] = {
        {{}, true, "", {"set api_key"}},
        {{}, false, SECRET, {"set api_key"}},
        {LOCKED, true, SECRET, {refused, "set api_key"}},
    };
    for (const auto& [addRefused, othersRead, copy, log] : cases) {
        reset(R"({"server":"https://x"})");
        keychain.refuseAdd(addRefused);
        keychain.setReadableAcrossSession(othersRead);
        Shared::storeKey(SECRET, ME);

        EXPECT_EQ(std::tuple(fileKey(), platform.log.messages(), keychain.items().size()),
                  std::tuple(QJsonValue(copy), log, addRefused ? 0u : 1u));
        EXPECT_EQ(Shared::storedKey(), SECRET);
    }
    EXPECT_EQ(platform.log.lines().front().level, platform::LogLevel::error);
}

TEST_F(KeyStorageTest, MigrationMovesOrClearsTheFileCopyByState) {
    const QString moved = "moved account key to the keychain: ok";
    const QString refused = "moved account key to the keychain: " + KeychainStore::describe(LOCKED);
    const QString cleared = "removed the config.json copy of the account key";
    const QByteArray withAccount =
        R"({"account_email":"a@example.com","api_key":"secret-key-7f3a"})";
    // One row per state the key can be in when the agent starts: the configuration, whether the
    // keychain holds the key, whether the marker is there, whether others read the keychain and
    // whether it refuses new items; then the account of the item afterwards (none: no item) and
    // the log, which shows every write of the file.
    const std::tuple<QByteArray, bool, bool, bool, std::optional<platform::OSStatus>,
                     std::optional<QString>, QStringList>
        cases[] = {
            // clang-format off
            {R"({"api_key":""})", false, false, true, {}, {}, {}},
            {FILE_KEY, false, false, true, {}, "vaskel", {moved}},
            {withAccount, false, true, true, {}, ME, {moved}},
            {FILE_KEY, false, false, true, LOCKED, {}, {refused}},
            {FILE_KEY, true, true, true, {}, ME, {"set api_key", cleared}},
            {FILE_KEY, true, false, true, {}, ME, {}},
            {FILE_KEY, true, true, false, {}, ME, {}},
            // clang-format on
        };
    for (const auto& [config, inKeychain, marker, othersRead, addRefused, account, log] : cases) {
        SCOPED_TRACE(config.toStdString() + (inKeychain ? " in the keychain" : ""));
        reset(config);
        if (inKeychain) KeychainStore::saveKey(SECRET, ME);
        keychain.refuseAdd(addRefused);
        keychain.setReadableAcrossSession(othersRead);
        if (marker) writeFile(Shared::keychainMarkerPath(), "");

        Shared::migrateKeyToKeychain();

        if (log.contains(cleared)) {
            EXPECT_EQ(fileKey(), QJsonValue(""));
        }
        const auto items = keychain.items();
        ASSERT_EQ(items.size(), account ? 1u : 0u);
        if (account) {
            EXPECT_EQ(std::tuple(items[0].account, items[0].secret),
                      std::tuple(*account, SECRET.toUtf8()));
        }
        EXPECT_EQ(platform.log.messages(), log);
        EXPECT_EQ(QFile::exists(Shared::keychainMarkerPath()), marker) << "marker touched";
    }
}

}  // namespace
