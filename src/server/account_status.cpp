#include "server/account_status.h"

#include <QJsonObject>
#include <QVariant>
#include <algorithm>
#include <cmath>
#include <limits>

#include "platform/network_session.h"
#include "server/json_body.h"
#include "server/request_headers.h"
#include "server/server_address.h"

using namespace std::chrono_literals;

namespace {

constexpr auto ACCOUNT_STATUS_TIMEOUT = 20s;

/// Any JSON number as a 64-bit integer: integers exactly, fractions truncated, values beyond
/// the range clamped; `fallback` for anything that is not a number.
std::int64_t integerField(const QJsonValue& value, std::int64_t fallback = 0) {
    if (!value.isDouble()) return fallback;
    const QVariant number = value.toVariant();
    if (number.typeId() == QMetaType::LongLong) return number.toLongLong();
    const double real = value.toDouble();
    if (std::isnan(real)) return fallback;
    constexpr double LIMIT = 9223372036854775807.0;  // 2^63, the first value out of range
    if (real >= LIMIT) return std::numeric_limits<std::int64_t>::max();
    if (real <= -LIMIT) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(real);
}

/// A byte count: as `integerField`, but never below 0. A negative count means nothing, and
/// taking it as it stands would carry a negative fraction into every label derived from it.
std::int64_t byteCountField(const QJsonValue& value) {
    return std::max<std::int64_t>(0, integerField(value));
}

QString stringField(const QJsonObject& object, const char* key) {
    const QJsonValue value = object.value(QLatin1String(key));
    return value.isString() ? value.toString() : QString();
}

Result<Account, SignInError> interpretAccount(const platform::HttpResponse& response) {
    if (response.transportError) return SignInError::unreachable(*response.transportError);
    if (!response.isHttp) return SignInError::malformed();
    if (response.status == 401 || response.status == 403) return SignInError::rejected();
    if (response.status != 200) return SignInError::malformed();
    const std::optional<QJsonObject> body = jsonObjectBody(response.body);
    if (!body) return SignInError::malformed();
    std::optional<Account> account = parseAccount(*body);
    if (!account) return SignInError::malformed();
    return *account;
}

}  // namespace

std::optional<ClientUpdate> parseUpdate(const std::optional<QJsonValue>& client) {
    if (!client || !client->isObject()) return std::nullopt;
    const QJsonObject offer = client->toObject();
    if (offer.value(QLatin1String("update_available")) != QJsonValue(true)) return std::nullopt;
    const QJsonValue latestValue = offer.value(QLatin1String("latest"));
    if (!latestValue.isObject()) return std::nullopt;
    const QJsonObject latest = latestValue.toObject();
    const QString version = stringField(latest, "version");
    if (version.isEmpty()) return std::nullopt;
    return ClientUpdate{version, integerField(latest.value(QLatin1String("build"))),
                        stringField(latest, "url"), stringField(latest, "notes")};
}

std::optional<Account> parseAccount(const QJsonObject& body) {
    const QJsonValue email = body.value(QLatin1String("email"));
    if (!email.isString()) return std::nullopt;
    Account account;
    account.email = email.toString();
    account.name = stringField(body, "name");
    account.usedBytes = byteCountField(body.value(QLatin1String("used_bytes")));
    account.quotaBytes = byteCountField(body.value(QLatin1String("quota_bytes")));
    account.unlimited = body.value(QLatin1String("unlimited")) != QJsonValue(false);
    account.planName = stringField(body, "plan_name");
    account.status = stringField(body, "status");
    const QJsonValue client = body.value(QLatin1String("client"));
    account.update =
        parseUpdate(client.isUndefined() ? std::nullopt : std::optional<QJsonValue>(client));
    return account;
}

void fetchAccount(const QString& server, const QString& key,
                  std::function<void(Result<Account, SignInError>)> completion) {
    const std::optional<QUrl> url = endpointURL(normaliseServerKeepingEmpty(server), ACCOUNT_PATH);
    if (!url) {
        completion(SignInError::badURL());
        return;
    }

    platform::HttpRequest request;
    request.method = "GET";
    request.url = *url;
    request.timeout = ACCOUNT_STATUS_TIMEOUT;
    request.headers = {{"X-API-Key", key.trimmed().toUtf8()}};
    for (auto& header : request_headers::accountStatusIdentity()) request.headers.push_back(header);

    platform::NetworkSession::shared().send(
        std::move(request), [completion = std::move(completion)](platform::HttpResponse response) {
            completion(interpretAccount(response));
        });
}
