#include "platform/log.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <QTemporaryDir>
#include <QTemporaryFile>
#include <cstring>
#include <string>

#include "platform/seam.h"

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

// A journal of the test's own: a datagram socket bound in a temporary folder, read the way the
// journal reads its native socket.
struct TestJournal {
    TestJournal() {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        EXPECT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    }
    ~TestJournal() { close(); }
    // Stops listening; the socket file stays, so senders are refused.
    void close() {
        if (socket >= 0) ::close(socket);
        socket = -1;
    }

    // The next entry (empty when none is waiting) and whether it came in a memory file.
    std::pair<std::string, bool> receive() const {
        std::string bytes(1 << 16, '\0');
        iovec content{bytes.data(), bytes.size()};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
        msghdr message{};
        message.msg_iov = &content;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof(control);
        const ssize_t received = ::recvmsg(socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        const cmsghdr* rights = received < 0 ? nullptr : CMSG_FIRSTHDR(&message);
        if (!rights || rights->cmsg_type != SCM_RIGHTS)
            return {bytes.substr(0, std::size_t(std::max<ssize_t>(received, 0))), false};
        int file = -1;
        std::memcpy(&file, CMSG_DATA(rights), sizeof(int));
        struct stat info {};
        ::fstat(file, &info);
        bytes.resize(std::size_t(info.st_size));
        EXPECT_EQ(::pread(file, bytes.data(), bytes.size(), 0), info.st_size);
        ::close(file);
        return {bytes, true};
    }

    QTemporaryDir directory;
    const std::string path = directory.filePath("socket").toStdString();
    int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

std::string field(const std::string& name, const std::string& value) {
    return name + "=" + value + "\n";
}

TEST(JournalLogSink, SendsEachLineAsOneEntryInTheNativeFormat) {
    // A datagram must be smaller than the send buffer, which a fresh socket shows; a larger
    // entry travels in a memory file.
    const int probe = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    int sendBuffer = 0;
    socklen_t size = sizeof(sendBuffer);
    ASSERT_EQ(::getsockopt(probe, SOL_SOCKET, SO_SNDBUF, &sendBuffer, &size), 0);
    ::close(probe);
    const std::string large(std::size_t(sendBuffer) + 1, 'x');

    TestJournal journal;
    const auto sink = platform::journalLogSink(journal.path);
    platform::StandIn<platform::LogSink> standIn(*sink);
    const auto tail = [](const char* priority) {
        return field("PRIORITY", priority) + field("SUBSYSTEM", "com.norva.vaskel.menubar") +
               field("CATEGORY", "ui") + field("SYSLOG_IDENTIFIER", "vaskel");
    };
    // A value with a newline goes as name, newline, 64-bit little-endian length, value, newline.
    const std::string twoLines =
        std::string("MESSAGE\n") + std::string("\x0b\0\0\0\0\0\0\0", 8) + "sync\nfailed" + "\n";
    const struct {
        bool error;
        QString message;
        std::string expected;
    } cases[] = {
        {false, "status item created", field("MESSAGE", "status item created") + tail("6")},
        {true, "refresh failed: offline", field("MESSAGE", "refresh failed: offline") + tail("3")},
        {true, "", field("MESSAGE", "") + tail("3")},
        {false, QString::fromUtf8("Grüße = ok"), field("MESSAGE", "Grüße = ok") + tail("6")},
        {false, "sync\nfailed", twoLines + tail("6")},
        {false, QString::fromStdString(large), field("MESSAGE", large) + tail("6")},
    };
    const QByteArray standardError = captureStandardError([&] {
        for (const auto& each : cases) {
            each.error ? mlog.error(each.message) : mlog.info(each.message);
            const auto [bytes, inMemoryFile] = journal.receive();
            EXPECT_EQ(bytes, each.expected) << each.message.left(40).toStdString();
            EXPECT_EQ(inMemoryFile, each.expected.size() > large.size());
        }
    });
    EXPECT_EQ(standardError, "") << "what the journal takes stays off standard error";
    EXPECT_EQ(journal.receive().first, "") << "one entry per line";
}

TEST(JournalLogSink, WithoutAJournalFallsBackToStandardErrorUnlessTurnedOff) {
    TestJournal refusing;
    refusing.close();
    for (const std::string& path :
         {QTemporaryDir().filePath("none").toStdString(), refusing.path}) {
        const auto sink = platform::journalLogSink(path);
        platform::StandIn<platform::LogSink> standIn(*sink);
        EXPECT_EQ(captureStandardError([] { mlog.error("refresh failed: offline"); }),
                  "vaskel [com.norva.vaskel.menubar:ui] error: refresh failed: offline\n")
            << path;
        platform::setLogFallbackToStandardError(false);
        EXPECT_EQ(captureStandardError([] { mlog.info("status item created"); }), "") << path;
        platform::setLogFallbackToStandardError(true);
    }
}

}  // namespace
