#pragma once

#include <QJsonValue>
#include <QString>
#include <functional>
#include <optional>

#include "server/account.h"
#include "server/result.h"

/// Asks the server for the account that `key` belongs to: who, how much storage, which plan,
/// the billing state and any newer client on offer. Also the test whether a stored key still
/// works. Returns at once. The completion runs exactly once: on the network session's thread,
/// or, for a server text that forms no address with a host (an empty one included), with
/// `badURL` on the calling thread before this returns.
void fetchAccount(const QString& server, const QString& key,
                  std::function<void(Result<Account, SignInError>)> completion);

/// The update offer in the account status's "client" value: present only when the server says
/// "update_available": true and names a non-empty "latest"."version".
std::optional<ClientUpdate> parseUpdate(const std::optional<QJsonValue>& client);

/// The account described by a status body; none without a string "email". Byte counts below 0
/// are taken as 0.
std::optional<Account> parseAccount(const QJsonObject& body);
