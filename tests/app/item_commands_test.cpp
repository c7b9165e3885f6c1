#include <future>

#include "app/item_commands.h"
#include "support/command_fixture.h"

using namespace platform;
using testing_support::runInProcess;
using testing_support::writeFile;

namespace {

using ItemCommandsTest = testing_support::CommandFixture;

TEST_F(ItemCommandsTest, IdentifyAndEvictAskThePathsOwnDomain) {
    for (const QString option : {"--identify", "--evict"}) {
        const QStringList usage{"usage: " + option + " <path>"};
        EXPECT_EQ(runInProcess({option}).lines, usage);
        EXPECT_EQ(runInProcess({option, ""}).lines, usage);
    }
    registerOurDomain();
    provider.addDomain("other.domain", "Other");
    const QString folder = folderOf("Vaskel");
    writeFile(folder + "/docs/q4 report.pdf", "pdf");
    writeFile(folderOf("Other") + "/a.txt", "a");
    EXPECT_EQ(
        runInProcess({"--identify", folder + "/docs/q4 report.pdf"}).lines,
        (QStringList{"identifier: docs/q4 report.pdf", "domain    : com.norva.vaskel.domain"}));
    EXPECT_EQ(runInProcess({"--identify", folder + "/nope"}).lines,
              QStringList{"no identifier: " + folder + "/nope: No such file or directory"});

    const QString previous = QDir::currentPath();
    QDir::setCurrent(folder);
    EXPECT_EQ(runInProcess({"--evict", "docs/q4 report.pdf"}).lines,
              QStringList{"evicted q4 report.pdf"});
    QDir::setCurrent(previous);
    EXPECT_EQ(runInProcess({"--evict", folder + "/docs/"}).lines, QStringList{"evicted docs"});
    EXPECT_EQ(runInProcess({"--evict", folderOf("Other") + "/a.txt"}).lines,
              QStringList{"evicted a.txt"});
    EXPECT_EQ(provider.extension.evictionRequests(DOMAIN_ID),
              (QStringList{"docs/q4 report.pdf", "docs"}));
    EXPECT_EQ(provider.extension.evictionRequests("other.domain"), QStringList{"a.txt"});

    const QString outside = platform.root.path() + "/outside.txt";
    writeFile(outside, "x");
    EXPECT_EQ(
        runInProcess({"--evict", outside}).lines,
        QStringList{"not a file provider item: " + outside + " is not inside a synced folder"});
    breakStateWrites();
    const auto failed = runInProcess({"--evict", folder + "/docs/q4 report.pdf"}).lines;
    ASSERT_EQ(failed.size(), 1);
    EXPECT_TRUE(failed[0].startsWith("evict failed: could not lock the state folder"));
}

TEST_F(ItemCommandsTest, EvictWhenThePathsDomainIsGoneByTheTimeOfTheLookup) {
    provider.addDomain("other.domain", "Other");
    writeFile(folderOf("Other") + "/a.txt", "a");
    testing_support::HeldService held(provider.service);
    StandIn<FileProviderService> standIn(held);
    auto run = std::async(std::launch::async, [&] {
        return runInProcess({"--evict", folderOf("Other") + "/a.txt"});
    });
    while (held.held() == 0) std::this_thread::yield();
    held.releaseAll();  // the path resolves to other.domain
    while (held.held() == 0) std::this_thread::yield();
    ASSERT_FALSE(testing_support::waitFor([&](ErrorCompletion done) {
        provider.service.remove({"other.domain", {}}, done);
    }));
    held.releaseAll();  // the domain list no longer has it
    EXPECT_EQ(run.get().lines, QStringList{"no manager for domain other.domain"});
}

}  // namespace
