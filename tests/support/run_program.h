#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QStringList>

namespace testing_support {

struct ProgramRun {
    int exitStatus = -1;  // -1 when it did not end normally (crash, time-out)
    QByteArray standardOutput;
    QByteArray standardError;
    double seconds = 0;  // wall time
};

/// The environment of the built vaskel under test: home directory (user database and HOME)
/// `home`, its XDG folders under `home`, no display and no session bus unless `extra` gives
/// them, and `extra` on top.
QProcessEnvironment vaskelEnvironment(const QString& home, const QProcessEnvironment& extra = {});

/// The path of the built vaskel executable.
QString vaskelExecutable();

/// Runs the built vaskel executable with `arguments` and waits up to `timeoutSeconds`. Its home
/// directory (user database and HOME) is `home`, its XDG folders live under `home`, and it has no
/// display and no session bus unless `environment` gives them.
ProgramRun runVaskel(const QStringList& arguments, const QString& home,
                     const QProcessEnvironment& extra = {}, double timeoutSeconds = 30);

}  // namespace testing_support
