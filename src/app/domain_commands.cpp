#include "app/domain_commands.h"

#include <QTimer>
#include <cmath>

#include "app/command_arguments.h"
#include "domain/domain_identity.h"
#include "domain/registered_domain.h"
#include "platform/file_provider/file_provider.h"
#include "platform/main_thread.h"

using platform::FileProviderDomain;
using platform::FileProviderError;
using platform::FileProviderManager;

namespace {

QString flag(bool value) {
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

// Signals the working set and reports only a failure.
void signalQuietly(const FileProviderManager& manager, const Output& out) {
    manager.signalWorkingSetEnumerator([out](std::optional<FileProviderError> error) {
        if (error) out->line(QStringLiteral("refresh failed: ") + error->localizedDescription());
    });
}

}  // namespace

void listDomains(const Output& out, Completion completion) {
    FileProviderManager::getDomains([out, completion](QList<FileProviderDomain> domains,
                                                      std::optional<FileProviderError> error) {
        if (error) {
            out->line(QStringLiteral("error: ") + error->localizedDescription());
        } else if (domains.isEmpty()) {
            out->line(QStringLiteral("no domains registered"));
        } else {
            for (const FileProviderDomain& domain : domains) {
                out->line(QStringLiteral("%1  \"%2\"  hidden=%3  disconnected=%4  syncsTrash=%5")
                              .arg(domain.identifier, domain.displayName, flag(domain.isHidden),
                                   flag(domain.isDisconnected), flag(domain.supportsSyncingTrash)));
            }
        }
        completion();
    });
}

void addDomain(const Output& out, Completion completion) {
    FileProviderDomain domain = makeDomain();
    domain.supportsSyncingTrash = true;
    FileProviderManager::add(
        domain, [out, completion, domain](std::optional<FileProviderError> error) {
            if (error) {
                out->line(QStringLiteral("add failed: ") + error->localizedDescription());
                out->line(QStringLiteral("  ") + error->fullDescription());
                return completion();
            }
            out->line(QStringLiteral("domain added: ") + DOMAIN_NAME());
            const auto manager = FileProviderManager::forDomain(domain);
            if (!manager) return completion();
            manager->getUserVisibleURL([out, completion](std::optional<QString> folder,
                                                         std::optional<FileProviderError> error) {
                if (folder) {
                    out->line(QStringLiteral("visible at: ") + *folder);
                } else if (error) {
                    out->line(QStringLiteral("visible URL unavailable: ") +
                              error->localizedDescription());
                }
                completion();
            });
        });
}

void removeDomain(const Output& out, Completion completion) {
    FileProviderManager::remove(
        makeDomain(), [out, completion](std::optional<FileProviderError> error) {
            out->line(error ? QStringLiteral("remove failed: ") + error->localizedDescription()
                            : QStringLiteral("domain removed"));
            completion();
        });
}

void reconnectDomain(const Output& out, Completion completion) {
    findRegisteredDomain([out, completion](std::optional<RegisteredDomain> found) {
        if (!found) {
            out->line(QString::fromUtf8(NOT_REGISTERED_LINE));
            return completion();
        }
        found->manager.reconnect([out, completion](std::optional<FileProviderError> error) {
            if (error) {
                out->line(QStringLiteral("reconnect failed: ") + error->localizedDescription());
                out->line(QStringLiteral("  ") + error->fullDescription());
            } else {
                out->line(QStringLiteral("reconnected"));
            }
            completion();
        });
    });
}

void refreshDomain(const Output& out, Completion completion) {
    findRegisteredDomain([out, completion](std::optional<RegisteredDomain> found) {
        if (!found) {
            out->line(QString::fromUtf8(NOT_REGISTERED_LINE));
            return completion();
        }
        found->manager.signalWorkingSetEnumerator(
            [out, completion](std::optional<FileProviderError> error) {
                out->line(error ? QStringLiteral("refresh failed: ") + error->localizedDescription()
                                : QStringLiteral("refresh signalled"));
                completion();
            });
    });
}

void watchDomain(double interval, const Output& out, std::function<void(int)> finish,
                 QObject* context) {
    const platform::MainThreadTarget mainThread(context);
    findRegisteredDomain(
        [mainThread, context, out, finish, interval](std::optional<RegisteredDomain> found) {
            // Everything from here on happens on the main thread, while the watch still runs.
            mainThread.post([context, out, finish, interval, found] {
                if (!found) {
                    out->line(QString::fromUtf8(NOT_REGISTERED_LINE));
                    return finish(1);
                }
                const FileProviderManager manager = found->manager;
                signalQuietly(manager, out);
                auto* timer = new QTimer(context);
                timer->setTimerType(Qt::PreciseTimer);
                timer->setInterval(int(std::llround(interval * 1000)));
                QObject::connect(timer, &QTimer::timeout, context,
                                 [manager, out] { signalQuietly(manager, out); });
                timer->start();
                out->line(QStringLiteral("watching: refreshing every %1s — ctrl-C to stop")
                              .arg(wholeSeconds(interval)));
            });
        });
}
