#include "shared/rates.h"

#include <gtest/gtest.h>

#include <clocale>

#include "support/fake_platform.h"
#include "support/test_files.h"

namespace {

TEST(Rates, StatsFileInTheAppGroupContainerIsReadWhileFresh) {
    testing_support::FakePlatform platform;
    const auto sample = [&](double age, QByteArray rates = R"("down_bps": 2048, "up_bps": 512)") {
        return R"({"at": )" + QByteArray::number(platform.clock.now - age, 'f', 3) + ", " + rates +
               "}";
    };
    const Shared::Rates none{}, fresh{2048, 512, true};
    // clang-format off
    const std::pair<QByteArray, Shared::Rates> cases[] = {
        {sample(3.9), fresh}, {sample(4.0), none}, {sample(-30), fresh},  // stamped in the future
        {R"({"down_bps": 2048, "up_bps": 512})", none}, {"[1, 2, 3]", none},
        {sample(1, R"("down_bps": "2048", "up_bps": true)"), {0, 0, true}},
        {sample(1, R"("down_bps": -5, "up_bps": 7.5)"), {-5, 7.5, true}},
        {sample(1, R"("pad": ")" + QByteArray(1024 * 1024, 'x') + "\""), none},  // too big to be a sample
    };
    // clang-format on
    ASSERT_EQ(Shared::statsURL(), platform.container.dir + "/group.com.norva.vaskel/stats.json");
    for (const auto& [contents, expected] : cases) {
        testing_support::writeFile(*Shared::statsURL(), contents);
        EXPECT_EQ(Shared::readRates(), expected) << contents.left(80).toStdString();
    }
    platform.container.available = false;
    EXPECT_EQ(std::pair(Shared::statsURL(), Shared::readRates()),
              std::pair(std::optional<QString>(), none));
}

TEST(FormatRate, ThresholdsAndThePointWhateverTheLocale) {
    const std::pair<double, const char*> cases[] = {
        {0, "0 B/s"},           {1023, "1023 B/s"},    {1024, "1 KB/s"},      {1536, "2 KB/s"},
        {1048575, "1024 KB/s"}, {1048576, "1.0 MB/s"}, {1572864, "1.5 MB/s"}, {-5, "-5 B/s"}};
    for (const auto& [rate, text] : cases) EXPECT_EQ(formatRate(rate), text) << rate;
    if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8")) {
        EXPECT_EQ(formatRate(1572864), "1.5 MB/s");
        std::setlocale(LC_NUMERIC, "C");
    }
}

}  // namespace
