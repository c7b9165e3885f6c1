// The built vaskel executable, run as a user would run it, with a throwaway home, beside the
// built stand-in of the sync extension.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <QDeadlineTimer>
#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include "support/run_program.h"
#include "support/test_files.h"

using namespace testing_support;

namespace {

class CommandLineEndToEndTest : public ::testing::Test {
protected:
    QTemporaryDir root;
    QString home = root.path() + "/home dir";
    QString state = home + "/.local/state/fileprovider/com.norva.vaskel";
    QProcessEnvironment extra;

    void SetUp() override { ASSERT_TRUE(QDir().mkpath(home)); }

    // Runs vaskel, whose standard error must stay empty, and checks its exit status.
    QByteArray out(const QStringList& arguments, int status = 0, double timeout = 30) {
        const ProgramRun run = runVaskel(arguments, home, extra, timeout);
        EXPECT_EQ(run.standardError, QByteArray()) << arguments.join(' ').toStdString();
        EXPECT_EQ(run.exitStatus, status) << arguments.join(' ').toStdString();
        return run.standardOutput;
    }
};

TEST_F(CommandLineEndToEndTest, ADomainLivesAcrossProcessesAndTheSyncStandInMovesItsFiles) {
    EXPECT_EQ(out({"--version", "ignored"}), "Vaskel 20261007-080416\n");
    EXPECT_TRUE(QDir(home).isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden));
    EXPECT_EQ(out({"--help"}), "no domains registered\n");
    EXPECT_FALSE(QFileInfo::exists(state)) << "listing creates nothing";

    const QString folder = home + "/CloudStorage/Vaskel-me@example.com";
    writeFile(home + "/.vaskel/config.json", R"({"account_email": "me@example.com"})");
    EXPECT_EQ(out({"--add"}),
              "domain added: me@example.com\nvisible at: " + folder.toUtf8() + "\n");
    const QByteArray watching =
        "watching for 0s — read a file in the Vaskel folder to see it move\n";
    const QByteArray nothingTracked =
        watching + "nothing tracked — no transfer ran, or fileOperationKind is unset\n";
    EXPECT_EQ(out({"--progress", "0.6"}, 2), nothingTracked);

    // 1 KB/s: the made-up files of a few megabytes stay unfinished throughout.
    QProcess standIn;
    standIn.setProcessEnvironment(vaskelEnvironment(home));
    standIn.start(VASKEL_SYNC_STANDIN, {"--speed", "1", "--batch", "2"});
    QByteArray log;
    const auto logged = [&](const char* text) {
        for (QDeadlineTimer deadline(15000); !log.contains(text) && !deadline.hasExpired();)
            log += (standIn.waitForReadyRead(100), standIn.readAllStandardOutput());
        return log.contains(text);
    };
    ASSERT_TRUE(logged("first enumeration: 2 files to download")) << log.constData();
    writeFile(folder + "/mine.txt", QByteArray(100000, 'x'));
    EXPECT_TRUE(logged("new local file mine.txt: uploading")) << log.constData();
    const QByteArray moving = out({"--progress", "0.8"});
    EXPECT_TRUE(QRegularExpression("\n  down \\d+/\\d+ bytes \\(0%\\) pausable=y paused=n\n"
                                   "  up \\d+/100000 bytes \\(\\d%\\) pausable=y paused=n\n")
                    .match(QString::fromUtf8(moving))
                    .hasMatch())
        << moving.constData();
    EXPECT_TRUE(moving.endsWith("\nthe system is tracking our transfers\n"));

    EXPECT_EQ(out({"--refresh"}), "refresh signalled\n");
    EXPECT_TRUE(logged("working set changed: 2 files to download")) << log.constData();
    EXPECT_EQ(out({"--resync"}), "cursor rewound; replaying the change feed\nrefresh signalled\n");
    EXPECT_TRUE(logged("change feed rewound: downloading all ")) << log.constData();

    writeFile(home + "/.vaskel/config.json",
              R"({"account_email": "me@example.com", "transfers_paused": true})");
    EXPECT_TRUE(logged("transfers paused")) << log.constData();
    EXPECT_TRUE(out({"--progress", "0.6"}).contains(" pausable=y paused=y\n"));
    const QString container = home + "/.local/share/group.com.norva.vaskel";
    EXPECT_TRUE(readFile(container + "/stats.json").contains("\"down_bps\":0"));

