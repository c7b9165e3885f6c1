#include "platform/main_thread.h"

#include <QCoreApplication>
#include <deque>
#include <mutex>

namespace platform {
namespace {

// Collects work from any thread and runs it on the main thread. One wake-up call is queued
// while work is waiting; it carries no data of its own.
class MainThreadInbox final : public QObject {
    Q_OBJECT
public:
    void post(std::function<void()> work) {
        {
            std::lock_guard lock(mutex_);
            queue_.push_back(std::move(work));
            if (wakeQueued_) return;
            wakeQueued_ = true;
        }
        QMetaObject::invokeMethod(this, "drain", Qt::QueuedConnection);
    }

    Q_INVOKABLE void drain() {
        std::deque<std::function<void()>> work;
        {
            std::lock_guard lock(mutex_);
            work.swap(queue_);
            wakeQueued_ = false;
        }
        for (auto& item : work) item();
    }

private:
    std::mutex mutex_;
    std::deque<std::function<void()>> queue_;
    bool wakeQueued_ = false;
};

MainThreadInbox& inbox() {
    // Never destroyed: work may still be posted while the process ends.
    static MainThreadInbox* instance = [] {
        auto* created = new MainThreadInbox;
        created->moveToThread(QCoreApplication::instance()->thread());
        return created;
    }();
    return *instance;
}

}  // namespace

MainThreadTarget::MainThreadTarget(QObject* context) : alive_(std::make_shared<bool>(true)) {
    inbox();  // created here, on the main thread
    QObject::connect(context, &QObject::destroyed, [alive = alive_] { *alive = false; });
}

void MainThreadTarget::post(std::function<void()> work) const {
    inbox().post([alive = alive_, work = std::move(work)] {
        if (*alive) work();
    });
}

}  // namespace platform

#include "main_thread.moc"
