#include <QVLib/Formatting/DateTimeFormat.h>

#include "DateTimeFields.h"

#include <QVLib/BinaryStreams/BinaryInput.h>
#include <QVLib/BinaryStreams/BinaryOutput.h>
#include <QVPlatform/Unicode.h>
#include <algorithm>
#include <climits>
#include <cstring>
#include <stdexcept>

namespace {

using namespace DateTimeFields;

constexpr int LastCodePoint = 0x10FFFF;
// What goes into one text: each may still grow by one row of characters.
constexpr int LongestRow = 16;
constexpr unsigned int LongestText = 128;

constexpr unsigned int ComponentYear = 1;
constexpr unsigned int ComponentMonth = 2;
constexpr unsigned int ComponentDay = 4;
constexpr unsigned int ComponentHourOfHalfDay = 8;
constexpr unsigned int ComponentHour = 16;
constexpr unsigned int ComponentHalfDay = 32;
constexpr unsigned int ComponentMinute = 64;
constexpr unsigned int ComponentSecond = 128;

// The numbers below 100 that a text has places for.
enum ValueIndex : unsigned char {
    ValueCentury,
    ValueYearOfCentury,
    ValueMonth,
    ValueDay,
    ValueHour,
    ValueMinute,
    ValueSecond,
    ValueHundredths,
    ValueLastMilliseconds, // the last two digits of three
    NumValues
};

class Values {
public:
    explicit Values(const Fields& fields) {
        m_Values[ValueCentury] = Byte(static_cast<unsigned int>(fields.year) / 100);
        m_Values[ValueYearOfCentury] = Byte(static_cast<unsigned int>(fields.year) % 100);
        m_Values[ValueMonth] = Byte(fields.month);
        m_Values[ValueDay] = Byte(fields.day);
        m_Values[ValueHour] = Byte(fields.hour);
        m_Values[ValueMinute] = Byte(fields.minute);
        m_Values[ValueSecond] = Byte(fields.second);
        m_Values[ValueHundredths] = Byte(fields.millisecond / 10);
        m_Values[ValueLastMilliseconds] = Byte(fields.millisecond % 100);
    }

    // Whether all of them are below 100, as in every time of the first ten thousand years.
    static bool Fit(const Fields& fields) {
        return static_cast<unsigned int>(fields.year) < 10'000 && fields.millisecond < 1000 &&
               (fields.month | fields.day | fields.hour | fields.minute | fields.second) < 64;
    }

    void Print(unsigned int index, char* to) const {
        std::memcpy(to, TwoDigits.m_Digits + 2 * m_Values[index], 2);
    }

private:
    static unsigned char Byte(unsigned int value) { return static_cast<unsigned char>(value); }

    unsigned char m_Values[NumValues];
};

void WriteItem(const CQVLocale& locale, const Fields& fields, int offsetMinutes,
               const DateTimeFormat::FormatChar& item, BufferedText& text) {
    if (item.m_bLiteral)
        text.WriteCodePoints(item.m_nRepeat, item.m_CodePoint);
    else
        WriteField(locale, fields, offsetMinutes, item.m_CodePoint, item.m_nRepeat, text);
}

unsigned int ComponentOf(int letter) {
    switch (letter) {
    case 'y':
        return ComponentYear;
    case 'M':
        return ComponentMonth;
    case 'd':
        return ComponentDay;
    case 'K':
    case 'h':
        return ComponentHourOfHalfDay;
    case 'H':
    case 'k':
        return ComponentHour;
    case 'a':
        return ComponentHalfDay;
    case 'm':
        return ComponentMinute;
    case 's':
        return ComponentSecond;
    default:
        return 0;
    }
}

} // namespace

DateTimeFormat::DateTimeFormat() = default;
DateTimeFormat::DateTimeFormat(const DateTimeFormat&) = default;
DateTimeFormat& DateTimeFormat::operator=(const DateTimeFormat&) = default;
DateTimeFormat::~DateTimeFormat() = default;

void DateTimeFormat::ParseDateTimeFormat(const char* text, unsigned int length) {
    m_Format.assign(text, length);
    m_FormatChars.clear();
    const char* current = m_Format.data();
    const char* const end = current + length;
    bool bQuoted = false;
    while (current < end) {
        const int codePoint = qv_codepoint_from_qvchar(current, end);
        if (codePoint != '\'') {
            AddFormatChar(bQuoted, codePoint);
        } else if (bQuoted && current < end && *current == '\'') {
            current++;
            AddFormatChar(true, codePoint);
        } else {
            bQuoted = !bQuoted;
        }
    }
    MakeSteps();
}

