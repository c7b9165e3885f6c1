// The keychain against a real Secret Service. These tests run through ctest's "keychain" runs,
// inside scripts/with-secret-service, which starts a private session bus (and, unless told
// otherwise, a gnome-keyring of its own in a throwaway home) and names the environment it made
// in VASKEL_TEST_SECRET_SERVICE. Run directly they skip, so that no test ever reaches the
// user's own keyring.

#include <gtest/gtest.h>
#include <libsecret/secret.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QElapsedTimer>
#include <future>
#include <map>

#include "platform/keychain_backend.h"
#include "shared/config.h"
#include "shared/key_storage.h"
#include "shared/keychain_store.h"
#include "support/fake_platform.h"
#include "support/test_files.h"

namespace {

namespace status = platform::keychain_status;

const QString SECRET = QStringLiteral("secret-key-5e1b");
const std::string ITEM =
    "Vaskel account key service=com.norva.vaskel.api-key "
    "access-group=group.com.norva.vaskel account=";

// Every item of the service, a line each, whose "service" attribute is `service`, one line each:
// label, the attributes the keychain sets, the secret (none when locked) and whether it is locked.
std::string itemsWithService(const char* service) {
    std::string result;
    g_autoptr(SecretService) session = secret_service_open_sync(
        SECRET_TYPE_SERVICE, nullptr, SECRET_SERVICE_NONE, nullptr, nullptr);
    g_autoptr(GHashTable) attributes = g_hash_table_new(g_str_hash, g_str_equal);
    g_hash_table_insert(attributes, gpointer("service"), gpointer(service));
    GList* items = secret_service_search_sync(
        session, nullptr, attributes,
        SecretSearchFlags(SECRET_SEARCH_ALL | SECRET_SEARCH_LOAD_SECRETS), nullptr, nullptr);
    for (GList* node = items; node; node = node->next) {
        auto* item = static_cast<SecretItem*>(node->data);
        g_autofree gchar* label = secret_item_get_label(item);
        std::string line = label;
        g_autoptr(GHashTable) stored = secret_item_get_attributes(item);
        for (const char* name : {"service", "access-group", "account"}) {
            const auto* value = static_cast<const char*>(g_hash_table_lookup(stored, name));
            line += std::string(" ") + name + "=" + (value ? value : "(none)");
        }
        if (g_autoptr(SecretValue) secret = secret_item_get_secret(item))
            line += std::string(" ") + secret_value_get_text(secret);
        result +=
            (result.empty() ? "" : "\n") + line + (secret_item_get_locked(item) ? " locked" : "");
    }
    g_list_free_full(items, g_object_unref);
    return result;
}

/// A throwaway home as in every test, but the real keychain of the session, in the environments
/// each suite is written for.
class RealKeychainTest : public ::testing::Test {
protected:
    void SetUp() override {
        static const std::map<std::string, QByteArrayList> runsIn{
            {"SecretService", {"keyring"}},
            {"SecretServiceLocked", {"keyring"}},
            {"SecretServiceMissing", {"absent", "no-bus"}},
            {"SecretServiceSilent", {"absent"}}};
        const std::string suite = ::testing::UnitTest::GetInstance()->current_test_suite()->name();
        if (!runsIn.at(suite).contains(qgetenv("VASKEL_TEST_SECRET_SERVICE")))
            GTEST_SKIP() << "runs only inside scripts/with-secret-service (ctest label keychain)";
        if (suite == "SecretService") KeychainStore::deleteKey();
    }
    std::string ourItems() { return itemsWithService("com.norva.vaskel.api-key"); }

