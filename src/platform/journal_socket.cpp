#include "platform/journal_socket.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace platform {
namespace {

std::string entryBytes(std::initializer_list<JournalField> fields) {
    std::string bytes;
    for (const JournalField& field : fields) {
        bytes.append(field.name);
        if (field.value.find('\n') == std::string_view::npos) {
            bytes.push_back('=');
        } else {
            bytes.push_back('\n');
            std::uint64_t length = field.value.size();
            for (int byte = 0; byte < 8; ++byte, length >>= 8) bytes.push_back(char(length & 0xff));
        }
        bytes.append(field.value);
        bytes.push_back('\n');
    }
    return bytes;
}

// Interrupted writes are retried; false when the whole of `bytes` could not be written.
bool writeAll(int descriptor, const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = ::write(descriptor, bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        done += std::size_t(written);
    }
    return true;
}

// A memory file holding `bytes`, sealed so that the journal can trust it does not change while
// it reads; -1 when it cannot be made.
int sealedMemoryFile(const std::string& bytes) {
    const int file = ::memfd_create("journal-entry", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (file < 0) return -1;
    if (!writeAll(file, bytes) ||
        ::fcntl(file, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL) < 0) {
        ::close(file);
        return -1;
    }
    return file;
}

}  // namespace

JournalSocket::JournalSocket(std::string path)
    : path_(std::move(path)), descriptor_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}

JournalSocket::~JournalSocket() {
    if (descriptor_ >= 0) ::close(descriptor_);
}

bool JournalSocket::send(std::initializer_list<JournalField> fields) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (descriptor_ < 0 || path_.size() >= sizeof(address.sun_path)) return false;
    std::memcpy(address.sun_path, path_.data(), path_.size());

    std::string bytes = entryBytes(fields);
    iovec content{bytes.data(), bytes.size()};
    msghdr message{};
    message.msg_name = &address;
    message.msg_namelen = socklen_t(offsetof(sockaddr_un, sun_path) + path_.size());
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    ssize_t sent;
    do {
        sent = ::sendmsg(descriptor_, &message, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    if (sent >= 0) return true;
    if (errno != EMSGSIZE && errno != ENOBUFS) return false;

    // Too large for one datagram: the entry travels as a memory file and the datagram carries
    // only its descriptor.
    const int file = sealedMemoryFile(bytes);
    if (file < 0) return false;
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    message.msg_iov = nullptr;
    message.msg_iovlen = 0;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    cmsghdr* rights = CMSG_FIRSTHDR(&message);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(sizeof(int));
    std::memcpy(CMSG_DATA(rights), &file, sizeof(int));
    do {
        sent = ::sendmsg(descriptor_, &message, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    ::close(file);
    return sent >= 0;
}

}  // namespace platform
