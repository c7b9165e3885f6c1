#pragma once

#include <QString>

namespace platform {

/// The current user's home directory.
class HomeDirectory {
public:
    virtual ~HomeDirectory() = default;

    /// The home directory, looked up on every call: the directory of the user database entry for
    /// the real user id; when there is no entry or it names no directory, the HOME directory.
    virtual QString path() const = 0;

    static HomeDirectory& real();
};

}  // namespace platform
