#pragma once

#include <QAbstractButton>

#include "server/account.h"
#include "support/event_loop_wait.h"

namespace setup_testing {

/// The button under `root` whose text is `text`; none when there is none.
inline QAbstractButton* button(const QWidget& root, const QString& text) {
    for (QAbstractButton* candidate : root.findChildren<QAbstractButton*>())
        if (candidate->text() == text) return candidate;
    return nullptr;
}

/// An unlimited account known by its e-mail address.
inline Account accountFor(const QString& email, const QString& status = {}) {
    Account account;
    account.email = email;
    account.status = status;
    return account;
}

/// Runs the event loop for `ms` milliseconds.
inline void spin(int ms) {
    testing_support::runEventsUntil([] { return false; }, ms);
}

}  // namespace setup_testing
