// Costs of the account-key calls that the agent makes on its main thread, against a real Secret
// Service. Only meaningful inside scripts/with-secret-service (never the user's own keyring):
//   scripts/with-secret-service -- build/bench_keychain_bench                      (gnome-keyring)
//   scripts/with-secret-service --no-secret-service -- build/bench_keychain_bench  (none on bus)
//   scripts/with-secret-service --no-bus -- build/bench_keychain_bench             (no bus)
#include <benchmark/benchmark.h>

#include <QCoreApplication>

#include "platform/keychain_backend.h"
#include "shared/config.h"
#include "shared/key_storage.h"
#include "shared/keychain_store.h"
#include "support/fake_platform.h"

namespace {

const QString KEY = QStringLiteral("vk_live_6f1c0d3e9a7b4c2d8e5f1a0b3c6d9e2f7a4b1c8d");

/// The real keychain of the wrapper's session with a throwaway home; false (and the benchmark
/// skipped) outside the wrapper.
bool inPrivateSession(benchmark::State& state) {
    if (qEnvironmentVariableIsSet("VASKEL_TEST_SECRET_SERVICE")) return true;
    state.SkipWithError("run inside scripts/with-secret-service (see the top of this file)");
    return false;
}

struct RealKeychain {
    testing_support::FakePlatform platform;
    platform::StandIn<platform::KeychainBackend> real{platform::KeychainBackend::real()};
};

// The lookup every user of the key makes: from the keychain, else the file copy.
void BM_storedKey(benchmark::State& state) {
    if (!inPrivateSession(state)) return;
    RealKeychain keychain;
    Shared::setConfig(QStringLiteral("api_key"), KEY);
    (void)KeychainStore::saveKey(KEY, QStringLiteral("ada@example.com"));
    for (auto _ : state) benchmark::DoNotOptimize(Shared::storedKey());
    KeychainStore::deleteKey();
}
BENCHMARK(BM_storedKey)->Unit(benchmark::kMillisecond);

// Sign-in's save: delete, then add.
void BM_saveKey(benchmark::State& state) {
    if (!inPrivateSession(state)) return;
    RealKeychain keychain;
    for (auto _ : state)
        benchmark::DoNotOptimize(KeychainStore::saveKey(KEY, QStringLiteral("ada@example.com")));
    KeychainStore::deleteKey();
}
BENCHMARK(BM_saveKey)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
