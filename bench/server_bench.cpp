// A full sign-in (password sign-in, then the account status with the new key) against the
// loopback server, made three ways: by the program's client; by curl, one process making both
// requests over one connection; and by cpp-httplib's own client in this process, about the
// least any client can spend, so that it stands for the server's own time. All three ask for
// the same compressions, so the server does the same work for each.
#include <benchmark/benchmark.h>
#include <httplib.h>
#include <spawn.h>
#include <sys/wait.h>

#include <QCoreApplication>
#include <string>
#include <vector>

#include "platform/network_session.h"
#include "server/account_status.h"
#include "server/sign_in.h"
#include "support/completion_probe.h"
#include "support/loopback_server.h"

extern char** environ;

namespace {

using testing_support::CompletionProbe;
using testing_support::LoopbackServer;

const char LOGIN_BODY[] =
    R"({"api_key":"vk_live_6f1c0d3e9a7b4c2d8e5f1a0b","user":{"email":"ada@example.com","name":"Ada Lovelace"}})";
const char ACCOUNT_BODY[] =
    R"({"email":"ada@example.com","name":"Ada Lovelace","used_bytes":4100000000,"quota_bytes":5000000000,"unlimited":false,"plan_name":"Pro","status":"active","client":{"update_available":false}})";
// What Qt's network stack asks for; every client asks the same, so the server compresses alike.
const char ACCEPT_ENCODING[] = "zstd, br, gzip, deflate";
const char CREDENTIALS[] =
    R"({"device_name":"bench","email":"ada@example.com","password":"correct horse"})";

LoopbackServer& server() {
    static LoopbackServer* running = [] {
        auto* created = new LoopbackServer;
        created->script("POST", "/vaskel/api/auth/login", {.body = LOGIN_BODY});
        created->script("GET", "/vaskel/api/me", {.body = ACCOUNT_BODY});
        return created;
    }();
    return *running;
}

void BM_signInWithClient(benchmark::State& state) {
    const QString origin = server().origin();
    for (auto _ : state) {
        CompletionProbe<Result<DeviceLogin, AuthError>> login;
        loginWithPassword(origin, "ada@example.com", "correct horse", "bench", login.callback());
        const QString key = login.wait().value().apiKey;
        CompletionProbe<Result<Account, SignInError>> account;
        fetchAccount(origin, key, account.callback());
        if (!account.wait().ok()) state.SkipWithError("account status failed");
    }
    server().clearRequests();
}
BENCHMARK(BM_signInWithClient)->UseRealTime();

void BM_signInWithHttplibClient(benchmark::State& state) {
    httplib::Client client(server().origin().toStdString());
    const httplib::Headers compressed{{"Accept-Encoding", ACCEPT_ENCODING}};
    httplib::Headers withKey = compressed;
    withKey.emplace("X-API-Key", "vk_live_6f1c0d3e9a7b4c2d8e5f1a0b");
    for (auto _ : state) {
        auto login =
            client.Post("/vaskel/api/auth/login", compressed, CREDENTIALS, "application/json");
        auto account = client.Get("/vaskel/api/me", withKey);
        if (!login || !account || account->status != 200) state.SkipWithError("request failed");
    }
    server().clearRequests();
}
BENCHMARK(BM_signInWithHttplibClient)->UseRealTime();

void BM_signInWithCurl(benchmark::State& state) {
    const std::string origin = server().origin().toStdString();
    std::vector<std::string> arguments{"curl",
                                       "-s",
                                       "-o",
                                       "/dev/null",
                                       "-X",
                                       "POST",
                                       "-H",
                                       "Content-Type: application/json",
                                       "--data",
                                       CREDENTIALS,
                                       origin + "/vaskel/api/auth/login",
                                       "--next",
                                       "-s",
                                       "-o",
                                       "/dev/null",
                                       "-H",
                                       "X-API-Key: vk_live_6f1c0d3e9a7b4c2d8e5f1a0b",
                                       origin + "/vaskel/api/me"};
    std::vector<char*> argv;
    for (auto& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    for (auto _ : state) {
        pid_t child = 0;
        if (posix_spawnp(&child, "curl", nullptr, nullptr, argv.data(), environ) != 0) {
            state.SkipWithError("curl is not installed");
            break;
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) state.SkipWithError("curl failed");
    }
    server().clearRequests();
}
BENCHMARK(BM_signInWithCurl)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    platform::NetworkSession::shared().reset();
    server().stop();
    return 0;
}
