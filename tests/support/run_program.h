#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QStringList>

namespace testing_support {

struct ProgramRun {
    int exitStatus = -1;  // -1 when it did not end normally (crash, time-out)
    QByteArray standardOutput;
    QByteArray standardError;
};

/// The environment of the built vaskel under test: home directory (user database and HOME)
/// `home`, its XDG folders under `home`, no display and no session bus unless `extra` gives
/// them, and `extra` on top.
QProcessEnvironment vaskelEnvironment(const QString& home, const QProcessEnvironment& extra = {});

/// The path of the built vaskel executable.
QString vaskelExecutable();

/// Runs the built vaskel executable with `arguments` in vaskelEnvironment(home, extra) and waits
/// up to `timeoutSeconds`.
ProgramRun runVaskel(const QStringList& arguments, const QString& home,
                     const QProcessEnvironment& extra = {}, double timeoutSeconds = 30);

}  // namespace testing_support
