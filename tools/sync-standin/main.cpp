// vaskel-sync-standin: plays the sync extension beside vaskel for trials. See --help.
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QHash>
#include <QSocketNotifier>
#include <QTimer>
#include <cstdio>
#include <cstdlib>

#include "domain/domain_identity.h"
#include "extension_files.h"
#include "platform/app_group_container.h"
#include "platform/clock.h"
#include "platform/file_provider/local_file_provider_service.h"
#include "platform/seam.h"
#include "shared/config.h"
#include "shared/rates.h"
#include "stop_signals.h"
#include "sync_simulation.h"

namespace {

constexpr char USAGE[] = R"(usage: vaskel-sync-standin [options]

Plays the sync extension, for trying Vaskel without it. Once vaskel has
registered its sync domain (sign in, or run `vaskel --add`), it makes up
files to download, "uploads" files you drop into the synced folder, and
reports rates and progress as the extension does, obeying the limits and
the pause of ~/.vaskel/config.json within a second. "Check for Changes Now"
(`vaskel --refresh`) brings a new batch of files; `vaskel --resync`
downloads every file again. Nothing is really transferred or written into
the synced folder. Ctrl-C stops it.

  --speed KB        transfer speed each way in KB/s before any limit (4096)
  --batch N         files per batch (12)
  --file-size KB    average size of a made-up file in KB (3072)
  --disconnect      mark the domain disconnected, as the extension does when
                    it cannot reach the server, and exit
  --connect         mark it connected again and exit
  --help            this text
)";

void say(const QString& line) {
    std::printf("%s %s\n",
                qPrintable(QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss"))),
                qPrintable(line));
    std::fflush(stdout);
}

bool readPositive(const char* text, qint64& out) {
    char* end = nullptr;
    const long long value = std::strtoll(text, &end, 10);
    if (end == text || *end != '\0' || value <= 0 || value > (1LL << 40)) return false;
    out = value;
    return true;
}

// Every problem with a file is said once, until it is gone and comes back.
class Problems {
public:
    void note(const char* slot, const standin::Damage& damage) {
        QString& last = shown_[QLatin1String(slot)];
        if (damage && *damage != last) say(QStringLiteral("problem: ") + *damage);
        last = damage.value_or(QString());
    }

private:
    QHash<QString, QString> shown_;
};

}  // namespace

int main(int argc, char** argv) {
    standin::SimulationOptions options;
    std::optional<bool> disconnect;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        qint64 value = 0;
        const bool hasValue = i + 1 < argc && readPositive(argv[i + 1], value);
        if (option == "--help" || option == "-h") {
            std::fputs(USAGE, stdout);
            return 0;
        } else if (option == "--disconnect" || option == "--connect") {
            disconnect = option == "--disconnect";
            continue;
        } else if (option == "--speed" && hasValue) {
            options.bytesPerSecond = double(value) * 1024;
        } else if (option == "--batch" && hasValue && value <= 10000) {
            options.batchSize = int(value);
        } else if (option == "--file-size" && hasValue) {
            options.averageFileBytes = value * 1024;
        } else {
            std::fprintf(stderr, "vaskel-sync-standin: bad option or value: %s\n%s", option.c_str(),
                         USAGE);
            return 2;
        }
        ++i;
    }

    // Ctrl-C and SIGTERM arrive as reads on a descriptor, in the event loop.
    const sigset_t stopSignals = blockStopSignals();
    const int stopFd = signalfd(-1, &stopSignals, SFD_CLOEXEC);

    QCoreApplication app(argc, argv);
    const QString id = QLatin1String(DOMAIN_ID);
    standin::ExtensionFiles files(platform::LocalFileProviderService::defaultStateDirectory(),
                                  platform::current<platform::AppGroupContainer>()
                                      .path(QLatin1String(Shared::APP_GROUP))
                                      .value_or(QString()));

    if (disconnect) {
        if (const auto failure = files.setDisconnected(id, *disconnect)) {
            std::fprintf(stderr, "vaskel-sync-standin: %s\n", qPrintable(*failure));
            return 1;
        }
        std::printf("domain %s\n", *disconnect ? "disconnected" : "connected");
        return 0;
    }

    standin::SyncSimulation simulation(options);
    Problems problems;
    QElapsedTimer sinceLastStep;
    std::optional<bool> found;  // none before the first look
    const auto now = [] { return platform::current<platform::Clock>().secondsSince1970(); };

    const auto step = [&] {
        const double seconds =
            sinceLastStep.isValid() ? double(sinceLastStep.nsecsElapsed()) / 1e9 : 0;
        sinceLastStep.start();
        standin::Damage damage;
        const auto domain = files.domain(id, &damage);
        problems.note("registry", damage);
        if (found != domain.has_value()) {
            say(domain ? QStringLiteral("domain found: \"%1\" at %2")
                             .arg(domain->domain.displayName, domain->folder)
                       : QStringLiteral("waiting for vaskel to register its sync domain (sign in, "
                                        "or run vaskel --add)"));
            found = domain.has_value();
        }
        if (!domain) {
            problems.note("stats", files.writeStats(now(), 0, 0));
            return;
        }
        standin::Conditions conditions;
        conditions.workingSetSignals = files.workingSetSignals(id);
        damage.reset();
        conditions.changeCursor = files.changeCursor(&damage);
        problems.note("cursor", damage);
        damage.reset();
        const QJsonObject config = standin::ExtensionFiles::config(&damage);
        problems.note("config", damage);
        conditions.maxDownloadKbps = std::max<qint64>(
            0, Shared::configInteger(config, QStringLiteral("max_download_kbps")).value_or(0));
        conditions.maxUploadKbps = std::max<qint64>(
            0, Shared::configInteger(config, QStringLiteral("max_upload_kbps")).value_or(0));
        conditions.paused =
            Shared::configBool(config, QStringLiteral("transfers_paused")).value_or(false);
        conditions.connected = !domain->domain.isDisconnected;
        conditions.localFiles = standin::ExtensionFiles::folderFiles(domain->folder);

        simulation.step(conditions, seconds);
        for (const QString& line : simulation.takeLog()) say(line);
        if (const auto cursor = simulation.cursorToWrite()) {
            problems.note("cursor", files.writeChangeCursor(*cursor));
        }
        problems.note("progress", files.writeProgress(id, simulation.progress()));
        damage.reset();
        for (const QString& item : files.takeEvictionRequests(id, &damage)) {
            say(QStringLiteral("dropped the local copy of ") + item);
        }
        problems.note("evictions", damage);
        problems.note("stats",
                      files.writeStats(now(), simulation.downloadRate(), simulation.uploadRate()));
    };

    QTimer ticks;
    QObject::connect(&ticks, &QTimer::timeout, step);
    ticks.start(1000);
    QTimer::singleShot(0, step);
    QSocketNotifier stop(stopFd, QSocketNotifier::Read);
    QObject::connect(&stop, &QSocketNotifier::activated, &app, &QCoreApplication::quit);
    app.exec();

    // Nothing moves any more: no rates, and no transfers left in progress.
    files.writeStats(now(), 0, 0);
    if (found == true) files.writeProgress(id, QJsonObject());
    say(QStringLiteral("stopped"));
    ::close(stopFd);
    return 0;
}
