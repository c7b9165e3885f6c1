#pragma once

#include <QString>
#include <optional>

namespace platform {

/// Facts about this program fixed when it was built; any may be missing from a damaged build.
struct BundleInfo {
    std::optional<QString> shortVersion;  // marketing version, e.g. "1.0"
    std::optional<QString> build;         // build number, e.g. "1"
    std::optional<QString> executable;    // executable name, "vaskel"
    std::optional<QString> name;          // product name, "Vaskel"
};

/// The installed program: its build facts and where it runs from.
class ApplicationBundle {
public:
    virtual ~ApplicationBundle() = default;

    virtual BundleInfo info() const = 0;

    /// The directory that holds the running executable.
    virtual QString path() const = 0;

    static ApplicationBundle& real();
};

}  // namespace platform
