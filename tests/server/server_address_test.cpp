#include <gtest/gtest.h>

#include "support/qt_printing.h"

#include "server/client_header.h"
#include "server/server_address.h"

namespace {

TEST(ServerAddress, Normalises) {
    const std::pair<QString, QString> cases[] = {
        {" \tcloud.example.com/\n", "https://cloud.example.com"},
        {"https://cloud.example.com///", "https://cloud.example.com"},
        {"http://127.0.0.1:8080/", "http://127.0.0.1:8080"},
        {"Cloud.Example.COM/base/?q=1", "https://Cloud.Example.COM/base/?q=1"},
        {" \r\n ", DEFAULT_SERVER},
    };
    for (const auto& [input, expected] : cases) EXPECT_EQ(normaliseServer(input), expected);
    EXPECT_EQ(normaliseServerKeepingEmpty(QStringLiteral("  ")), QStringLiteral("https:"));
}

TEST(ServerAddress, WebAddresses) {
    const QString files = QStringLiteral("https://cloud.example.com/vaskel/account/files#files");
    const std::pair<QString, QString> cases[] = {
        {{}, files},
        {"/a//b c/", files + "/a/b%20c"},
        {"x#y?z/%/ü", files + "/x%23y%3Fz/%25/%C3%BC"},
        {"it's:@(1)+;b=c", files + "/it's:@(1)+%3Bb=c"},
    };
    for (const auto& [path, expected] : cases) {
        EXPECT_EQ(filesURL("cloud.example.com", path).value_or(QUrl()).toString(QUrl::FullyEncoded),
                  expected);
    }
    EXPECT_EQ(filesURL("", "///")->toString(), DEFAULT_SERVER + "/vaskel/account/files#files");
    EXPECT_EQ(portalURL(QStringLiteral("http://127.0.0.1:9/"))->toString(QUrl::FullyEncoded),
              QStringLiteral("http://127.0.0.1:9/vaskel/account/"));
    for (const char* server : {"https://cloud example.com", "https://[::1", "https://x:99999"}) {
        EXPECT_FALSE(portalURL(QString::fromUtf8(server))) << server;
        EXPECT_FALSE(filesURL(QString::fromUtf8(server), QStringLiteral("a"))) << server;
    }
}

TEST(ClientHeader, FallsBackFieldByField) {
    using platform::BundleInfo;
    const std::pair<BundleInfo, QString> cases[] = {
        {{"2.3", "41", "vaskel", "Vaskel Host"}, "linux/2.3 (41); vaskel"},
        {{"2.3", "41", std::nullopt, "Vaskel Host"}, "linux/2.3 (41); Vaskel Host"},
        {{}, "linux/0 (0); Vaskel"},
    };
    for (const auto& [info, expected] : cases) EXPECT_EQ(clientHeaderFor(info), expected);
}

}  // namespace
