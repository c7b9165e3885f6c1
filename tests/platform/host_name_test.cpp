#include "platform/host_name.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include "support/qt_printing.h"
#include "support/test_files.h"

namespace {

TEST(HostName, ReadsThePrettyNameAsTheShellWould) {
    // clang-format off
    const std::pair<QByteArray, std::optional<QString>> cases[] = {
        {"PRETTY_HOSTNAME=Workstation\n", "Workstation"},
        {"PRETTY_HOSTNAME=\"Ada's Laptop\"\nCHASSIS=laptop\n", "Ada's Laptop"},
        {"PRETTY_HOSTNAME='Say \"hi\"'", "Say \"hi\""},
        {"PRETTY_HOSTNAME=Ada\\'s\\ Box", "Ada's Box"},
        {"  PRETTY_HOSTNAME = \"Büro\"  \n", "Büro"},
        {"PRETTY_HOSTNAME=first\nPRETTY_HOSTNAME=second\n", "second"},
        {"# PRETTY_HOSTNAME=commented\n;PRETTY_HOSTNAME=too\n", std::nullopt},
        {"PRETTY_HOSTNAME=\"  \"\n", std::nullopt},
        {"PRETTY_HOSTNAMES=other\nICON_NAME=computer\n", std::nullopt},
    };
    // clang-format on
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(platform::prettyHostName(text), expected) << text.constData();
}

TEST(HostName, FallsBackFromThePrettyToTheStaticNameToNone) {
    QTemporaryDir root;
    const QString info = root.path() + "/machine-info", hostname = root.path() + "/hostname";
    EXPECT_EQ(platform::localizedHostName(info, hostname), std::nullopt) << "neither file";
    testing_support::writeFile(hostname, "# set by the installer\n\n  ada-laptop  \nignored\n");
    testing_support::writeFile(info, "CHASSIS=laptop\n");
    EXPECT_EQ(platform::localizedHostName(info, hostname), "ada-laptop") << "no pretty name";
    testing_support::writeFile(info, "PRETTY_HOSTNAME=\"Ada's Laptop\"\n");
    EXPECT_EQ(platform::localizedHostName(info, hostname), "Ada's Laptop");
    EXPECT_EQ(platform::staticHostName("# only a comment\n\n"), std::nullopt);
}

}  // namespace
