#include "format/Formatters.h"

#include <gtest/gtest.h>

using namespace brenvo;

namespace {
struct EnglishLocale : ::testing::Test {
    void SetUp() override { format::setLocale("en_US"); }
    void TearDown() override { format::setLocale("en_US"); }
};
} // namespace

TEST_F(EnglishLocale, SizesUseDecimalUnitsWithTheirOwnPrecision) {
    const std::pair<int64_t, const char*> cases[] = {
        {0, "Zero KB"},
        {1, "1 byte"},
        {2, "2 bytes"},
        {999, "999 bytes"},
        {1000, "1 KB"},
        {1499, "1 KB"},
        {1500, "2 KB"},
        {999'499, "999 KB"},
        {999'999, "1,000 KB"}, // rounding may reach the next unit's threshold without taking its name
        {1'000'000, "1 MB"},
        {1'500'000, "1.5 MB"},
        {1'049'000, "1 MB"},
        {12'345'678, "12.3 MB"},
        {1'000'000'000, "1 GB"},
        {1'234'567'890, "1.23 GB"},
        {10'000'000'000, "10 GB"},
        {1'500'000'000'000, "1.5 TB"},
        {1'234'000'000'000'000, "1.23 PB"},
        {-1, "-1 byte"},
        {-1'500'000, "-1.5 MB"},
        {INT64_MAX, "9.22 EB"},
        {INT64_MIN, "-9.22 EB"},
    };
    for (auto [size, text] : cases) EXPECT_EQ(format::bytes(size), text) << size;
}

TEST_F(EnglishLocale, CountsAreGroupedByTheLocale) {
    EXPECT_EQ(format::count(0), "0");
    EXPECT_EQ(format::count(999), "999");
    EXPECT_EQ(format::count(1234567), "1,234,567");
    EXPECT_EQ(format::count(-4200), "-4,200");
    EXPECT_EQ(format::count(INT64_MAX), "9,223,372,036,854,775,807"); // no rounding through a double

    format::setLocale("de_DE");
    EXPECT_EQ(format::count(1234567), "1.234.567");
    EXPECT_EQ(format::bytes(1'500'000), "1,5 MB");
    EXPECT_EQ(format::bytes(999'999), "1.000 KB");
}

TEST_F(EnglishLocale, RelativeDatesUseTheLargestUnitAndItsName) {
    const Date now{800'000'000};
    auto ago = [&](double seconds) { return format::relativeDate(Date{now.seconds - seconds}, now); };
    EXPECT_EQ(ago(0), "now");
    EXPECT_EQ(ago(30), "30 seconds ago");
    EXPECT_EQ(ago(60), "1 minute ago");
    EXPECT_EQ(ago(5 * 60 + 59), "5 minutes ago");
    EXPECT_EQ(ago(3 * 3600), "3 hours ago");
    EXPECT_EQ(ago(86400 + 10), "yesterday");
    EXPECT_EQ(ago(3 * 86400), "3 days ago");
    EXPECT_EQ(ago(8 * 86400), "last week");
    EXPECT_EQ(ago(400 * 86400), "last year");
    EXPECT_EQ(ago(-2 * 3600), "in 2 hours");
}

TEST_F(EnglishLocale, AbbreviatedDatesHaveNoTime) {
    const Date noonUtc = Date::fromUnix(1'763'726'400); // 2025-11-21 12:00 UTC: the same day in most zones
    EXPECT_EQ(format::abbreviatedDate(noonUtc), "Nov 21, 2025");
    const std::string withTime = format::abbreviatedDateTime(noonUtc);
    EXPECT_TRUE(withTime.starts_with("Nov 2")) << withTime;
    EXPECT_NE(withTime.find(':'), std::string::npos) << withTime;
    format::setLocale("de_DE"); // a later locale is not answered from an earlier one's format
    EXPECT_EQ(format::abbreviatedDate(noonUtc), "21. Nov. 2025");
}

TEST_F(EnglishLocale, NamesCompareLikeAFileManagerOrdersThem) {
    EXPECT_LT(format::standardCompare("file 9", "file 10"), 0);
    EXPECT_EQ(format::standardCompare("Read Me", "read me"), 0);
    EXPECT_LT(format::standardCompare("apple", "Banana"), 0);
    EXPECT_LT(format::standardCompare("resume", "r\u00e9sum\u00e9"), 0);
    EXPECT_NE(format::standardCompare("a\xff", "a"), 0); // bytes that aren't UTF-8 still order
}

TEST_F(EnglishLocale, ListsJoinTheLocalesWay) {
    EXPECT_EQ(format::list({"\u201ca\u201d"}), "\u201ca\u201d");
    EXPECT_EQ(format::list({"a", "b"}), "a and b");
    EXPECT_EQ(format::list({"a", "b", "c"}), "a, b, and c");
}
