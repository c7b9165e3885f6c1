#include "platform/desktop_module.h"

#include <dlfcn.h>

#include <QFile>

#include "platform/application_bundle.h"

namespace platform {

std::variant<ApplicationEntry, QString> loadDesktopModule() {
    const QString directory = ApplicationBundle::real().path();
    const QString candidates[] = {
        directory + QStringLiteral("/libvaskel-desktop.so"),
        directory + QStringLiteral("/../lib/vaskel/libvaskel-desktop.so")};
    QString reasons;
    for (const QString& candidate : candidates) {
        void* module = ::dlopen(QFile::encodeName(candidate).constData(), RTLD_NOW | RTLD_LOCAL);
        if (!module) {
            if (!reasons.isEmpty()) reasons += QStringLiteral("; ");
            reasons += QString::fromLocal8Bit(::dlerror());
            continue;
        }
        if (void* symbol = ::dlsym(module, APPLICATION_ENTRY_SYMBOL)) {
            return reinterpret_cast<ApplicationEntry>(symbol);
        }
        return QStringLiteral("%1 has no %2")
            .arg(candidate, QLatin1String(APPLICATION_ENTRY_SYMBOL));
    }
    return reasons;
}

}  // namespace platform
