#include "platform/clock.h"

#include <chrono>

namespace platform {
namespace {

class SystemClock final : public Clock {
public:
    double secondsSince1970() const override {
        using namespace std::chrono;
        return duration<double>(system_clock::now().time_since_epoch()).count();
    }
};

}  // namespace

Clock& Clock::real() {
    static SystemClock clock;
    return clock;
}

}  // namespace platform