    testing_support::FakePlatform platform;
    platform::StandIn<platform::KeychainBackend> realKeychain{platform::KeychainBackend::real()};
    platform::KeychainBackend& keychain = platform::KeychainBackend::real();
    const platform::KeychainQuery base{KeychainStore::service, KeychainStore::accessGroup};
};
using SecretService = RealKeychainTest;
using SecretServiceLocked = RealKeychainTest;
using SecretServiceMissing = RealKeychainTest;  // no Secret Service, or no bus at all
using SecretServiceSilent = RealKeychainTest;

TEST_F(SecretService, SavedKeyIsOneLabelledItemReadFromAnyThread) {
    const QString key = QStringLiteral("k\u00e9y-") + SECRET;
    ASSERT_EQ(KeychainStore::saveKey(SECRET, "one@example.com"), status::SUCCESS);
    ASSERT_EQ(KeychainStore::saveKey(key, "two@example.com"), status::SUCCESS);
    std::vector<std::future<std::optional<QString>>> readers;
    for (int i = 0; i < 3; ++i)
        readers.push_back(std::async(std::launch::async, [] { return KeychainStore::readKey(); }));
    for (auto& reader : readers) EXPECT_EQ(reader.get(), key);
    EXPECT_EQ(ourItems(), ITEM + "two@example.com " + key.toStdString()) << "one item, replaced";

    Shared::storeKey(SECRET, "b@example.com");  // a sign-in keeps no file copy
    EXPECT_EQ(Shared::readConfig().value("api_key"), QJsonValue(""));
    EXPECT_EQ(Shared::storedKey(), SECRET);
}

TEST_F(SecretService, DeleteRemovesOnlyOurItemAndUnusableSecretsReadAsNoKey) {
    ASSERT_EQ(keychain.add({"com.norva.other", KeychainStore::accessGroup, "a", "other", "secret"}),
              status::SUCCESS);
    ASSERT_EQ(KeychainStore::saveKey(SECRET, "a@example.com"), status::SUCCESS);
    KeychainStore::deleteKey();
    EXPECT_EQ(KeychainStore::readKey(), std::nullopt);
    EXPECT_EQ(ourItems(), "");
    EXPECT_NE(itemsWithService("com.norva.other"), "");
    EXPECT_EQ(keychain.deleteMatching(base), status::ITEM_NOT_FOUND);
    for (const QByteArray& secret : {QByteArray("\xff\xfe\x00k", 4), QByteArray()}) {
        KeychainStore::deleteKey();
        ASSERT_EQ(
            keychain.add({KeychainStore::service, KeychainStore::accessGroup, "a", "raw", secret}),
            status::SUCCESS);
        EXPECT_EQ(KeychainStore::readKey(), std::nullopt);
    }
}

TEST_F(SecretServiceLocked, LockedKeyringRefusesWithoutPromptingAndKeepsTheItem) {
    ASSERT_EQ(KeychainStore::saveKey("older-key", "a@example.com"), status::SUCCESS);
    // Locks the default collection, as the desktop does when the screen locks.
    g_autoptr(SecretService) session = secret_service_open_sync(
        SECRET_TYPE_SERVICE, nullptr, SECRET_SERVICE_NONE, nullptr, nullptr);
    GList* objects = g_list_append(
        nullptr, secret_collection_for_alias_sync(session, SECRET_COLLECTION_DEFAULT,
                                                  SECRET_COLLECTION_NONE, nullptr, nullptr));
    ASSERT_EQ(secret_service_lock_sync(session, objects, nullptr, nullptr, nullptr), 1);
    g_list_free_full(objects, g_object_unref);
    EXPECT_EQ(keychain.copyMatching(base).status, status::INTERACTION_NOT_ALLOWED);
    EXPECT_EQ(KeychainStore::saveKey(SECRET, "a@example.com"), status::INTERACTION_NOT_ALLOWED);
    EXPECT_EQ(keychain.deleteMatching(base), status::INTERACTION_NOT_ALLOWED);
    EXPECT_EQ(ourItems(), ITEM + "a@example.com locked") << "the locked item must be left alone";
}

TEST_F(SecretServiceMissing, EveryCallFailsAtOnce) {
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(keychain.copyMatching(base).status, status::NOT_AVAILABLE);
    EXPECT_EQ(keychain.deleteMatching(base), status::NOT_AVAILABLE);
    EXPECT_EQ(KeychainStore::saveKey(SECRET, "a@example.com"), status::NOT_AVAILABLE);
    // The bus must report the missing service, not the 5-second watchdog of each call.
    EXPECT_LT(timer.elapsed(), 3000) << "the keychain calls waited instead of failing";
}

// Takes every call on every path and answers none of them.
class Unanswering final : public QDBusVirtualObject {
public:
    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage&, const QDBusConnection&) override { return true; }
};

TEST_F(SecretServiceSilent, ServiceThatNeverAnswersIsGivenUpOnAndNotWaitedForAgain) {
    static Unanswering unanswering;
    QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, "silent");
    ASSERT_TRUE(bus.registerVirtualObject("/", &unanswering, QDBusConnection::SubPath) &&
                bus.registerService("org.freedesktop.secrets"));
    EXPECT_EQ(keychain.copyMatching(base).status, status::NOT_AVAILABLE);

    // What the agent does at start-up: three more keychain calls, and the key from the file.
    testing_support::writeFile(Shared::configPath(), R"({"api_key":"file-key"})");
    QElapsedTimer timer;
    timer.start();
    Shared::migrateKeyToKeychain();
    EXPECT_EQ(Shared::storedKey(), "file-key");
    EXPECT_LT(timer.elapsed(), 2500) << "waited again for a service already found silent";
    QDBusConnection::disconnectFromBus("silent");
}

}  // namespace
