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

const QString FULL =
    QStringLiteral("Vaskel is full \u2013 new files are waiting. Get more space\u2026");
const QString ALMOST = QStringLiteral("Vaskel is almost full \u2013 get more space\u2026");

TEST(Account, DerivedLabelsAndNotices) {
    struct Case {
        Account account;
        QString usage, glance;
        double fraction;
        bool full;
        std::optional<QString> notice;
    };
    Account unlimited;
    unlimited.usedBytes = 700'000'000;
    const Case cases[] = {
        {unlimited, "700 MB used", "700 MB used", 0.0, false, std::nullopt},
        {limited(4'100'000'000, 5'000'000'000, "Pro"), "4.1 GB of 5 GB used",
         "Pro \u00b7 4.1 GB of 5 GB used (82%)", 0.82, false, std::nullopt},
        {limited(95, 100), "95 bytes of 100 bytes used", "95 bytes of 100 bytes used (95%)", 0.95,
         false, ALMOST},
        {limited(94, 100), "94 bytes of 100 bytes used", "94 bytes of 100 bytes used (94%)", 0.94,
         false, std::nullopt},
        {limited(100, 100), "100 bytes of 100 bytes used", "100 bytes of 100 bytes used (100%)",
         1.0, true, FULL},
        {limited(250, 100), "250 bytes of 100 bytes used", "250 bytes of 100 bytes used (100%)",
         1.0, true, FULL},
        {limited(5, 0), "5 bytes of 0 bytes used", "5 bytes of 0 bytes used", 0.0, false,
         std::nullopt},
        {limited(1, 200), "1 byte of 200 bytes used", "1 byte of 200 bytes used (1%)", 0.005, false,
         std::nullopt},  // 0.5% rounds away from zero
        {limited(-50, 100), "-50 bytes of 100 bytes used", "-50 bytes of 100 bytes used (-50%)",
         -0.5, false, std::nullopt},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.glance.toStdString());
        EXPECT_EQ(c.account.usageLabel(), c.usage);
        EXPECT_EQ(c.account.glanceLabel(), c.glance);
        EXPECT_DOUBLE_EQ(c.account.fraction(), c.fraction);
        EXPECT_EQ(c.account.isFull(), c.full);
        EXPECT_EQ(c.account.spaceNotice(), c.notice);
    }
}

TEST(Account, PaymentNoticeByExactStatus) {
    const std::pair<const char*, std::optional<QString>> cases[] = {
        {"past_due", QStringLiteral("Payment failed \u2013 update your card\u2026")},
        {"suspended", QStringLiteral("Access paused \u2013 payment needed\u2026")},
        {"Past_Due", std::nullopt},
        {"active", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& [status, notice] : cases) {
        Account account;
        account.status = QString::fromUtf8(status);
        EXPECT_EQ(account.paymentNotice(), notice) << status;
    }
}

QJsonValue json(const char* text) {
    return QJsonDocument::fromJson(QByteArray("[") + text + "]").array().at(0);
}

TEST(Account, ParsesUpdateOffer) {
    const std::pair<const char*, std::optional<ClientUpdate>> cases[] = {
        {R"({"update_available":true,"latest":{"version":"2.4","build":52,"url":"u","notes":"n"}})",
         ClientUpdate{"2.4", 52, "u", "n"}},
        {R"({"update_available":true,"latest":{"version":"2.4","build":"52","url":7}})",
         ClientUpdate{"2.4", 0, "", ""}},
        {R"({"update_available":true,"latest":{"version":""}})", std::nullopt},
        {R"({"update_available":"true","latest":{"version":"2.4"}})", std::nullopt},
        {R"({"update_available":false,"latest":{"version":"2.4"}})", std::nullopt},
        {R"({"update_available":true,"latest":["2.4"]})", std::nullopt},
        {R"(["update_available"])", std::nullopt},
        {"null", std::nullopt},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(parseUpdate(json(text)), expected) << text;
    }
    EXPECT_EQ(parseUpdate(std::nullopt), std::nullopt);
    EXPECT_EQ((ClientUpdate{"2.4", 52, "", ""}.label()), QStringLiteral("2.4 (52)"));
    EXPECT_EQ((ClientUpdate{"2.4", 0, "", ""}.label()), QStringLiteral("2.4"));
}

TEST(Account, ReadsFieldsOfAnyShape) {
    const QJsonObject body = json(R"({"email":"a@b","name":3,"used_bytes":1.9e3,
        "quota_bytes":1e30,"unlimited":"no","plan_name":["Pro"],"status":null})")
                                 .toObject();
    const std::optional<Account> account = parseAccount(body);
    ASSERT_TRUE(account);
    Account expected;
    expected.email = QStringLiteral("a@b");
    expected.usedBytes = 1900;
    expected.quotaBytes = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(*account, expected);  // a non-boolean "unlimited" leaves it unlimited
    EXPECT_EQ(parseAccount(
                  json(R"({"email":9007199254740993,"used_bytes":9007199254740993})").toObject()),
              std::nullopt);
    EXPECT_EQ(
        parseAccount(json(R"({"email":"e","used_bytes":9007199254740993})").toObject())->usedBytes,
        9007199254740993);
}

}  // namespace
