#include "platform/network_session.h"

#include <QCoreApplication>
#include <QEvent>
#include <QNetworkAccessManager>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSet>
#include <QSslConfiguration>
#include <QThread>
#include <QTimer>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>

#include "platform/network_error_text.h"

namespace platform {
namespace {

/// A jar that never keeps or hands out a cookie: every request stands on its own.
class NoCookieJar final : public QNetworkCookieJar {
public:
    using QNetworkCookieJar::QNetworkCookieJar;
    QList<QNetworkCookie> cookiesForUrl(const QUrl&) const override { return {}; }
    bool setCookiesFromUrl(const QList<QNetworkCookie>&, const QUrl&) override { return false; }
};

/// The state of one request between send and completion.
struct Exchange {
    std::function<void(HttpResponse)> completion;
    QByteArray body;
    QList<QSslError> sslErrors;
    bool refused = false;
    bool timedOut = false;
    bool completed = false;
};

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
    void start(HttpRequest request, std::function<void(HttpResponse)> completion) {
        const QString scheme = request.url.scheme().toLower();
        if (scheme != QLatin1String("http") && scheme != QLatin1String("https")) {
            HttpResponse response;
            response.transportError =
                describeTransportError(QNetworkReply::ProtocolUnknownError, {});
            completion(std::move(response));
            return;
        }

        QNetworkRequest networkRequest(request.url);
        networkRequest.setAttribute(QNetworkRequest::CookieLoadControlAttribute,
                                    QNetworkRequest::Manual);
        networkRequest.setAttribute(QNetworkRequest::CookieSaveControlAttribute,
                                    QNetworkRequest::Manual);
        networkRequest.setAttribute(QNetworkRequest::AuthenticationReuseAttribute,
                                    QNetworkRequest::Manual);
        networkRequest.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                                    QNetworkRequest::ManualRedirectPolicy);
        for (const auto& [name, value] : request.headers) {
            // A line break inside a value would end the header and start another one.
            QByteArray safe = value;
            safe.replace('\r', QByteArray())
                .replace('\n', QByteArray())
                .replace('\0', QByteArray());
            networkRequest.setRawHeader(name, safe);
        }

        std::chrono::milliseconds timeout = request.timeout;
        {
            std::lock_guard lock(mutex_);
            if (timeoutCap_ && *timeoutCap_ < timeout) timeout = *timeoutCap_;
            if (!extraCertificates_.isEmpty()) {
                QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
                tls.addCaCertificates(extraCertificates_);
                networkRequest.setSslConfiguration(tls);
            }
        }

        QNetworkAccessManager& network = manager();
        // A POST without a body still says so ("Content-Length: 0"); servers may refuse one
        // whose length they cannot tell.
        QNetworkReply* reply = request.method == "GET"
                                   ? network.get(networkRequest)
                                   : network.sendCustomRequest(networkRequest, request.method,
                                                               request.body.value_or(QByteArray()));
        inFlight_.insert(reply);

        auto exchange = std::make_shared<Exchange>();
        exchange->completion = std::move(completion);

        // The time-out counts from the last sign of life, like an idle time-out.
        auto* timer = new QTimer(reply);
        timer->setSingleShot(true);
        timer->setInterval(timeout);
        QObject::connect(timer, &QTimer::timeout, reply, [exchange, reply] {
            exchange->timedOut = true;
            reply->abort();
        });
        auto restart = [timer] { timer->start(); };
        QObject::connect(reply, &QNetworkReply::uploadProgress, timer, restart);
        QObject::connect(reply, &QNetworkReply::downloadProgress, timer, restart);
        QObject::connect(
            reply, &QNetworkReply::sslErrors, reply,
            [exchange](const QList<QSslError>& errors) { exchange->sslErrors += errors; });
        QObject::connect(reply, &QNetworkReply::readyRead, reply, [exchange, reply] {
            if (exchange->refused) return;
            exchange->body += reply->readAll();
            if (exchange->body.size() > MAX_BODY_BYTES) {
                exchange->refused = true;
                exchange->body = QByteArray();
                reply->abort();
            }
        });
        QObject::connect(reply, &QNetworkReply::finished, this,
                         [this, exchange, reply, timer] { finish(*exchange, reply, timer); });
        timer->start();
    }

    /// Aborts what is in flight and drops the manager with its connections.
    void dropManager() {
        const QSet<QNetworkReply*> replies = inFlight_;
        for (QNetworkReply* reply : replies) reply->abort();
        delete manager_;
        manager_ = nullptr;
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

    QNetworkAccessManager& manager() {
        if (!manager_) {
            manager_ = new QNetworkAccessManager(this);
            manager_->setCookieJar(new NoCookieJar(manager_));
            manager_->setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
        }
        return *manager_;
    }

    void finish(Exchange& exchange, QNetworkReply* reply, QTimer* timer) {
        timer->stop();
        inFlight_.remove(reply);
        reply->deleteLater();
        if (exchange.completed) return;
        exchange.completed = true;

        HttpResponse response;
        const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (status.isValid()) {
            response.isHttp = true;
            response.status = status.toInt();
        }
        const QNetworkReply::NetworkError error = reply->error();
        if (exchange.refused) {
            response.bodyRefused = true;
        } else if (exchange.timedOut) {
            response = HttpResponse{};
            response.transportError = timedOutText();
        } else if (isTransportError(error) && !(response.isHttp && response.status >= 400)) {
            // Qt also reports some HTTP answers (400, 407, 418) as protocol or proxy errors;
            // those are answers of the server, not failures to reach it.
            response = HttpResponse{};
            response.transportError = describeTransportError(error, exchange.sslErrors);
        } else {
            response.body = std::move(exchange.body);
            const QByteArray rest = reply->readAll();
            if (response.body.size() + rest.size() > MAX_BODY_BYTES) {
                response.body = QByteArray();
                response.bodyRefused = true;
            } else {
                response.body += rest;
            }
        }
        auto completion = std::move(exchange.completion);
        completion(std::move(response));
    }

    std::mutex tasksMutex_;
    std::deque<std::function<void()>> tasks_;
    bool closed_ = false;
    QNetworkAccessManager* manager_ = nullptr;
    QSet<QNetworkReply*> inFlight_;
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
                            worker->start(std::move(request), std::move(*shared));
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
        worker->dropManager();
        return;
    }
    worker->runAndWait([worker] { worker->dropManager(); });
}

void NetworkSession::shutdown() {
    if (sessionEnded.exchange(true, std::memory_order_acq_rel)) return;
    Worker* worker = worker_;
    // From here on send() answers by itself. Requests queued before still start, in order, and
    // are then cancelled with the rest, so each completion is called once. The worker is never
    // deleted: a send() on another thread may still be about to look at it.
    worker->close();
    worker->runAndWait([worker] { worker->dropManager(); });
    thread_->quit();
    thread_->wait();
}

}  // namespace platform
