#include "platform/home_directory.h"

#include <pwd.h>
#include <unistd.h>

#include <QDir>
#include <array>

namespace platform {
namespace {

class UserDatabaseHome final : public HomeDirectory {
public:
    QString path() const override {
        passwd entry{};
        passwd* found = nullptr;
        std::array<char, 4096> buffer{};
        if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found &&
            found->pw_dir && found->pw_dir[0] != '\0') {
            return QString::fromLocal8Bit(found->pw_dir);
        }
        return QDir::homePath();
    }
};

}  // namespace

HomeDirectory& HomeDirectory::real() {
    static UserDatabaseHome home;
    return home;
}

}  // namespace platform
