#include "shared/keychain_store.h"

#include <gtest/gtest.h>

#include "support/fake_platform.h"

namespace {

using platform::KeychainItem;
namespace status = platform::keychain_status;

class KeychainStoreTest : public ::testing::Test {
protected:
    testing_support::FakePlatform platform;
    testing_support::FakeKeychain& keychain = platform.keychain;

    KeychainItem ourItem(const QByteArray& secret, const QString& account = "a@example.com") {
        return {KeychainStore::service, KeychainStore::accessGroup, account, KeychainStore::label,
                secret};
    }
};

TEST_F(KeychainStoreTest, SavedKeyIsStoredAsUtf8UnderTheAccountAndReadBack) {
    const QString key = QStringLiteral("k-\u00e9\u6f22-42");
    ASSERT_EQ(KeychainStore::saveKey(key, "a@example.com"), status::SUCCESS);

    const auto items = keychain.items();
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].service, "com.norva.vaskel.api-key");
    EXPECT_EQ(items[0].accessGroup, "group.com.norva.vaskel");
    EXPECT_EQ(items[0].account, "a@example.com");
    EXPECT_EQ(items[0].label, "Vaskel account key");
    EXPECT_EQ(items[0].secret, key.toUtf8());
    EXPECT_EQ(KeychainStore::readKey(), key);
}

TEST_F(KeychainStoreTest, SavingAgainUnderAnotherAccountLeavesExactlyOneItem) {
    KeychainStore::saveKey("first", "one@example.com");
    KeychainStore::saveKey("second", "two@example.com");

    const auto items = keychain.items();
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].account, "two@example.com");
    EXPECT_EQ(KeychainStore::readKey(), "second");
}

TEST_F(KeychainStoreTest, ItemIsFoundWhateverItsAccountAndOnlyByServiceAndGroup) {
    keychain.insert({"other.service", KeychainStore::accessGroup, "x", "x", "wrong-service"});
    keychain.insert({KeychainStore::service, "other.group", "x", "x", "wrong-group"});
    EXPECT_EQ(KeychainStore::readKey(), std::nullopt);

    keychain.insert(ourItem("mine", "someone-else@example.com"));
    EXPECT_EQ(KeychainStore::readKey(), "mine");

    KeychainStore::deleteKey();
    EXPECT_EQ(KeychainStore::readKey(), std::nullopt);
    EXPECT_EQ(keychain.items().size(), 2u) << "items of other services must survive";
}

TEST_F(KeychainStoreTest, UnusableSecretsReadAsNoKey) {
    const struct {
        const char* name;
        QByteArray secret;
    } cases[] = {
        {"empty", QByteArray()},
        {"invalid UTF-8", QByteArray("\xff\xfe key", 6)},
        {"truncated sequence", QByteArray("key\xc3", 4)},
        {"UTF-16 surrogate encoded in UTF-8", QByteArray("\xed\xa0\x80", 3)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        KeychainStore::deleteKey();
        keychain.insert(ourItem(c.secret));
        EXPECT_EQ(KeychainStore::readKey(), std::nullopt);
    }
}

TEST_F(KeychainStoreTest, ReadFailuresOfAnyKindReadAsNoKey) {
    keychain.insert(ourItem("stored"));
    for (platform::OSStatus refusal :
         {status::NOT_AVAILABLE, status::INTERACTION_NOT_ALLOWED, status::AUTH_FAILED, 7}) {
        SCOPED_TRACE(refusal);
        keychain.refuseCopy(refusal);
        EXPECT_EQ(KeychainStore::readKey(), std::nullopt);
    }
}

TEST_F(KeychainStoreTest, SaveReturnsTheAddStatusAndIgnoresTheDelete) {
    keychain.insert(ourItem("old"));

    keychain.refuseDelete(status::INTERACTION_NOT_ALLOWED);
    EXPECT_EQ(KeychainStore::saveKey("new", "a@example.com"), status::SUCCESS)
        << "a refused delete must not stop the add";

    keychain.refuseDelete(std::nullopt);
    keychain.refuseAdd(status::NOT_AVAILABLE);
    EXPECT_EQ(KeychainStore::saveKey("newer", "a@example.com"), status::NOT_AVAILABLE);
    EXPECT_EQ(KeychainStore::readKey(), std::nullopt)
        << "saving deletes before adding, so a refused add leaves no item";
}

TEST_F(KeychainStoreTest, DeleteIgnoresRefusals) {
    keychain.insert(ourItem("stored"));
    keychain.refuseDelete(status::NOT_AVAILABLE);
    KeychainStore::deleteKey();
    EXPECT_EQ(keychain.items().size(), 1u);
}

TEST(KeychainStoreDescribe, KnownStatusesHaveOurMessageOthersTheirNumber) {
    for (platform::OSStatus known :
         {status::SUCCESS, status::NOT_AVAILABLE, status::ITEM_NOT_FOUND,
          status::INTERACTION_NOT_ALLOWED, status::DUPLICATE_ITEM, status::AUTH_FAILED,
          status::NO_DEFAULT_KEYCHAIN, status::DECODE, status::PARAM}) {
        SCOPED_TRACE(known);
        const QString message = KeychainStore::describe(known);
        EXPECT_FALSE(message.startsWith("OSStatus")) << message.toStdString();
        EXPECT_FALSE(message.isEmpty());
    }
    const struct {
        platform::OSStatus status;
        const char* text;
    } unknown[] = {
        {1, "OSStatus 1"},
        {-1, "OSStatus -1"},
        {-25290, "OSStatus -25290"},
        {2147483647, "OSStatus 2147483647"},
        {-2147483647 - 1, "OSStatus -2147483648"},
    };
    for (const auto& c : unknown) EXPECT_EQ(KeychainStore::describe(c.status), c.text);
}

}  // namespace
