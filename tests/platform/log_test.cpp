#include "platform/log.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QTemporaryFile>

namespace {

bool journalPresent() {
    struct stat info {};
    return ::stat("/run/systemd/journal/socket", &info) == 0;
}

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
    if (journalPresent()) GTEST_SKIP() << "this machine has a journal; lines go there";

    const QByteArray shown = captureStandardError([] { mlog.error("refresh failed: offline"); });
    EXPECT_EQ(shown, "vaskel [com.norva.vaskel.menubar:ui] error: refresh failed: offline\n");

    platform::setLogFallbackToStandardError(false);
    const QByteArray hidden = captureStandardError([] { mlog.info("status item created"); });
    platform::setLogFallbackToStandardError(true);
    EXPECT_EQ(hidden, "");
}

}  // namespace
