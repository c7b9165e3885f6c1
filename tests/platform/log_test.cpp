#include "platform/log.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
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
class TestJournal {
public:
    TestJournal() : path_(directory_.filePath("socket").toStdString()) {
        descriptor_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path_.c_str(), sizeof(address.sun_path) - 1);
        EXPECT_EQ(::bind(descriptor_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0)
            << std::strerror(errno);
    }
    ~TestJournal() { close(); }

    const std::string& path() const { return path_; }
    // Stops listening; the socket file stays, so senders are refused.
    void close() {
        if (descriptor_ >= 0) ::close(descriptor_);
        descriptor_ = -1;
    }

    struct Entry {
        std::string bytes;
        bool inMemoryFile = false;
    };
    // The next entry, or nothing (empty bytes) when none is waiting.
    Entry receive() {
        std::string buffer(1 << 16, '\0');
        iovec content{buffer.data(), buffer.size()};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
        msghdr message{};
        message.msg_iov = &content;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof(control);
        const ssize_t received = ::recvmsg(descriptor_, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        if (received < 0) return {};
        const cmsghdr* rights = CMSG_FIRSTHDR(&message);
        if (!rights || rights->cmsg_type != SCM_RIGHTS) {
            return {buffer.substr(0, std::size_t(received)), false};
        }
        int file = -1;
        std::memcpy(&file, CMSG_DATA(rights), sizeof(int));
        Entry entry{{}, true};
        char chunk[1 << 16];
        for (off_t offset = 0;;) {
            const ssize_t read = ::pread(file, chunk, sizeof(chunk), offset);
            if (read <= 0) break;
            entry.bytes.append(chunk, std::size_t(read));
            offset += read;
        }
        ::close(file);
        return entry;
    }

private:
    QTemporaryDir directory_;
    std::string path_;
    int descriptor_ = -1;
};

std::string field(const std::string& name, const std::string& value) {
    return name + "=" + value + "\n";
}

std::string tail(const char* priority) {
    return field("PRIORITY", priority) + field("SUBSYSTEM", "com.norva.vaskel.menubar") +
           field("CATEGORY", "ui") + field("SYSLOG_IDENTIFIER", "vaskel");
}

TEST(JournalLogSink, SendsEachLineAsOneEntryInTheNativeFormat) {
    TestJournal journal;
    const auto sink = platform::journalLogSink(journal.path());
    platform::StandIn<platform::LogSink> standIn(*sink);
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
    };
    const QByteArray standardError = captureStandardError([&] {
        for (const auto& each : cases) {
            each.error ? mlog.error(each.message) : mlog.info(each.message);
            const auto entry = journal.receive();
            EXPECT_EQ(entry.bytes, each.expected) << each.message.toStdString();
            EXPECT_FALSE(entry.inMemoryFile);
        }
    });
    EXPECT_EQ(standardError, "") << "what the journal takes stays off standard error";
    EXPECT_EQ(journal.receive().bytes, "") << "one entry per line";
}

TEST(JournalLogSink, AnEntryTooLargeForADatagramTravelsInAMemoryFile) {
    // A fresh datagram socket has the send buffer that the sink's socket has; a datagram must
    // be smaller than it.
    const int probe = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    int sendBuffer = 0;
    socklen_t size = sizeof(sendBuffer);
    ASSERT_EQ(::getsockopt(probe, SOL_SOCKET, SO_SNDBUF, &sendBuffer, &size), 0);
    ::close(probe);

    TestJournal journal;
    const auto sink = platform::journalLogSink(journal.path());
    const std::string large(std::size_t(sendBuffer) + 1, 'x');
    sink->write(platform::LogLevel::info, "com.norva.vaskel.menubar", "ui",
                QString::fromStdString(large));
    const auto entry = journal.receive();
    EXPECT_TRUE(entry.inMemoryFile);
    EXPECT_EQ(entry.bytes, field("MESSAGE", large) + tail("6"));
}

TEST(JournalLogSink, WithoutAJournalFallsBackToStandardErrorUnlessTurnedOff) {
    TestJournal refusing;
    refusing.close();
    const std::string absent = QTemporaryDir().filePath("none").toStdString();
    for (const std::string& path : {absent, refusing.path()}) {
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
