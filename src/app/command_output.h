#pragma once

#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

/// Where the command-line commands print their lines: standard output, or a capture for tests.
/// Lines may come from any thread; each is written whole. After `close()` lines are dropped,
/// so a command cut off by its time limit prints nothing more.
class CommandOutput {
public:
    /// Lines go to standard output, UTF-8, each ended by a line feed.
    static std::shared_ptr<CommandOutput> standardOutput();
    /// Lines are kept in memory; `lines()` gives them.
    static std::shared_ptr<CommandOutput> capture();

    void line(const QString& text);
    void close();
    QStringList lines() const;

private:
    explicit CommandOutput(bool toStandardOutput) : toStandardOutput_(toStandardOutput) {}

    mutable std::mutex mutex_;
    const bool toStandardOutput_;
    bool closed_ = false;
    std::vector<QString> lines_;
};

using Output = std::shared_ptr<CommandOutput>;

/// Called exactly once by a one-shot command when it has printed its last line, on any thread.
using Completion = std::function<void()>;
