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

/// Runs the built vaskel executable with `arguments` and waits up to `timeoutSeconds`. Its home
/// directory (user database and HOME) is `home`, its XDG folders live under `home`, and it has no
/// display and no session bus unless `environment` gives them.
ProgramRun runVaskel(const QStringList& arguments, const QString& home,
                     const QProcessEnvironment& extra = {}, double timeoutSeconds = 30);

}  // namespace testing_support
