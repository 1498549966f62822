#include "DateTimeFields.h"

#include <QVLib/Resources/Messages.h>
#include <string_view>

namespace DateTimeFields {

namespace {

constexpr unsigned int LongestName = 64;

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

// The texts of the names, ready for use, in the order of their numbers.
class Names {
public:
    static constexpr unsigned int FirstId = QVMessage::FirstShortMonth;
    static constexpr unsigned int LastId = QVMessage::AfterNoon;

    explicit Names(unsigned int languageId) {
        for (unsigned int id = FirstId; id <= LastId; id++) {
            char name[LongestName];
            g_LibModule.LoadResourceString(CQVLocale(languageId), id, name, sizeof name);
            m_Texts[id - FirstId] = name;
        }
    }

    // Null for languages whose names are not at hand.
    static const Names* Of(const CQVLocale& locale) {
        static const Names english(CQVLocale::English);
        static const Names german(CQVLocale::German);
        const unsigned int id = locale.GetLanguageId();
        return id == CQVLocale::English ? &english : id == CQVLocale::German ? &german : nullptr;
    }

    const qvstring& Get(unsigned int id) const { return m_Texts[id - FirstId]; }

private:
    qvstring m_Texts[LastId - FirstId + 1];
};

unsigned int Magnitude(int number) {
    return number < 0 ? 0u - static_cast<unsigned int>(number) : static_cast<unsigned int>(number);
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

} // namespace

bool IsField(int letter) {
    constexpr std::string_view Letters = "yMdDEuaHkKhmsSXZ";
    return letter < 0x80 && Letters.find(static_cast<char>(letter)) != Letters.npos;
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

void WriteMessageOf(const CQVLocale& locale, int index, const unsigned int* ids, int count,
                    BufferedText& text) {
    if (index >= 0 && index < count)
        WriteMessage(locale, ids[index], text);
    else
        text.WriteChar('?');
}

void WriteMessage(const CQVLocale& locale, unsigned int id, BufferedText& text) {
    if (const Names* const names = Names::Of(locale); names && id >= Names::FirstId && id <= Names::LastId) {
        text.WriteText(names->Get(id));
        return;
    }
    char name[LongestName];
    g_LibModule.LoadResourceString(locale, id, name, sizeof name);
    text.WriteText(name, static_cast<unsigned int>(std::strlen(name)));
}

} // namespace DateTimeFields
