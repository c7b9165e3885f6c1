// The development server of tools/devserver, driven by the real client.
#include <gtest/gtest.h>

#include <QProcess>
#include <QRegularExpression>

#include "platform/network_session.h"
#include "server/account_status.h"
#include "server/sign_in.h"
#include "support/completion_probe.h"
#include "support/qt_printing.h"

namespace {

using testing_support::CompletionProbe;

TEST(DevServer, SignsInReportsTheDemoAccountAndSignsOut) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "ThreadSanitizer cannot follow a process that forks while other threads run";
#endif
    QProcess process;
    process.start(
        QStringLiteral(VASKEL_DEVSERVER),
        {"--port", "0", "--email", "ada@example.com", "--password", "s3cret pw", "--quota-bytes",
         "100", "--used-bytes", "96", "--plan", "Solo", "--billing-status", "past_due",
         "--update-version", "2.0", "--update-build", "3"});
    ASSERT_TRUE(process.waitForReadyRead(10'000));
    const QString origin = QRegularExpression(QStringLiteral("http://127\\.0\\.0\\.1:\\d+"))
                               .match(QString::fromUtf8(process.readLine()))
                               .captured();
    ASSERT_FALSE(origin.isEmpty());
    const auto signIn = [&](const QString& password) {
        CompletionProbe<Result<DeviceLogin, AuthError>> probe;
        loginWithPassword(origin, " ADA@example.com ", password, "laptop", probe.callback());
        return probe.wait();
    };
    const auto account = [&](const QString& key) {
        CompletionProbe<Result<Account, SignInError>> probe;
        fetchAccount(origin, key, probe.callback());
        return probe.wait();
    };

    EXPECT_EQ(signIn("wrong"), AuthError::badCredentials());
    const auto login = signIn("s3cret pw");
    ASSERT_TRUE(login.ok());
    EXPECT_EQ(login.value().server, origin);
    EXPECT_EQ(login.value().email, "ada@example.com");
    const auto status = account(login.value().apiKey + "\n");
    ASSERT_TRUE(status.ok());
    EXPECT_EQ(status.value().glanceLabel(), "Solo \u00b7 96 bytes of 100 bytes used (96%)");
    EXPECT_TRUE(status.value().spaceNotice());
    EXPECT_TRUE(status.value().paymentNotice());
    ASSERT_TRUE(status.value().update);
    EXPECT_EQ(status.value().update->label(), "2.0 (3)");

    CompletionProbe<bool> signedOut;
    logoutDevice(origin, login.value().apiKey, signedOut.callback());
    EXPECT_TRUE(signedOut.wait());
    EXPECT_EQ(account(login.value().apiKey), SignInError::rejected());
    platform::NetworkSession::shared().reset();
    process.terminate();
    process.waitForFinished(10'000);
}

}  // namespace
