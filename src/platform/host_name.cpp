#include "platform/host_name.h"

#include <QList>

#include "platform/files.h"

namespace platform {
namespace {

// Machine-info and hostname files are a few lines long; anything larger is not one.
constexpr qint64 MAX_FILE_BYTES = 64 * 1024;

// Reads one shell-style value: single quotes keep everything up to the next single quote,
// double quotes keep everything but a backslash before one of \ " $ ` (or a line break, which
// it removes), and outside quotes a backslash keeps the next character and white space ends
// the value.
QString shellValue(const QString& text) {
    QString value;
    enum class Quote { none, single, double_ } quote = Quote::none;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        switch (quote) {
            case Quote::single:
                if (c == QLatin1Char('\'')) {
                    quote = Quote::none;
                } else {
                    value += c;
                }
                break;
            case Quote::double_:
                if (c == QLatin1Char('"')) {
                    quote = Quote::none;
                } else if (c == QLatin1Char('\\') && i + 1 < text.size() &&
                           QStringLiteral("\\\"$`").contains(text[i + 1])) {
                    value += text[++i];
                } else {
                    value += c;
                }
                break;
            case Quote::none:
                if (c == QLatin1Char('\'')) {
                    quote = Quote::single;
                } else if (c == QLatin1Char('"')) {
                    quote = Quote::double_;
                } else if (c == QLatin1Char('\\')) {
                    if (i + 1 < text.size()) value += text[++i];
                } else if (c.isSpace()) {
                    return value;
                } else {
                    value += c;
                }
                break;
        }
    }
    return value;
}

std::optional<QByteArray> readFile(const QString& path) {
    return readSmallFile(path, MAX_FILE_BYTES);
}

class SystemHostName final : public HostName {
public:
    std::optional<QString> localizedName() const override {
        return localizedHostName(QStringLiteral("/etc/machine-info"),
                                 QStringLiteral("/etc/hostname"));
    }
};

}  // namespace

std::optional<QString> prettyHostName(const QByteArray& machineInfo) {
    std::optional<QString> name;
    for (const QByteArray& rawLine : machineInfo.split('\n')) {
        const QString line = QString::fromUtf8(rawLine).trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')) ||
            line.startsWith(QLatin1Char(';'))) {
            continue;
        }
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (equals < 0 || line.left(equals).trimmed() != QLatin1String("PRETTY_HOSTNAME")) {
            continue;
        }
        const QString value = shellValue(line.mid(equals + 1).trimmed()).trimmed();
        name = value.isEmpty() ? std::nullopt : std::optional<QString>(value);
    }
    return name;
}

std::optional<QString> staticHostName(const QByteArray& hostnameFile) {
    for (const QByteArray& rawLine : hostnameFile.split('\n')) {
        const QString line = QString::fromUtf8(rawLine).trimmed();
        if (!line.isEmpty() && !line.startsWith(QLatin1Char('#'))) return line;
    }
    return std::nullopt;
}

std::optional<QString> localizedHostName(const QString& machineInfoPath,
                                         const QString& hostnamePath) {
    if (const auto machineInfo = readFile(machineInfoPath)) {
        if (auto pretty = prettyHostName(*machineInfo)) return pretty;
    }
    if (const auto hostname = readFile(hostnamePath)) return staticHostName(*hostname);
    return std::nullopt;
}

HostName& HostName::real() {
    static SystemHostName hostName;
    return hostName;
}

}  // namespace platform
