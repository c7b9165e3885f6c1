#include "shared/config.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include "support/fake_platform.h"

namespace {

using testing_support::FakePlatform;

mode_t modeOf(const QString& path) {
    struct stat info {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0) return 0;
    return info.st_mode & 07777;
}

QByteArray contentsOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

void writeRaw(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
}

class ConfigTest : public ::testing::Test {
protected:
    FakePlatform platform;
    QString path = Shared::configPath();
};

TEST_F(ConfigTest, PathIsHomePlusFixedSuffix) {
    EXPECT_EQ(Shared::home(), platform.home.dir);
    EXPECT_EQ(path, platform.home.dir + "/.vaskel/config.json");
}

TEST_F(ConfigTest, UnusableFilesReadAsEmpty) {
    struct Case {
        const char* what;
        QByteArray contents;
    };
    const Case cases[] = {
        {"empty file", ""},
        {"not JSON", "server = https://x"},
        {"truncated JSON", R"({"server": "https://x)"},
        {"array at the top", R"(["server", "https://x"])"},
        {"string at the top", R"("server")"},
        {"number at the top", "42"},
        {"UTF-8 garbage", "\xff\xfe\x00{"},
    };
    EXPECT_TRUE(Shared::readConfig().isEmpty()) << "no file";
    for (const Case& c : cases) {
        writeRaw(path, c.contents);
        EXPECT_TRUE(Shared::readConfig().isEmpty()) << c.what;
    }
}

TEST_F(ConfigTest, DirectoryInPlaceOfTheFileReadsAsEmptyAndIsNeverReplaced) {
    QDir().mkpath(path);
    EXPECT_TRUE(Shared::readConfig().isEmpty());
    Shared::setConfig("server", "https://x");
    EXPECT_TRUE(QFileInfo(path).isDir());
    EXPECT_EQ(platform.log.messages(),
              QStringList{"config exists but could not be parsed; not overwriting"});
}

TEST_F(ConfigTest, FirstWriteCreatesPrivateDirectoryAndFile) {
    ::umask(0);  // the modes must not depend on the caller's umask
    Shared::setConfig("transfers_paused", true);
    ::umask(022);
    EXPECT_EQ(modeOf(platform.home.dir + "/.vaskel"), 0700u);
    EXPECT_EQ(modeOf(path), 0600u);
    EXPECT_EQ(contentsOf(path), "{\n    \"transfers_paused\": true\n}\n");
    EXPECT_EQ(QDir(platform.home.dir + "/.vaskel").entryList(QDir::Files | QDir::Hidden),
              QStringList{"config.json"})
        << "no temporary file is left behind";
}

TEST_F(ConfigTest, WritesMergeKeysSortedAndLogOnlyTheKeyName) {
    Shared::setConfig("server", "https://b.example");
    Shared::setConfig("api_key", "secret-key-123");
    Shared::setConfig("max_upload_kbps", 250);
    Shared::setConfig("server", "https://a.example");

    const QJsonObject config = Shared::readConfig();
    EXPECT_EQ(config.keys(), (QStringList{"api_key", "max_upload_kbps", "server"}));
    EXPECT_EQ(config.value("server").toString(), "https://a.example");
    EXPECT_EQ(contentsOf(path),
              "{\n    \"api_key\": \"secret-key-123\",\n    \"max_upload_kbps\": 250,\n"
              "    \"server\": \"https://a.example\"\n}\n");
    EXPECT_EQ(platform.log.messages(),
              (QStringList{"set server", "set api_key", "set max_upload_kbps", "set server"}));
    for (const auto& line : platform.log.lines()) {
        EXPECT_EQ(line.level, platform::LogLevel::info);
        EXPECT_EQ(line.subsystem, "com.norva.vaskel.menubar");
        EXPECT_EQ(line.category, "ui");
        EXPECT_FALSE(line.message.contains("secret")) << "values never reach the log";
    }
}

TEST_F(ConfigTest, KeepsKeysItDoesNotKnow) {
    writeRaw(path, R"({"extension_setting": {"nested": [1, 2]}, "server": "https://x"})");
    Shared::setConfig("transfers_paused", false);
    const QJsonObject config = Shared::readConfig();
    EXPECT_EQ(config.value("extension_setting").toObject().value("nested").toArray().size(), 2);
    EXPECT_EQ(config.value("server").toString(), "https://x");
}

TEST_F(ConfigTest, RewriteTightensAWiderFileMode) {
    writeRaw(path, R"({"server": "https://x"})");
    QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                    QFileDevice::ReadOther | QFileDevice::ReadGroup);
    Shared::setConfig("api_key", "k");
    EXPECT_EQ(modeOf(path), 0600u);
}

TEST_F(ConfigTest, RefusesToOverwriteAFileThatYieldsNothing) {
    const QByteArray damaged[] = {"{}", "{ }\n", "not json at all", "[1,2,3]", "", "{\"a\": "};
    for (const QByteArray& bytes : damaged) {
        platform.log.clear();
        writeRaw(path, bytes);
        Shared::setConfig("server", "https://x");
        EXPECT_EQ(contentsOf(path), bytes) << "left byte for byte: " << bytes.constData();
        ASSERT_EQ(platform.log.lines().size(), 1u);
        EXPECT_EQ(platform.log.lines()[0].level, platform::LogLevel::error);
        EXPECT_EQ(platform.log.lines()[0].message,
                  "config exists but could not be parsed; not overwriting");
    }
}

TEST_F(ConfigTest, WriteFailureIsLoggedAndChangesNothing) {
    // A file where the folder should be: the folder cannot be made, so the write fails.
    writeRaw(platform.home.dir + "/.vaskel", "not a folder");
    Shared::setConfig("server", "https://x");
    EXPECT_EQ(contentsOf(platform.home.dir + "/.vaskel"), "not a folder");
    ASSERT_EQ(platform.log.lines().size(), 1u);
    EXPECT_EQ(platform.log.lines()[0].level, platform::LogLevel::error);
    EXPECT_TRUE(platform.log.lines()[0].message.startsWith("could not write config: "))
        << platform.log.lines()[0].message.toStdString();
}

TEST(ConfigValues, TypeRules) {
    const QJsonObject config = QJsonDocument::fromJson(R"({
        "t": true, "f": false, "one": 1, "zero": 0, "minus": -3, "frac": 2.9, "negfrac": -2.9,
        "big": 1e300, "nbig": -1e300, "maxint": 9223372036854775807,
        "text": "1", "empty": "", "null": null, "list": [1], "object": {}
    })")
                                   .object();

    struct Case {
        const char* key;
        std::optional<QString> string;
        std::optional<bool> boolean;
        std::optional<qint64> integer;
    };
    const Case cases[] = {
        {"t", {}, true, 1},
        {"f", {}, false, 0},
        {"one", {}, true, 1},
        {"zero", {}, false, 0},
        {"minus", {}, true, -3},
        {"frac", {}, true, 2},
        {"negfrac", {}, true, -2},
        {"big", {}, true, std::numeric_limits<qint64>::max()},
        {"nbig", {}, true, std::numeric_limits<qint64>::min()},
        {"maxint", {}, true, std::numeric_limits<qint64>::max()},
        {"text", QString("1"), {}, {}},
        {"empty", QString(""), {}, {}},
        {"null", {}, {}, {}},
        {"list", {}, {}, {}},
        {"object", {}, {}, {}},
        {"absent", {}, {}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.key);
        EXPECT_EQ(Shared::configString(config, c.key), c.string);
        EXPECT_EQ(Shared::configBool(config, c.key), c.boolean);
        EXPECT_EQ(Shared::configInteger(config, c.key), c.integer);
    }
}

}  // namespace
