// The built vaskel executable, run as a user would run it, with a throwaway home.
#include <gtest/gtest.h>
#include <sys/file.h>

#include <fcntl.h>
#include <unistd.h>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>

#include "support/run_program.h"
#include "support/test_files.h"

using testing_support::ProgramRun;
using testing_support::readFile;
using testing_support::writeFile;

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
        const ProgramRun run = testing_support::runVaskel(arguments, home, extra, timeout);
        EXPECT_EQ(run.standardError, QByteArray()) << arguments.join(' ').toStdString();
        EXPECT_EQ(run.exitStatus, status) << arguments.join(' ').toStdString();
        return run.standardOutput;
    }
};

TEST_F(CommandLineEndToEndTest, ADomainLivesAcrossProcesses) {
    EXPECT_EQ(out({"--help"}), "no domains registered\n");
    EXPECT_FALSE(QFileInfo::exists(state)) << "listing creates nothing";

    const QString folder = home + "/CloudStorage/Vaskel-me@example.com";
    writeFile(home + "/.vaskel/config.json", R"({"account_email": "me@example.com"})");
    EXPECT_EQ(out({"--add"}),
              "domain added: me@example.com\nvisible at: " + folder.toUtf8() + "\n");
    EXPECT_EQ(out({"--list"}),
              "com.norva.vaskel.domain  \"me@example.com\"  hidden=false  disconnected=false  "
              "syncsTrash=true\n");
    EXPECT_TRUE(QRegularExpression("^extension responds \\(\\d+\\.\\d\\ds\\) — enabled\\n$")
                    .match(QString::fromUtf8(out({"--probe"})))
                    .hasMatch());
    const QString cursor = home + "/.local/share/group.com.norva.vaskel/cursor.json";
    writeFile(cursor, R"({"changeCursor": 99})");
    EXPECT_EQ(out({"--resync"}), "cursor rewound; replaying the change feed\nrefresh signalled\n");
    EXPECT_EQ(readFile(cursor), R"({"changeCursor":1})");

    // The line of --watch is out at once; the watch runs until it is stopped, here by the run's
    // time-out. --progress ends with the verdict's status.
    EXPECT_EQ(out({"--watch", "0.2"}, -1, 1.5), "watching: refreshing every 0s — ctrl-C to stop\n");
    writeFile(state + "/domains/com.norva.vaskel.domain/progress.json",
              R"({"uploading": {"completedUnitCount": 3, "totalUnitCount": 4}})");
    const QByteArray progress = out({"--progress", "0.8"});
    EXPECT_TRUE(progress.contains("\n  up 3/4 bytes (75%) pausable=n paused=n\n"));
    EXPECT_TRUE(progress.endsWith("\nthe system is tracking our transfers\n"));

    EXPECT_EQ(out({"--remove"}), "domain removed\n");
    EXPECT_EQ(out({"--progress", "5"}, 1),
              "watching for 5s — read a file in the Vaskel folder to see it move\n"
              "domain not registered — run --add first\n");
}

TEST_F(CommandLineEndToEndTest, StateLocationsFollowTheEnvironmentAndDamageIsReported) {
    writeFile(state + "/registry.json", "{\"domains\": 7}");
    // A relative XDG_STATE_HOME is not used: the state stays under ~/.local/state.
    extra.insert("XDG_STATE_HOME", "relative/state");
    EXPECT_EQ(out({"--list"}), "error: the domain registry " + state.toUtf8() +
                                   "/registry.json is damaged (no list of domains); it was left "
                                   "as it is\n");

    writeFile(root.path() + "/a file", "x");
    extra.insert("XDG_DATA_HOME", root.path() + "/a file/share");
    EXPECT_EQ(out({"--resync"}), "no app group container\n");
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
