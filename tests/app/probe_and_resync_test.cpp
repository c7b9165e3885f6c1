#include "app/probe_and_resync.h"
#include "support/command_fixture.h"

using testing_support::runInProcess;

namespace {

class ProbeAndResyncTest : public testing_support::CommandFixture {
protected:
    QString cursor = platform.container.dir + "/group.com.norva.vaskel/cursor.json";
    void SetUp() override { registerOurDomain(); }
};

// Waits the whole 8 seconds of the probe once: the listing never returns.
TEST_F(ProbeAndResyncTest, ProbeReportsTheTimeWithTwoDecimalsOrThatNothingAnswered) {
    platform.clock.now = 100;
    provider.listing.onList = [this] { platform.clock.now = 100.3127; };
    EXPECT_EQ(runInProcess({"--probe"}).lines, QStringList{"extension responds (0.31s) — enabled"});

    provider.listing.onList = nullptr;
    provider.listing.setHang(true);
    EXPECT_EQ(runInProcess({"--probe"}).lines,
              (QStringList{"no response within 8s — the extension is probably not",
                           "switched on. System Settings > General > Login Items &",
                           "Extensions > File Providers, and enable Vaskel."}));
    provider.listing.release();
}

TEST_F(ProbeAndResyncTest, ResyncWithoutAWritableCursorDoesNotRefresh) {
    ASSERT_TRUE(QDir().mkpath(cursor + "/occupied"));
    const auto failed = runInProcess({"--resync"}).lines;
    ASSERT_EQ(failed.size(), 1);
    EXPECT_TRUE(failed[0].startsWith("could not rewind cursor: " + cursor + ": "));
    EXPECT_TRUE(QFileInfo(cursor + "/occupied").isDir());
    EXPECT_EQ(provider.workingSetSignals(DOMAIN_ID), 0);
}

}  // namespace
