#include "app/progress_watch.h"

#include <QTimer>
#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

#include "app/command_arguments.h"
#include "app/domain_commands.h"
#include "domain/registered_domain.h"
#include "platform/main_thread.h"

using platform::FileOperationKind;
using platform::FileProviderProgress;
using platform::ProgressSnapshot;

namespace {

// What the watch knows; touched on the main thread only.
struct WatchState {
    std::shared_ptr<FileProviderProgress> download;
    std::shared_ptr<FileProviderProgress> upload;
    bool seen = false;
};

QString yesNo(bool value) {
    return value ? QStringLiteral("y") : QStringLiteral("n");
}

void tick(WatchState& state, const Output& out) {
    const std::pair<const char*, FileProviderProgress*> pairs[] = {{"down", state.download.get()},
                                                                   {"up", state.upload.get()}};
    for (const auto& [label, progress] : pairs) {
        if (!progress) continue;
        const ProgressSnapshot snapshot = progress->snapshot();
        if (snapshot.isFinished) continue;
        state.seen = true;
        out->line(progressLine(QLatin1String(label), snapshot));
    }
}

}  // namespace

int progressPercent(qint64 completed, qint64 total) {
    if (total < 1) return 0;
    __extension__ using Wide = __int128;
    const Wide percent = Wide(completed) * 100 / total;
    if (percent > std::numeric_limits<int>::max()) return std::numeric_limits<int>::max();
    if (percent < std::numeric_limits<int>::min()) return std::numeric_limits<int>::min();
    return int(percent);
}

QString progressLine(const QString& label, const ProgressSnapshot& snapshot) {
    return QStringLiteral("  %1 %2/%3 bytes (%4%) pausable=%5 paused=%6")
        .arg(label)
        .arg(snapshot.completedUnitCount)
        .arg(snapshot.totalUnitCount)
        .arg(progressPercent(snapshot.completedUnitCount, snapshot.totalUnitCount))
        .arg(yesNo(snapshot.isPausable), yesNo(snapshot.isPaused));
}

void watchProgress(double seconds, const Output& out, std::function<void(int)> finish,
                   QObject* context) {
    auto state = std::make_shared<WatchState>();
    const platform::MainThreadTarget mainThread(context);

    findRegisteredDomain([mainThread, out, finish, state](std::optional<RegisteredDomain> found) {
        // The progress objects are handed to the main thread before anything stores them.
        mainThread.post([out, finish, state, found] {
            if (!found) {
                out->line(QString::fromUtf8(NOT_REGISTERED_LINE));
                return finish(1);
            }
            state->download = found->manager.globalProgress(FileOperationKind::downloading);
            state->upload = found->manager.globalProgress(FileOperationKind::uploading);
        });
    });

    out->line(QStringLiteral("watching for %1s — read a file in the Vaskel folder to see it move")
                  .arg(wholeSeconds(seconds)));

    auto* ticker = new QTimer(context);
    ticker->setInterval(PROGRESS_TICK_MS);
    QObject::connect(ticker, &QTimer::timeout, context, [state, out] { tick(*state, out); });
    ticker->start();

    auto* deadline = new QTimer(context);
    deadline->setSingleShot(true);
    deadline->setTimerType(Qt::PreciseTimer);
    deadline->setInterval(int(std::llround(std::max(seconds, 0.0) * 1000)));
    QObject::connect(deadline, &QTimer::timeout, context, [ticker, state, out, finish] {
        ticker->stop();
        out->line(state->seen
                      ? QStringLiteral("the system is tracking our transfers")
                      : QStringLiteral("nothing tracked — no transfer ran, or fileOperationKind is "
                                       "unset"));
        finish(state->seen ? 0 : 2);
    });
    deadline->start();
}
