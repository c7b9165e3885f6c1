#include "app/probe_and_resync.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>

#include "app/domain_commands.h"
#include "domain/provider_responds.h"
#include "platform/app_group_container.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/seam.h"
#include "shared/rates.h"

QByteArray rewoundCursor() {
    return QJsonDocument(QJsonObject{{QStringLiteral("changeCursor"), 1}})
        .toJson(QJsonDocument::Compact);
}

void probeProvider(const Output& out, Completion completion) {
    const double start = platform::current<platform::Clock>().secondsSince1970();
    providerResponds(PROBE_TIMEOUT_SECONDS, [start, out, completion](bool answered) {
        if (answered) {
            // A wall clock set back during the probe must not give a negative time.
            const double elapsed =
                std::max(0.0, platform::current<platform::Clock>().secondsSince1970() - start);
            out->line(QStringLiteral("extension responds (%1s) — enabled").arg(elapsed, 0, 'f', 2));
        } else {
            out->line(QStringLiteral("no response within 8s — the extension is probably not"));
            out->line(QStringLiteral("switched on. System Settings > General > Login Items &"));
            out->line(QStringLiteral("Extensions > File Providers, and enable Vaskel."));
        }
        completion();
    });
}

void resyncMetadata(const Output& out, Completion completion) {
    const auto container =
        platform::current<platform::AppGroupContainer>().path(QLatin1String(Shared::APP_GROUP));
    if (!container) {
        out->line(QStringLiteral("no app group container"));
        return completion();
    }
    const QString cursor = *container + QStringLiteral("/cursor.json");
    if (const auto failure = platform::writeFileAtomically(cursor, rewoundCursor(), 0600)) {
        out->line(QStringLiteral("could not rewind cursor: ") + *failure);
        return completion();
    }
    out->line(QStringLiteral("cursor rewound; replaying the change feed"));
    refreshDomain(out, std::move(completion));
}
