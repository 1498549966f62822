#include <QVPlatform/Timestamp.h>

#include <climits>
#include <ctime>
#include <gtest/gtest.h>
#include <random>
#include <string_view>

using namespace std::string_view_literals;

namespace {

constexpr long long Day = CQVTimeInterval::UnitsPerDay;
constexpr long long Second = CQVTimeInterval::UnitsPerSecond;

std::string TextOf(long long value) {
    qvstring text;
    CQVTimestamp(value).ToText(text);
    return text;
}

bool AgreesWithTheSystemsCalendar(long long value) {
    const long long seconds = value / Second - (value % Second < 0);
    const auto system = static_cast<std::time_t>(seconds - 11'644'473'600);
    std::tm expected{};
    gmtime_r(&system, &expected);
    CQVTimestamp::TimestampStruct fields;
    CQVTimestamp(value).GetTimestampStruct(fields);
    const auto is = [](unsigned int field, int number) { return field == static_cast<unsigned int>(number); };
    return fields.year == expected.tm_year + 1900 && is(fields.month, expected.tm_mon + 1) &&
           is(fields.day, expected.tm_mday) && is(fields.dayOfYear, expected.tm_yday) &&
           is(fields.dayOfWeek, expected.tm_wday) && is(fields.hour, expected.tm_hour) &&
           is(fields.minute, expected.tm_min) && is(fields.second, expected.tm_sec) &&
           fields.millisecond * 10'000LL + fields.fraction == value - seconds * Second;
}

} // namespace

TEST(Timestamp, EveryDayOfTheRangeHasItsDate) {
    CQVTimestamp::TimestampStruct fields;
    for (long long day = LLONG_MIN / Day + 1; day <= LLONG_MAX / Day; day++) {
        ASSERT_TRUE(AgreesWithTheSystemsCalendar(day * Day - (day & 1)))
            << day; // its first unit, the last before
        CQVTimestamp(day * Day).GetTimestampStruct(fields);
        CQVTimestamp set;
        if (fields.year > 0 && fields.year < 30'828 &&
            !(set.SetDateAndHHMM(static_cast<unsigned int>(fields.year), fields.month, fields.day, 0, 0) &&
              set.GetValue() == day * Day))
            FAIL() << day;
    }
}

TEST(Timestamp, KnownMoments) {
    struct {
        long long value;
        const char* text;
    } const cases[] = {
        {0, "1601-01-01T00:00:00.0000000Z"},
        {-1, "1600-12-31T23:59:59.9999999Z"},
        {116'444'736'000'000'000, "1970-01-01T00:00:00.0000000Z"},
        {125'963'001'891'234'567, "2000-02-29T12:16:29.1234567Z"},
        {2'650'467'744'000'000'000, "+10000-01-01T00:00:00.0000000Z"},
        {-504'911'232'000'000'000, "0001-01-01T00:00:00.0000000Z"},
        {-504'911'232'000'000'001, "0000-12-31T23:59:59.9999999Z"},
        {-505'227'456'000'000'001, "-0001-12-31T23:59:59.9999999Z"},
        {LLONG_MAX, "+30828-09-14T02:48:05.4775807Z"},
        {LLONG_MIN, "-27627-04-19T21:11:54.5224192Z"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(TextOf(c.value), c.text);
        CQVTimestamp read(1);
        EXPECT_TRUE(read.FromText(c.text)) << c.text;
        EXPECT_EQ(read.GetValue(), c.value) << c.text;
    }
}

TEST(Timestamp, RandomValuesSurviveTextAndAgreeWithTheSystemsCalendar) {
    std::mt19937_64 random(1);
    for (int i = 0; i < 100'000; i++) {
        const long long value = static_cast<long long>(random()) >> (random() % 40);
        CQVTimestamp read(value + 1);
        ASSERT_TRUE(read.FromText(TextOf(value)) && read.GetValue() == value) << TextOf(value);
        ASSERT_TRUE(AgreesWithTheSystemsCalendar(value)) << value;
    }
}

TEST(Timestamp, SetDateAcceptsOnlyWhatExists) {
    struct {
        unsigned int year, month, day, hour, minute;
        bool valid;
    } const cases[] = {
        {2024, 2, 29, 23, 59, true},   {2023, 2, 29, 0, 0, false},     {1900, 2, 29, 0, 0, false},
        {2000, 2, 29, 0, 0, true},     {2021, 4, 31, 0, 0, false},     {2021, 0, 1, 0, 0, false},
        {2021, 13, 1, 0, 0, false},    {2021, 1, 0, 0, 0, false},      {2021, 1, 32, 0, 0, false},
        {2021, 1, 1, 24, 0, false},    {2021, 1, 1, 0, 60, false},     {0, 1, 1, 0, 0, false},
        {1, 1, 1, 0, 0, true},         {30'827, 12, 31, 23, 59, true}, {30'828, 1, 1, 0, 0, false},
        {UINT_MAX, 1, 1, 0, 0, false},
    };
    for (const auto& c : cases) {
        CQVTimestamp time(77);
        EXPECT_EQ(time.SetDateAndHHMM(c.year, c.month, c.day, c.hour, c.minute), c.valid)
            << c.year << "-" << c.month;
        EXPECT_EQ(time.GetValue() == 77, !c.valid);
        CQVTimestamp::TimestampStruct fields;
        time.GetTimestampStruct(fields);
        EXPECT_EQ(c.valid, fields.year == static_cast<int>(c.year) && fields.month == c.month &&
                               fields.day == c.day && fields.hour == c.hour && fields.minute == c.minute);
    }
}

TEST(Timestamp, ReadsTheUsualForms) {
    const char* const cases[][2] = {
        {"2021-03-04", "2021-03-04T00:00:00.0000000Z"},
        {"2021-03-04T05:06", "2021-03-04T05:06:00.0000000Z"},
        {"2021-03-04 05:06:07Z", "2021-03-04T05:06:07.0000000Z"},
        {"2021-03-04T05:06:07.", "2021-03-04T05:06:07.0000000Z"},
        {"2021-03-04T05:06:07.5", "2021-03-04T05:06:07.5000000Z"},
        {"2021-03-04T05:06:07.123456789Z", "2021-03-04T05:06:07.1234567Z"},
        {"2021-01-01T00:30:00+01:00", "2020-12-31T23:30:00.0000000Z"},
        {"2020-12-31T23:30-00:45", "2021-01-01T00:15:00.0000000Z"},
        {"-27627-04-19T22:00+00:30", "-27627-04-19T21:30:00.0000000Z"},
    };
    CQVTimestamp time;
    for (const auto& [text, expected] : cases) {
        EXPECT_TRUE(time.FromText(text)) << text;
        EXPECT_EQ(TextOf(time.GetValue()), expected);
    }
    const std::string_view refused[] = {
        ""sv, "2021-3-4"sv, "12021-03-04"sv, "21-03-04"sv, "2021-02-30"sv, "2021-03-04T"sv, "2021-03-04Z"sv,
        "2021-03-04T05"sv, "2021-03-04T24:00"sv, "2021-03-04T05:06:60"sv, "2021-03-04T05:06:"sv,
        "2021-03-04T05:06.5"sv, "2021-03-04T05:06:07.1234567890"sv, "2021-03-04T05:06:07+1:00"sv,
        "2021-03-04T05:06:07+24:00"sv, "2021-03-04T05:06:07Zx"sv, "2021-03-04 05:06 "sv, " 2021-03-04"sv,
        "2021-03-04\0"sv,
        // Outside the range.
        "-27627-04-19T21:30+00:30"sv, "+30828-09-14T02:49"sv, "+99999-01-01"sv};
    for (const std::string_view text : refused) {
        time = CQVTimestamp(77);
        EXPECT_FALSE(time.FromText(std::string(text))) << text;
        EXPECT_EQ(time.GetValue(), 77) << text;
    }
}

TEST(Timestamp, RoundsDownAndAddsYears) {
    const struct {
        long long value, interval, expected;
    } roundings[] = {{25, 10, 20},
                     {-25, 10, -30},
                     {-30, 10, -30},
                     {LLONG_MIN, 10, LLONG_MIN},
                     {LLONG_MIN + 3, 1000, LLONG_MIN + 3},
                     {LLONG_MAX, LLONG_MAX, LLONG_MAX}};
    for (const auto& c : roundings) {
        CQVTimestamp time(c.value);
        time.RoundDown(CQVTimeInterval(c.interval));
        EXPECT_EQ(time.GetValue(), c.expected) << c.value;
    }
    const struct {
        const char* text;
        int years;
        const char* expected; // null: refused
    } additions[] = {
        {"2024-02-29T12:00", 1, "2025-02-28T12:00:00.0000000Z"},
        {"2024-02-29", -4, "2020-02-29T00:00:00.0000000Z"},
        {"2021-12-31T23:59:59.9999999", 10, "2031-12-31T23:59:59.9999999Z"},
        {"0001-06-01", -2, "-0001-06-01T00:00:00.0000000Z"},
        {"-27627-04-19T21:11:54.5224192", 0, "-27627-04-19T21:11:54.5224192Z"},
        {"2000-04-19T21:11:54.5224192", -29'627, "-27627-04-19T21:11:54.5224192Z"},
        {"2000-04-19T21:11:54.5224191", -29'627, nullptr},
        {"2000-09-14T02:48:05.4775807", 28'828, "+30828-09-14T02:48:05.4775807Z"},
        {"2000-09-14T02:48:05.4775808", 28'828, nullptr},
        {"2000-01-01", INT_MAX, nullptr},
        {"2000-01-01", INT_MIN, nullptr},
    };
    for (const auto& c : additions) {
        CQVTimestamp time;
        ASSERT_TRUE(time.FromText(c.text));
        const CQVTimestamp before = time;
        EXPECT_EQ(time.AddYears(c.years), c.expected != nullptr) << c.text;
        EXPECT_EQ(TextOf(time.GetValue()), c.expected ? c.expected : TextOf(before.GetValue()));
    }
}

TEST(Timestamp, ArithmeticWrapsAndTheClockIsUTC) {
    CQVTimestamp time(LLONG_MAX);
    time += CQVTimeInterval(1);
    EXPECT_EQ(time.GetValue(), LLONG_MIN);
    EXPECT_EQ((CQVTimestamp(LLONG_MIN) - CQVTimestamp(1)).GetValue(), LLONG_MAX);
    const long long before = static_cast<long long>(std::time(nullptr));
    time.SetUTC();
    const long long seconds = time.GetValue() / Second - 11'644'473'600;
    EXPECT_GE(seconds, before - 1);
    EXPECT_LE(seconds, static_cast<long long>(std::time(nullptr)) + 1);
}
