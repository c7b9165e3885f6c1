#pragma once

namespace platform {

/// Wall-clock time.
class Clock {
public:
    virtual ~Clock() = default;

    /// Seconds since 1970-01-01 00:00 UTC, with fractions.
    virtual double secondsSince1970() const = 0;

    static Clock& real();
};

}  // namespace platform
