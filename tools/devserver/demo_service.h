#pragma once

#include <chrono>
#include <deque>
#include <mutex>
#include <set>
#include <string>

#include "options.h"

namespace httplib {
class Server;
}

/// The three endpoints of the storage service for one demo account: password sign-in issues a
/// fresh account key per device, the account status answers for any live key, and sign-out
/// revokes the key it is given. State lives in memory only.
class DemoService {
public:
    explicit DemoService(DemoOptions options);

    /// Adds the service's routes to `server`; the service must outlive the server.
    void install(httplib::Server& server);

private:
    struct Answer {
        int status;
        std::string json;
    };
    Answer login(const std::string& body);
    Answer logout(const std::string& key);
    Answer me(const std::string& key);
    std::string accountJson() const;
    bool tooManyFailures();

    const DemoOptions options_;
    std::mutex mutex_;
    std::set<std::string> keys_;
    std::deque<std::chrono::steady_clock::time_point> failures_;
};
