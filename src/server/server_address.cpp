#include "server/server_address.h"

#include <QStringList>

namespace {

/// The characters that may stand unencoded in a URL path, besides the unreserved ones. ";" is
/// not among them: it would start path parameters.
constexpr char PATH_ALLOWED_PUNCTUATION[] = "!$&'()*+,=:@/";

QString trimmedWithoutTrailingSlashes(QString text) {
    if (!text.contains(QLatin1String("://"))) text.prepend(QLatin1String("https://"));
    while (text.endsWith(QLatin1Char('/'))) text.chop(1);
    return text;
}

}  // namespace

QString normaliseServer(const QString& server) {
    QString text = server.trimmed();
    if (text.isEmpty()) text = DEFAULT_SERVER;
    return trimmedWithoutTrailingSlashes(text);
}

QString normaliseServerKeepingEmpty(const QString& server) {
    return trimmedWithoutTrailingSlashes(server.trimmed());
}

std::optional<QUrl> parseURL(const QString& text) {
    QUrl url(text, QUrl::StrictMode);
    if (!url.isValid() || url.isRelative()) return std::nullopt;
    return url;
}

std::optional<QUrl> endpointURL(const QString& origin, const char* path) {
    std::optional<QUrl> url = parseURL(origin + QLatin1String(path));
    if (!url || url->host().isEmpty()) return std::nullopt;
    return url;
}

std::optional<QUrl> portalURL(const QString& server) {
    return parseURL(normaliseServer(server) + QLatin1String(PORTAL_PATH));
}

std::optional<QUrl> filesURL(const QString& server, const QString& path) {
    QStringList pieces;
    for (const QString& piece : path.split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
        if (!piece.isValidUtf16()) {
            // Text that is not valid Unicode has no percent-encoding; it goes in as it stands.
            pieces.append(piece);
            continue;
        }
        QString encoded =
            QString::fromLatin1(QUrl::toPercentEncoding(piece, PATH_ALLOWED_PUNCTUATION));
        encoded.replace(QLatin1Char('/'), QLatin1String("%2F"));
        pieces.append(encoded);
    }
    const QString suffix =
        pieces.isEmpty() ? QString() : QLatin1Char('/') + pieces.join(QLatin1Char('/'));
    return parseURL(normaliseServer(server) + QLatin1String(FILES_PATH) + suffix);
}
