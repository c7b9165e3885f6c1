#pragma once

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>

#include "domain/domain_identity.h"
#include "support/command_runner.h"
#include "support/fake_file_provider.h"
#include "support/fake_platform.h"
#include "support/test_files.h"

namespace testing_support {

/// A throwaway home, container and file-provider state for one in-process command test.
class CommandFixture : public ::testing::Test {
protected:
    FakePlatform platform;
    FakeFileProvider provider{platform.root.path() + QStringLiteral("/state")};

    /// The folder of a domain named `name`.
    QString folderOf(const QString& name) const {
        return platform.home.dir + QStringLiteral("/CloudStorage/Vaskel-") + name;
    }
    void registerOurDomain(const QString& name = QStringLiteral("Vaskel")) {
        provider.addDomain(QLatin1String(DOMAIN_ID), name);
    }
    /// Every later write to the service's state fails (its lock cannot be taken), whatever the
    /// privileges of the user running the tests; reads still work.
    void breakStateWrites() {
        const QString lock = provider.service.stateDirectory() + QStringLiteral("/.lock");
        QFile::remove(lock);
        ASSERT_TRUE(QDir().mkpath(lock));
    }
};

}  // namespace testing_support
