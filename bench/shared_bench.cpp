// Costs of the configuration and rate reads that the tray agent's 1-second tick makes, on files
// shaped like real ones in a throwaway home directory.
#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QFile>
#include <QJsonObject>

#include "shared/config.h"
#include "shared/rates.h"
#include "support/fake_platform.h"

namespace {

void writeRealisticConfig() {
    Shared::setConfig(QStringLiteral("server"), QStringLiteral("https://cloud.vaskel.app"));
    Shared::setConfig(QStringLiteral("account_email"), QStringLiteral("ada.lovelace@example.com"));
    Shared::setConfig(QStringLiteral("api_key"),
                      QStringLiteral("vk_live_6f1c0d3e9a7b4c2d8e5f1a0b3c6d9e2f7a4b1c8d"));
    Shared::setConfig(QStringLiteral("transfers_paused"), false);
    Shared::setConfig(QStringLiteral("max_download_kbps"), 2500);
    Shared::setConfig(QStringLiteral("max_upload_kbps"), 1000);
}

void BM_readConfig(benchmark::State& state) {
    testing_support::FakePlatform platform;
    writeRealisticConfig();
    for (auto _ : state) benchmark::DoNotOptimize(Shared::readConfig());
}
BENCHMARK(BM_readConfig);

void BM_setConfig(benchmark::State& state) {
    testing_support::FakePlatform platform;
    writeRealisticConfig();
    bool paused = false;
    for (auto _ : state) Shared::setConfig(QStringLiteral("transfers_paused"), paused = !paused);
}
BENCHMARK(BM_setConfig);

void BM_readRates(benchmark::State& state) {
    testing_support::FakePlatform platform;
    QFile stats(*Shared::statsURL());
    stats.open(QIODevice::WriteOnly);
    stats.write(R"({"at": 1800000000.5, "down_bps": 1843200.0, "up_bps": 65536.0,)"
                R"( "active_downloads": 3, "active_uploads": 1, "pending": 12})");
    stats.close();
    for (auto _ : state) benchmark::DoNotOptimize(Shared::readRates());
}
BENCHMARK(BM_readRates);

// The home directory as the program looks it up, through the user database.
void BM_realHomeLookup(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(Shared::home());
}
BENCHMARK(BM_realHomeLookup);

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