    standIn.terminate();
    ASSERT_TRUE(standIn.waitForFinished(10000));
    EXPECT_EQ(standIn.exitCode(), 0);
    EXPECT_TRUE(standIn.readAllStandardOutput().endsWith(" stopped\n"));
    EXPECT_EQ(out({"--progress", "0.6"}, 2), nothingTracked) << "it leaves no transfer behind";
    writeFile(container + "/cursor.json", R"({"changeCursor": 99})");
    out({"--resync"});
    EXPECT_EQ(readFile(container + "/cursor.json"), R"({"changeCursor":1})");

    const QByteArray listed =
        "com.norva.vaskel.domain  \"me@example.com\"  hidden=false  "
        "disconnected=false  syncsTrash=true\n";
    standIn.start(VASKEL_SYNC_STANDIN, {"--disconnect"});
    ASSERT_TRUE(standIn.waitForFinished(10000));
    EXPECT_EQ(standIn.readAllStandardOutput(), "domain disconnected\n");
    EXPECT_EQ(out({"--list"}), QByteArray(listed).replace("=false  s", "=true  s"));
    EXPECT_EQ(out({"--reconnect"}), "reconnected\n");
    EXPECT_EQ(out({"--list"}), listed);
    // --watch runs until it is stopped, here by the run's time-out.
    EXPECT_EQ(out({"--watch", "0.2"}, -1, 1.5), "watching: refreshing every 0s — ctrl-C to stop\n");
    // The command line maps Qt Core and the core library only: the desktop module, the network
    // and keychain code and what they pull in stay out. (GLib itself comes with Qt Core.)
    extra.insert("LD_DEBUG", "libs");
    const ProgramRun removed = runVaskel({"--remove"}, home, extra);
    extra.remove("LD_DEBUG");
    EXPECT_EQ(std::pair(removed.exitStatus, removed.standardOutput),
              std::pair(0, QByteArray("domain removed\n")));
    EXPECT_TRUE(removed.standardError.contains("libvaskel-core")) << "the loader trace is there";
    for (const char* library :
         {"libvaskel-desktop", "libvaskel-account", "libQt6Widgets", "libQt6Gui", "libQt6Network",
          "libQt6DBus", "libdbus-1", "libsecret", "libgio-2.0", "libgobject-2.0", "libsystemd",
          "libssl", "libcrypto"})
        EXPECT_FALSE(removed.standardError.contains(library)) << library;
    EXPECT_EQ(out({"--progress", "5"}, 1),
              "watching for 5s — read a file in the Vaskel folder to see it move\n"
              "domain not registered — run --add first\n");
}

TEST_F(CommandLineEndToEndTest, StateLocationsFollowTheEnvironmentAndWhatCannotWorkIsExplained) {
    writeFile(state + "/registry.json", "{\"domains\": 7}");
    // A relative XDG_STATE_HOME is not used: the state stays under ~/.local/state.
    extra.insert("XDG_STATE_HOME", "relative/state");
    EXPECT_EQ(out({"--list"}), "error: the domain registry " + state.toUtf8() +
                                   "/registry.json is damaged (no list of domains); it was left "
                                   "as it is\n");

    writeFile(root.path() + "/a file", "x");
    extra.insert("XDG_DATA_HOME", root.path() + "/a file/share");
    EXPECT_EQ(out({"--resync"}), "no app group container\n");
    // Without a display the application explains why it cannot start.
    const ProgramRun run = runVaskel({}, home);
    EXPECT_EQ(std::pair(run.exitStatus, run.standardOutput), std::pair(1, QByteArray()));
    EXPECT_TRUE(run.standardError.startsWith("vaskel: ")) << run.standardError.constData();
    EXPECT_EQ(run.standardError.count('\n'), 1) << run.standardError.constData();
}

// Takes the full 20 seconds: the service's state is locked by another process for longer.
TEST_F(CommandLineEndToEndTest, AServiceThatDoesNotAnswerEndsTheCommandSilentlyWithStatusZero) {
    ASSERT_TRUE(QDir().mkpath(state));
    const int lock =
        ::open(QFile::encodeName(state + "/.lock").constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(::flock(lock, LOCK_EX), 0);
    EXPECT_EQ(out({"--add"}, 0, 40), QByteArray());
    ::close(lock);
    EXPECT_EQ(out({"--list"}), "no domains registered\n");
}

}  // namespace
