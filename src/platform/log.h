#pragma once

#include <QString>
#include <memory>
#include <string>
#include <string_view>

namespace platform {

enum class LogLevel { info, error };

/// Where log lines go: the system journal, or standard error when there is no journal.
class LogSink {
public:
    virtual ~LogSink() = default;

    /// Records one line. Must be safe to call from any thread.
    virtual void write(LogLevel level, std::string_view subsystem, std::string_view category,
                       const QString& message) = 0;

    /// Writes to the system journal, else to standard error.
    static LogSink& real();
};

/// A sink that behaves as the real one but sends to the journal socket at `journalSocketPath`;
/// tests listen there with a socket of their own.
std::unique_ptr<LogSink> journalLogSink(std::string journalSocketPath);

/// Whether the real sink may fall back to standard error when there is no journal. The
/// command-line tool turns this off: its standard error stays empty.
void setLogFallbackToStandardError(bool allowed);

/// A named logger; every line carries its subsystem and category.
class Logger {
public:
    constexpr Logger(std::string_view subsystem, std::string_view category)
        : subsystem_(subsystem), category_(category) {}

    void info(const QString& message) const;
    void error(const QString& message) const;

    std::string_view subsystem() const { return subsystem_; }
    std::string_view category() const { return category_; }

private:
    std::string_view subsystem_;
    std::string_view category_;
};

}  // namespace platform

/// The program's logger. Lines never carry a secret (account key, password) or a configuration
/// value; failures are a lower-case phrase ending in the error's description.
inline constexpr platform::Logger mlog{"com.norva.vaskel.menubar", "ui"};
