#include "server/client_header.h"

#include "platform/seam.h"

QString clientHeaderFor(const platform::BundleInfo& info) {
    const QString version = info.shortVersion.value_or(QStringLiteral("0"));
    const QString build = info.build.value_or(QStringLiteral("0"));
    const QString executable =
        info.executable.value_or(info.name.value_or(QStringLiteral("Vaskel")));
    return QLatin1String(CLIENT_PLATFORM) + QLatin1Char('/') + version + QLatin1String(" (") +
           build + QLatin1String("); ") + executable;
}

const QString& vaskelClientHeader() {
    static const QString header =
        clientHeaderFor(platform::current<platform::ApplicationBundle>().info());
    return header;
}
