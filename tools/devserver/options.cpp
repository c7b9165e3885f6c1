#include "options.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>

namespace {

constexpr char USAGE[] = R"(usage: vaskel-devserver [options]

A local storage server with one demo account, for trying Vaskel against
http://127.0.0.1:PORT. It answers POST /vaskel/api/auth/login,
POST /vaskel/api/auth/logout and GET /vaskel/api/me, and serves a
placeholder page under /vaskel/account/.

  --port N                 port on 127.0.0.1 (default 8080; 0 picks a free one)
  --email TEXT             the demo account's e-mail (default demo@example.com)
  --password TEXT          its password (default demo)
  --name TEXT              the account holder's name (default "Demo User")
  --quota-bytes N          storage quota in bytes (default 5000000000)
  --used-bytes N           storage in use in bytes (default 1200000000)
  --unlimited              no quota
  --plan TEXT              plan name (default Pro; empty for none)
  --billing-status TEXT    active, past_due or suspended (default active)
  --account-state TEXT     active, inactive (no plan yet) or unverified
  --key TEXT               also accept this account key without signing in
  --update-version TEXT    offer a newer client with this version
  --update-build N         its build number
  --update-url URL         where to download it
  --update-notes TEXT      its release notes
  --help                   this text
)";

bool readInteger(const char* text, std::int64_t& out) {
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0') return false;
    out = value;
    return true;
}

}  // namespace

std::optional<DemoOptions> parseOptions(int argc, char** argv, int& exitCode) {
    DemoOptions options;
    std::int64_t port = options.port;
    const std::map<std::string, std::function<bool(const char*)>> withValue{
        {"--port",
         [&](const char* v) { return readInteger(v, port) && port >= 0 && port < 65536; }},
        {"--email", [&](const char* v) { return options.email = v, true; }},
        {"--password", [&](const char* v) { return options.password = v, true; }},
        {"--name", [&](const char* v) { return options.name = v, true; }},
        {"--quota-bytes", [&](const char* v) { return readInteger(v, options.quotaBytes); }},
        {"--used-bytes", [&](const char* v) { return readInteger(v, options.usedBytes); }},
        {"--plan", [&](const char* v) { return options.plan = v, true; }},
        {"--billing-status", [&](const char* v) { return options.billingStatus = v, true; }},
        {"--account-state",
         [&](const char* v) {
             options.accountState = v;
             return options.accountState == "active" || options.accountState == "inactive" ||
                    options.accountState == "unverified";
         }},
        {"--key", [&](const char* v) { return options.presetKey = v, true; }},
        {"--update-version", [&](const char* v) { return options.updateVersion = v, *v != '\0'; }},
        {"--update-build", [&](const char* v) { return readInteger(v, options.updateBuild); }},
        {"--update-url", [&](const char* v) { return options.updateUrl = v, true; }},
        {"--update-notes", [&](const char* v) { return options.updateNotes = v, true; }},
    };
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--help" || option == "-h") {
            std::fputs(USAGE, stdout);
            exitCode = 0;
            return std::nullopt;
        }
        if (option == "--unlimited") {
            options.unlimited = true;
            continue;
        }
        const auto handler = withValue.find(option);
        if (handler == withValue.end() || i + 1 >= argc || !handler->second(argv[i + 1])) {
            std::fprintf(stderr, "vaskel-devserver: bad option or value: %s\n%s", option.c_str(),
                         USAGE);
            exitCode = 2;
            return std::nullopt;
        }
        ++i;
    }
    options.port = int(port);
    return options;
}
