// The keychain against a real Secret Service. These tests run through ctest's "keychain" runs,
// inside scripts/with-secret-service; run directly they skip.

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QFile>
#include <chrono>
#include <future>

#include "platform/keychain_backend.h"
#include "shared/config.h"
#include "shared/key_storage.h"
#include "shared/keychain_store.h"
#include "support/fake_platform.h"
#include "support/secret_service_session.h"

namespace {

namespace status = platform::keychain_status;
using testing_support::secret_service::Environment;

const QString SECRET = QStringLiteral("secret-key-5e1b");

/// A throwaway home and captured log as in every test, but the real keychain of the session.
template <Environment... Wanted>
class RealKeychainTest : public ::testing::Test {
protected:
    void SetUp() override {
        const Environment here = testing_support::secret_service::environment();
        if (((here != Wanted) && ...)) {
            GTEST_SKIP() << testing_support::secret_service::skipReason(
                                std::get<0>(std::tuple{Wanted...}))
                                .toStdString();
        }
    }
    void TearDown() override {
        for (const QString& line : platform.log.messages())
            EXPECT_FALSE(line.contains(SECRET)) << "logged the key: " << line.toStdString();
    }

    std::vector<testing_support::secret_service::StoredItem> ourItems() {
        return testing_support::secret_service::itemsWithService(KeychainStore::service);
    }
    QJsonValue fileKey() { return Shared::readConfig().value("api_key"); }

