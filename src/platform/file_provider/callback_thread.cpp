#include "platform/file_provider/callback_thread.h"

namespace platform {

CallbackThread::CallbackThread() : thread_([this] { run(); }) {}

CallbackThread::~CallbackThread() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void CallbackThread::submit(std::function<void()> work) {
    {
        std::lock_guard lock(mutex_);
        queue_.push_back(std::move(work));
    }
    wake_.notify_one();
}

void CallbackThread::run() {
    for (;;) {
        std::function<void()> work;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
            if (queue_.empty()) return;
            work = std::move(queue_.front());
            queue_.pop_front();
        }
        work();
    }
}

}  // namespace platform
