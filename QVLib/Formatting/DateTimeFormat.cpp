#include <QVLib/Formatting/DateTimeFormat.h>

#include <QVLib/BinaryStreams/BinaryInput.h>
#include <QVLib/BinaryStreams/BinaryOutput.h>
#include <QVLib/Resources/Messages.h>
#include <QVPlatform/TextOutput.h>
#include <QVPlatform/Unicode.h>
#include <algorithm>
#include <climits>
#include <cstring>
#include <iterator>
#include <stdexcept>

namespace {

using Fields = CQVTimestamp::TimestampStruct;

constexpr int MostPerItem = 4096; // characters; repeat counts may come from a client
constexpr unsigned int LongestName = 64;
constexpr int LastCodePoint = 0x10FFFF;

constexpr unsigned int ComponentYear = 1;
constexpr unsigned int ComponentMonth = 2;
constexpr unsigned int ComponentDay = 4;
constexpr unsigned int ComponentHourOfHalfDay = 8;
constexpr unsigned int ComponentHour = 16;
constexpr unsigned int ComponentHalfDay = 32;
constexpr unsigned int ComponentMinute = 64;
constexpr unsigned int ComponentSecond = 128;

// The numbers of `count` messages in a row.
template<unsigned int Count>
struct MessageRow {
    constexpr explicit MessageRow(unsigned int first) {
        for (unsigned int i = 0; i < Count; i++)
            m_Ids[i] = first + i;
    }
    unsigned int m_Ids[Count] = {};
};
constexpr MessageRow<12> ShortMonths(QVMessage::FirstShortMonth);
constexpr MessageRow<12> LongMonths(QVMessage::FirstLongMonth);
constexpr MessageRow<7> ShortDays(QVMessage::FirstShortDay);
constexpr MessageRow<7> LongDays(QVMessage::FirstLongDay);

struct TwoDigitTable {
    constexpr TwoDigitTable() {
        for (unsigned int i = 0; i < 100; i++) {
            m_Digits[2 * i] = static_cast<char>('0' + i / 10);
            m_Digits[2 * i + 1] = static_cast<char>('0' + i % 10);
        }
    }
    char m_Digits[200] = {};
};
constexpr TwoDigitTable TwoDigits;

// Text on its way to an output, which gets it in as few pieces as can be. Whoever writes flushes at the end.
class BufferedText {
public:
    explicit BufferedText(CTextOutput& out) : m_Out(out) {}

    void Flush() {
        m_Out.WriteString(m_Text, m_Used);
        m_Used = 0;
    }

    void WriteChar(char c) {
        Reserve(1);
        m_Text[m_Used++] = c;
    }

    void WriteText(const char* text, unsigned int length) {
        Reserve(length);
        std::memcpy(m_Text + m_Used, text, length);
        m_Used += length;
    }

    void WriteCodePoints(int count, int codePoint) {
        count = std::min(count, MostPerItem);
        char bytes[4];
        const unsigned int length = qv_qvchar_from_codepoint(codePoint, bytes);
        for (int i = 0; i < count; i++)
            WriteText(bytes, length);
    }

    void WriteTwoDigits(unsigned int number) {
        if (number > 99) {
            WriteNumber(number, 2);
            return;
        }
        Reserve(2);
        std::memcpy(m_Text + m_Used, TwoDigits.m_Digits + 2 * number, 2);
        m_Used += 2;
    }

    // With zeros in front up to `width` characters.
    void WriteNumber(unsigned int number, int width) {
        if (width == 2 && number < 100) {
            WriteTwoDigits(number);
            return;
        }
        char digits[10];
        char* const end = digits + sizeof digits;
        char* start = end;
        do {
            *--start = static_cast<char>('0' + number % 10);
            number /= 10;
        } while (number != 0);
        const auto length = static_cast<int>(end - start);
        for (int i = std::min(width, MostPerItem); i > length; i--)
            WriteChar('0');
        WriteText(start, static_cast<unsigned int>(length));
    }

private:
    // For pieces that are never longer than the buffer.
    void Reserve(unsigned int length) {
        if (length > sizeof m_Text - m_Used)
            Flush();
    }

