#include "platform/app_group_container.h"

#include <sys/stat.h>

#include <QFile>

#include "platform/files.h"
#include "platform/home_directory.h"
#include "platform/seam.h"

namespace platform {
namespace {

class XdgDataContainer final : public AppGroupContainer {
public:
    std::optional<QString> path(const QString& groupIdentifier) const override {
        if (groupIdentifier.isEmpty() || groupIdentifier.contains(QLatin1Char('/'))) {
            return std::nullopt;
        }
        QString dataHome = qEnvironmentVariable("XDG_DATA_HOME");
        if (!dataHome.startsWith(QLatin1Char('/'))) {
            dataHome = current<HomeDirectory>().path() + QStringLiteral("/.local/share");
        }
        QString folder = dataHome + QLatin1Char('/') + groupIdentifier;
        struct stat info {};
        if (::stat(QFile::encodeName(folder).constData(), &info) == 0) {
            if (S_ISDIR(info.st_mode)) return folder;
            return std::nullopt;
        }
        if (makeDirectories(folder, 0700)) return std::nullopt;
        return folder;
    }
};

}  // namespace

AppGroupContainer& AppGroupContainer::real() {
    static XdgDataContainer container;
    return container;
}

}  // namespace platform
