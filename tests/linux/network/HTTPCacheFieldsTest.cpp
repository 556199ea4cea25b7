#include <gtest/gtest.h>

#include "linux/network/HTTPCacheFields.h"

namespace glintmark::platform {

namespace {

using std::chrono::seconds;

constexpr const char* today = "Sun, 22 Nov 2026 10:00:00 GMT";
constexpr const char* tomorrow = "Mon, 23 Nov 2026 10:00:00 GMT";

struct Case {
    CacheFields fields;
    std::optional<long> fresh;  ///< Seconds.
};

void expectFreshness(const std::vector<Case>& cases) {
    for (const auto& [fields, fresh] : cases) {
        const auto found = freshnessOfAnswer(200, fields);
        const std::string what = "Cache-Control: " + fields.cacheControl +
                                 " Expires: " + fields.expires + " Date: " + fields.date +
                                 " Age: " + fields.age + " Vary: " + fields.vary;
        EXPECT_EQ(found.has_value(), fresh.has_value()) << what;
        EXPECT_EQ(found.value_or(seconds(0)), seconds(fresh.value_or(0))) << what;
    }
}

CacheFields control(std::string value) { return {.cacheControl = std::move(value)}; }

TEST(HTTPCacheFieldsTest, MaximumAgeIsALifetime) {
    constexpr long most = 2147483648;
    expectFreshness({
        {control("max-age=60"), 60},
        {control("MAX-AGE=60"), 60},
        {control("public, max-age=60, immutable"), 60},
        {control(",, public\t,max-age=\"60\" ,"), 60},
        {control("x=\"no-store, \\\" private\", max-age=60"), 60},
        {control("max-age=60, max-age=90"), 60},
        {control("max-age=1"), 1},
        {control("max-age=007"), 7},
        {control("max-age=2147483647"), 2147483647},
        {control("max-age=2147483648"), most},
        {control("max-age=9223372036854775807"), most},
        {control("max-age=99999999999999999999999999"), most},
    });
}

TEST(HTTPCacheFieldsTest, AnswersWithoutAValidPositiveLifetimeAreNotFresh) {
    expectFreshness({
        {control(""), std::nullopt},
        {control("public"), std::nullopt},
        {control("max-age=0"), std::nullopt},
        {control("max-age=-1"), std::nullopt},
        {control("max-age=+60"), std::nullopt},
        {control("max-age=60s"), std::nullopt},
        {control("max-age=6.0"), std::nullopt},
        {control("max-age=\"\""), std::nullopt},
        {control("max-age=\" 60\""), std::nullopt},
        {control("max-age"), std::nullopt},
        {control("max-age=60, max-age=x"), std::nullopt},
        {control("s-maxage=60"), std::nullopt},  // for shared caches
        {control("stale-while-revalidate=60"), std::nullopt},
    });
}

TEST(HTTPCacheFieldsTest, AListThatIsNotWellFormedIsNotFresh) {
    expectFreshness({
        {control("max-age="), std::nullopt},
        {control("max-age =60"), std::nullopt},
        {control("max-age= 60"), std::nullopt},
        {control("max-age=60; public"), std::nullopt},
        {control("max-age=60 public"), std::nullopt},
        {control("max-age=60, ="), std::nullopt},
        {control("max-age=60, no-cache=\"a, no-store"), std::nullopt},
        {control("max-age=60, x=\"\\"), std::nullopt},
        {control("max-age=60, caf\xc3\xa9"), std::nullopt},
        {control(std::string("max-age=60\0", 11)), std::nullopt},
    });
}

TEST(HTTPCacheFieldsTest, NoStoreNoCacheAndPrivateForbidReuse) {
    expectFreshness({
        {control("no-store, max-age=60"), std::nullopt},
        {control("max-age=60, No-Store"), std::nullopt},
        {control("max-age=60, must-understand, no-store"), std::nullopt},
        {control("max-age=60, no-cache"), std::nullopt},
        {control("max-age=60, no-cache=\"Set-Cookie\""), std::nullopt},
        {control("max-age=60, private"), std::nullopt},
        {control("max-age=60, private=x"), std::nullopt},
        {control("max-age=60, must-revalidate"), 60},  // only stale answers are revalidated
        {control("max-age=60, no-transform"), 60},
    });
}

TEST(HTTPCacheFieldsTest, ExpiresMinusDateIsALifetime) {
    constexpr long day = 86400;
    const std::string longAgo = "Thu, 01 Jan 1970 00:00:00 GMT";
    expectFreshness({
        {{.expires = tomorrow, .date = today}, day},
        {{.expires = "Monday, 23-Nov-26 10:00:00 GMT", .date = today}, day},
        {{.expires = "Mon Nov 23 10:00:00 2026", .date = today}, day},
        {{.expires = "Fri, 31 Dec 9999 23:59:59 GMT", .date = longAgo}, 2147483648},
        {{.expires = today, .date = today}, std::nullopt},
        {{.expires = longAgo, .date = today}, std::nullopt},
        {{.expires = tomorrow}, std::nullopt},
        {{.expires = tomorrow, .date = "now"}, std::nullopt},
        {{.expires = "0", .date = today}, std::nullopt},
        {{.expires = "-1", .date = today}, std::nullopt},
        {{.expires = "never", .date = today}, std::nullopt},
        {{.expires = "Mon, 23 Nov 2026 10:00:00", .date = today}, std::nullopt},
        {{.expires = "Mon, 23 Nov 2026 10:00:00 CET", .date = today}, std::nullopt},
        {{.expires = "Mon, 31 Feb 2027 10:00:00 GMT", .date = today}, std::nullopt},
        {{.expires = std::string(tomorrow) + "," + tomorrow, .date = today}, std::nullopt},
        {{.date = today}, std::nullopt},
    });
}

TEST(HTTPCacheFieldsTest, MaximumAgeGoesBeforeExpires) {
    expectFreshness({
        {{.cacheControl = "max-age=60", .expires = "0", .date = today}, 60},
        {{.cacheControl = "max-age=0", .expires = tomorrow, .date = today}, std::nullopt},
        {{.cacheControl = "max-age=x", .expires = tomorrow, .date = today}, std::nullopt},
        {{.cacheControl = "no-store", .expires = tomorrow, .date = today}, std::nullopt},
    });
}

TEST(HTTPCacheFieldsTest, TheAgeIsTakenFromTheLifetime) {
    expectFreshness({
        {{.cacheControl = "max-age=60", .age = "0"}, 60},
        {{.cacheControl = "max-age=60", .age = "59"}, 1},
        {{.cacheControl = "max-age=60", .age = "60"}, std::nullopt},
        {{.cacheControl = "max-age=60", .age = "99999999999999999999"}, std::nullopt},
        {{.cacheControl = "max-age=60", .age = "20,40"}, 40},
        {{.cacheControl = "max-age=60", .age = "-20"}, 60},
        {{.cacheControl = "max-age=60", .age = "old"}, 60},
        {{.expires = tomorrow, .date = today, .age = "400"}, 86000},
    });
}

TEST(HTTPCacheFieldsTest, AnAnswerThatVariesByAnythingIsForNoOtherRequest) {
    expectFreshness({
        {{.cacheControl = "max-age=60", .vary = "Accept-Encoding, User-Agent"}, 60},
        {{.cacheControl = "max-age=60", .vary = "*"}, std::nullopt},
        {{.cacheControl = "max-age=60", .vary = "Accept,*"}, std::nullopt},
    });
}

TEST(HTTPCacheFieldsTest, AllFinalStatusesButPartsMayBeKept) {
    const CacheFields fields{.cacheControl = "max-age=60"};
    for (const int status : {200, 203, 204, 300, 301, 302, 307, 308, 404, 410, 451, 503}) {
        EXPECT_EQ(freshnessOfAnswer(status, fields), seconds(60)) << status;
    }
    for (const int status : {100, 103, 206, 304}) {
        EXPECT_EQ(freshnessOfAnswer(status, fields), std::nullopt) << status;
    }
}

TEST(HTTPCacheFieldsTest, DirectivesAreReadWithTheirArguments) {
    const auto found = cacheDirectives("A, b=C,\td=\"e\\\"f,\", g=\"\"");
    ASSERT_TRUE(found);
    const std::vector<CacheDirective> expected = {
        {"a", std::nullopt}, {"b", "C"}, {"d", "e\"f,"}, {"g", ""}};
    EXPECT_EQ(*found, expected);
    EXPECT_EQ(cacheDirectives("")->size(), 0U);
}

}  // namespace

}  // namespace glintmark::platform
