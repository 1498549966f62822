#include <QVPlatform/Timestamp.h>

#include <QVPlatform/Assert.h>
#include <climits>
#include <ctime>

namespace {

// Calendar arithmetic counts days from 1 March of the year -32800, a multiple of 400 years before every
// representable date, so that all of it is unsigned; with March first, the leap day ends the year.
constexpr unsigned int DaysPerEra = 146'097; // 400 years
constexpr unsigned int ErasBefore = 82;
constexpr int YearsBefore = 400 * static_cast<int>(ErasBefore);
constexpr unsigned int DaysBefore = DaysPerEra * ErasBefore + 584'694; // to 1601-01-01
constexpr int FirstYear = -27'627;
constexpr int LastYear = 30'828;

constexpr long long UnitsPerDay = CQVTimeInterval::UnitsPerDay;
constexpr long long SecondsFrom1601To1970 = 11'644'473'600;

bool IsLeapYear(long long year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

unsigned int DaysInMonth(long long year, unsigned int month) {
    if (month == 2)
        return IsLeapYear(year) ? 29 : 28;
    return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
}

bool IsDate(long long year, unsigned int month, unsigned int day) {
    return month >= 1 && month <= 12 && day >= 1 && day <= DaysInMonth(year, month);
}

// Days from 1601-01-01 to a date that exists, its year from FirstYear to LastYear.
long long DaysFromDate(int year, unsigned int month, unsigned int day) {
    const unsigned int marchYear = static_cast<unsigned int>(year + YearsBefore) - (month <= 2);
    const unsigned int era = marchYear / 400;
    const unsigned int yearOfEra = marchYear % 400;
    const unsigned int marchMonth = month > 2 ? month - 3 : month + 9;
    const unsigned int dayOfYear = (153 * marchMonth + 2) / 5 + day - 1;
    const unsigned int dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return static_cast<long long>(era * DaysPerEra + dayOfEra) - DaysBefore;
}

// days * UnitsPerDay + timeOfDay, which must be a time within one day; false when it passes the 64-bit range.
bool ValueOf(long long days, long long timeOfDay, long long& value) {
    // The first representable day has no midnight in range, so negative days are reached from their end.
    if (days < 0) {
        days++;
        timeOfDay -= UnitsPerDay;
    }
    long long midnight;
    return !__builtin_mul_overflow(days, UnitsPerDay, &midnight) &&
           !__builtin_add_overflow(midnight, timeOfDay, &value);
}

// The time within the day of a value; `days` receives the whole days since the epoch, rounded down.
long long SplitDays(long long value, long long& days) {
    days = value / UnitsPerDay;
    long long timeOfDay = value % UnitsPerDay;
    if (timeOfDay < 0) {
        timeOfDay += UnitsPerDay;
        days--;
    }
    return timeOfDay;
}

void AppendNumber(qvstring& text, unsigned int number, unsigned int digits) {
    char buffer[10];
    char* const end = buffer + sizeof buffer;
    char* start = end;
    for (; digits != 0 || number != 0; number /= 10) {
        *--start = static_cast<char>('0' + number % 10);
        digits -= digits != 0;
    }
    text.append(start, end);
}

// Takes the parts of a time stamp's text off its front.
class TextReader {
public:
    explicit TextReader(const qvstring& text) : m_pNext(text.data()), m_pEnd(m_pNext + text.size()) {}

    bool AtEnd() const { return m_pNext == m_pEnd; }

    bool Skip(char c) {
        if (AtEnd() || *m_pNext != c)
            return false;
        m_pNext++;
        return true;
    }

    // Reads up to `most` digits, all that are there, and returns how many there were.
    unsigned int ReadDigits(unsigned int most, unsigned int& number) {
        number = 0;
        unsigned int count = 0;
        for (; count < most && !AtEnd() && *m_pNext >= '0' && *m_pNext <= '9'; count++)
            number = number * 10 + static_cast<unsigned int>(*m_pNext++ - '0');
        return count;
    }

    bool ReadTwoDigits(unsigned int& number, unsigned int largest) {
        return ReadDigits(2, number) == 2 && number <= largest;
    }

    // "2021-03-04", with a sign also years of five digits.
    bool ReadDate(int& year, unsigned int& month, unsigned int& day) {
        const bool negative = Skip('-');
        const bool sign = negative || Skip('+');
        unsigned int number;
        const unsigned int digits = ReadDigits(sign ? 5 : 4, number);
        year = negative ? -static_cast<int>(number) : static_cast<int>(number);
        return digits >= 4 && Skip('-') && ReadTwoDigits(month, 12) && Skip('-') && ReadTwoDigits(day, 31) &&
               IsDate(year, month, day) && year >= FirstYear && year <= LastYear;
    }

    // "05:06", "05:06:07", "05:06:07.123", as units within the day.
    bool ReadTime(long long& units) {
        unsigned int hour, minute, second = 0;
        if (!ReadTwoDigits(hour, 23) || !Skip(':') || !ReadTwoDigits(minute, 59))
            return false;
        long long fraction = 0;
        if (Skip(':') && (!ReadTwoDigits(second, 59) || (Skip('.') && !ReadFraction(fraction))))
            return false;
        units = hour * CQVTimeInterval::UnitsPerHour + minute * CQVTimeInterval::UnitsPerMinute +
                second * CQVTimeInterval::UnitsPerSecond + fraction;
        return true;
    }

    // "Z", "+01:30" or nothing, as the units by which the local time is ahead.
    bool ReadOffset(long long& units) {
        units = 0;
        if (AtEnd() || Skip('Z'))
            return true;
        const bool negative = Skip('-');
        unsigned int hour, minute;
        if ((!negative && !Skip('+')) || !ReadTwoDigits(hour, 23) || !Skip(':') || !ReadTwoDigits(minute, 59))
            return false;
        units = hour * CQVTimeInterval::UnitsPerHour + minute * CQVTimeInterval::UnitsPerMinute;
        units = negative ? -units : units;
        return true;
    }

private:
    bool ReadFraction(long long& units) {
        unsigned int number;
        const unsigned int digits = ReadDigits(9, number);
        units = number;
        for (unsigned int i = digits; i < 7; i++)
            units *= 10;
        for (unsigned int i = digits; i > 7; i--)
            units /= 10;
        unsigned int more;
        return ReadDigits(1, more) == 0;
    }

    const char* m_pNext;
    const char* const m_pEnd;
};

} // namespace

void CQVTimestamp::SetUTC() {
    timespec now{};
    QV_ASSERT(::clock_gettime(CLOCK_REALTIME, &now) == 0);
    m_Value = (now.tv_sec + SecondsFrom1601To1970) * CQVTimeInterval::UnitsPerSecond + now.tv_nsec / 100;
}

bool CQVTimestamp::SetDateAndHHMM(unsigned int year, unsigned int month, unsigned int day, unsigned int hour,
                                  unsigned int minute) {
    if (year < 1 || year >= LastYear || !IsDate(year, month, day) || hour > 23 || minute > 59)
        return false;
    m_Value = DaysFromDate(static_cast<int>(year), month, day) * UnitsPerDay +
              hour * CQVTimeInterval::UnitsPerHour + minute * CQVTimeInterval::UnitsPerMinute;
    return true;
}

void CQVTimestamp::GetTimestampStruct(TimestampStruct& fields) const {
    long long days;
    const long long timeOfDay = SplitDays(m_Value, days);
    const unsigned int shifted = static_cast<unsigned int>(days + DaysBefore);
    // Quotients and remainders by Euclidean affine functions (Neri and Schneider 2023): first in quarters of a
    // day, a century having 36,524.25 and a year 365.25 of them, the latter as a product with 2^32 / 1461.
    const unsigned int quartersOfAll = 4 * shifted + 3;
    const unsigned int quartersOfCentury = quartersOfAll % DaysPerEra | 3;
    const unsigned long long years = 2'939'745ull * quartersOfCentury;
    const unsigned int marchYear = quartersOfAll / DaysPerEra * 100 + static_cast<unsigned int>(years >> 32);
    const unsigned int marchDay = static_cast<unsigned int>(years) / 2'939'745 / 4;
    const bool newYear = marchDay >= 306; // January and February
    // Months from 3 = March on, in 2^16ths: 2141 of them are a day.
    const unsigned int months = 2141 * marchDay + 197'913;

    fields.year = static_cast<int>(marchYear + newYear) - YearsBefore;
    fields.month = newYear ? (months >> 16) - 12 : months >> 16;
    fields.day = (months & 0xFFFF) / 2141 + 1;
    fields.dayOfYear = newYear ? marchDay - 306 : marchDay + 59 + IsLeapYear(fields.year);
    fields.dayOfWeek = (shifted + 3) % 7; // the first of the shifted days was a Wednesday

    const auto milliseconds =
        static_cast<unsigned int>(timeOfDay / CQVTimeInterval::UnitsPerMillisecond); // of the day
    fields.fraction = static_cast<unsigned int>(timeOfDay % CQVTimeInterval::UnitsPerMillisecond);
    fields.millisecond = milliseconds % 1000;
    fields.second = milliseconds / 1000 % 60;
    fields.minute = milliseconds / 60'000 % 60;
    fields.hour = milliseconds / 3'600'000;
}

void CQVTimestamp::RoundDown(CQVTimeInterval interval) {
    const long long step = interval.GetValue();
    QV_ASSERT(step > 0);
    long long rest = m_Value % step;
    if (rest < 0)
        rest += step;
    if (m_Value >= LLONG_MIN + rest)
        m_Value -= rest;
}

bool CQVTimestamp::AddYears(int years) {
    TimestampStruct fields;
    GetTimestampStruct(fields);
    const long long year = static_cast<long long>(fields.year) + years;
    if (year < FirstYear || year > LastYear)
        return false;
    const unsigned int day = fields.month == 2 && fields.day == 29 ? DaysInMonth(year, 2) : fields.day;
    long long oldDays;
    const long long timeOfDay = SplitDays(m_Value, oldDays);
    long long value;
    if (!ValueOf(DaysFromDate(static_cast<int>(year), fields.month, day), timeOfDay, value))
        return false;
    m_Value = value;
    return true;
}

void CQVTimestamp::ToText(qvstring& text) const {
    TimestampStruct fields;
    GetTimestampStruct(fields);
    text.clear();
    if (fields.year < 0)
        text += '-';
    else if (fields.year > 9999)
        text += '+';
    AppendNumber(text, static_cast<unsigned int>(fields.year < 0 ? -fields.year : fields.year), 4);
    text += '-';
    AppendNumber(text, fields.month, 2);
    text += '-';
    AppendNumber(text, fields.day, 2);
    text += 'T';
    AppendNumber(text, fields.hour, 2);
    text += ':';
    AppendNumber(text, fields.minute, 2);
    text += ':';
    AppendNumber(text, fields.second, 2);
    text += '.';
    AppendNumber(text, fields.millisecond, 3);
    AppendNumber(text, fields.fraction, 4);
    text += 'Z';
}

bool CQVTimestamp::FromText(const qvstring& text) {
    TextReader reader(text);
    int year;
    unsigned int month, day;
    if (!reader.ReadDate(year, month, day))
        return false;
    long long timeOfDay = 0;
    long long ahead = 0;
    if (!reader.AtEnd() && ((!reader.Skip('T') && !reader.Skip(' ')) || !reader.ReadTime(timeOfDay) ||
                            !reader.ReadOffset(ahead) || !reader.AtEnd()))
        return false;
    // The offset may lead into the day before or after; only the result must be representable.
    long long dayShift;
    timeOfDay = SplitDays(timeOfDay - ahead, dayShift);
    long long value;
    if (!ValueOf(DaysFromDate(year, month, day) + dayShift, timeOfDay, value))
        return false;
    m_Value = value;
    return true;
}
