#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace platform {

/// One dedicated thread that runs submitted work in order (a serial queue). The file-provider
/// service does its work and calls its completions here.
class CallbackThread {
public:
    CallbackThread();
    /// Runs what was already submitted, then joins the thread.
    ~CallbackThread();
    CallbackThread(const CallbackThread&) = delete;
    CallbackThread& operator=(const CallbackThread&) = delete;

    /// Queues `work`; it runs after everything submitted before it. Safe from any thread,
    /// including this one.
    void submit(std::function<void()> work);

private:
    void run();

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> queue_;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace platform
