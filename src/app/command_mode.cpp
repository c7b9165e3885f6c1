#include "app/command_mode.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <cstring>
#include <memory>
#include <semaphore>

#include "app/command_arguments.h"
#include "app/domain_commands.h"
#include "app/item_commands.h"
#include "app/probe_and_resync.h"
#include "app/progress_watch.h"
#include "app/vaskel_host.h"
#include "platform/log.h"

namespace {

using LoopCommand = std::function<void(std::function<void(int)> finish, QObject* context)>;

// Runs `command` in an event loop of the main thread until it calls `finish`.
int runInEventLoop(int& argc, char** argv, const LoopCommand& command) {
    std::unique_ptr<QCoreApplication> application;
    if (!QCoreApplication::instance()) application = std::make_unique<QCoreApplication>(argc, argv);
    QEventLoop loop;
    int status = 0;
    {
        // Timers and queued answers of the command live as long as this object.
        QObject context;
        command(
            [&](int result) {
                status = result;
                loop.exit(result);
            },
            &context);
        loop.exec();
    }
    return status;
}

}  // namespace

int runCommandMode(int argc, char** argv) {
    platform::setLogFallbackToStandardError(false);
    return runCommand(argc, argv, CommandOutput::standardOutput());
}

int runCommand(int& argc, char** argv, const Output& out, std::chrono::milliseconds timeLimit) {
    auto finished = std::make_shared<std::counting_semaphore<>>(0);
    const Completion completion = [finished] { finished->release(); };

    const char* option = argv[1];
    const auto is = [option](const char* name) { return std::strcmp(option, name) == 0; };
    const QString argument = argc > 2 ? QString::fromLocal8Bit(argv[2]) : QString();

    if (is("--version")) {
        out->line(QStringLiteral("Vaskel ") + QLatin1String(BUILD_STAMP));
        out->close();
        return 0;
    } else if (is("--add")) {
        addDomain(out, completion);
    } else if (is("--remove")) {
        removeDomain(out, completion);
    } else if (is("--reconnect")) {
        reconnectDomain(out, completion);
    } else if (is("--refresh")) {
        refreshDomain(out, completion);
    } else if (is("--resync")) {
        resyncMetadata(out, completion);
    } else if (is("--probe")) {
        probeProvider(out, completion);
    } else if (is("--evict")) {
        evictPath(argument, out, completion);
    } else if (is("--identify")) {
        identifyPath(argument, out, completion);
    } else if (is("--progress")) {
        const double seconds = progressSeconds(argument);
        return runInEventLoop(argc, argv, [&](auto finish, QObject* context) {
            watchProgress(seconds, out, std::move(finish), context);
        });
    } else if (is("--watch")) {
        const double interval = watchInterval(argument);
        return runInEventLoop(argc, argv, [&](auto finish, QObject* context) {
            watchDomain(interval, out, std::move(finish), context);
        });
    } else {
        listDomains(out, completion);
    }
    // Whether the command completed or the time ran out, the process ends now; a command still
    // running prints nothing more.
    finished->try_acquire_for(timeLimit);
    out->close();
    return 0;
}
