#include <sys/stat.h>

#include "app/domain_commands.h"
#include "app/probe_and_resync.h"
#include "support/command_fixture.h"

using namespace platform;
using testing_support::CommandFixture;
using testing_support::runInProcess;

namespace {

const QStringList NO_RESPONSE{"no response within 8s — the extension is probably not",
                              "switched on. System Settings > General > Login Items &",
                              "Extensions > File Providers, and enable Vaskel."};

class ProbeAndResyncTest : public CommandFixture {
protected:
    QString cursorPath() { return platform.container.dir + "/group.com.norva.vaskel/cursor.json"; }
};

TEST_F(ProbeAndResyncTest, ProbeWithoutADomainAnswersAtOnce) {
    provider.listing.setHang(true);
    EXPECT_EQ(runInProcess({"--probe"}).lines, NO_RESPONSE);
    EXPECT_EQ(provider.listing.calls(), 0);
}

TEST_F(ProbeAndResyncTest, ProbeReportsTheTimeWithTwoDecimals) {
    registerOurDomain();
    platform.clock.now = 100;
    provider.listing.onList = [this] { platform.clock.now = 100.3127; };
    EXPECT_EQ(runInProcess({"--probe"}).lines, QStringList{"extension responds (0.31s) — enabled"});
}

// Waits the whole 8 seconds of the probe: the listing never returns.
TEST_F(ProbeAndResyncTest, ProbeOfAHangingExtension) {
    registerOurDomain();
    provider.listing.setHang(true);
    EXPECT_EQ(runInProcess({"--probe"}).lines, NO_RESPONSE);
    provider.listing.release();
}

TEST_F(ProbeAndResyncTest, ResyncWritesExactlyTheRewoundCursor) {
    EXPECT_EQ(rewoundCursor(), QByteArray(R"({"changeCursor":1})"));
    EXPECT_EQ(rewoundCursor().size(), 18);

    EXPECT_EQ(runInProcess({"--resync"}).lines,
              (QStringList{"cursor rewound; replaying the change feed",
                           QString::fromUtf8(NOT_REGISTERED_LINE)}));
    EXPECT_EQ(readFile(cursorPath()), rewoundCursor());

    registerOurDomain();
    writeFile(cursorPath(), R"({"changeCursor": 4711, "etag": "abc"})");
    EXPECT_EQ(runInProcess({"--resync"}).lines,
              (QStringList{"cursor rewound; replaying the change feed", "refresh signalled"}));
    EXPECT_EQ(readFile(cursorPath()), rewoundCursor());
    EXPECT_EQ(provider.workingSetSignals(DOMAIN_ID), 1);

    breakStateWrites();
    const auto failed = runInProcess({"--resync"});
    ASSERT_EQ(failed.lines.size(), 2);
    EXPECT_TRUE(failed.lines[1].startsWith("refresh failed: could not lock the state folder"));
}

TEST_F(ProbeAndResyncTest, ResyncWithoutAContainerOrWritableCursor) {
    registerOurDomain();
    platform.container.available = false;
    EXPECT_EQ(runInProcess({"--resync"}).lines, QStringList{"no app group container"});
    EXPECT_EQ(provider.workingSetSignals(DOMAIN_ID), 0);

    platform.container.available = true;
    ASSERT_TRUE(QDir().mkpath(cursorPath() + "/occupied"));
    const auto failed = runInProcess({"--resync"});
    ASSERT_EQ(failed.lines.size(), 1);
    EXPECT_TRUE(failed.lines[0].startsWith("could not rewind cursor: " + cursorPath() + ": "));
    EXPECT_EQ(provider.workingSetSignals(DOMAIN_ID), 0) << "no refresh after a failed write";
    EXPECT_TRUE(QFileInfo(cursorPath() + "/occupied").isDir());
}

}  // namespace
