#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// The demo account and how the server runs, as given on the command line.
struct DemoOptions {
    int port = 8080;
    std::string email = "demo@example.com";
    std::string password = "demo";
    std::string name = "Demo User";
    std::int64_t quotaBytes = 5'000'000'000;
    std::int64_t usedBytes = 1'200'000'000;
    bool unlimited = false;
    std::string plan = "Pro";
    std::string billingStatus = "active";  // "past_due" and "suspended" raise notices
    std::string accountState = "active";   // "inactive" (no plan) or "unverified"
    std::optional<std::string> presetKey;  // a key accepted without signing in
    std::optional<std::string> updateVersion;
    std::int64_t updateBuild = 0;
    std::string updateUrl;
    std::string updateNotes;
};

/// Reads the command line; on a mistake or --help prints to `error` or standard output and
/// returns none with `exitCode` set.
std::optional<DemoOptions> parseOptions(int argc, char** argv, int& exitCode);
