#include <gtest/gtest.h>

#include "support/qt_printing.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "server/account.h"
#include "server/account_status.h"

namespace {

Account limited(std::int64_t used, std::int64_t quota, QString plan = {}) {
    Account account;
    account.email = QStringLiteral("ada@example.com");
    account.usedBytes = used;
    account.quotaBytes = quota;
    account.unlimited = false;
    account.planName = std::move(plan);
    return account;
}

QJsonValue json(const char* text) {
    return QJsonDocument::fromJson(QByteArray("[") + text + "]").array().at(0);
}

TEST(Account, LabelsAndNotices) {
    const QString full = "Vaskel is full \u2013 new files are waiting. Get more space\u2026";
    const QString almost = "Vaskel is almost full \u2013 get more space\u2026";
    Account unlimited;
    unlimited.usedBytes = 700'000'000;
    const std::tuple<Account, QString, std::optional<QString>> cases[] = {
        {unlimited, "700 MB used", std::nullopt},
        {limited(4'100'000'000, 5'000'000'000, "Pro"), "Pro \u00b7 4.1 GB of 5 GB used (82%)", {}},
        {limited(95, 100), "95 bytes of 100 bytes used (95%)", almost},
        {limited(94, 100), "94 bytes of 100 bytes used (94%)", std::nullopt},
        {limited(100, 100), "100 bytes of 100 bytes used (100%)", full},
        {limited(250, 100), "250 bytes of 100 bytes used (100%)", full},
        {limited(5, 0), "5 bytes of 0 bytes used", std::nullopt},
        {limited(1, 200), "1 byte of 200 bytes used (1%)", std::nullopt},  // 0.5% rounds up
    };
    for (const auto& [account, glance, notice] : cases) {
        EXPECT_EQ(account.glanceLabel(), glance);
        EXPECT_EQ(account.spaceNotice(), notice) << glance.toStdString();
        EXPECT_EQ(account.isFull(), notice == full) << glance.toStdString();
    }
    EXPECT_DOUBLE_EQ(limited(250, 100).fraction(), 1.0);
    EXPECT_DOUBLE_EQ(unlimited.fraction(), 0.0);

    const auto payment = [](const char* status) {
        Account account;
        account.status = QString::fromUtf8(status);
        return account.paymentNotice();
    };
    EXPECT_EQ(payment("past_due"), "Payment failed \u2013 update your card\u2026");
    EXPECT_EQ(payment("suspended"), "Access paused \u2013 payment needed\u2026");
    EXPECT_EQ(payment("Past_Due"), std::nullopt);
}

TEST(Account, ParsesUpdateOffer) {
    const std::pair<const char*, std::optional<ClientUpdate>> cases[] = {
        {R"({"update_available":true,"latest":{"version":"2.4","build":"52","url":7}})",
         ClientUpdate{"2.4", 0, "", ""}},
        {R"({"update_available":true,"latest":{"version":""}})", std::nullopt},
        {R"({"update_available":"true","latest":{"version":"2.4"}})", std::nullopt},
        {R"({"update_available":true,"latest":["2.4"]})", std::nullopt},
        {"null", std::nullopt},
    };
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

    Account odd;  // a non-boolean "unlimited" leaves it unlimited
    odd.email = QStringLiteral("a@b");
    odd.usedBytes = 1900;
    odd.quotaBytes = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(parse(R"({"email":"a@b","name":3,"used_bytes":1.9e3,"quota_bytes":1e30,
        "unlimited":"no","plan_name":["Pro"],"status":null,"client":[]})"),
              odd);
    EXPECT_EQ(parse(R"({"email":"e","used_bytes":9007199254740993})")->usedBytes, 9007199254740993);
    // Negative counts enter as 0, so no label derived from them can overflow.
    for (const char* text :
         {R"({"email":"e","used_bytes":-9223372036854775808,"quota_bytes":5,
        "unlimited":false})",
          R"({"email":"e","used_bytes":-1e300,"quota_bytes":-5,"unlimited":false})"}) {
        const std::optional<Account> negative = parse(text);
        ASSERT_TRUE(negative) << text;
        EXPECT_EQ(negative->usedBytes, 0) << text;
        EXPECT_GE(negative->quotaBytes, 0) << text;
        EXPECT_FALSE(negative->glanceLabel().contains('-'))
            << negative->glanceLabel().toStdString();
    }
    EXPECT_EQ(parse(R"({"email":42,"name":"Ada"})"), std::nullopt);
}

}  // namespace
