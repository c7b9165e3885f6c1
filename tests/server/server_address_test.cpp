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
        {"", DEFAULT_SERVER},
        {" \r\n ", DEFAULT_SERVER},
        {"ftp://files.example.com", "ftp://files.example.com"},
        {"/", "https:"},  // "https:///" loses every slash
    };
    for (const auto& [input, expected] : cases) {
        SCOPED_TRACE(input.toStdString());
        EXPECT_EQ(normaliseServer(input), expected);
    }
    EXPECT_EQ(normaliseServerKeepingEmpty(QStringLiteral("  ")), QStringLiteral("https:"));
    EXPECT_EQ(normaliseServerKeepingEmpty(QStringLiteral("h.example/")),
              QStringLiteral("https://h.example"));
}

TEST(ServerAddress, WebAddresses) {
    struct Case {
        QString server, path, expected;
    };
    const Case cases[] = {
        {"cloud.example.com", {}, "https://cloud.example.com/vaskel/account/files#files"},
        {"cloud.example.com", "/a//b c/",
         "https://cloud.example.com/vaskel/account/files#files/a/b%20c"},
        {"cloud.example.com", "Photos/2024 trip",
         "https://cloud.example.com/vaskel/account/files#files/Photos/2024%20trip"},
        {"cloud.example.com", "x#y?z/%/ü",
         "https://cloud.example.com/vaskel/account/files#files/x%23y%3Fz/%25/%C3%BC"},
        {"cloud.example.com", "it's:@(1)+",
         "https://cloud.example.com/vaskel/account/files#files/it's:@(1)+"},
        {"cloud.example.com", "a;b=c", "https://cloud.example.com/vaskel/account/files#files/a%3Bb=c"},
        {"", "///", DEFAULT_SERVER + "/vaskel/account/files#files"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path.toStdString());
        const std::optional<QUrl> url = filesURL(c.server, c.path);
        ASSERT_TRUE(url);
        EXPECT_EQ(url->toString(QUrl::FullyEncoded), c.expected);
    }
    EXPECT_EQ(portalURL(QStringLiteral("http://127.0.0.1:9/"))->toString(QUrl::FullyEncoded),
              QStringLiteral("http://127.0.0.1:9/vaskel/account/"));
}

TEST(ServerAddress, TextThatFormsNoURLOpensNothing) {
    for (const char* server :
         {"https://cloud example.com", "ht tp://x", "https://[::1", "https://x:99999"}) {
        SCOPED_TRACE(server);
        EXPECT_FALSE(portalURL(QString::fromUtf8(server)));
        EXPECT_FALSE(filesURL(QString::fromUtf8(server), QStringLiteral("a")));
    }
}

TEST(ClientHeader, FallsBackFieldByField) {
    using platform::BundleInfo;
    const std::pair<BundleInfo, QString> cases[] = {
        {{"2.3", "41", "vaskel", "Vaskel Host"}, "linux/2.3 (41); vaskel"},
        {{"2.3", "41", std::nullopt, "Vaskel Host"}, "linux/2.3 (41); Vaskel Host"},
        {{std::nullopt, std::nullopt, std::nullopt, std::nullopt}, "linux/0 (0); Vaskel"},
    };
    for (const auto& [info, expected] : cases) EXPECT_EQ(clientHeaderFor(info), expected);
    EXPECT_EQ(&vaskelClientHeader(), &vaskelClientHeader());
    EXPECT_TRUE(vaskelClientHeader().startsWith(QLatin1String("linux/")));
}

}  // namespace
