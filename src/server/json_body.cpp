#include "server/json_body.h"

#include <QJsonDocument>
#include <QJsonParseError>

std::optional<QJsonObject> jsonObjectBody(const QByteArray& body) {
    if (body.isEmpty()) return std::nullopt;
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) return std::nullopt;
    return document.object();
}
