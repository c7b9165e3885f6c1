#include "support/loopback_fixture.h"

#include "platform/network_session.h"

namespace testing_support {

const TestCertificate& LoopbackTest::certificate() {
    static const TestCertificate generated = TestCertificate::generate();
    return generated;
}

void LoopbackTest::SetUp() {
    platform::NetworkSession::shared().setExtraTrustedCertificates({certificate().qtCertificate()});
    server = std::make_unique<LoopbackServer>(GetParam(), &certificate());
}

void LoopbackTest::TearDown() {
    platform::NetworkSession& session = platform::NetworkSession::shared();
    session.reset();
    server->stop();
    session.setExtraTrustedCertificates({});
    session.setTimeoutCap(std::nullopt);
}

std::string transportName(const ::testing::TestParamInfo<Transport>& info) {
    return info.param == Transport::https ? "https" : "http";
}

}  // namespace testing_support
