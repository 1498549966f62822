#include <QVPlatform/Timestamp.h>

#include <climits>
#include <ctime>
#include <gtest/gtest.h>
#include <random>

namespace {

constexpr long long Day = CQVTimeInterval::UnitsPerDay;
constexpr long long Second = CQVTimeInterval::UnitsPerSecond;

std::string TextOf(long long value) {
    qvstring text;
    CQVTimestamp(value).ToText(text);
    return text;
}

// A calendar that only knows how to go to the next or previous day.
struct SlowCalendar {
    int year = 1601;
    unsigned int month = 1, day = 1, dayOfYear = 0, dayOfWeek = 1;

    unsigned int MonthLength() const {
        constexpr unsigned int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
        const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
        return month == 2 && leap ? 29 : lengths[month - 1];
    }
    void Next() {
        dayOfWeek = (dayOfWeek + 1) % 7;
        dayOfYear++;
        if (++day > MonthLength()) {
            day = 1;
            if (++month > 12) {
                month = 1;
                year++;
                dayOfYear = 0;
            }
        }
    }
    void Previous() {
        dayOfWeek = (dayOfWeek + 6) % 7;
        dayOfYear--;
        if (--day == 0) {
            if (--month == 0) {
                month = 12;
                year--;
                dayOfYear = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0) ? 365 : 364;
            }
            day = MonthLength();
        }
    }
    bool Is(const CQVTimestamp::TimestampStruct& fields) const {
        return fields.year == year && fields.month == month && fields.day == day &&
               fields.dayOfYear == dayOfYear && fields.dayOfWeek == dayOfWeek;
    }
};

} // namespace

TEST(Timestamp, EveryDayOfTheRangeHasItsDate) {
    CQVTimestamp::TimestampStruct fields;
    SlowCalendar calendar;
    for (long long day = 0; day <= LLONG_MAX / Day; day++, calendar.Next()) {
        CQVTimestamp(day * Day).GetTimestampStruct(fields);
        ASSERT_TRUE(calendar.Is(fields)) << day;
        CQVTimestamp set;
        if (calendar.year < 30'828 && !(set.SetDateAndHHMM(static_cast<unsigned int>(calendar.year),
                                                           calendar.month, calendar.day, 0, 0) &&
                                        set.GetValue() == day * Day))
            FAIL() << day;
    }
    EXPECT_EQ(calendar.year, 30'828);
    calendar = {};
    for (long long day = 0; day > LLONG_MIN / Day; day--) {
        calendar.Previous();
        CQVTimestamp(day * Day - 1).GetTimestampStruct(fields); // the last unit of the day before
        ASSERT_TRUE(calendar.Is(fields) && fields.hour == 23 && fields.fraction == 9999) << day;
    }
    EXPECT_EQ(calendar.year, -27'627);
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
        CQVTimestamp::TimestampStruct fields;
        CQVTimestamp(value).GetTimestampStruct(fields);
        const long long seconds = value / Second - (value % Second < 0);
        const auto system = static_cast<std::time_t>(seconds - 11'644'473'600);
        std::tm expected{};
        ASSERT_TRUE(gmtime_r(&system, &expected));
        ASSERT_TRUE(fields.year == expected.tm_year + 1900 &&
                    fields.month == static_cast<unsigned int>(expected.tm_mon + 1) &&
                    fields.day == static_cast<unsigned int>(expected.tm_mday) &&
                    fields.hour == static_cast<unsigned int>(expected.tm_hour) &&
                    fields.minute == static_cast<unsigned int>(expected.tm_min) &&
                    fields.second == static_cast<unsigned int>(expected.tm_sec) &&
                    fields.millisecond * 10'000 + fields.fraction ==
                        static_cast<unsigned long long>(value - seconds * Second))
            << value;
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
    const struct {
        const char* text;
        const char* expected; // null: refused
    } cases[] = {
        {"2021-03-04", "2021-03-04T00:00:00.0000000Z"},
        {"2021-03-04T05:06", "2021-03-04T05:06:00.0000000Z"},
        {"2021-03-04 05:06:07Z", "2021-03-04T05:06:07.0000000Z"},
        {"2021-03-04T05:06:07.", "2021-03-04T05:06:07.0000000Z"},
        {"2021-03-04T05:06:07.5", "2021-03-04T05:06:07.5000000Z"},
        {"2021-03-04T05:06:07.123456789Z", "2021-03-04T05:06:07.1234567Z"},
        {"2021-01-01T00:30:00+01:00", "2020-12-31T23:30:00.0000000Z"},
        {"2020-12-31T23:30-00:45", "2021-01-01T00:15:00.0000000Z"},
        {"-27627-04-19T22:00+00:30", "-27627-04-19T21:30:00.0000000Z"},
        {"-27627-04-19T21:30+00:30", nullptr}, // below the range
        {"+30828-09-14T02:49", nullptr},       // above it
        {"+99999-01-01", nullptr},
        {"", nullptr},
        {"2021-3-4", nullptr},
        {"12021-03-04", nullptr},
        {"2021-02-30", nullptr},
        {"2021-03-04T", nullptr},
        {"2021-03-04Z", nullptr},
        {"2021-03-04T05", nullptr},
        {"2021-03-04T24:00", nullptr},
        {"2021-03-04T05:06:60", nullptr},
        {"2021-03-04T05:06:", nullptr},
        {"2021-03-04T05:06.5", nullptr},
        {"2021-03-04T05:06:07.1234567890", nullptr},
        {"2021-03-04T05:06:07+1:00", nullptr},
        {"2021-03-04T05:06:07+24:00", nullptr},
        {"2021-03-04T05:06:07Zx", nullptr},
        {"2021-03-04 05:06 ", nullptr},
        {" 2021-03-04", nullptr},
    };
    for (const auto& c : cases) {
        CQVTimestamp time(77);
        EXPECT_EQ(time.FromText(c.text), c.expected != nullptr) << c.text;
        EXPECT_EQ(TextOf(time.GetValue()), c.expected ? c.expected : TextOf(77)) << c.text;
    }
    CQVTimestamp time(77);
    EXPECT_FALSE(time.FromText(std::string("2021-03-04\0", 11)));
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
