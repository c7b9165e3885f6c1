#include "platform/log.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QTemporaryDir>

#include "platform/seam.h"

namespace {

using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

// A journal of the test's own: a datagram socket bound in a temporary folder, read the way the
// journal reads its native socket.
struct TestJournal {
    QTemporaryDir directory;
    const std::string path = directory.filePath("socket").toStdString();
    int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);

    TestJournal() {
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    ~TestJournal() { ::close(socket); }

    // The next entry; empty when none is waiting.
    std::string receive() const {
        std::string bytes(1 << 16, '\0');
        bytes.resize(std::size_t(
            std::max<ssize_t>(::recv(socket, bytes.data(), bytes.size(), MSG_DONTWAIT), 0)));
        return bytes;
    }
};

std::string field(const std::string& name, const std::string& value) {
    return name + "=" + value + "\n";
}

TEST(JournalLogSink, SendsEachLineAsOneEntryInTheNativeFormat) {
    TestJournal journal;
    const auto sink = platform::journalLogSink(journal.path);
    platform::StandIn<platform::LogSink> standIn(*sink);
    const auto tail = [](const char* priority) {
        return field("PRIORITY", priority) + field("SUBSYSTEM", "com.norva.vaskel.menubar") +
               field("CATEGORY", "ui") + field("SYSLOG_IDENTIFIER", "vaskel");
    };
    // A value with a newline goes as name, newline, 64-bit little-endian length, value, newline.
    const std::string twoLines = std::string("MESSAGE\n\x0b\0\0\0\0\0\0\0sync\nfailed\n", 28);
    // clang-format off
    const std::tuple<bool, QString, std::string> cases[] = {  // error, message, entry
        {false, "status item created", field("MESSAGE", "status item created") + tail("6")},
        {true, "refresh failed: offline", field("MESSAGE", "refresh failed: offline") + tail("3")},
        {true, "", field("MESSAGE", "") + tail("3")},
        {false, QString::fromUtf8("Grüße = ok"), field("MESSAGE", "Grüße = ok") + tail("6")},
        {false, "sync\nfailed", twoLines + tail("6")},
    };
    // clang-format on
    CaptureStderr();
    for (const auto& [error, message, expected] : cases) {
        error ? mlog.error(message) : mlog.info(message);
        EXPECT_EQ(journal.receive(), expected) << message.left(40).toStdString();
    }
    EXPECT_EQ(GetCapturedStderr(), "") << "what the journal takes stays off standard error";
    EXPECT_EQ(journal.receive(), "") << "one entry per line";
}

TEST(JournalLogSink, WithoutAJournalFallsBackToStandardErrorUnlessTurnedOff) {
    TestJournal refusing;
    ::close(std::exchange(refusing.socket, -1));  // the socket file stays, so senders are refused
    for (const std::string& path :
         {QTemporaryDir().filePath("none").toStdString(), refusing.path}) {
        const auto sink = platform::journalLogSink(path);
        platform::StandIn<platform::LogSink> standIn(*sink);
        CaptureStderr();
        mlog.error("refresh failed: offline");
        platform::setLogFallbackToStandardError(false);
        mlog.info("status item created");
        platform::setLogFallbackToStandardError(true);
        EXPECT_EQ(GetCapturedStderr(),
                  "vaskel [com.norva.vaskel.menubar:ui] error: refresh failed: offline\n")
            << path;
    }
}

}  // namespace
