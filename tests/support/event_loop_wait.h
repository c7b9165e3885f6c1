#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>

namespace testing_support {

/// Runs the calling thread's event loop until `done()` holds or `timeoutMs` passes; whether it
/// held. For code under test that answers through the event loop (D-Bus calls to ourselves).
template <class Condition>
bool runEventsUntil(Condition done, int timeoutMs = 5000) {
    QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        if (deadline.hasExpired()) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    return true;
}

}  // namespace testing_support
