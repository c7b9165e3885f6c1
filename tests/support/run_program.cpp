#include "support/run_program.h"

#include <QProcess>

namespace testing_support {

QProcessEnvironment vaskelEnvironment(const QString& home, const QProcessEnvironment& extra) {
    QProcessEnvironment environment;
    const QProcessEnvironment system = QProcessEnvironment::systemEnvironment();
    for (const char* keep :
         {"PATH", "LANG", "LC_ALL", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"})
        if (system.contains(keep)) environment.insert(keep, system.value(keep));
    const QString asan = environment.value("ASAN_OPTIONS");
    // A sanitizer runtime in the program wants to come first; the preloaded shim has none.
    // clang-format off
    const std::pair<const char*, QString> settings[] = {
        {"HOME", home}, {"VASKEL_TEST_HOME", home}, {"LD_PRELOAD", VASKEL_TEST_HOME_PRELOAD},
        {"XDG_DATA_HOME", home + "/.local/share"}, {"XDG_STATE_HOME", home + "/.local/state"},
        {"XDG_CONFIG_HOME", home + "/.config"},
        {"ASAN_OPTIONS", asan + (asan.isEmpty() ? "" : ":") + "verify_asan_link_order=0"}};
    // clang-format on
    for (const auto& [name, value] : settings) environment.insert(name, value);
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
