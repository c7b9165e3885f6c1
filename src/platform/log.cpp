#include "platform/log.h"

#include <sys/stat.h>
#include <syslog.h>
#include <systemd/sd-journal.h>

#include <atomic>
#include <cstdio>

#include "platform/seam.h"

namespace platform {
namespace {

std::atomic<bool> fallbackToStandardError{true};

bool journalSocketPresent() {
    struct stat info {};
    return ::stat("/run/systemd/journal/socket", &info) == 0 && S_ISSOCK(info.st_mode);
}

class JournalSink final : public LogSink {
public:
    void write(LogLevel level, std::string_view subsystem, std::string_view category,
               const QString& message) override {
        const QByteArray text = message.toUtf8();
        const char* levelName = level == LogLevel::error ? "error" : "info";
        // Without a journal socket sd_journal_send reports success and drops the line, so the
        // socket decides where the line goes.
        if (journalSocketPresent()) {
            sd_journal_send("MESSAGE=%s", text.constData(), "PRIORITY=%d",
                            level == LogLevel::error ? LOG_ERR : LOG_INFO, "SUBSYSTEM=%.*s",
                            int(subsystem.size()), subsystem.data(), "CATEGORY=%.*s",
                            int(category.size()), category.data(), "SYSLOG_IDENTIFIER=vaskel",
                            nullptr);
            return;
        }
        if (!fallbackToStandardError.load(std::memory_order_relaxed)) return;
        std::fprintf(stderr, "vaskel [%.*s:%.*s] %s: %s\n", int(subsystem.size()), subsystem.data(),
                     int(category.size()), category.data(), levelName, text.constData());
    }
};

}  // namespace

LogSink& LogSink::real() {
    static JournalSink sink;
    return sink;
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
