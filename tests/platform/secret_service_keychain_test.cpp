// The keychain against a real Secret Service. These tests run through ctest's "keychain" runs,
// inside scripts/with-secret-service; run directly they skip.

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <future>

#include "platform/keychain_backend.h"
#include "shared/config.h"
#include "shared/key_storage.h"
#include "shared/keychain_store.h"
#include "support/fake_platform.h"
#include "support/secret_service_session.h"
#include "support/test_files.h"

namespace {

namespace status = platform::keychain_status;
namespace session = testing_support::secret_service;

const QString SECRET = QStringLiteral("secret-key-5e1b");

/// A throwaway home as in every test, but the real keychain of the session. Runs only in the
/// `environments` that scripts/with-secret-service names in VASKEL_TEST_SECRET_SERVICE.
class RealKeychainTest : public ::testing::Test {
protected:
    explicit RealKeychainTest(QByteArrayList environments) : environments_(environments) {}
    void SetUp() override {
        if (!environments_.contains(qgetenv("VASKEL_TEST_SECRET_SERVICE")))
            GTEST_SKIP() << "runs only inside scripts/with-secret-service, for "
                         << environments_.join(" or ").toStdString() << " (ctest label keychain)";
    }
    std::vector<session::StoredItem> ourItems() {
        return session::itemsWithService(KeychainStore::service);
    }

    testing_support::FakePlatform platform;
    platform::StandIn<platform::KeychainBackend> realKeychain{platform::KeychainBackend::real()};
    platform::KeychainBackend& keychain = platform::KeychainBackend::real();
    const platform::KeychainQuery base{KeychainStore::service, KeychainStore::accessGroup};

private:
    QByteArrayList environments_;
};

class SecretService : public RealKeychainTest {
protected:
    SecretService() : RealKeychainTest({"keyring"}) {}
    void SetUp() override {
        RealKeychainTest::SetUp();
        if (!IsSkipped()) KeychainStore::deleteKey();
    }
};

TEST_F(SecretService, SavedKeyIsOneLabelledItemReadFromAnyThreadLeavingNoSessionOpen) {
    const QString key = QStringLiteral("k\u00e9y-") + SECRET;
    ASSERT_EQ(KeychainStore::saveKey(SECRET, "one@example.com"), status::SUCCESS);
    const int sessions = session::openSessions();
    ASSERT_GE(sessions, 0);
    ASSERT_EQ(KeychainStore::saveKey(key, "two@example.com"), status::SUCCESS);
    std::vector<std::future<std::optional<QString>>> readers;
    for (int i = 0; i < 3; ++i)
        readers.push_back(std::async(std::launch::async, [] { return KeychainStore::readKey(); }));
    for (auto& reader : readers) EXPECT_EQ(reader.get(), key);
    EXPECT_EQ(session::openSessions(), sessions);

    const auto items = ourItems();
    ASSERT_EQ(items.size(), 1u) << "saving again must replace the item";
    EXPECT_EQ(items[0].label, "Vaskel account key");
    EXPECT_EQ(items[0].attributes.value("service"), "com.norva.vaskel.api-key");
    EXPECT_EQ(items[0].attributes.value("access-group"), "group.com.norva.vaskel");
    EXPECT_EQ(items[0].attributes.value("account"), "two@example.com");
    EXPECT_EQ(items[0].secret, key.toUtf8());
}

TEST_F(SecretService, DeleteRemovesOnlyOurItemAndUnusableSecretsReadAsNoKey) {
    ASSERT_TRUE(session::storeRawItem(
        {"com.norva.other", KeychainStore::accessGroup, "a", "other", "other-secret"}));
    ASSERT_EQ(KeychainStore::saveKey(SECRET, "a@example.com"), status::SUCCESS);
    KeychainStore::deleteKey();
    EXPECT_EQ(KeychainStore::readKey(), std::nullopt);
    EXPECT_TRUE(ourItems().empty());
    EXPECT_EQ(session::itemsWithService("com.norva.other").size(), 1u);
    EXPECT_EQ(keychain.deleteMatching(base), status::ITEM_NOT_FOUND);
    for (const QByteArray& secret : {QByteArray("\xff\xfe\x00k", 4), QByteArray()}) {
        KeychainStore::deleteKey();
        ASSERT_TRUE(session::storeRawItem(
            {KeychainStore::service, KeychainStore::accessGroup, "a", "raw", secret}));
        EXPECT_EQ(KeychainStore::readKey(), std::nullopt);
    }
}

TEST_F(SecretService, SignInKeepsNoFileCopy) {
    Shared::storeKey(SECRET, "b@example.com");
    EXPECT_EQ(Shared::readConfig().value("api_key"), QJsonValue(""));
    EXPECT_EQ(Shared::storedKey(), SECRET);
}

class SecretServiceLocked : public RealKeychainTest {
protected:
    SecretServiceLocked() : RealKeychainTest({"keyring"}) {}
};

TEST_F(SecretServiceLocked, LockedKeyringRefusesWithoutPromptingAndKeepsTheItem) {
    ASSERT_EQ(KeychainStore::saveKey("older-key", "a@example.com"), status::SUCCESS);
    ASSERT_TRUE(session::lockDefaultCollection());
    EXPECT_EQ(keychain.copyMatching(base).status, status::INTERACTION_NOT_ALLOWED);
    EXPECT_EQ(KeychainStore::saveKey(SECRET, "a@example.com"), status::INTERACTION_NOT_ALLOWED);
    EXPECT_EQ(keychain.deleteMatching(base), status::INTERACTION_NOT_ALLOWED);
    const auto items = ourItems();
    ASSERT_EQ(items.size(), 1u) << "the locked item must be left alone";
    EXPECT_TRUE(items[0].locked);
}

// No Secret Service, or no bus at all.
class SecretServiceMissing : public RealKeychainTest {
protected:
    SecretServiceMissing() : RealKeychainTest({"absent", "no-bus"}) {}
};

TEST_F(SecretServiceMissing, EveryCallFailsAtOnce) {
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(keychain.copyMatching(base).status, status::NOT_AVAILABLE);
    EXPECT_EQ(keychain.deleteMatching(base), status::NOT_AVAILABLE);
    EXPECT_EQ(KeychainStore::saveKey(SECRET, "a@example.com"), status::NOT_AVAILABLE);
    // The bus must report the missing service, not the 5-second watchdog of each call.
    EXPECT_LT(timer.elapsed(), 3000) << "the keychain calls waited instead of failing";
}

class SecretServiceSilent : public RealKeychainTest {
protected:
    SecretServiceSilent() : RealKeychainTest({"absent"}) {}
};

TEST_F(SecretServiceSilent, ServiceThatNeverAnswersIsGivenUpOnAndNotWaitedForAgain) {
    session::SilentSecretService silent;
    ASSERT_TRUE(silent.owned());
    EXPECT_EQ(keychain.copyMatching(base).status, status::NOT_AVAILABLE);

    // What the agent does at start-up: three more keychain calls, and the key from the file.
    testing_support::writeFile(Shared::configPath(), R"({"api_key":"file-key"})");
    QElapsedTimer timer;
    timer.start();
    Shared::migrateKeyToKeychain();
    EXPECT_EQ(Shared::storedKey(), "file-key");
    EXPECT_LT(timer.elapsed(), 2500) << "waited again for a service already found silent";
}

}  // namespace
