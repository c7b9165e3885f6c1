#include "shared/config.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QJsonDocument>

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
    EXPECT_EQ(path, dir + "/config.json");
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

TEST_F(ConfigTest, FilesThatYieldNothingAreNeverOverwrittenAndFailedWritesChangeNothing) {
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
    QDir(dir).removeRecursively();
    writeFile(dir, "not a folder");
    platform.log.clear();
    Shared::setConfig("server", "https://x");
    EXPECT_EQ(readFile(dir), "not a folder");
    ASSERT_EQ(platform.log.lines().size(), 1u);
    EXPECT_EQ(platform.log.lines()[0].level, platform::LogLevel::error);
    EXPECT_TRUE(platform.log.messages()[0].startsWith("could not write config: "));
}

TEST(ConfigValues, TypeRules) {
    const QJsonObject config = QJsonDocument::fromJson(R"({"t": true, "f": false, "zero": 0,
        "frac": 2.9, "negfrac": -2.9, "big": 1e300, "nbig": -1e300, "maxint": 9223372036854775807,
        "text": "1", "null": null})")
                                   .object();
    constexpr qint64 max = std::numeric_limits<qint64>::max();
    // Key; then the value as a string, as a flag and as an integer.
    // clang-format off
    const std::tuple<const char*, std::optional<QString>, std::optional<bool>, std::optional<qint64>> cases[] = {
        {"t", {}, true, 1}, {"f", {}, false, 0}, {"zero", {}, false, 0}, {"frac", {}, true, 2},
        {"negfrac", {}, true, -2}, {"big", {}, true, max}, {"maxint", {}, true, max},
        {"nbig", {}, true, -max - 1}, {"text", "1", {}, {}}, {"null", {}, {}, {}}};
    // clang-format on
    for (const auto& [key, string, boolean, integer] : cases) {
        EXPECT_EQ(std::tuple(Shared::configString(config, key), Shared::configBool(config, key),
                             Shared::configInteger(config, key)),
                  std::tuple(string, boolean, integer))
            << key;
    }
}

}  // namespace