void DateTimeFormat::ParseDateTimeFormat(const qvstring& text) {
    ParseDateTimeFormat(text.data(), static_cast<unsigned int>(text.size()));
}

void DateTimeFormat::SetFromDateAndTimeFormat(const DateTimeFormat& date, const DateTimeFormat& time) {
    DateTimeFormat both(date);
    both.m_Format += ' ';
    both.m_Format += time.m_Format;
    both.m_FormatChars.push_back({false, ' ', 1});
    both.m_FormatChars.insert(both.m_FormatChars.end(), time.m_FormatChars.begin(), time.m_FormatChars.end());
    both.MakeSteps();
    *this = both;
}

void DateTimeFormat::FormatDateTime(const CQVLocale& locale, const CQVTimeZone* zone,
                                    const CQVTimestamp& time, CTextOutput& out) const {
    const CQVTimestamp local = zone ? zone->ToLocalTime(time) : time;
    const long long offset = (local - time).GetValue() / CQVTimeInterval::UnitsPerMinute;
    Fields fields;
    local.GetTimestampStruct(fields);
    FormatDateTime(locale, zone, fields, static_cast<int>(offset), out);
}

void DateTimeFormat::FormatDateTime(const CQVLocale& locale, const CQVTimeZone* zone, long long time,
                                    CTextOutput& out) const {
    FormatDateTime(locale, zone, CQVTimestamp(time), out);
}

void DateTimeFormat::FormatDateTime(const CQVLocale& locale, const CQVTimeZone*, const Fields& fields,
                                    int offsetMinutes, CTextOutput& out) const {
    BufferedText text(out);
    if (!Values::Fit(fields)) {
        for (const FormatChar& item : m_FormatChars)
            WriteItem(locale, fields, offsetMinutes, item, text);
        text.Flush();
        return;
    }
    const Values values(fields);
    const char* from = m_Texts.data();
    const Place* place = m_Places.data();
    for (const Step& step : m_Steps) {
        char* const to = text.Append(step.m_Length);
        std::memcpy(to, from, step.m_Length);
        from += step.m_Length;
        for (const Place* const end = place + step.m_NumPlaces; place != end; place++)
            values.Print(place->m_Value, to + place->m_Offset);
        if (step.m_Item.m_nRepeat != 0)
            WriteItem(locale, fields, offsetMinutes, step.m_Item, text);
    }
    text.Flush();
}

unsigned int DateTimeFormat::GetDateTimeFormatComponents() const {
    unsigned int components = 0;
    for (const FormatChar& item : m_FormatChars)
        if (!item.m_bLiteral)
            components |= ComponentOf(item.m_CodePoint);
    return components;
}

bool DateTimeFormat::IsCompleteDateFormat() const {
    constexpr unsigned int Needed = ComponentYear | ComponentMonth | ComponentDay;
    return (GetDateTimeFormatComponents() & Needed) == Needed;
}

bool DateTimeFormat::IsCompleteTimeOfDayFormat() const {
    constexpr unsigned int Needed = ComponentMinute | ComponentSecond;
    constexpr unsigned int NeededWithHalfDay = Needed | ComponentHourOfHalfDay | ComponentHalfDay;
    constexpr unsigned int NeededWithHour = Needed | ComponentHour;
    const unsigned int components = GetDateTimeFormatComponents();
    return (components & NeededWithHalfDay) == NeededWithHalfDay ||
           (components & NeededWithHour) == NeededWithHour;
}

void DateTimeFormat::SaveDateTimeFormat(CBinaryOutput& output) const {
    output << static_cast<unsigned int>(m_FormatChars.size());
    for (const FormatChar& item : m_FormatChars) {
        output << item.m_bLiteral;
        output.Write7BitEncodedInt(item.m_nRepeat);
        output.WriteUTFCharacter(item.m_CodePoint);
    }
}

void DateTimeFormat::LoadDateTimeFormat(CBinaryInput& input) {
    unsigned int count = 0;
    input >> count;
    if (count == 0)
        return;
    std::vector<FormatChar> items; // grows with the bytes that arrive, not by their number's word
    int characters = 0;
    for (unsigned int i = 0; i < count; i++) {
        FormatChar item;
        input >> item.m_bLiteral;
        item.m_nRepeat = input.Read7BitEncodedInt();
        item.m_CodePoint = input.ReadUTF8Character();
        characters += std::min(item.m_nRepeat, MostPerItem);
        if (item.m_nRepeat < 1 || item.m_CodePoint < 0 || item.m_CodePoint > LastCodePoint ||
            characters > MostPerPattern)
            throw std::logic_error("date and time format error");
        items.push_back(item);
    }
    m_FormatChars.swap(items);
    MakeSteps();
}

