#include "support/run_program.h"

#include <QProcess>

namespace testing_support {

QProcessEnvironment vaskelEnvironment(const QString& home, const QProcessEnvironment& extra) {
    QProcessEnvironment environment;
    const QProcessEnvironment system = QProcessEnvironment::systemEnvironment();
    for (const char* keep :
         {"PATH", "LANG", "LC_ALL", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
        const QString name = QLatin1String(keep);
        if (system.contains(name)) environment.insert(name, system.value(name));
    }
    environment.insert(QStringLiteral("HOME"), home);
    environment.insert(QStringLiteral("VASKEL_TEST_HOME"), home);
    environment.insert(QStringLiteral("XDG_DATA_HOME"), home + QStringLiteral("/.local/share"));
    environment.insert(QStringLiteral("XDG_STATE_HOME"), home + QStringLiteral("/.local/state"));
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/.config"));
    environment.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(VASKEL_TEST_HOME_PRELOAD));
    // A sanitizer runtime in the program wants to come first; the preloaded shim has none.
    QString asan = environment.value(QStringLiteral("ASAN_OPTIONS"));
    environment.insert(
        QStringLiteral("ASAN_OPTIONS"),
        asan + (asan.isEmpty() ? "" : ":") + QStringLiteral("verify_asan_link_order=0"));
    environment.insert(extra);
    return environment;
}

QString vaskelExecutable() {
    return QStringLiteral(VASKEL_EXECUTABLE);
}

ProgramRun runVaskel(const QStringList& arguments, const QString& home,
                     const QProcessEnvironment& extra, double timeoutSeconds) {
    QProcess process;
    process.setProcessEnvironment(vaskelEnvironment(home, extra));
    process.start(vaskelExecutable(), arguments);
    ProgramRun run;
    if (!process.waitForStarted(5000)) return run;
    process.closeWriteChannel();
    if (!process.waitForFinished(int(timeoutSeconds * 1000))) {
        process.kill();
        process.waitForFinished(5000);
    } else if (process.exitStatus() == QProcess::NormalExit) {
        run.exitStatus = process.exitCode();
    }
    run.standardOutput = process.readAllStandardOutput();
    run.standardError = process.readAllStandardError();
    return run;
}

}  // namespace testing_support
