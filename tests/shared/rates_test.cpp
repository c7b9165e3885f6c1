#include "shared/rates.h"

#include <gtest/gtest.h>

#include <QFile>
#include <set>

#include "shared/bandwidth_presets.h"
#include "support/fake_platform.h"

namespace {

using testing_support::FakePlatform;

class RatesTest : public ::testing::Test {
protected:
    FakePlatform platform;

    void writeStats(const QByteArray& bytes) {
        QFile file(*Shared::statsURL());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(bytes);
    }

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
    const Shared::Rates none{};
    struct Case {
        const char* what;
        QByteArray contents;
        Shared::Rates expected;
    };
    const Case cases[] = {
        {"3.9 s old", sample(3.9), {2048, 512, true}},
        {"just written", sample(0), {2048, 512, true}},
        {"4.0 s old", sample(4.0), none},
        {"an hour old", sample(3600), none},
        {"stamped in the future", sample(-30), {2048, 512, true}},
        {"no stamp", R"({"down_bps": 2048, "up_bps": 512})", none},
        {"stamp is text", R"({"at": "now", "down_bps": 2048})", none},
        {"rates missing", sample(1, R"("other": 1)"), {0, 0, true}},
        {"rates as text", sample(1, R"("down_bps": "2048", "up_bps": true)"), {0, 0, true}},
        {"negative rates", sample(1, R"("down_bps": -5, "up_bps": 7.5)"), {0, 7.5, true}},
        {"huge rate", sample(1, R"("down_bps": 1e308, "up_bps": 0)"), {1e308, 0, true}},
        {"empty file", "", none},
        {"array", "[1, 2, 3]", none},
        {"not JSON", "at=1", none},
        {"NaN literal", sample(1, R"("down_bps": NaN)"), none},
    };
    for (const Case& c : cases) {
        writeStats(c.contents);
        EXPECT_EQ(Shared::readRates(), c.expected) << c.what;
    }
}

TEST_F(RatesTest, OversizedFileIsNotASample) {
    writeStats(
        sample(1, (R"("down_bps": 1, "pad": ")" + QByteArray(200 * 1024, 'x') + "\"").constData()));
    EXPECT_EQ(Shared::readRates(), Shared::Rates{});
}

TEST(FormatRate, Thresholds) {
    struct Case {
        double rate;
        const char* text;
    };
    const Case cases[] = {
        {0, "0 B/s"},          {1023, "1023 B/s"},    {1023.4, "1023 B/s"},
        {1024, "1 KB/s"},      {1536, "2 KB/s"},      {1048575, "1024 KB/s"},
        {1048576, "1.0 MB/s"}, {1572864, "1.5 MB/s"}, {10 * 1048576.0 + 100000, "10.1 MB/s"},
        {-5, "-5 B/s"},
    };
    for (const Case& c : cases) EXPECT_EQ(formatRate(c.rate), c.text) << c.rate;
}

TEST(FormatRate, IgnoresTheLocaleDecimalSeparator) {
    const char* previous = std::setlocale(LC_NUMERIC, "de_DE.UTF-8");
    EXPECT_EQ(formatRate(1572864), "1.5 MB/s");
    if (previous) std::setlocale(LC_NUMERIC, "C");
}

TEST(BandwidthPresets, MenuOrderTitlesAndValues) {
    ASSERT_EQ(BANDWIDTH_PRESETS.size(), 10u);
    EXPECT_EQ(BANDWIDTH_PRESETS.front().title, "Unlimited");
    EXPECT_EQ(BANDWIDTH_PRESETS.front().value, 0);
    EXPECT_EQ(BANDWIDTH_PRESETS[3].title, "1 MB/s");
    EXPECT_EQ(BANDWIDTH_PRESETS[3].value, 1000);
    EXPECT_EQ(BANDWIDTH_PRESETS.back().title, "100 MB/s");
    EXPECT_EQ(BANDWIDTH_PRESETS.back().value, 100000);
    std::set<int> values;
    for (const auto& preset : BANDWIDTH_PRESETS) values.insert(preset.value);
    EXPECT_EQ(values.size(), 10u) << "every preset is a distinct limit";
    EXPECT_TRUE(std::is_sorted(BANDWIDTH_PRESETS.begin(), BANDWIDTH_PRESETS.end(),
                               [](auto& a, auto& b) { return a.value < b.value; }));
}

}  // namespace
