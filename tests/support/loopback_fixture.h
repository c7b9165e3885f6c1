#pragma once

#include <gtest/gtest.h>

#include "platform/network_session.h"
#include "support/loopback_server.h"
#include "support/qt_printing.h"

namespace testing_support {

/// A loopback server per test, over the transport of the test's parameter. Over HTTPS the
/// network session trusts the server's generated certificate for the test's duration; at the
/// end the session drops its connections before the server stops.
class LoopbackTest : public ::testing::TestWithParam<Transport> {
protected:
    void SetUp() override {
        static const TestCertificate certificate = TestCertificate::generate();  // once per run
        platform::NetworkSession::shared().setExtraTrustedCertificates(
            {certificate.qtCertificate()});
        server = std::make_unique<LoopbackServer>(GetParam(), &certificate);
    }
    void TearDown() override {
        platform::NetworkSession::shared().reset();
        server->stop();
        platform::NetworkSession::shared().setExtraTrustedCertificates({});
        platform::NetworkSession::shared().setTimeoutCap(std::nullopt);
    }

    std::unique_ptr<LoopbackServer> server;
};

/// "http" or "https", for test names.
inline std::string transportName(const ::testing::TestParamInfo<Transport>& info) {
    return info.param == Transport::https ? "https" : "http";
}

}  // namespace testing_support