void DateTimeFormat::PrintDateTimeField(const CQVLocale& locale, const CQVTimeZone*, const Fields& fields,
                                        int offsetMinutes, int letter, int repeat, CTextOutput& out) const {
    BufferedText text(out);
    WriteField(locale, fields, offsetMinutes, letter, repeat, text);
    text.Flush();
}

void DateTimeFormat::PrintFieldValue(const CQVLocale& locale, int index, const unsigned int* ids, int count,
                                     CTextOutput& out) const {
    BufferedText text(out);
    WriteMessageOf(locale, index, ids, count, text);
    text.Flush();
}

void DateTimeFormat::PrintResourceValue(const CQVLocale& locale, unsigned int id, CTextOutput& out) const {
    BufferedText text(out);
    WriteMessage(locale, id, text);
    text.Flush();
}

// Makes the last item longer or begins another one.
void DateTimeFormat::AddFormatChar(bool bLiteral, int codePoint) {
    if (!m_FormatChars.empty()) {
        FormatChar& last = m_FormatChars.back();
        if (last.m_CodePoint == codePoint && last.m_bLiteral == bLiteral && last.m_nRepeat < INT_MAX) {
            last.m_nRepeat++;
            return;
        }
    }
    m_FormatChars.push_back({bLiteral, codePoint, 1});
}

void DateTimeFormat::MakeSteps() {
    m_Steps.clear();
    m_Places.clear();
    m_Texts.clear();
    Step step;
    for (const FormatChar& item : m_FormatChars)
        if (!AddToText(item, step))
            EndStep(item, step);
    EndStep({false, 0, 0}, step);
}

// False for an item that has no fixed width or is too long.
bool DateTimeFormat::AddToText(const FormatChar& item, Step& step) {
    const bool bTwo = item.m_nRepeat == 2;
    const int letter = item.m_bLiteral ? 0 : item.m_CodePoint;
    switch (letter) {
    case 'y':
        return item.m_nRepeat <= 3 ? AddPlaces({ValueYearOfCentury}, 2, step)
                                   : AddPlaces({ValueCentury, ValueYearOfCentury}, 4, step);
    case 'M':
        return bTwo && AddPlaces({ValueMonth}, 2, step);
    case 'd':
        return bTwo && AddPlaces({ValueDay}, 2, step);
    case 'H':
        return bTwo && AddPlaces({ValueHour}, 2, step);
    case 'm':
        return bTwo && AddPlaces({ValueMinute}, 2, step);
    case 's':
        return bTwo && AddPlaces({ValueSecond}, 2, step);
    case 'S':
        return bTwo ? AddPlaces({ValueHundredths}, 2, step)
                    : item.m_nRepeat > 2 && AddPlaces({ValueHundredths, ValueLastMilliseconds}, 3, step);
    default:
        break;
    }
    if (item.m_CodePoint == '\n' || item.m_nRepeat > LongestRow || (!item.m_bLiteral && IsField(letter)))
        return false;
    for (int i = 0; i < item.m_nRepeat; i++) {
        const size_t length = m_Texts.size();
        qv_append_codepoint_to_qvstring(item.m_CodePoint, m_Texts);
        step.m_Length += static_cast<unsigned int>(m_Texts.size() - length);
    }
    return EndLongStep(step);
}

// Room for digits: two for each value, the last two at the end (three digits are two values that overlap).
bool DateTimeFormat::AddPlaces(std::initializer_list<unsigned char> values, unsigned int digits, Step& step) {
    unsigned int offset = step.m_Length;
    m_Texts.append(digits, '0');
    step.m_Length += digits;
    for (const unsigned char value : values) {
        m_Places.push_back({static_cast<unsigned char>(offset), value});
        step.m_NumPlaces++;
        offset = step.m_Length - 2;
    }
    return EndLongStep(step);
}

// Always true.
bool DateTimeFormat::EndLongStep(Step& step) {
    if (step.m_Length > LongestText)
        EndStep({false, 0, 0}, step);
    return true;
}

void DateTimeFormat::EndStep(const FormatChar& item, Step& step) {
    step.m_Item = item;
    m_Steps.push_back(step);
    step = Step();
}
