#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "support/loopback_server.h"
#include "support/qt_printing.h"

namespace testing_support {

/// A loopback server per test, over the transport of the test's parameter. Over HTTPS the
/// network session trusts the server's generated certificate for the test's duration; at the
/// end the session drops its connections before the server stops.
class LoopbackTest : public ::testing::TestWithParam<Transport> {
protected:
    void SetUp() override;
    void TearDown() override;

    /// The certificate of the HTTPS servers, made once per run.
    static const TestCertificate& certificate();

    std::unique_ptr<LoopbackServer> server;
};

/// "http" or "https", for test names.
std::string transportName(const ::testing::TestParamInfo<Transport>& info);

}  // namespace testing_support
