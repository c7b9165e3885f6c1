#include "platform/application_bundle.h"

#include <unistd.h>

#include <QFile>
#include <array>

namespace platform {
namespace {

class CompiledBundle final : public ApplicationBundle {
public:
    BundleInfo info() const override {
        return {QStringLiteral(VASKEL_SHORT_VERSION), QStringLiteral(VASKEL_BUILD_NUMBER),
                QStringLiteral("vaskel"), QStringLiteral("Vaskel")};
    }

    QString path() const override {
        std::array<char, 4096> buffer{};
        ssize_t n = ::readlink("/proc/self/exe", buffer.data(), buffer.size() - 1);
        if (n <= 0) return {};
        QString executable = QFile::decodeName(QByteArray(buffer.data(), n));
        return executable.left(std::max<qsizetype>(1, executable.lastIndexOf(QLatin1Char('/'))));
    }
};

}  // namespace

ApplicationBundle& ApplicationBundle::real() {
    static CompiledBundle bundle;
    return bundle;
}

}  // namespace platform
