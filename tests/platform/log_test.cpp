#include "platform/log.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QTemporaryFile>

namespace {

// Runs `body` with standard error sent to a file and gives what was written there.
template <class Body>
QByteArray captureStandardError(Body body) {
    QTemporaryFile file;
    EXPECT_TRUE(file.open());
    std::fflush(stderr);
    const int saved = ::dup(STDERR_FILENO);
    ::dup2(file.handle(), STDERR_FILENO);
    body();
    std::fflush(stderr);
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);
    file.seek(0);
    return file.readAll();
}

TEST(RealLogSink, WithoutAJournalFallsBackToStandardErrorUnlessTurnedOff) {
    struct stat info {};
    if (::stat("/run/systemd/journal/socket", &info) == 0)
        GTEST_SKIP() << "lines go to the journal";
    EXPECT_EQ(captureStandardError([] { mlog.error("refresh failed: offline"); }),
              "vaskel [com.norva.vaskel.menubar:ui] error: refresh failed: offline\n");
    platform::setLogFallbackToStandardError(false);
    EXPECT_EQ(captureStandardError([] { mlog.info("status item created"); }), "");
    platform::setLogFallbackToStandardError(true);
}

}  // namespace
