#pragma once

#include <signal.h>

/// Readies Ctrl-C and SIGTERM for a trial tool that takes them in its own time (with sigwait or
/// a signalfd): restores their default action, since a shell starts background jobs with SIGINT
/// ignored and an ignored signal is never delivered, and blocks both in the calling thread and in
/// every thread it starts later. Call before any thread starts. Gives the set of the two.
inline sigset_t blockStopSignals() {
    signal(SIGINT, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    return stopSignals;
}