    CTextOutput& m_Out;
    unsigned int m_Used = 0;
    char m_Text[256];
};

unsigned int Magnitude(int number) {
    return number < 0 ? 0u - static_cast<unsigned int>(number) : static_cast<unsigned int>(number);
}

void WriteMessage(const CQVLocale& locale, unsigned int id, BufferedText& text) {
    char name[LongestName];
    g_LibModule.LoadResourceString(locale, id, name, sizeof name);
    text.WriteText(name, static_cast<unsigned int>(std::strlen(name)));
}

void WriteMessageOf(const CQVLocale& locale, int index, const unsigned int* ids, int count,
                    BufferedText& text) {
    if (index >= 0 && index < count)
        WriteMessage(locale, ids[index], text);
    else
        text.WriteChar('?');
}

template<unsigned int Count>
void WriteNameOf(const CQVLocale& locale, unsigned int index, const MessageRow<Count>& names,
                 BufferedText& text) {
    WriteMessageOf(locale, static_cast<int>(index), names.m_Ids, static_cast<int>(Count), text);
}

void WriteYear(int year, int repeat, BufferedText& text) {
    if (repeat <= 3) {
        text.WriteTwoDigits(Magnitude(year) % 100);
        return;
    }
    if (year < 0)
        text.WriteChar('-');
    text.WriteNumber(Magnitude(year), year < 0 ? 3 : 4); // the sign is one of the four
}

void WriteMonth(const CQVLocale& locale, unsigned int month, int repeat, BufferedText& text) {
    if (repeat <= 2)
        text.WriteNumber(month, repeat);
    else if (repeat == 3)
        WriteNameOf(locale, month - 1, ShortMonths, text);
    else
        WriteNameOf(locale, month - 1, LongMonths, text);
}

void WriteDayOfWeek(const CQVLocale& locale, unsigned int dayOfWeek, int repeat, BufferedText& text) {
    if (repeat <= 3)
        WriteNameOf(locale, dayOfWeek, ShortDays, text);
    else
        WriteNameOf(locale, dayOfWeek, LongDays, text);
}

void WriteFraction(unsigned int millisecond, int repeat, BufferedText& text) {
    if (repeat <= 1)
        text.WriteNumber(millisecond / 100, 1);
    else if (repeat == 2)
        text.WriteTwoDigits(millisecond / 10);
    else
        text.WriteNumber(millisecond, 3);
}

// The sign is the offset's own, also where the hours are 0.
void WriteOffset(int minutes, bool bMinutes, bool bColon, BufferedText& text) {
    const unsigned int magnitude = Magnitude(minutes);
    text.WriteChar(minutes < 0 ? '-' : '+');
    text.WriteTwoDigits(magnitude / 60);
    if (bColon)
        text.WriteChar(':');
    if (bMinutes)
        text.WriteTwoDigits(magnitude % 60);
}

void WriteField(const CQVLocale& locale, const Fields& fields, int offsetMinutes, int letter, int repeat,
                BufferedText& text) {
    switch (letter) {
    case 'y':
        return WriteYear(fields.year, repeat, text);
    case 'M':
        return WriteMonth(locale, fields.month, repeat, text);
    case 'd':
        return text.WriteNumber(fields.day, repeat);
    case 'D':
        return text.WriteNumber(fields.dayOfYear + 1, repeat);
    case 'E':
        return WriteDayOfWeek(locale, fields.dayOfWeek, repeat, text);
    case 'u':
        return text.WriteNumber(fields.dayOfWeek == 0 ? 7 : fields.dayOfWeek, repeat);
    case 'a':
        return WriteMessage(locale, fields.hour < 12 ? QVMessage::BeforeNoon : QVMessage::AfterNoon, text);
    case 'H':
        return text.WriteNumber(fields.hour, repeat);
    case 'k':
        return text.WriteNumber(fields.hour == 0 ? 24 : fields.hour, repeat);
    case 'K':
        return text.WriteNumber(fields.hour % 12, repeat);
    case 'h':
        return text.WriteNumber(fields.hour % 12 == 0 ? 12 : fields.hour % 12, repeat);
    case 'm':
        return text.WriteNumber(fields.minute, repeat);
    case 's':
        return text.WriteNumber(fields.second, repeat);
    case 'S':
        return WriteFraction(fields.millisecond, repeat, text);
    case 'X':
        if (offsetMinutes == 0)
            return text.WriteChar('Z');
        return WriteOffset(offsetMinutes, repeat >= 2, repeat >= 3, text);
    case 'Z':
        return WriteOffset(offsetMinutes, true, false, text);
    default:
        return text.WriteCodePoints(repeat, letter);
    }
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
    m_Format.swap(both.m_Format);
    m_FormatChars.swap(both.m_FormatChars);
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
    for (const FormatChar& item : m_FormatChars) {
        if (item.m_bLiteral)
            text.WriteCodePoints(item.m_nRepeat, item.m_CodePoint);
        else
            WriteField(locale, fields, offsetMinutes, item.m_CodePoint, item.m_nRepeat, text);
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
    for (unsigned int i = 0; i < count; i++) {
        FormatChar item;
        input >> item.m_bLiteral;
        item.m_nRepeat = input.Read7BitEncodedInt();
        item.m_CodePoint = input.ReadUTF8Character();
        if (item.m_nRepeat < 1 || item.m_CodePoint < 0 || item.m_CodePoint > LastCodePoint)
            throw std::logic_error("date and time format error");
        items.push_back(item);
    }
    m_FormatChars.swap(items);
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
