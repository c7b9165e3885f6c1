#pragma once

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <future>
#include <thread>

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
    /// Runs a command whose first service request is answered before `change` and the next ones
    /// after it: the world changes while the command waits. Gives the printed lines.
    QStringList runBetweenAnswers(const QStringList& arguments,
                                  const std::function<void()>& change) {
        HeldService held(provider.service);
        platform::StandIn<platform::FileProviderService> standIn(held);
        auto run = std::async(std::launch::async, [&] { return runInProcess(arguments); });
        for (const bool changed : {false, true}) {
            while (held.held() == 0) std::this_thread::yield();
            if (changed) change();
            held.releaseAll();
        }
        return run.get().lines;
    }
};

}  // namespace testing_support
