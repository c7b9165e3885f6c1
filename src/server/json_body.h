#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <optional>

/// The top-level object of a JSON body; none when the body is empty, does not parse or holds
/// something other than an object.
std::optional<QJsonObject> jsonObjectBody(const QByteArray& body);
