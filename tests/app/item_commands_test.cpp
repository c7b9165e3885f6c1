#include <future>

#include "app/item_commands.h"
#include "support/command_fixture.h"

using namespace platform;
using testing_support::CommandFixture;
using testing_support::HeldService;
using testing_support::runInProcess;

namespace {

using ItemCommandsTest = CommandFixture;

TEST_F(ItemCommandsTest, UsageLinesWhenThePathIsMissingOrEmpty) {
    for (const QString option : {"--identify", "--evict"}) {
        const QString usage = "usage: " + option + " <path>";
        EXPECT_EQ(runInProcess({option}).lines, QStringList{usage});
        EXPECT_EQ(runInProcess({option, ""}).lines, QStringList{usage});
    }
}

TEST_F(ItemCommandsTest, IdentifyNamesTheItemAndItsDomain) {
    registerOurDomain();
    const QString folder = folderOf("Vaskel");
    writeFile(folder + "/Tax Returns/2025 report.pdf", "pdf");
    writeFile(platform.root.path() + "/elsewhere/file.txt", "x");

    EXPECT_EQ(runInProcess({"--identify", folder}).lines,
              (QStringList{"identifier: NSFileProviderRootContainerItemIdentifier",
                           "domain    : com.norva.vaskel.domain"}));
    EXPECT_EQ(runInProcess({"--identify", folder + "/Tax Returns/2025 report.pdf"}).lines,
              (QStringList{"identifier: Tax Returns/2025 report.pdf",
                           "domain    : com.norva.vaskel.domain"}));
    const QString outside = platform.root.path() + "/elsewhere/file.txt";
    EXPECT_EQ(runInProcess({"--identify", outside}).lines,
              QStringList{"no identifier: " + outside + " is not inside a synced folder"});
    const QString missing = folder + "/nope.txt";
    EXPECT_EQ(runInProcess({"--identify", missing}).lines,
              QStringList{"no identifier: " + missing + ": No such file or directory"});
}

TEST_F(ItemCommandsTest, EvictAsksTheExtensionAndPrintsOnlyTheName) {
    registerOurDomain();
    const QString folder = folderOf("Vaskel");
    writeFile(folder + "/docs/report.pdf", "pdf");
    const QString previous = QDir::currentPath();
    QDir::setCurrent(folder);
    EXPECT_EQ(runInProcess({"--evict", "docs/report.pdf"}).lines,
              QStringList{"evicted report.pdf"});
    EXPECT_EQ(runInProcess({"--evict", folder + "/docs/"}).lines, QStringList{"evicted docs"});
    QDir::setCurrent(previous);
    EXPECT_EQ(provider.evictionRequests(DOMAIN_ID), (QStringList{"docs/report.pdf", "docs"}));
    EXPECT_EQ(readFile(folder + "/docs/report.pdf"), "pdf");

    const QString outside = platform.root.path() + "/outside.txt";
    writeFile(outside, "x");
    EXPECT_EQ(
        runInProcess({"--evict", outside}).lines,
        QStringList{"not a file provider item: " + outside + " is not inside a synced folder"});

    breakStateWrites();
    const auto failed = runInProcess({"--evict", folder + "/docs/report.pdf"});
    ASSERT_EQ(failed.lines.size(), 1);
    EXPECT_TRUE(failed.lines[0].startsWith("evict failed: could not lock the state folder"));
}

TEST_F(ItemCommandsTest, EvictUsesThePathsOwnDomain) {
    provider.addDomain("other.domain", "Other");
    writeFile(folderOf("Other") + "/a.txt", "a");
    EXPECT_EQ(runInProcess({"--evict", folderOf("Other") + "/a.txt"}).lines,
              QStringList{"evicted a.txt"});
    EXPECT_EQ(provider.evictionRequests("other.domain"), QStringList{"a.txt"});
}

TEST_F(ItemCommandsTest, EvictWhenThePathsDomainIsGoneByTheTimeOfTheLookup) {
    provider.addDomain("other.domain", "Other");
    writeFile(folderOf("Other") + "/a.txt", "a");
    HeldService held(provider.service);
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
