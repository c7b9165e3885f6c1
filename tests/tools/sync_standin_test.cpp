// The stand-in of the sync extension: its made-up transfers and its side of the shared files.
// (The end-to-end run reads its progress through vaskel --progress.)
#include "shared/rates.h"
#include "support/command_fixture.h"
#include "sync-standin/sync_simulation.h"

using namespace standin;
using namespace testing_support;

namespace {

constexpr qint64 MIB = 1024 * 1024;

QJsonObject counts(const SyncSimulation& simulation, const char* kind) {
    return simulation.progress().value(QLatin1String(kind)).toObject();
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
        SyncSimulation simulation({MIB, 4, 8 * MIB});
        Conditions now;
        now.localFiles = {{"already here.txt", 10}};
        simulation.step(now, 0);
        now.maxDownloadKbps = down, now.maxUploadKbps = up, now.paused = paused;
        now.localFiles.insert("dropped.bin", 8 * MIB);  // only the new file goes up
        simulation.step(now, 2);
        const QJsonObject d = counts(simulation, "downloading"),
                          u = counts(simulation, "uploading");
        EXPECT_EQ(
            std::tuple(simulation.downloadRate(), simulation.uploadRate(),
                       d["completedUnitCount"].toInteger(), u["totalUnitCount"].toInteger(),
                       d["paused"].toBool(), u["paused"].toBool(),
                       d["finished"].toBool() || u["finished"].toBool()),
            std::tuple(downRate, upRate, qint64(2 * downRate), 8 * MIB, paused, paused, false))
            << down << " " << up << " " << paused;
    }
}

using SyncStandInFilesTest = CommandFixture;

TEST_F(SyncStandInFilesTest, VaskelReadsWhatItWritesAndADamagedFileStaysAsItIs) {
    registerOurDomain();
    const QString container = *platform.container.path(Shared::APP_GROUP);
    ExtensionFiles files(provider.service.stateDirectory(), container);
    ASSERT_FALSE(files.writeStats(platform.clock.now - 1, 2048, 512));
    EXPECT_EQ(Shared::readRates(), (Shared::Rates{2048, 512, true}));

    ASSERT_FALSE(waitFor([&](auto done) {
        provider.service.evictItem(DOMAIN_ID, platform::ROOT_CONTAINER_ITEM_IDENTIFIER, done);
    }));
    Damage damage;  // none as long as the files are sound
    EXPECT_EQ(files.takeEvictionRequests(DOMAIN_ID, &damage),
              QStringList{platform::ROOT_CONTAINER_ITEM_IDENTIFIER});
    EXPECT_EQ(files.evictionRequests(DOMAIN_ID), QStringList()) << "handled";

    const QString domainState = provider.service.stateDirectory() + "/domains/" + DOMAIN_ID;
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
        EXPECT_TRUE(write().value_or("").contains(path)) << path.toStdString();
        EXPECT_EQ(readFile(path), "[1, 2");
    }
}

}  // namespace
