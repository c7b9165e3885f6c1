// The stand-in of the sync extension: its made-up transfers and its side of the shared files.
// (The end-to-end run reads its progress through vaskel --progress.)
#include <gtest/gtest.h>

#include <functional>

#include "domain/domain_identity.h"
#include "shared/rates.h"
#include "support/fake_file_provider.h"
#include "support/fake_platform.h"
#include "support/test_files.h"
#include "sync-standin/sync_simulation.h"

using namespace standin;
using testing_support::readFile;
using testing_support::writeFile;

namespace {

constexpr double MIB = 1024 * 1024;

QJsonObject counts(const SyncSimulation& simulation, const char* kind) {
    return simulation.progress().value(QLatin1String(kind)).toObject();
}
qint64 count(const SyncSimulation& simulation, const char* kind, const char* name) {
    return counts(simulation, kind).value(QLatin1String(name)).toInteger();
}

TEST(SyncSimulationTest, LimitsInKibibytesAndThePauseBoundWhatMoves) {
    // download and upload limits in KB/s, paused; then bytes per second each way
    const std::tuple<qint64, qint64, bool, double, double> cases[] = {
        {0, 0, false, MIB, MIB},          // unlimited: the nominal speed
        {250, 5000, false, 256000, MIB},  // a limit above the speed changes nothing
        {100000, 1, false, MIB, 1024},
        {250, 250, true, 0, 0},
    };
    for (const auto& [down, up, paused, downRate, upRate] : cases) {
        SCOPED_TRACE(testing::Message() << down << " " << up << " " << paused);
        SyncSimulation simulation({MIB, 4, 8 * 1024 * 1024});
        Conditions now;
        now.localFiles = {{"already here.txt", 10}};
        simulation.step(now, 0);
        now.maxDownloadKbps = down, now.maxUploadKbps = up, now.paused = paused;
        now.localFiles.insert("dropped.bin", 8 * 1024 * 1024);
        simulation.step(now, 2);
        EXPECT_EQ(simulation.downloadRate(), downRate);
        EXPECT_EQ(simulation.uploadRate(), upRate);
        EXPECT_EQ(count(simulation, "downloading", "completedUnitCount"), qint64(2 * downRate));
        EXPECT_EQ(count(simulation, "uploading", "totalUnitCount"), 8 * 1024 * 1024)
            << "only the new file goes up";
        for (const char* kind : {"downloading", "uploading"}) {
            EXPECT_EQ(counts(simulation, kind).value("paused").toBool(), paused);
            EXPECT_FALSE(counts(simulation, kind).value("finished").toBool());
        }
    }
}

TEST(SyncSimulationTest, ANewSignalAddsABatchAndARewoundCursorDownloadsEverythingAgain) {
    SyncSimulation simulation({1e12, 3, 1000});  // everything finishes within a step
    Conditions now;
    now.workingSetSignals = 5, now.changeCursor = 40;
    simulation.step(now, 1);
    EXPECT_EQ(simulation.cursorToWrite(), 43) << "one change per file";
    EXPECT_TRUE(counts(simulation, "downloading").value("finished").toBool());
    const qint64 firstBatch = count(simulation, "downloading", "totalUnitCount");

    now.changeCursor = 43;
    simulation.step(now, 1);
    EXPECT_EQ(simulation.cursorToWrite(), std::nullopt) << "the same signal count: no new batch";
    now.workingSetSignals = 6;
    simulation.step(now, 1);
    EXPECT_EQ(simulation.cursorToWrite(), 46);
    const qint64 secondBatch = count(simulation, "downloading", "totalUnitCount");

    now.changeCursor = 1;
    simulation.step(now, 1);
    EXPECT_EQ(simulation.cursorToWrite(), 7);
    EXPECT_EQ(count(simulation, "downloading", "totalUnitCount"), firstBatch + secondBatch);
    EXPECT_TRUE(
        simulation.takeLog().contains("change feed rewound: downloading all 6 files again"));
}

TEST(SyncStandInFilesTest, VaskelReadsWhatItWritesAndADamagedFileStaysAsItIs) {
    testing_support::FakePlatform platform;
    testing_support::FakeFileProvider provider(platform.root.path() + "/state");
    provider.addDomain(DOMAIN_ID, "Vaskel");
    ExtensionFiles files(provider.service.stateDirectory(),
                         *platform.container.path(Shared::APP_GROUP));
    ASSERT_FALSE(files.writeStats(platform.clock.now - 1, 2048, 512));
    EXPECT_EQ(Shared::readRates(), (Shared::Rates{2048, 512, true}));

    ASSERT_FALSE(testing_support::waitFor([&](platform::ErrorCompletion done) {
        provider.service.evictItem(DOMAIN_ID, platform::ROOT_CONTAINER_ITEM_IDENTIFIER, done);
    }));
    Damage damage;  // none as long as the files are sound
    EXPECT_EQ(files.takeEvictionRequests(DOMAIN_ID, &damage),
              QStringList{platform::ROOT_CONTAINER_ITEM_IDENTIFIER});
    EXPECT_EQ(files.evictionRequests(DOMAIN_ID), QStringList()) << "handled";

    const QString domainState = provider.service.stateDirectory() + "/domains/" + DOMAIN_ID;
    const QString container = platform.container.dir + "/group.com.norva.vaskel";
    const std::pair<QString, std::function<Damage()>> writers[] = {
        {domainState + "/progress.json", [&] { return files.writeProgress(DOMAIN_ID, {}); }},
        {domainState + "/evictions.json",
         [&] { return files.takeEvictionRequests(DOMAIN_ID, &damage), damage; }},
        {container + "/cursor.json", [&] { return files.writeChangeCursor(2); }},
        {container + "/stats.json", [&] { return files.writeStats(0, 0, 0); }},
        {provider.registryPath(), [&] { return files.setDisconnected(DOMAIN_ID, true); }},
    };
    for (const auto& [path, write] : writers) {
        writeFile(path, "[1, 2");
        const Damage reported = write();
        ASSERT_TRUE(reported) << path.toStdString();
        EXPECT_TRUE(reported->contains(path)) << reported->toStdString();
        EXPECT_EQ(readFile(path), "[1, 2");
    }
}

}  // namespace
