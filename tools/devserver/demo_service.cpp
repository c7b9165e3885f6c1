#include "demo_service.h"

#include <httplib.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
#include <cstdio>
#include <random>

namespace {

constexpr int FAILURES_ALLOWED = 5;
constexpr auto FAILURE_WINDOW = std::chrono::minutes(1);

QString q(const std::string& text) {
    return QString::fromStdString(text);
}

std::string compact(const QJsonObject& object) {
    return QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString();
}

std::string newKey() {
    static std::mutex mutex;
    static std::random_device device;
    std::lock_guard lock(mutex);
    std::string key = "vk_dev_";
    for (int i = 0; i < 32; ++i) key += "0123456789abcdef"[device() % 16];
    return key;
}

std::string trimmed(std::string text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

}  // namespace

DemoService::DemoService(DemoOptions options) : options_(std::move(options)) {
    if (options_.presetKey) keys_.insert(*options_.presetKey);
}

void DemoService::install(httplib::Server& server) {
    auto reply = [](httplib::Response& response, const Answer& answer) {
        response.status = answer.status;
        response.set_content(answer.json, "application/json");
    };
    server.Post("/vaskel/api/auth/login",
                [this, reply](const httplib::Request& request, httplib::Response& response) {
                    reply(response, login(request.body));
                });
    server.Post("/vaskel/api/auth/logout",
                [this, reply](const httplib::Request& request, httplib::Response& response) {
                    reply(response, logout(request.get_header_value("X-API-Key")));
                });
    server.Get("/vaskel/api/me",
               [this, reply](const httplib::Request& request, httplib::Response& response) {
                   reply(response, me(request.get_header_value("X-API-Key")));
               });
    server.Get("/vaskel/account/.*", [](const httplib::Request&, httplib::Response& response) {
        response.set_content(
            "<!doctype html><title>Vaskel demo</title><h1>Vaskel demo account</h1>"
            "<p>This is the local development server; there is no web portal here.</p>",
            "text/html");
    });
    // One line per request, without keys, passwords or bodies.
    server.set_logger([](const httplib::Request& request, const httplib::Response& response) {
        std::printf("%s %s -> %d\n", request.method.c_str(), request.path.c_str(), response.status);
        std::fflush(stdout);
    });
}

bool DemoService::tooManyFailures() {
    const auto now = std::chrono::steady_clock::now();
    while (!failures_.empty() && now - failures_.front() > FAILURE_WINDOW) failures_.pop_front();
    return int(failures_.size()) >= FAILURES_ALLOWED;
}

DemoService::Answer DemoService::login(const std::string& body) {
    const QJsonDocument document = QJsonDocument::fromJson(QByteArray::fromStdString(body));
    const QJsonObject fields = document.object();
    if (!document.isObject() || !fields.value("email").isString() ||
        !fields.value("password").isString()) {
        return {400, R"({"error":"email and password are required"})"};
    }
    std::lock_guard lock(mutex_);
    if (tooManyFailures()) return {429, R"({"error":"too many attempts"})"};
    const bool matches =
        fields.value("email").toString().compare(q(options_.email), Qt::CaseInsensitive) == 0 &&
        fields.value("password").toString() == q(options_.password);
    if (!matches) {
        failures_.push_back(std::chrono::steady_clock::now());
        return {403, R"({"code":"bad_credentials"})"};
    }
    failures_.clear();
    if (options_.accountState == "inactive") return {403, R"({"code":"inactive"})"};
    if (options_.accountState == "unverified") return {403, R"({"code":"unverified"})"};
    const std::string key = newKey();
    keys_.insert(key);
    return {
        200,
        compact({{"api_key", q(key)},
                 {"user", QJsonObject{{"email", q(options_.email)}, {"name", q(options_.name)}}}})};
}

DemoService::Answer DemoService::logout(const std::string& key) {
    std::lock_guard lock(mutex_);
    if (keys_.erase(trimmed(key)) == 0) return {401, R"({"error":"unknown key"})"};
    return {200, "{}"};
}

DemoService::Answer DemoService::me(const std::string& key) {
    std::lock_guard lock(mutex_);
    if (!keys_.count(trimmed(key))) return {401, R"({"error":"unknown key"})"};
    return {200, accountJson()};
}

std::string DemoService::accountJson() const {
    QJsonObject account{{"email", q(options_.email)},
                        {"name", q(options_.name)},
                        {"used_bytes", qint64(options_.usedBytes)},
                        {"quota_bytes", qint64(options_.quotaBytes)},
                        {"unlimited", options_.unlimited},
                        {"plan_name", q(options_.plan)},
                        {"status", q(options_.billingStatus)}};
    QJsonObject client{{"update_available", options_.updateVersion.has_value()}};
    if (options_.updateVersion) {
        client.insert("latest", QJsonObject{{"version", q(*options_.updateVersion)},
                                            {"build", qint64(options_.updateBuild)},
                                            {"url", q(options_.updateUrl)},
                                            {"notes", q(options_.updateNotes)}});
    }
    account.insert("client", client);
    return compact(account);
}
