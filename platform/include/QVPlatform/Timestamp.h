// CQVTimestamp and CQVTimeInterval - points in time and their differences.
//
// Unit:     100 nanoseconds, signed 64-bit. One minute is 600,000,000 units.
// Epoch:    value 0 is 1601-01-01 00:00:00 UTC, the epoch of OPC UA's DateTime in the same unit, so values
//           pass between the two unchanged.
// Calendar: proleptic Gregorian, UTC, no leap seconds. Negative values count backwards from the epoch: -1 is
//           1600-12-31 23:59:59.9999999. Every 64-bit value has a calendar reading; years run from -27627 to
//           30828.
// Overflow: sums and differences wrap modulo 2^64; callers that take times from outside check before.
#pragma once

#include <QVPlatform/String.h>
#include <compare>

class CQVTimeInterval {
public:
    static constexpr long long UnitsPerMillisecond = 10'000;
    static constexpr long long UnitsPerSecond = 10'000'000;
    static constexpr long long UnitsPerMinute = 600'000'000;
    static constexpr long long UnitsPerHour = 36'000'000'000;
    static constexpr long long UnitsPerDay = 864'000'000'000;

    constexpr CQVTimeInterval() = default;
    explicit constexpr CQVTimeInterval(long long value) : m_Value(value) {}

    static constexpr CQVTimeInterval OneDay() { return CQVTimeInterval(UnitsPerDay); }

    constexpr long long GetValue() const { return m_Value; }

    friend constexpr auto operator<=>(CQVTimeInterval, CQVTimeInterval) = default;

private:
    long long m_Value = 0;
};

class CQVTimestamp {
public:
    // A time stamp taken apart.
    struct TimestampStruct {
        int year = 1601;            // proleptic Gregorian; 0 is 1 BC
        unsigned int month = 1;     // 1 to 12
        unsigned int day = 1;       // 1 to 31
        unsigned int dayOfYear = 0; // 0 to 365
        unsigned int dayOfWeek = 1; // 0 = Sunday
        unsigned int hour = 0;      // 0 to 23
        unsigned int minute = 0;    // 0 to 59
        unsigned int second = 0;    // 0 to 59
        unsigned int millisecond = 0;
        unsigned int fraction = 0; // units of 100 ns within the millisecond, 0 to 9,999
    };

    constexpr CQVTimestamp() = default;
    explicit constexpr CQVTimestamp(long long value) : m_Value(value) {}

    constexpr long long GetValue() const { return m_Value; }

    // Sets the current time of the system's real-time clock.
    void SetUTC();
    // Sets a UTC date and time to the minute. False, and nothing changed, unless year is 1 to 30827 and
    // month, day (of that month and year), hour and minute exist.
    bool SetDateAndHHMM(unsigned int year, unsigned int month, unsigned int day, unsigned int hour,
                        unsigned int minute);

    void GetTimestampStruct(TimestampStruct& fields) const;

    // Rounds down (towards the past, for negative values too) to a multiple of `interval`, counted from the
    // epoch. `interval` must be positive; a result below the 64-bit range leaves the value unchanged.
    void RoundDown(CQVTimeInterval interval);
    // Moves by whole calendar years, keeping month, day and time of day; 29 February becomes 28 February in a
    // year without one. False, and nothing changed, when the result cannot be represented.
    bool AddYears(int years);

    // Writes ISO 8601, "2021-03-04T05:06:07.0000000Z": seven digits of fraction, all that the value holds.
    void ToText(qvstring& text) const;
    // Reads what ToText() writes and the usual shorter forms: a date alone, a "T" or a blank before the time,
    // hours and minutes with or without seconds, 0 to 9 digits of fraction (past the seventh cut off), "Z" or
    // an offset "+hh:mm"; no offset means UTC. False, and nothing changed, for anything else.
    bool FromText(const qvstring& text);

    CQVTimestamp& operator+=(CQVTimeInterval interval) {
        m_Value = WrappingSum(m_Value, interval.GetValue());
        return *this;
    }
    friend constexpr CQVTimeInterval operator-(CQVTimestamp a, CQVTimestamp b) {
        return CQVTimeInterval(static_cast<long long>(static_cast<unsigned long long>(a.m_Value) -
                                                      static_cast<unsigned long long>(b.m_Value)));
    }
    friend constexpr auto operator<=>(CQVTimestamp, CQVTimestamp) = default;

private:
    static constexpr long long WrappingSum(long long a, long long b) {
        return static_cast<long long>(static_cast<unsigned long long>(a) +
                                      static_cast<unsigned long long>(b));
    }

    long long m_Value = 0;
};
