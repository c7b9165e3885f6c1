#include "shared/keychain_store.h"

#include <gtest/gtest.h>

#include "support/fake_platform.h"

namespace {

namespace status = platform::keychain_status;

class KeychainStoreTest : public ::testing::Test {
protected:
    testing_support::FakePlatform platform;
    testing_support::FakeKeychain& keychain = platform.keychain;

    void putOurItem(const QByteArray& secret) {
        keychain.insert({KeychainStore::service, KeychainStore::accessGroup, "someone-else",
                         KeychainStore::label, secret});
    }
};

TEST_F(KeychainStoreTest, SavingReplacesTheOneItemWhateverItsAccountAndLeavesOthersAlone) {
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
    EXPECT_EQ(KeychainStore::readKey(), key);

    KeychainStore::deleteKey();
    EXPECT_EQ(KeychainStore::readKey(), std::nullopt);
    EXPECT_EQ(keychain.items().size(), 2u);
}

TEST_F(KeychainStoreTest, UnusableSecretsAndReadFailuresReadAsNoKey) {
    const struct {
        const char* name;
        QByteArray secret;
        std::optional<platform::OSStatus> refusal;
    } cases[] = {
        {"empty", "", {}},
        {"invalid UTF-8", QByteArray("\xff\xfe key", 6), {}},
        {"truncated sequence", QByteArray("key\xc3", 4), {}},
        {"encoded surrogate", QByteArray("\xed\xa0\x80", 3), {}},
        {"locked", "good", status::INTERACTION_NOT_ALLOWED},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        KeychainStore::deleteKey();
        putOurItem(c.secret);
        keychain.refuseCopy(c.refusal);
        EXPECT_EQ(KeychainStore::readKey(), std::nullopt);
    }
}

TEST_F(KeychainStoreTest, SaveReturnsTheAddStatusAndIgnoresTheDelete) {
    putOurItem("old");
    keychain.refuseDelete(status::INTERACTION_NOT_ALLOWED);
    EXPECT_EQ(KeychainStore::saveKey("new", "a@example.com"), status::SUCCESS);

    keychain.refuseDelete(std::nullopt);
    keychain.refuseAdd(status::NOT_AVAILABLE);
    EXPECT_EQ(KeychainStore::saveKey("newer", "a@example.com"), status::NOT_AVAILABLE);
    EXPECT_EQ(KeychainStore::readKey(), std::nullopt) << "a refused add after the delete";
}

TEST(KeychainStoreDescribe, KnownStatusesHaveOurMessageOthersTheirNumber) {
    EXPECT_FALSE(KeychainStore::describe(status::INTERACTION_NOT_ALLOWED).startsWith("OSStatus"));
    EXPECT_EQ(KeychainStore::describe(1), "OSStatus 1");
    EXPECT_EQ(KeychainStore::describe(-2147483647 - 1), "OSStatus -2147483648");
}

}  // namespace
