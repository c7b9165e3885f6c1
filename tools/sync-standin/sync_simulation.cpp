#include "sync_simulation.h"

#include <QJsonArray>
#include <algorithm>
#include <cmath>

namespace standin {

namespace {

// The made-up files: a name pattern and a share of the batches.
constexpr const char* NAMES[] = {"Documents/Report %1.pdf", "Photos/IMG_%1.jpg",
                                 "Music/Track %1.mp3", "Notes/Note %1.txt"};

QString megabytes(qint64 bytes) {
    return QString::number(double(bytes) / (1024 * 1024), 'f', 1) + QStringLiteral(" MB");
}

QString limitText(qint64 kbps) {
    return kbps > 0 ? QStringLiteral("%1 KB/s").arg(kbps) : QStringLiteral("unlimited");
}

}  // namespace

SyncSimulation::SyncSimulation(SimulationOptions options) : options_(options) {}

void SyncSimulation::Direction::add(const File& file) {
    if (queue.empty()) completed = total = 0;  // a new round of transfers
    queue.push_back(file);
    total += file.bytes;
}

std::vector<SyncSimulation::File> SyncSimulation::Direction::move(qint64 budget) {
    std::vector<File> finished;
    moved = 0;
    while (!queue.empty()) {
        const qint64 step = std::min(queue.front().bytes - doneInFront, budget - moved);
        moved += step;
        completed += step;
        doneInFront += step;
        if (doneInFront < queue.front().bytes) break;
        finished.push_back(queue.front());
        queue.pop_front();
        doneInFront = 0;
    }
    return finished;
}

QJsonObject SyncSimulation::Direction::counts(bool paused) const {
    return {{QStringLiteral("completedUnitCount"), completed},
            {QStringLiteral("totalUnitCount"), total},
            {QStringLiteral("finished"), queue.empty()},
            {QStringLiteral("pausable"), true},
            {QStringLiteral("paused"), paused}};
}

void SyncSimulation::queueBatch(const QString& why) {
    std::uniform_real_distribution<double> share(0.25, 1.75);
    qint64 bytes = 0;
    for (int i = 0; i < options_.batchSize; ++i, ++nextFile_) {
        const File file{
            QString::fromLatin1(NAMES[nextFile_ % 4]).arg(nextFile_, 4, 10, QLatin1Char('0')),
            std::max<qint64>(1, qint64(double(options_.averageFileBytes) * share(random_)))};
        library_.push_back(file);
        down_.add(file);
        bytes += file.bytes;
    }
    // One change of the feed per new file, taken in when it is listed.
    cursor_ += options_.batchSize;
    cursorMoved_ = true;
    log_ << QStringLiteral("%1: %2 files to download (%3)")
                .arg(why)
                .arg(options_.batchSize)
                .arg(megabytes(bytes));
}

void SyncSimulation::takeIn(const Conditions& now) {
    if (!started_) {
        started_ = true;
        signals_ = now.workingSetSignals;
        cursor_ = now.changeCursor.value_or(1);
        localFiles_ = now.localFiles;  // already in sync
        queueBatch(QStringLiteral("first enumeration"));
    }
    if (now.workingSetSignals > signals_) queueBatch(QStringLiteral("working set changed"));
    signals_ = now.workingSetSignals;

    if (now.changeCursor == 1 && cursor_ != 1) {
        log_ << QStringLiteral("change feed rewound: downloading all %1 files again")
                    .arg(library_.size());
        down_ = Direction();
        for (const File& file : library_) down_.add(file);
        cursor_ = 1 + qint64(library_.size());
        cursorMoved_ = true;
    }

    for (auto file = now.localFiles.begin(); file != now.localFiles.end(); ++file) {
        if (localFiles_.value(file.key(), -1) == file.value()) continue;
        up_.add({file.key(), file.value()});
        log_ << QStringLiteral("new local file %1: uploading").arg(file.key());
    }
    localFiles_ = now.localFiles;
}

void SyncSimulation::step(const Conditions& now, double seconds) {
    cursorMoved_ = false;
    takeIn(now);
    const QString status =
        now.paused       ? QStringLiteral("transfers paused")
        : !now.connected ? QStringLiteral("domain disconnected: nothing moves")
                         : QStringLiteral("transfers running; download %1, upload %2")
                               .arg(limitText(now.maxDownloadKbps), limitText(now.maxUploadKbps));
    if (status != status_) log_ << status;
    status_ = status;
    paused_ = now.paused;

    const bool moving = !now.paused && now.connected && seconds > 0;
    const auto budget = [&](qint64 kbps) {
        const double speed = kbps > 0 ? std::min(options_.bytesPerSecond, double(kbps) * 1024)
                                      : options_.bytesPerSecond;
        return moving ? qint64(std::floor(speed * seconds)) : 0;
    };
    for (const File& file : down_.move(budget(now.maxDownloadKbps))) {
        log_ << QStringLiteral("downloaded %1").arg(file.name);
    }
    for (const File& file : up_.move(budget(now.maxUploadKbps))) {
        log_ << QStringLiteral("uploaded %1").arg(file.name);
    }
    seconds_ = seconds;
}

QJsonObject SyncSimulation::progress() const {
    return {{QStringLiteral("downloading"), down_.counts(paused_)},
            {QStringLiteral("uploading"), up_.counts(paused_)}};
}

QStringList SyncSimulation::takeLog() {
    QStringList lines;
    lines.swap(log_);
    return lines;
}

}  // namespace standin
