// The built vaskel executable, run as a user would run it, with a throwaway home.
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <fcntl.h>
#include <unistd.h>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>

#include "support/run_program.h"

using testing_support::ProgramRun;
using testing_support::runVaskel;

namespace {

class CommandLineEndToEndTest : public ::testing::Test {
protected:
    QTemporaryDir root;
    QString home = root.path() + "/home dir";
    QString state = home + "/.local/state/fileprovider/com.norva.vaskel";
    QString folder = home + "/CloudStorage/Vaskel-me@example.com";
    QProcessEnvironment extra;

    void SetUp() override { ASSERT_TRUE(QDir().mkpath(home)); }

    // Runs vaskel; its standard error must stay empty.
    ProgramRun run(const QStringList& arguments, double timeout = 30) {
        ProgramRun result = runVaskel(arguments, home, extra, timeout);
        EXPECT_EQ(result.standardError, QByteArray()) << arguments.join(' ').toStdString();
        return result;
    }
    QByteArray out(const QStringList& arguments) {
        const ProgramRun result = run(arguments);
        EXPECT_EQ(result.exitStatus, 0) << arguments.join(' ').toStdString();
        return result.standardOutput;
    }
    void write(const QString& path, const QByteArray& contents) {
        QDir().mkpath(path.left(path.lastIndexOf('/')));
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(contents);
    }
    QByteArray read(const QString& path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
    }
    static mode_t mode(const QString& path) {
        struct stat info {};
        ::stat(QFile::encodeName(path).constData(), &info);
        return info.st_mode & 07777;
    }
};

const QByteArray NOT_REGISTERED = "domain not registered — run --add first\n";

TEST_F(CommandLineEndToEndTest, VersionAndListOnAFreshHome) {
    EXPECT_EQ(out({"--version"}), "Vaskel 20261007-080416\n");
    EXPECT_EQ(out({"--help"}), "no domains registered\n");
    EXPECT_FALSE(QFileInfo::exists(state)) << "listing creates nothing";
}

TEST_F(CommandLineEndToEndTest, DomainLifecycleAcrossProcesses) {
    write(home + "/.vaskel/config.json", R"({"account_email": "me@example.com"})");
    EXPECT_EQ(out({"--add"}),
              "domain added: me@example.com\nvisible at: " + folder.toUtf8() + "\n");
    EXPECT_EQ(out({"--list"}),
              "com.norva.vaskel.domain  \"me@example.com\"  hidden=false  disconnected=false  "
              "syncsTrash=true\n");
    EXPECT_EQ(mode(state), 0700u);
    EXPECT_EQ(mode(state + "/registry.json"), 0600u);
    EXPECT_EQ(mode(folder), 0700u);

    EXPECT_EQ(out({"--refresh"}), "refresh signalled\n");
    EXPECT_EQ(out({"--reconnect"}), "reconnected\n");

    write(folder + "/Annual Report/q4 final.pdf", "pdf");
    EXPECT_EQ(out({"--identify", folder + "/Annual Report/q4 final.pdf"}),
              "identifier: Annual Report/q4 final.pdf\ndomain    : com.norva.vaskel.domain\n");
    EXPECT_EQ(out({"--identify", folder}),
              "identifier: NSFileProviderRootContainerItemIdentifier\n"
              "domain    : com.norva.vaskel.domain\n");
    EXPECT_EQ(out({"--evict", folder + "/Annual Report/q4 final.pdf"}), "evicted q4 final.pdf\n");
    EXPECT_EQ(out({"--evict", home}),
              "not a file provider item: " + home.toUtf8() + " is not inside a synced folder\n");
    EXPECT_EQ(out({"--evict"}), "usage: --evict <path>\n");

    const QString probe = QString::fromUtf8(out({"--probe"}));
    EXPECT_TRUE(QRegularExpression("^extension responds \\(\\d+\\.\\d\\ds\\) — enabled\\n$")
                    .match(probe)
                    .hasMatch())
        << probe.toStdString();

    const QString cursor = home + "/.local/share/group.com.norva.vaskel/cursor.json";
    write(cursor, R"({"changeCursor": 99, "other": true})");
    EXPECT_EQ(out({"--resync"}), "cursor rewound; replaying the change feed\nrefresh signalled\n");
    EXPECT_EQ(read(cursor), R"({"changeCursor":1})");

    const QJsonObject signals =
        QJsonDocument::fromJson(read(state + "/domains/com.norva.vaskel.domain/signals.json"))
            .object();
    EXPECT_EQ(signals["workingSet"].toObject()["count"].toInt(), 2);

    EXPECT_EQ(out({"--remove"}), "domain removed\n");
    EXPECT_EQ(out({"--list"}), "no domains registered\n");
    EXPECT_EQ(out({"--remove"}),
              "remove failed: no domain with identifier com.norva.vaskel.domain is registered\n");
    EXPECT_EQ(read(folder + "/Annual Report/q4 final.pdf"), "pdf") << "user files stay";
}

TEST_F(CommandLineEndToEndTest, WatchAndProgressExitStatuses) {
    ProgramRun watch = run({"--watch", "5"});
    EXPECT_EQ(watch.exitStatus, 1);
    EXPECT_EQ(watch.standardOutput, NOT_REGISTERED);
    ProgramRun progress = run({"--progress", "inf"});
    EXPECT_EQ(progress.exitStatus, 1);
    EXPECT_EQ(progress.standardOutput,
              "watching for 2073600s — read a file in the Vaskel folder to see it move\n" +
                  NOT_REGISTERED);

    EXPECT_EQ(out({"--add"}).left(21), "domain added: Vaskel\n");
    progress = run({"--progress", "0.4"});
    EXPECT_EQ(progress.exitStatus, 2);
    EXPECT_EQ(progress.standardOutput,
              "watching for 0s — read a file in the Vaskel folder to see it move\n"
              "nothing tracked — no transfer ran, or fileOperationKind is unset\n");

    write(state + "/domains/com.norva.vaskel.domain/progress.json",
          R"({"uploading": {"completedUnitCount": 3, "totalUnitCount": 4}})");
    progress = run({"--progress", "0.8"});
    EXPECT_EQ(progress.exitStatus, 0);
    EXPECT_TRUE(progress.standardOutput.contains("\n  up 3/4 bytes (75%) pausable=n paused=n\n"));
    EXPECT_TRUE(progress.standardOutput.endsWith("\nthe system is tracking our transfers\n"));

    // --watch runs until it is stopped; here by the time-out of the run.
    watch = run({"--watch", "0.2"}, 1.5);
    EXPECT_EQ(watch.exitStatus, -1);
    EXPECT_EQ(watch.standardOutput, "watching: refreshing every 0s — ctrl-C to stop\n");
    const QJsonObject signals =
        QJsonDocument::fromJson(read(state + "/domains/com.norva.vaskel.domain/signals.json"))
            .object();
    EXPECT_GE(signals["workingSet"].toObject()["count"].toInt(), 2);
}

TEST_F(CommandLineEndToEndTest, DamagedOrUnavailableStateIsReportedAndKept) {
    write(state + "/registry.json", "{\"domains\": 7}");
    EXPECT_EQ(out({"--list"}), "error: the domain registry " + state.toUtf8() +
                                   "/registry.json is damaged (no list of domains); it was left "
                                   "as it is\n");
    const QList<QByteArray> added = out({"--add"}).split('\n');
    ASSERT_EQ(added.size(), 3);
    EXPECT_TRUE(added[0].startsWith("add failed: the domain registry "));
    EXPECT_TRUE(added[1].startsWith("  Error Domain=com.norva.vaskel.FileProviderError Code=1 "));
    EXPECT_EQ(out({"--refresh"}), NOT_REGISTERED);
    EXPECT_EQ(read(state + "/registry.json"), "{\"domains\": 7}");

    write(root.path() + "/a file", "x");
    extra.insert("XDG_DATA_HOME", root.path() + "/a file/share");
    EXPECT_EQ(out({"--resync"}), "no app group container\n");

    // A relative XDG_STATE_HOME is not used: the state stays under ~/.local/state.
    extra.insert("XDG_STATE_HOME", "relative/state");
    EXPECT_TRUE(out({"--list"}).startsWith("error: the domain registry " + state.toUtf8()));
}

// Takes the full 20 seconds: the service's state is locked by another process for longer.
TEST_F(CommandLineEndToEndTest, AServiceThatDoesNotAnswerEndsTheCommandSilentlyWithStatusZero) {
    ASSERT_TRUE(QDir().mkpath(state));
    const int lock =
        ::open(QFile::encodeName(state + "/.lock").constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(lock, 0);
    ASSERT_EQ(::flock(lock, LOCK_EX), 0);
    const ProgramRun added = run({"--add"}, 40);
    ::close(lock);
    EXPECT_EQ(added.exitStatus, 0);
    EXPECT_EQ(added.standardOutput, QByteArray());
    EXPECT_EQ(out({"--list"}), "no domains registered\n");
}

}  // namespace