    testing_support::FakePlatform platform;
    platform::StandIn<platform::KeychainBackend> realKeychain{platform::KeychainBackend::real()};
};

// --- A working, unlocked keyring ---------------------------------------------------------------

class SecretService : public RealKeychainTest<Environment::keyring> {
protected:
    void SetUp() override {
        RealKeychainTest::SetUp();
        if (!IsSkipped()) KeychainStore::deleteKey();
    }
};

TEST_F(SecretService, SavedKeyIsOneLabelledItemReadBackWhateverItsAccount) {
    const QString key = QStringLiteral("k\u00e9y-") + SECRET;
    ASSERT_EQ(KeychainStore::saveKey(key, "one@example.com"), status::SUCCESS);
    ASSERT_EQ(KeychainStore::saveKey(key + "2", "two@example.com"), status::SUCCESS);

    const auto items = ourItems();
    ASSERT_EQ(items.size(), 1u) << "saving again must replace the item";
    EXPECT_EQ(items[0].label, "Vaskel account key");
    EXPECT_EQ(items[0].attributes.value("service"), "com.norva.vaskel.api-key");
    EXPECT_EQ(items[0].attributes.value("access-group"), "group.com.norva.vaskel");
    EXPECT_EQ(items[0].attributes.value("account"), "two@example.com");
    EXPECT_EQ(items[0].secret, (key + "2").toUtf8());
    EXPECT_EQ(KeychainStore::readKey(), key + "2");
}

TEST_F(SecretService, KeyIsReadFromOtherThreads) {
    ASSERT_EQ(KeychainStore::saveKey(SECRET, "a@example.com"), status::SUCCESS);
    std::vector<std::future<std::optional<QString>>> readers;
    for (int i = 0; i < 3; ++i)
        readers.push_back(std::async(std::launch::async, [] { return KeychainStore::readKey(); }));
    for (auto& reader : readers) EXPECT_EQ(reader.get(), SECRET);
}

TEST_F(SecretService, DeleteRemovesOnlyOurItemAndDeletingNothingIsHarmless) {
    ASSERT_TRUE(testing_support::secret_service::storeRawItem(
        {"com.norva.other", KeychainStore::accessGroup, "a", "other", "other-secret"}));
    ASSERT_EQ(KeychainStore::saveKey(SECRET, "a@example.com"), status::SUCCESS);

    KeychainStore::deleteKey();
    EXPECT_EQ(KeychainStore::readKey(), std::nullopt);
    EXPECT_TRUE(ourItems().empty());
    EXPECT_EQ(testing_support::secret_service::itemsWithService("com.norva.other").size(), 1u);

    EXPECT_EQ(platform::KeychainBackend::real().deleteMatching(
                  {KeychainStore::service, KeychainStore::accessGroup}),
              status::ITEM_NOT_FOUND);
    EXPECT_EQ(KeychainStore::readKey(), std::nullopt);
}

TEST_F(SecretService, UnusableSecretsFallBackToTheFileCopy) {
    Shared::setConfig("api_key", SECRET);
    for (const QByteArray& secret : {QByteArray("\xff\xfe\x00k", 4), QByteArray()}) {
        KeychainStore::deleteKey();
        ASSERT_TRUE(testing_support::secret_service::storeRawItem(
            {KeychainStore::service, KeychainStore::accessGroup, "a", "raw", secret}));
        EXPECT_EQ(KeychainStore::readKey(), std::nullopt);
        EXPECT_EQ(Shared::storedKey(), SECRET);
    }
}

TEST_F(SecretService, SignInMigrationAndSignOutOverTheRealKeychain) {
    // A key left in the file only (say by a refused save) moves in at the next start.
    Shared::setConfig("api_key", SECRET);
    Shared::migrateKeyToKeychain();
    ASSERT_EQ(ourItems().size(), 1u);
    EXPECT_EQ(ourItems()[0].attributes.value("account"), "vaskel");
    EXPECT_EQ(fileKey(), QJsonValue(SECRET));

    QFile marker(Shared::keychainMarkerPath());
    ASSERT_TRUE(marker.open(QIODevice::WriteOnly));
    marker.close();
    Shared::migrateKeyToKeychain();
    EXPECT_EQ(fileKey(), QJsonValue(""));
    EXPECT_EQ(Shared::storedKey(), SECRET);

    // Sign-in: the Secret Service is readable by the whole session, so no file copy.
    Shared::storeKey(SECRET + "-new", "b@example.com");
    EXPECT_EQ(fileKey(), QJsonValue(""));
    EXPECT_EQ(Shared::storedKey(), SECRET + "-new");
    EXPECT_EQ(ourItems().size(), 1u);

    KeychainStore::deleteKey();
    Shared::setConfig("api_key", "");
    EXPECT_EQ(Shared::storedKey(), std::nullopt);
    EXPECT_EQ(platform.log.messages(),
              (QStringList{"set api_key", "moved account key to the keychain: ok", "set api_key",
                           "removed the config.json copy of the account key", "set api_key",
                           "set api_key"}));
}

// --- A locked collection ------------------------------------------------------------------------

class SecretServiceLocked : public RealKeychainTest<Environment::keyring> {};

TEST_F(SecretServiceLocked, LockedKeyringRefusesWithoutPromptingAndTheFileKeepsTheKey) {
    ASSERT_EQ(KeychainStore::saveKey("older-key", "a@example.com"), status::SUCCESS);
    ASSERT_TRUE(testing_support::secret_service::lockDefaultCollection());
    platform::KeychainBackend& keychain = platform::KeychainBackend::real();
    const platform::KeychainQuery base{KeychainStore::service, KeychainStore::accessGroup};

    EXPECT_EQ(keychain.copyMatching(base).status, status::INTERACTION_NOT_ALLOWED);
    EXPECT_EQ(KeychainStore::readKey(), std::nullopt);
    EXPECT_EQ(KeychainStore::saveKey(SECRET, "a@example.com"), status::INTERACTION_NOT_ALLOWED);
    EXPECT_EQ(keychain.deleteMatching(base), status::INTERACTION_NOT_ALLOWED);
    const auto items = ourItems();
    ASSERT_EQ(items.size(), 1u) << "the locked item must be left alone";
    EXPECT_TRUE(items[0].locked);

    Shared::storeKey(SECRET, "a@example.com");
    EXPECT_EQ(fileKey(), QJsonValue(SECRET));
    EXPECT_EQ(Shared::storedKey(), SECRET);
    Shared::migrateKeyToKeychain();
    EXPECT_EQ(fileKey(), QJsonValue(SECRET));
    const QString reason = KeychainStore::describe(status::INTERACTION_NOT_ALLOWED);
    EXPECT_EQ(platform.log.messages(),
              (QStringList{"keychain refused the key (" + reason + "); keeping it in config",
                           "set api_key", "moved account key to the keychain: " + reason}));
}

// --- No Secret Service, or no bus at all --------------------------------------------------------

class SecretServiceMissing : public RealKeychainTest<Environment::absent, Environment::noBus> {};

TEST_F(SecretServiceMissing, EveryCallFailsAtOnceAndSignInKeepsTheKeyInTheFile) {
    platform::KeychainBackend& keychain = platform::KeychainBackend::real();
    const platform::KeychainQuery base{KeychainStore::service, KeychainStore::accessGroup};
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(keychain.copyMatching(base).status, status::NOT_AVAILABLE);
    EXPECT_EQ(keychain.deleteMatching(base), status::NOT_AVAILABLE);
    EXPECT_EQ(KeychainStore::saveKey(SECRET, "a@example.com"), status::NOT_AVAILABLE);
    // A missing service must be reported by the bus itself, not by the operation watchdog
    // (5 seconds a call): anything near that means something waited for an answer.
    EXPECT_LT(timer.elapsed(), 3000) << "the keychain calls waited instead of failing";
    RecordProperty("milliseconds_for_three_calls", int(timer.elapsed()));

    Shared::storeKey(SECRET, "a@example.com");
    EXPECT_EQ(fileKey(), QJsonValue(SECRET));
    EXPECT_EQ(Shared::storedKey(), SECRET);
    Shared::migrateKeyToKeychain();
    const QString reason = KeychainStore::describe(status::NOT_AVAILABLE);
    EXPECT_EQ(platform.log.messages(),
              (QStringList{"keychain refused the key (" + reason + "); keeping it in config",
                           "set api_key", "moved account key to the keychain: " + reason}));
}

// --- A Secret Service that never answers ------------------------------------------------------

class SecretServiceSilent : public RealKeychainTest<Environment::absent> {};

TEST_F(SecretServiceSilent, ServiceThatNeverAnswersIsGivenUpOn) {
    testing_support::secret_service::SilentSecretService silent;
    ASSERT_TRUE(silent.owned());
    Shared::setConfig("api_key", SECRET);
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(platform::KeychainBackend::real()
                  .copyMatching({KeychainStore::service, KeychainStore::accessGroup})
                  .status,
              status::NOT_AVAILABLE);
    EXPECT_EQ(Shared::storedKey(), SECRET);
    RecordProperty("milliseconds_for_two_lookups", int(timer.elapsed()));
}

}  // namespace
