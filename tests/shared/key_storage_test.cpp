#include "shared/key_storage.h"

#include <gtest/gtest.h>

#include <QFile>

#include "shared/config.h"
#include "shared/keychain_store.h"
#include "support/fake_platform.h"
#include "support/test_files.h"

using testing_support::writeFile;

namespace {

namespace status = platform::keychain_status;
using Refusal = testing_support::FakeKeychain::Refusal;

const QString SECRET = QStringLiteral("secret-key-7f3a"), ME = QStringLiteral("a@example.com");
constexpr platform::OSStatus LOCKED = status::INTERACTION_NOT_ALLOWED;
const QString LOCKED_TEXT = "The keychain is locked and cannot be unlocked without the user.";

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
        unlock();
        KeychainStore::deleteKey();
        QFile::remove(Shared::keychainMarkerPath());
        platform.log.clear();
        writeFile(Shared::configPath(), config);
    }
    void unlock() {
        keychain.refuseCopy(std::nullopt);
        keychain.refuseAdd(std::nullopt);
        keychain.refuseDelete(std::nullopt);
    }
    void putOurItem(const QByteArray& secret) {
        keychain.insert({KeychainStore::service, KeychainStore::accessGroup, "someone-else",
                         KeychainStore::label, secret});
    }
};

TEST_F(KeyStorageTest, OurOneItemIsReplacedOutranksTheFileAndCountsOnlyAsReadableText) {
    writeFile(Shared::configPath(), R"({"api_key":"from-file"})");
    keychain.insert({"other.service", KeychainStore::accessGroup, "x", "x", "other-service"});
    keychain.insert({KeychainStore::service, "other.group", "x", "x", "other-group"});
    putOurItem("old");
    const QString key = QStringLiteral("k-\u00e9\u6f22-42");
    ASSERT_EQ(KeychainStore::saveKey(key, ME), status::SUCCESS);
    EXPECT_EQ(keychain.items().size(), 3u);
    EXPECT_EQ(std::tuple(keychain.items().back().account, Shared::storedKey()),
              std::tuple(ME, key));

    // Empty or cut-off text and refused reads are no key, so the file's copy serves.
    const std::pair<QByteArray, Refusal> unusable[] = {
        {"", {}}, {QByteArray("key\xc3", 4), {}}, {"good", LOCKED}};
    for (const auto& [secret, refusal] : unusable) {
        KeychainStore::deleteKey();
        putOurItem(secret);
        keychain.refuseCopy(refusal);
        EXPECT_EQ(Shared::storedKey(), "from-file") << secret.toHex().toStdString();
    }
    reset("{}");
    EXPECT_EQ(keychain.items().size(), 2u) << "others' items stay";

    // Saving reports the add, not the delete; a new item outranks the one left behind.
    putOurItem("old");
    keychain.refuseDelete(LOCKED);
    EXPECT_EQ(KeychainStore::saveKey("new", ME), status::SUCCESS);
    EXPECT_EQ(KeychainStore::readKey(), "new");
    keychain.refuseDelete(std::nullopt);
    keychain.refuseAdd(1);
    EXPECT_EQ(KeychainStore::saveKey("newer", ME), 1);
    EXPECT_EQ(KeychainStore::readKey(), std::nullopt) << "a refused add after the delete";
    EXPECT_EQ(KeychainStore::describe(1), "OSStatus 1");
}

TEST_F(KeyStorageTest, KeyStoredOrRemovedWhileTheKeychainIsLockedWinsAfterUnlocking) {
    // A sign-in and a sign-out while the keyring is locked; the key that counts from then on.
    // clang-format off
    const std::pair<std::function<void()>, std::optional<QString>> cases[] = {
        {[] { Shared::storeKey(SECRET, ME); }, SECRET},
        {[] { KeychainStore::deleteKey(); Shared::setConfig("api_key", ""); }, std::nullopt}};
    // clang-format on
    for (const auto& [change, expected] : cases) {
        reset(R"({"server":"https://x"})");
        Shared::storeKey("given-up-key", ME);
        keychain.refuseAll(LOCKED);
        change();
        EXPECT_EQ(Shared::storedKey(), expected) << "locked";
        unlock();
        EXPECT_EQ(Shared::storedKey(), expected) << "unlocked";
        Shared::migrateKeyToKeychain();  // the next start
        EXPECT_EQ(Shared::storedKey(), expected) << "next start";
        for (const auto& item : keychain.items()) EXPECT_NE(item.secret, "given-up-key");
    }
}

TEST_F(KeyStorageTest, SignInAndStartKeepAFileCopyOnlyWhereTheKeychainCannotServe) {
    const QString refused = "keychain refused the key (" + LOCKED_TEXT + "); keeping it in config";
    const QString moved = "moved account key to the keychain: ";
    const QString cleared = "removed the config.json copy of the account key";
    const QByteArray server = R"({"server":"x"})", filed = R"({"api_key":"secret-key-7f3a"})";
    // The state the key is in: the configuration, whether the keychain holds the key, whether the
    // marker is there, whether others read the keychain and whether it refuses new items; whether
    // the user signs in (else the agent starts); then the file's key afterwards, the account of
    // the item (none: no item) and the log, which shows every write of the file.
    // clang-format off
    const std::tuple<QByteArray, bool, bool, bool, Refusal, bool, QString, std::optional<QString>, QStringList> rows[] = {
        {server, false, false, true, {}, true, "", ME, {"set api_key"}},
        {server, false, false, false, {}, true, SECRET, ME, {"set api_key"}},
        {R"({"api_key":""})", false, false, true, {}, false, "", {}, {}},
        {filed, false, false, true, {}, false, SECRET, "vaskel", {moved + "ok"}},
        {R"({"account_email":"a@example.com","api_key":"secret-key-7f3a"})", false, true, true, {}, false, SECRET, ME, {moved + "ok"}},
        {filed, false, false, true, LOCKED, false, SECRET, {}, {moved + LOCKED_TEXT}},
        {filed, true, true, true, {}, false, "", ME, {"set api_key", cleared}},
        {filed, true, false, true, {}, false, SECRET, ME, {}},
        {filed, true, true, false, {}, false, SECRET, ME, {}},
        {server, false, false, true, LOCKED, true, SECRET, {}, {refused, "set api_key"}},
    };
    // clang-format on
    for (const auto& [config, inKeychain, marker, othersRead, addRefused, signIn, fileKey, account,
                      log] : rows) {
        SCOPED_TRACE(config.toStdString() + (inKeychain ? " in the keychain" : ""));
        reset(config);
        if (inKeychain) KeychainStore::saveKey(SECRET, ME);
        keychain.refuseAdd(addRefused);
        keychain.setReadableAcrossSession(othersRead);
        if (marker) writeFile(Shared::keychainMarkerPath(), "");
        signIn ? Shared::storeKey(SECRET, ME) : Shared::migrateKeyToKeychain();

        const auto items = keychain.items();
        ASSERT_LE(items.size(), 1u);
        const auto owner = items.empty() ? std::nullopt : std::optional(items[0].account);
        EXPECT_EQ(std::tuple(Shared::readConfig().value("api_key"), owner, platform.log.messages(),
                             QFile::exists(Shared::keychainMarkerPath())),
                  std::tuple(QJsonValue(fileKey), account, log, marker));
        for (const auto& item : items) EXPECT_EQ(item.secret, SECRET.toUtf8());
    }
    EXPECT_EQ(platform.log.lines().front().level, platform::LogLevel::error);
}

}  // namespace
