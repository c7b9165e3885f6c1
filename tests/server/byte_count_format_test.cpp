#include <gtest/gtest.h>

#include "support/qt_printing.h"

#include <limits>

#include "server/byte_count_format.h"

namespace {

TEST(ByteCountFormat, DecimalUnitsWithUnitPrecision) {
    const std::pair<std::int64_t, const char*> cases[] = {
        {0, "0 bytes"},
        {1, "1 byte"},
        {1499, "1 KB"},
        {1500, "2 KB"},
        {999'500, "1 MB"},  // rounds up into the next unit
        {1'250'000, "1.3 MB"},
        {1'234'567'890, "1.23 GB"},
        {5'000'000'000, "5 GB"},
        {999'995'000'000, "1 TB"},
        {std::numeric_limits<std::int64_t>::max(), "9.22 EB"},
        {-1, "-1 byte"},
        {std::numeric_limits<std::int64_t>::min(), "-9.22 EB"},
    };
    for (const auto& [bytes, expected] : cases) {
        EXPECT_EQ(formatByteCount(bytes), QString::fromUtf8(expected)) << bytes;
    }
}

}  // namespace
