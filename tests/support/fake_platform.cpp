#include "support/fake_platform.h"

#include <QDir>
#include <QStringList>

namespace testing_support {

std::optional<QString> FakeContainer::path(const QString& group) const {
    if (!available) return std::nullopt;
    const QString folder = dir + QLatin1Char('/') + group;
    if (!QDir().mkpath(folder)) return std::nullopt;
    return folder;
}

void CaptureLog::write(platform::LogLevel level, std::string_view subsystem,
                       std::string_view category, const QString& message) {
    std::lock_guard lock(mutex_);
    lines_.push_back({level, std::string(subsystem), std::string(category), message});
}

std::vector<LogLine> CaptureLog::lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
}

QStringList CaptureLog::messages() const {
    std::lock_guard lock(mutex_);
    QStringList result;
    for (const LogLine& line : lines_) result << line.message;
    return result;
}

void CaptureLog::clear() {
    std::lock_guard lock(mutex_);
    lines_.clear();
}

FakePlatform::FakePlatform() {
    home.dir = root.path() + QStringLiteral("/home");
    container.dir = root.path() + QStringLiteral("/container");
    QDir().mkpath(home.dir);
}

}  // namespace testing_support
