#pragma once

#include <QObject>
#include <functional>
#include <memory>

namespace platform {

/// Work for the main thread that only runs while a main-thread object lives: the way callbacks
/// arriving on other threads hand their results to the main thread's event loop.
class MainThreadTarget {
public:
    /// Created on the main thread, for `context` (an object of the main thread).
    explicit MainThreadTarget(QObject* context);

    /// Queues `work` for the main thread's event loop; it runs there, in the order posted,
    /// unless `context` has been destroyed by then. Safe from any thread. The data handed over
    /// travels under a lock of ours, never inside a toolkit event.
    void post(std::function<void()> work) const;

private:
    std::shared_ptr<bool> alive_;  // read and written on the main thread only
};

}  // namespace platform
