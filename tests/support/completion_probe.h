#pragma once

#include <QThread>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <stdexcept>

namespace testing_support {

/// Catches the answer of an asynchronous call: which value, on which thread, how many times.
/// The network session answers on its own thread, so waiting here needs no event loop.
template <class T>
class CompletionProbe {
public:
    /// The callback to hand to the call under test; it must not outlive the probe.
    auto callback() {
        return [this](T value) {
            std::lock_guard lock(mutex_);
            ++calls_;
            if (!value_) {
                value_.emplace(std::move(value));
                thread_ = QThread::currentThread();
            }
            arrived_.notify_all();
        };
    }

    /// The first answer; throws when none arrives within `deadline`.
    T wait(std::chrono::milliseconds deadline = std::chrono::seconds(30)) {
        std::unique_lock lock(mutex_);
        if (!arrived_.wait_for(lock, deadline, [this] { return value_.has_value(); })) {
            throw std::runtime_error("no completion within the deadline");
        }
        return *value_;
    }

    int calls() const { return locked(&CompletionProbe::calls_); }
    QThread* thread() const { return locked(&CompletionProbe::thread_); }

private:
    template <class Member>
    auto locked(Member member) const {
        std::lock_guard lock(mutex_);
        return this->*member;
    }
    mutable std::mutex mutex_;
    std::condition_variable arrived_;
    std::optional<T> value_;
    QThread* thread_ = nullptr;
    int calls_ = 0;
};

}  // namespace testing_support
