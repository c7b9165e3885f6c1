#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace platform {

/// One field of a journal entry: an upper-case name (letters, digits, underscores) and a value of
/// any bytes.
struct JournalField {
    std::string_view name;
    std::string_view value;
};

/// Where the system journal takes entries in its native protocol.
inline constexpr std::string_view SYSTEM_JOURNAL_SOCKET = "/run/systemd/journal/socket";

/// Sends entries to the journal over its native datagram protocol, without libsystemd. An entry
/// is one datagram of "NAME=value\n" lines; a value that holds a newline goes as "NAME\n", its
/// length as 64-bit little-endian, the value and "\n". An entry too large for one datagram goes
/// in a sealed memory file whose descriptor rides along.
class JournalSocket {
public:
    /// A socket that sends to the journal listening at `path`.
    explicit JournalSocket(std::string path = std::string(SYSTEM_JOURNAL_SOCKET));
    ~JournalSocket();
    JournalSocket(const JournalSocket&) = delete;
    JournalSocket& operator=(const JournalSocket&) = delete;

    /// Sends one entry. False when no journal took it: nothing listens at the path, or the
    /// entry could not be sent. Safe to call from any thread.
    bool send(std::initializer_list<JournalField> fields) const;

private:
    std::string path_;
    int descriptor_;
};

}  // namespace platform
