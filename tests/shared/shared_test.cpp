#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QFile>
#include <QJsonDocument>

#include "shared/config.h"
#include "shared/key_storage.h"
#include "shared/keychain_store.h"
#include "shared/rates.h"
#include "support/fake_platform.h"
#include "support/test_files.h"

using testing_support::fileMode;
using testing_support::readFile;
using testing_support::writeFile;

namespace {

class ConfigTest : public ::testing::Test {
protected:
    testing_support::FakePlatform platform;
    QString dir = platform.home.dir + "/.vaskel";
    QString path = Shared::configPath();
};

TEST_F(ConfigTest, WritesArePrivateMergeKeepUnknownKeysAndLogOnlyTheKeyName) {
    EXPECT_TRUE(Shared::readConfig().isEmpty());
    ::umask(0);  // the modes must not depend on the caller's umask
    Shared::setConfig("transfers_paused", true);
    ::umask(022);
    EXPECT_EQ(std::tuple(fileMode(dir), fileMode(path), readFile(path)),
              std::tuple(0700u, 0600u, "{\n    \"transfers_paused\": true\n}\n"));

    writeFile(path, R"({"extension_setting": {"nested": [1, 2]}, "server": "https://b.example"})");
    ::chmod(QFile::encodeName(path).constData(), 0644);
    Shared::setConfig("api_key", "secret-key-123");
    Shared::setConfig("server", "https://a.example");
    EXPECT_EQ(fileMode(path), 0600u);
    EXPECT_EQ(readFile(path),
              "{\n    \"api_key\": \"secret-key-123\",\n    \"extension_setting\": {\n"
              "        \"nested\": [\n            1,\n            2\n        ]\n    },\n"
              "    \"server\": \"https://a.example\"\n}\n");
    EXPECT_EQ(platform.log.messages(),
              (QStringList{"set transfers_paused", "set api_key", "set server"}));
    for (const auto& line : platform.log.lines()) EXPECT_EQ(line.level, platform::LogLevel::info);
}

TEST_F(ConfigTest, FilesThatYieldNothingAreNeverOverwritten) {
    const QByteArray unusable[] = {"", R"({"server": "https://x)", "[1,2,3]", "{ }\n",
                                   QByteArray("\xff\xfe\x00{", 4)};
    for (const QByteArray& bytes : unusable) {
        platform.log.clear();
        writeFile(path, bytes);
        EXPECT_TRUE(Shared::readConfig().isEmpty());
        Shared::setConfig("server", "https://x");
        EXPECT_EQ(readFile(path), bytes);
        EXPECT_EQ(platform.log.messages(),
                  QStringList{"config exists but could not be parsed; not overwriting"});
        EXPECT_EQ(platform.log.lines()[0].level, platform::LogLevel::error);
    }
}

TEST(ConfigValues, TypeRules) {
    constexpr qint64 max = std::numeric_limits<qint64>::max();
    // clang-format off
    const QJsonObject config = QJsonDocument::fromJson(R"({"t": true, "f": false, "zero": 0, "frac": 2.9, "negfrac": -2.9,
        "big": 1e300, "nbig": -1e300, "maxint": 9223372036854775807, "text": "1", "null": null})").object();
    // Key; then the value as a string, as a flag and as an integer.
    const std::tuple<const char*, std::optional<QString>, std::optional<bool>, std::optional<qint64>> cases[] = {
        {"t", {}, true, 1}, {"f", {}, false, 0}, {"zero", {}, false, 0}, {"frac", {}, true, 2}, {"negfrac", {}, true, -2},
        {"big", {}, true, max}, {"maxint", {}, true, max}, {"nbig", {}, true, -max - 1}, {"text", "1", {}, {}}, {"null", {}, {}, {}}};
    // clang-format on
    for (const auto& [key, string, boolean, integer] : cases) {
        EXPECT_EQ(std::tuple(Shared::configString(config, key), Shared::configBool(config, key),
                             Shared::configInteger(config, key)),
                  std::tuple(string, boolean, integer))
            << key;
    }
}

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

TEST_F(KeyStorageTest, TheKeychainOutranksTheFileOnlyWithReadableTextAndANewItemOutranksAnOldOne) {
    // Our item outranks the file's copy, but empty or cut-off text and refused reads are no key.
    // clang-format off
    const std::tuple<QByteArray, Refusal, QString> cases[] = {{SECRET.toUtf8(), {}, SECRET}, {"", {}, "from-file"},
        {QByteArray("key\xc3", 4), {}, "from-file"}, {"good", LOCKED, "from-file"}};
    // clang-format on
    for (const auto& [secret, refusal, expected] : cases) {
        reset(R"({"api_key":"from-file"})");
        putOurItem(secret);
        keychain.refuseCopy(refusal);
        EXPECT_EQ(Shared::storedKey(), expected) << secret.toHex().toStdString();
    }
    // A new item outranks an old one whose deletion the keychain refused.
    reset("{}");
    putOurItem("old");
    keychain.refuseDelete(LOCKED);
    EXPECT_EQ(KeychainStore::saveKey("new", ME), status::SUCCESS);
    EXPECT_EQ(KeychainStore::readKey(), "new");
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
    const QString moved = "moved account key to the keychain: ",
                  cleared = "removed the config.json copy of the account key";
    const QByteArray server = R"({"server":"x"})", filed = R"({"api_key":"secret-key-7f3a"})";
    const QString mine = ME + " " + SECRET;
    // The state the key is in: the configuration, whether the keychain holds the key, whether the
    // marker is there, whether others read the keychain and whether it refuses new items; whether
    // the user signs in (else the agent starts); then the file's key afterwards, the items as
    // "account secret" and the log, which shows every write of the file.
    // clang-format off
    const std::tuple<QByteArray, bool, bool, bool, Refusal, bool, QString, QStringList, QStringList> rows[] = {
        {server, false, false, true, {}, true, "", {mine}, {"set api_key"}},
        {server, false, false, false, {}, true, SECRET, {mine}, {"set api_key"}},
        {R"({"api_key":""})", false, false, true, {}, false, "", {}, {}},
        {filed, false, false, true, {}, false, SECRET, {"vaskel " + SECRET}, {moved + "ok"}},
        {R"({"account_email":"a@example.com","api_key":"secret-key-7f3a"})", false, true, true, {}, false, SECRET, {mine}, {moved + "ok"}},
        {filed, false, false, true, 1, false, SECRET, {}, {moved + "OSStatus 1"}},
        {filed, true, true, true, {}, false, "", {mine}, {"set api_key", cleared}},
        {filed, true, false, true, {}, false, SECRET, {mine}, {}},
        {filed, true, true, false, {}, false, SECRET, {mine}, {}},
        {server, false, false, true, LOCKED, true, SECRET, {}, {refused, "set api_key"}},
    };
    // clang-format on
    for (const auto& [config, inKeychain, marker, othersRead, addRefused, signIn, fileKey, held,
                      log] : rows) {
        SCOPED_TRACE(config.toStdString() + (inKeychain ? " in the keychain" : ""));
        reset(config);
        if (inKeychain) KeychainStore::saveKey(SECRET, ME);
        keychain.refuseAdd(addRefused);
        keychain.setReadableAcrossSession(othersRead);
        if (marker) writeFile(Shared::keychainMarkerPath(), "");
        signIn ? Shared::storeKey(SECRET, ME) : Shared::migrateKeyToKeychain();

        QStringList items;
        for (const auto& item : keychain.items()) items << item.account + " " + item.secret;
        EXPECT_EQ(std::tuple(Shared::readConfig().value("api_key"), items, platform.log.messages(),
                             QFile::exists(Shared::keychainMarkerPath())),
                  std::tuple(QJsonValue(fileKey), held, log, marker));
    }
    EXPECT_EQ(platform.log.lines().front().level, platform::LogLevel::error);
}

TEST(Rates, StatsFileInTheAppGroupContainerIsReadWhileFresh) {
    testing_support::FakePlatform platform;
    const auto sample = [&](double age, QByteArray r = R"("down_bps": 2048, "up_bps": 512)") {
        return R"({"at": )" + QByteArray::number(platform.clock.now - age, 'f', 3) + ", " + r + "}";
    };
    const Shared::Rates none{}, fresh{2048, 512, true};
    // clang-format off
    const std::pair<QByteArray, Shared::Rates> cases[] = {
        {sample(3.9), fresh}, {sample(4.0), none}, {sample(-30), fresh},  // stamped in the future
        {R"({"down_bps": 2048, "up_bps": 512})", none}, {"[1, 2, 3]", none},
        {sample(1, R"("down_bps": "2048", "up_bps": true)"), {0, 0, true}},
        {sample(1, R"("down_bps": -5, "up_bps": 7.5)"), {-5, 7.5, true}},
        {sample(1, R"("pad": ")" + QByteArray(1024 * 1024, 'x') + "\""), none},  // too big to be a sample
    };
    // clang-format on
    ASSERT_EQ(Shared::statsURL(), platform.container.dir + "/group.com.norva.vaskel/stats.json");
    for (const auto& [contents, expected] : cases) {
        testing_support::writeFile(*Shared::statsURL(), contents);
        EXPECT_EQ(Shared::readRates(), expected) << contents.left(80).toStdString();
    }
    platform.container.available = false;
    EXPECT_EQ(std::pair(Shared::statsURL(), Shared::readRates()),
              std::pair(std::optional<QString>(), none));
}

TEST(FormatRate, Thresholds) {
    const std::pair<double, const char*> cases[] = {
        {0, "0 B/s"},           {1023, "1023 B/s"},    {1024, "1 KB/s"},      {1536, "2 KB/s"},
        {1048575, "1024 KB/s"}, {1048576, "1.0 MB/s"}, {1572864, "1.5 MB/s"}, {-5, "-5 B/s"}};
    for (const auto& [rate, text] : cases) EXPECT_EQ(formatRate(rate), text) << rate;
}

}  // namespace
