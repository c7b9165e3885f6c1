#include <gtest/gtest.h>

#include "support/qt_printing.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "server/account.h"
#include "server/account_status.h"
#include "server/byte_count_format.h"

namespace {

Account limited(std::int64_t used, std::int64_t quota, QString plan = {}, bool unlimited = false) {
    Account account;
    account.email = QStringLiteral("ada@example.com");
    account.usedBytes = used;
    account.quotaBytes = quota;
    account.unlimited = unlimited;
    account.planName = std::move(plan);
    return account;
}

QJsonValue json(const char* text) {
    return QJsonDocument::fromJson(QByteArray("[") + text + "]").array().at(0);
}

TEST(Account, LabelsAndNotices) {
    const QString full = "Vaskel is full \u2013 new files are waiting. Get more space\u2026";
    const QString almost = "Vaskel is almost full \u2013 get more space\u2026";
    const std::optional<QString> none;
    // clang-format off
    const std::tuple<Account, QString, std::optional<QString>> cases[] = {
        {limited(700'000'000, 0, {}, true), "700 MB used", none},
        {limited(4'100'000'000, 5'000'000'000, "Pro"), "Pro \u00b7 4.1 GB of 5 GB used (82%)", none},
        {limited(95, 100), "95 bytes of 100 bytes used (95%)", almost},
        {limited(94, 100), "94 bytes of 100 bytes used (94%)", none},
        {limited(100, 100), "100 bytes of 100 bytes used (100%)", full},
        {limited(250, 100), "250 bytes of 100 bytes used (100%)", full},
        {limited(5, 0), "5 bytes of 0 bytes used", none},
        {limited(1, 200), "1 byte of 200 bytes used (1%)", none},  // 0.5% rounds up
    };
    // clang-format on
    for (const auto& [account, glance, notice] : cases) {
        EXPECT_EQ(account.glanceLabel(), glance);
        EXPECT_EQ(std::pair(account.spaceNotice(), account.isFull()),
                  std::pair(notice, notice == full))
            << glance.toStdString();
    }
    EXPECT_DOUBLE_EQ(limited(250, 100).fraction(), 1.0);
    EXPECT_DOUBLE_EQ(limited(7, 0, {}, true).fraction(), 0.0);
    const auto payment = [](const char* status) {
        Account account;
        account.status = status;
        return account.paymentNotice();
    };
    EXPECT_EQ(payment("past_due"), "Payment failed \u2013 update your card\u2026");
    EXPECT_EQ(payment("suspended"), "Access paused \u2013 payment needed\u2026");
    EXPECT_EQ(payment("Past_Due"), std::nullopt);
}

TEST(Account, ParsesUpdateOffer) {
    // clang-format off
    const std::pair<const char*, std::optional<ClientUpdate>> cases[] = {
        {R"({"update_available":true,"latest":{"version":"2.4","build":"52","url":7}})", ClientUpdate{"2.4", 0, "", ""}},
        {R"({"update_available":true,"latest":{"version":""}})", std::nullopt},
        {R"({"update_available":"true","latest":{"version":"2.4"}})", std::nullopt},
        {R"({"update_available":true,"latest":["2.4"]})", std::nullopt},
    };
    // clang-format on
    for (const auto& [text, expected] : cases) EXPECT_EQ(parseUpdate(json(text)), expected) << text;
    EXPECT_EQ((ClientUpdate{"2.4", 52, "", ""}.label()), QStringLiteral("2.4 (52)"));
    EXPECT_EQ((ClientUpdate{"2.4", 0, "", ""}.label()), QStringLiteral("2.4"));
}

TEST(Account, ReadsFieldsOfAnyShape) {
    const auto parse = [](const char* text) { return parseAccount(json(text).toObject()); };
    Account full = limited(4'100'000'000, 5'000'000'000, "Pro");
    full.name = QStringLiteral("Ada");
    full.status = QStringLiteral("past_due");
    full.update = ClientUpdate{"2.4", 52, "https://x/dl", "Fixes"};
    EXPECT_EQ(parse(R"({"email":"ada@example.com","name":"Ada","used_bytes":4100000000,
        "quota_bytes":5e9,"unlimited":false,"plan_name":"Pro","status":"past_due",
        "client":{"update_available":true,"latest":{"version":"2.4","build":52,
        "url":"https://x/dl","notes":"Fixes"}}})"),
              full);
    // A non-boolean "unlimited" leaves it unlimited.
    EXPECT_EQ(parse(R"({"email":"ada@example.com","name":3,"used_bytes":1.9e3,"quota_bytes":1e30,
        "unlimited":"no","plan_name":["Pro"],"status":null,"client":[]})"),
              limited(1900, std::numeric_limits<std::int64_t>::max(), {}, true));
    EXPECT_EQ(parse(R"({"email":"e","used_bytes":9007199254740993})")->usedBytes, 9007199254740993);
    // Negative counts enter as 0, so no label derived from them can overflow.
    for (const char* text :
         {R"({"email":"e","used_bytes":-9223372036854775808,"quota_bytes":5,"unlimited":false})",
          R"({"email":"e","used_bytes":-1e300,"quota_bytes":-5,"unlimited":false})"}) {
        const std::optional<Account> negative = parse(text);
        ASSERT_TRUE(negative) << text;
        EXPECT_EQ(negative->usedBytes, 0) << text;
        EXPECT_GE(negative->quotaBytes, 0) << text;
        EXPECT_FALSE(negative->glanceLabel().contains('-')) << text;
    }
    EXPECT_EQ(parse(R"({"email":42,"name":"Ada"})"), std::nullopt);
}

TEST(ByteCountFormat, DecimalUnitsWithUnitPrecision) {
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    const std::pair<std::int64_t, const char*> cases[] = {
        {0, "0 bytes"},          {1, "1 byte"},
        {1499, "1 KB"},          {1500, "2 KB"},
        {999'500, "1 MB"},  // rounds up into the next unit
        {1'250'000, "1.3 MB"},   {1'234'567'890, "1.23 GB"},
        {5'000'000'000, "5 GB"}, {999'995'000'000, "1 TB"},
        {most, "9.22 EB"},       {-1, "-1 byte"},
        {-most - 1, "-9.22 EB"},
    };
    for (const auto& [bytes, expected] : cases)
        EXPECT_EQ(formatByteCount(bytes), QString::fromUtf8(expected)) << bytes;
}

}  // namespace
