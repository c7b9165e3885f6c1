#pragma once

#include <QJsonObject>
#include <QMap>
#include <QString>
#include <QStringList>
#include <deque>
#include <optional>
#include <random>
#include <vector>

namespace standin {

/// How the made-up transfers look.
struct SimulationOptions {
    double bytesPerSecond = 4.0 * 1024 * 1024;  // each way, before any limit
    int batchSize = 12;                         // files per batch of downloads
    qint64 averageFileBytes = 3 * 1024 * 1024;
};

/// What the extension sees in the shared files before a step.
struct Conditions {
    qint64 workingSetSignals = 0;
    std::optional<qint64> changeCursor;  // none when cursor.json is missing or damaged
    qint64 maxDownloadKbps = 0;          // 0 is unlimited; 1 KB/s is 1024 bytes per second
    qint64 maxUploadKbps = 0;
    bool paused = false;               // transfers_paused: nothing moves, progress says paused
    bool connected = true;             // a disconnected domain moves nothing either
    QMap<QString, qint64> localFiles;  // the synced folder's files (relative path to size)
};

/// The sync extension's transfers, made up and moved along by the caller's clock. The first step
/// starts a batch of downloads; each later rise of the working-set signal count adds a batch; a
/// change-feed cursor rewound to 1 downloads every file again. The cursor moves on by one for
/// each file the feed lists, the replay included, as the extension's would; files that appear in
/// the synced folder after the first step, or change size, are uploaded. Both ways share out their
/// bytes in file order.
class SyncSimulation {
public:
    explicit SyncSimulation(SimulationOptions options = {});

    /// Takes in `now`, then moves `seconds` worth of bytes.
    void step(const Conditions& now, double seconds);

    /// Bytes per second moved in the last step.
    double downloadRate() const { return seconds_ > 0 ? double(down_.moved) / seconds_ : 0; }
    double uploadRate() const { return seconds_ > 0 ? double(up_.moved) / seconds_ : 0; }
    /// progress.json's object: {"downloading": {...}, "uploading": {...}}, each with
    /// completedUnitCount, totalUnitCount (bytes), finished, pausable and paused.
    QJsonObject progress() const;
    /// The cursor to write back when it moved in the last step.
    std::optional<qint64> cursorToWrite() const {
        return cursorMoved_ ? cursor_ : std::optional<qint64>();
    }
    /// What happened since the last call, one line each.
    QStringList takeLog();

private:
    struct File {
        QString name;
        qint64 bytes = 0;
    };
    struct Direction {
        std::deque<File> queue;
        qint64 doneInFront = 0;  // bytes of the first queued file already moved
        qint64 completed = 0;
        qint64 total = 0;
        qint64 moved = 0;  // in the last step
        void add(const File& file);
        // Moves up to `budget` bytes; gives the files finished.
        std::vector<File> move(qint64 budget);
        QJsonObject counts(bool paused) const;
    };
    void queueBatch(const QString& why);
    void takeIn(const Conditions& now);

    SimulationOptions options_;
    std::minstd_rand random_{20261007};
    bool started_ = false;
    qint64 signals_ = 0;
    qint64 cursor_ = 1;
    bool cursorMoved_ = false;
    bool paused_ = false;
    double seconds_ = 0;
    QString status_;
    int nextFile_ = 1;
    std::vector<File> library_;
    QMap<QString, qint64> localFiles_;
    Direction down_, up_;
    QStringList log_;
};

}  // namespace standin
