#include "app/command_output.h"

#include <cstdio>

std::shared_ptr<CommandOutput> CommandOutput::standardOutput() {
    return std::shared_ptr<CommandOutput>(new CommandOutput(true));
}

std::shared_ptr<CommandOutput> CommandOutput::capture() {
    return std::shared_ptr<CommandOutput>(new CommandOutput(false));
}

void CommandOutput::line(const QString& text) {
    std::lock_guard lock(mutex_);
    if (closed_) return;
    if (!toStandardOutput_) {
        lines_.push_back(text);
        return;
    }
    const QByteArray bytes = text.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
}

void CommandOutput::close() {
    std::lock_guard lock(mutex_);
    closed_ = true;
    if (toStandardOutput_) std::fflush(stdout);
}

QStringList CommandOutput::lines() const {
    std::lock_guard lock(mutex_);
    // A list of its own: the lines may still grow on another thread.
    return QStringList(lines_.begin(), lines_.end());
}
