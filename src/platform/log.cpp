#include "platform/log.h"

#include <syslog.h>

#include <atomic>
#include <charconv>
#include <cstdio>

#include "platform/journal_socket.h"
#include "platform/seam.h"

namespace platform {
namespace {

std::atomic<bool> fallbackToStandardError{true};

class JournalSink final : public LogSink {
public:
    explicit JournalSink(std::string journalSocketPath) : journal_(std::move(journalSocketPath)) {}

    void write(LogLevel level, std::string_view subsystem, std::string_view category,
               const QString& message) override {
        const QByteArray text = message.toUtf8();
        char priority[4] = {};
        std::to_chars(priority, priority + sizeof(priority) - 1,
                      level == LogLevel::error ? LOG_ERR : LOG_INFO);
        if (journal_.send({{"MESSAGE", std::string_view(text.constData(), text.size())},
                           {"PRIORITY", priority},
                           {"SUBSYSTEM", subsystem},
                           {"CATEGORY", category},
                           {"SYSLOG_IDENTIFIER", "vaskel"}})) {
            return;
        }
        // No journal took the line: standard error gets it, unless the caller keeps it quiet.
        if (!fallbackToStandardError.load(std::memory_order_relaxed)) return;
        const char* levelName = level == LogLevel::error ? "error" : "info";
        std::fprintf(stderr, "vaskel [%.*s:%.*s] %s: %s\n", int(subsystem.size()), subsystem.data(),
                     int(category.size()), category.data(), levelName, text.constData());
    }

private:
    JournalSocket journal_;
};

}  // namespace

LogSink& LogSink::real() {
    static JournalSink sink{std::string(SYSTEM_JOURNAL_SOCKET)};
    return sink;
}

std::unique_ptr<LogSink> journalLogSink(std::string journalSocketPath) {
    return std::make_unique<JournalSink>(std::move(journalSocketPath));
}

void setLogFallbackToStandardError(bool allowed) {
    fallbackToStandardError.store(allowed, std::memory_order_relaxed);
}

void Logger::info(const QString& message) const {
    current<LogSink>().write(LogLevel::info, subsystem_, category_, message);
}

void Logger::error(const QString& message) const {
    current<LogSink>().write(LogLevel::error, subsystem_, category_, message);
}

}  // namespace platform
