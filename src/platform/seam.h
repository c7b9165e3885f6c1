#pragma once

#include <atomic>

namespace platform {

// A seam is one operating-system facility that tests can replace. Each facility is an abstract
// class with a static `real()` giving the Linux implementation; `current<F>()` gives the stand-in
// a test installed, else the real one. Stand-ins are installed before the code under test runs,
// so the lookup is a single atomic load on every call.

template <class Facility>
std::atomic<Facility*>& standInSlot() {
    static std::atomic<Facility*> slot{nullptr};
    return slot;
}

/// The implementation of `Facility` in use: a test's stand-in, or the real one.
template <class Facility>
Facility& current() {
    Facility* standIn = standInSlot<Facility>().load(std::memory_order_acquire);
    return standIn ? *standIn : Facility::real();
}

/// Puts `standIn` in place of the real facility for this object's lifetime (tests only).
/// Stand-ins nest: the previous one comes back on destruction.
template <class Facility>
class StandIn {
public:
    explicit StandIn(Facility& standIn)
        : previous_(standInSlot<Facility>().exchange(&standIn, std::memory_order_acq_rel)) {}
    ~StandIn() { standInSlot<Facility>().store(previous_, std::memory_order_release); }
    StandIn(const StandIn&) = delete;
    StandIn& operator=(const StandIn&) = delete;

private:
    Facility* previous_;
};

}  // namespace platform
