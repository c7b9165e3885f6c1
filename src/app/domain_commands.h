#pragma once

#include <QObject>
#include <functional>

#include "app/command_output.h"

// The commands that manage the sync domain: list (any unknown option), --add, --remove,
// --reconnect, --refresh and --watch. The one-shot commands print from the file-provider
// service's callback thread and then call their completion.

/// The line printed when the domain is not registered.
inline constexpr const char* NOT_REGISTERED_LINE = "domain not registered — run --add first";

/// Prints one line per registered domain (identifier, name and flags), "no domains registered",
/// or "error: " and the error.
void listDomains(const Output& out, Completion completion);

/// Registers the domain with trash syncing on, and tells where its folder is.
void addDomain(const Output& out, Completion completion);

/// Unregisters the domain; the service decides whether there was one.
void removeDomain(const Output& out, Completion completion);

/// Clears the domain's disconnected state.
void reconnectDomain(const Output& out, Completion completion);

/// Asks the extension once to enumerate its working set again.
void refreshDomain(const Output& out, Completion completion);

/// Signals the working set at once and then every `interval` seconds on the main thread, for as
/// long as `context` lives. Calls `finish(1)` when the domain is not registered; never finishes
/// otherwise. Must be called on the main thread with its event loop about to run.
void watchDomain(double interval, const Output& out, std::function<void(int)> finish,
                 QObject* context);
