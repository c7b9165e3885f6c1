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
        lines_ << text;
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
    return lines_;
}
