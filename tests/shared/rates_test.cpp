#include "shared/rates.h"

#include <gtest/gtest.h>

#include <QFile>
#include <clocale>

#include "support/fake_platform.h"
#include "support/test_files.h"

namespace {

class RatesTest : public ::testing::Test {
protected:
    testing_support::FakePlatform platform;

    QByteArray sample(double ageSeconds, const char* rest = R"("down_bps": 2048, "up_bps": 512)") {
        return QByteArray(R"({"at": )") +
               QByteArray::number(platform.clock.now - ageSeconds, 'f', 3) + ", " + rest + "}";
    }
};

TEST_F(RatesTest, StatsFileLivesInTheAppGroupContainer) {
    EXPECT_EQ(Shared::statsURL(), platform.container.dir + "/group.com.norva.vaskel/stats.json");
    platform.container.available = false;
    EXPECT_EQ(Shared::statsURL(), std::nullopt);
    EXPECT_EQ(Shared::readRates(), Shared::Rates{});
}

TEST_F(RatesTest, FreshnessAndFieldRules) {
    const Shared::Rates none{}, fresh{2048, 512, true};
    const QByteArray padding = R"("pad": ")" + QByteArray(1024 * 1024, 'x') + "\"";
    const struct {
        const char* what;
        QByteArray contents;
        Shared::Rates expected;
    } cases[] = {
        {"3.9 s old", sample(3.9), fresh},
        {"4.0 s old", sample(4.0), none},
        {"stamped in the future", sample(-30), fresh},
        {"no stamp", R"({"down_bps": 2048, "up_bps": 512})", none},
        {"rates as text", sample(1, R"("down_bps": "2048", "up_bps": true)"), {0, 0, true}},
        {"negative rates", sample(1, R"("down_bps": -5, "up_bps": 7.5)"), {-5, 7.5, true}},
        {"array", "[1, 2, 3]", none},
        {"NaN literal", sample(1, R"("down_bps": NaN)"), none},
        {"oversized", sample(1, padding.constData()), none},
    };
    for (const auto& c : cases) {
        testing_support::writeFile(*Shared::statsURL(), c.contents);
        EXPECT_EQ(Shared::readRates(), c.expected) << c.what;
    }
}

TEST(FormatRate, ThresholdsAndThePointWhateverTheLocale) {
    const struct {
        double rate;
        const char* text;
    } cases[] = {
        {0, "0 B/s"},           {1023, "1023 B/s"},    {1024, "1 KB/s"},      {1536, "2 KB/s"},
        {1048575, "1024 KB/s"}, {1048576, "1.0 MB/s"}, {1572864, "1.5 MB/s"}, {-5, "-5 B/s"},
    };
    for (const auto& c : cases) EXPECT_EQ(formatRate(c.rate), c.text) << c.rate;
    if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8")) {
        EXPECT_EQ(formatRate(1572864), "1.5 MB/s");
        std::setlocale(LC_NUMERIC, "C");
    }
}

}  // namespace
