#pragma once

#include <QString>
#include <QUrl>
#include <optional>

/// The service's own server, used when the user gives none.
inline const QString DEFAULT_SERVER = QStringLiteral("https://cloud.vaskel.app");

/// Paths on the server, appended to a normalised origin.
inline constexpr char LOGIN_PATH[] = "/vaskel/api/auth/login";
inline constexpr char LOGOUT_PATH[] = "/vaskel/api/auth/logout";
inline constexpr char ACCOUNT_PATH[] = "/vaskel/api/me";
inline constexpr char PORTAL_PATH[] = "/vaskel/account/";
inline constexpr char FILES_PATH[] = "/vaskel/account/files#files";

/// The origin to talk to for a server text the user typed or the configuration holds: trimmed,
/// DEFAULT_SERVER when empty, "https://" in front when it names no scheme, trailing slashes
/// removed. Nothing else changes (case, scheme, port, path stay as written).
QString normaliseServer(const QString& server);

/// Like normaliseServer, but an empty text stays empty (it then forms no usable address).
QString normaliseServerKeepingEmpty(const QString& server);

/// `text` parsed strictly as a URL; none when it is not one.
std::optional<QUrl> parseURL(const QString& text);

/// `origin` + `path` as a URL that names a host; none otherwise.
std::optional<QUrl> endpointURL(const QString& origin, const char* path);

/// The web account page; none when the server text does not form a URL.
std::optional<QUrl> portalURL(const QString& server);

/// The web file browser, opened at `path` (a folder path, "/"-separated) when one is given. The
/// folder travels in the fragment: "Photos/2024 trip" gives "#files/Photos/2024%20trip". None
/// when the server text does not form a URL.
std::optional<QUrl> filesURL(const QString& server, const QString& path = QString());
