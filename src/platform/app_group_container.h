#pragma once

#include <QString>
#include <optional>

namespace platform {

/// The folder shared by the programs of one application group (this program, the sync extension).
class AppGroupContainer {
public:
    virtual ~AppGroupContainer() = default;

    /// The container folder of `groupIdentifier`, created with mode 0700 when missing; none when
    /// it cannot be created. The real one is `<XDG data home>/<groupIdentifier>`, where the XDG
    /// data home is $XDG_DATA_HOME when that is an absolute path, else `<home>/.local/share`.
    virtual std::optional<QString> path(const QString& groupIdentifier) const = 0;

    static AppGroupContainer& real();
};

}  // namespace platform
