#include "server/sign_in.h"

#include <QJsonDocument>
#include <QJsonObject>

#include "platform/network_session.h"
#include "server/json_body.h"
#include "server/request_headers.h"
#include "server/server_address.h"

using namespace std::chrono_literals;

namespace {

constexpr auto SIGN_IN_TIMEOUT = 20s;
constexpr auto SIGN_OUT_TIMEOUT = 10s;

Result<DeviceLogin, AuthError> interpretLogin(const platform::HttpResponse& response,
                                              const QString& origin) {
    if (response.transportError) return AuthError::unreachable(*response.transportError);
    const int status = response.isHttp ? response.status : 0;
    const QJsonObject body = jsonObjectBody(response.body).value_or(QJsonObject());

    switch (status) {
        case 200: {
            const QJsonValue key = body.value(QLatin1String("api_key"));
            const QJsonValue user = body.value(QLatin1String("user"));
            const QJsonValue email = user.toObject().value(QLatin1String("email"));
            if (!key.isString() || !user.isObject() || !email.isString()) {
                return AuthError::malformed(200);
            }
            const QJsonValue server = body.value(QLatin1String("server"));
            const QJsonValue name = user.toObject().value(QLatin1String("name"));
            return DeviceLogin{key.toString(),
                               normaliseServer(server.isString() ? server.toString() : origin),
                               email.toString(), name.isString() ? name.toString() : QString()};
        }
        case 403: {
            const QJsonValue code = body.value(QLatin1String("code"));
            if (code == QLatin1String("unverified")) return AuthError::unverified();
            if (code == QLatin1String("inactive")) {
                const QJsonValue portal = body.value(QLatin1String("portal"));
                return AuthError::inactive(portal.isString() ? portal.toString()
                                                             : origin + QLatin1String(PORTAL_PATH));
            }
            return AuthError::badCredentials();
        }
        case 429:
            return AuthError::tooMany();
        default:
            return AuthError::malformed(status);
    }
}

}  // namespace

QString AuthError::errorDescription() const {
    switch (case_) {
        case Case::inactive:
            return QStringLiteral(
                "This account has no active plan yet. Choose a plan on the Vaskel website, then "
                "sign in again.");
        case Case::unreachable:
            return QStringLiteral("Could not reach Vaskel. ") + text_;
        case Case::malformed:
            return QStringLiteral("Vaskel responded unexpectedly (HTTP %1).").arg(status_);
        case Case::badURL:
            return QStringLiteral("That does not look like a valid server address.");
        case Case::badCredentials:
            return QStringLiteral("Email or password is incorrect.");
        case Case::unverified:
            return QStringLiteral(
                "Confirm your email address first. Check your inbox for the link, then sign in "
                "again.");
        case Case::tooMany:
            return QStringLiteral("Too many attempts. Wait a few minutes and try again.");
    }
    return {};
}

void loginWithPassword(const QString& server, const QString& email, const QString& password,
                       const QString& deviceName,
                       std::function<void(Result<DeviceLogin, AuthError>)> completion) {
    const QString origin = normaliseServer(server);
    const std::optional<QUrl> url = endpointURL(origin, LOGIN_PATH);
    if (!url) {
        completion(AuthError::badURL());
        return;
    }

    platform::HttpRequest request;
    request.method = "POST";
    request.url = *url;
    request.timeout = SIGN_IN_TIMEOUT;
    request.headers = {{"Content-Type", "application/json"}};
    for (auto& header : request_headers::signInIdentity()) request.headers.push_back(header);
    const QJsonObject body{{QStringLiteral("email"), email.trimmed()},
                           {QStringLiteral("password"), password},
                           {QStringLiteral("device_name"), deviceName}};
    request.body = QJsonDocument(body).toJson(QJsonDocument::Compact);

    platform::NetworkSession::shared().send(
        std::move(request),
        [origin, completion = std::move(completion)](platform::HttpResponse response) {
            completion(interpretLogin(response, origin));
        });
}

void logoutDevice(const QString& server, const QString& key, std::function<void(bool)> completion) {
    const std::optional<QUrl> url = parseURL(normaliseServer(server) + QLatin1String(LOGOUT_PATH));
    if (!url) {
        completion(false);
        return;
    }

    platform::HttpRequest request;
    request.method = "POST";
    request.url = *url;
    request.timeout = SIGN_OUT_TIMEOUT;
    request.headers = {{"X-API-Key", key.toUtf8()}};
    for (auto& header : request_headers::signInIdentity()) request.headers.push_back(header);

    platform::NetworkSession::shared().send(
        std::move(request), [completion = std::move(completion)](platform::HttpResponse response) {
            completion(!response.transportError && response.isHttp && response.status == 200);
        });
}
