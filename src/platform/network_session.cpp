#include "platform/network_session.h"

#include <QCoreApplication>
#include <QEvent>
#include <QSet>
#include <QThread>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>

#include "platform/http_exchange.h"
#include "platform/network_error_text.h"

namespace platform {
namespace {

std::atomic<bool> sessionEnded{false};

}  // namespace

class NetworkSession::Worker final : public QObject {
public:
    /// Runs `task` on the session's thread, in the order posted. False, with nothing queued,
    /// once `close()` has run.
    bool post(std::function<void()> task) { return enqueue(std::move(task), false); }

    /// Refuses every later `post`; what was queued before still runs.
    void close() {
        std::lock_guard lock(tasksMutex_);
        closed_ = true;
    }

    /// Runs `task` on the session's thread and waits until it has run; also after `close()`,
    /// which shutting down needs.
    void runAndWait(const std::function<void()>& task) {
        std::mutex mutex;
        std::condition_variable ran;
        bool done = false;
        enqueue(
            [&] {
                task();
                std::lock_guard lock(mutex);
                done = true;
                ran.notify_all();
            },
            true);
        std::unique_lock lock(mutex);
        ran.wait(lock, [&] { return done; });
    }

    /// Starts a request; runs on the session's thread.
    void start(const HttpRequest& request, std::function<void(HttpResponse)> completion) {
        HttpExchange::Settings settings{request.timeout, {}, MAX_BODY_BYTES};
        {
            std::lock_guard lock(mutex_);
            if (timeoutCap_ && *timeoutCap_ < settings.timeout) settings.timeout = *timeoutCap_;
            settings.extraCertificates = extraCertificates_;
        }
        // The exchange is owned by this worker until it completes and deletes itself.
        auto* exchange = new HttpExchange(request, settings, this);
        inFlight_.insert(exchange);
        exchange->start(
            [this, exchange, completion = std::move(completion)](HttpResponse response) {
                inFlight_.remove(exchange);
                completion(std::move(response));
            });
    }

    /// Cancels what is in flight, each request completing with a transport error.
    void cancelAll() {
        const QSet<HttpExchange*> exchanges = inFlight_;
        for (HttpExchange* exchange : exchanges) exchange->cancel();
    }

    void setExtraCertificates(const QList<QSslCertificate>& certificates) {
        std::lock_guard lock(mutex_);
        extraCertificates_ = certificates;
    }

    void setTimeoutCap(std::optional<std::chrono::milliseconds> cap) {
        std::lock_guard lock(mutex_);
        timeoutCap_ = cap;
    }

protected:
    // Only the wake-up events of post() arrive here. The event itself is not looked at: it was
    // made on the posting thread and handed over by Qt alone.
    void customEvent(QEvent*) override {
        std::deque<std::function<void()>> pending;
        {
            std::lock_guard lock(tasksMutex_);
            pending.swap(tasks_);
        }
        for (auto& task : pending) task();
    }

private:
    // Tasks travel through a queue of our own under a standard mutex; the posted event carries
    // nothing and only wakes the thread, so every hand-over between threads is one that tools
    // like ThreadSanitizer see.
    bool enqueue(std::function<void()> task, bool evenWhenClosed) {
        {
            std::lock_guard lock(tasksMutex_);
            if (closed_ && !evenWhenClosed) return false;
            tasks_.push_back(std::move(task));
        }
        QCoreApplication::postEvent(this, new QEvent(TASKS_EVENT));
        return true;
    }

    static constexpr QEvent::Type TASKS_EVENT = QEvent::Type(QEvent::User + 1);

    std::mutex tasksMutex_;
    std::deque<std::function<void()>> tasks_;
    bool closed_ = false;
    QSet<HttpExchange*> inFlight_;
    std::mutex mutex_;
    QList<QSslCertificate> extraCertificates_;
    std::optional<std::chrono::milliseconds> timeoutCap_;
};

NetworkSession::NetworkSession() : thread_(new QThread), worker_(new Worker) {
    thread_->setObjectName(QStringLiteral("vaskel-network"));
    worker_->moveToThread(thread_);
    thread_->start();
}

// The session lives for the whole process (see shared()); its thread is stopped by shutdown().
NetworkSession::~NetworkSession() = default;

NetworkSession& NetworkSession::shared() {
    // Never destroyed: completions may still be running while static objects go away. The
    // thread is stopped with the application object.
    static NetworkSession* session = [] {
        auto* created = new NetworkSession;
        qAddPostRoutine([] { NetworkSession::shared().shutdown(); });
        return created;
    }();
    return *session;
}

void NetworkSession::send(HttpRequest request, std::function<void(HttpResponse)> completion) {
    // The completion is shared between the queued task and the refusal below; exactly one of
    // them calls it.
    auto shared = std::make_shared<std::function<void(HttpResponse)>>(std::move(completion));
    Worker* worker = worker_;
    const bool queued = !sessionEnded.load(std::memory_order_acquire) &&
                        worker->post([worker, request = std::move(request), shared]() mutable {
                            worker->start(request, std::move(*shared));
                        });
    if (!queued) {
        HttpResponse response;
        response.transportError = QStringLiteral("The program is shutting down.");
        (*shared)(std::move(response));
    }
}

bool NetworkSession::isSessionThread() const {
    return QThread::currentThread() == thread_;
}

void NetworkSession::setExtraTrustedCertificates(const QList<QSslCertificate>& certificates) {
    worker_->setExtraCertificates(certificates);
}

void NetworkSession::setTimeoutCap(std::optional<std::chrono::milliseconds> cap) {
    worker_->setTimeoutCap(cap);
}

void NetworkSession::reset() {
    if (sessionEnded.load(std::memory_order_acquire)) return;
    Worker* worker = worker_;
    if (isSessionThread()) {
        worker->cancelAll();
        return;
    }
    worker->runAndWait([worker] { worker->cancelAll(); });
}

void NetworkSession::shutdown() {
    if (sessionEnded.exchange(true, std::memory_order_acq_rel)) return;
    Worker* worker = worker_;
    // From here on send() answers by itself. Requests queued before still start, in order, and
    // are then cancelled with the rest, so each completion is called once. The worker is never
    // deleted: a send() on another thread may still be about to look at it.
    worker->close();
    worker->runAndWait([worker] { worker->cancelAll(); });
    thread_->quit();
    thread_->wait();
}

}  // namespace platform
