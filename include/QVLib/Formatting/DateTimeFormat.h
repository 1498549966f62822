// DateTimeFormat - writes time stamps by a pattern of letters.
//
//     DateTimeFormat format;
//     format.ParseDateTimeFormat("EEEE d MMMM yyyy h:mm a");
//     format.FormatDateTime(locale, &zone, time, out); // Tuesday 5 March 2024 7:08 AM
//
// Patterns: a letter of the table is a field, and how often it stands in a row chooses its form. Every other
//           character stands for itself, and so does text between apostrophes; '' is one apostrophe there,
//           and nothing outside. No text is a wrong pattern.
//             y     year                  yyyy 2007 (negative before the year 1 BC), yy 07
//             M     month                 M 3, MM 03, MMM Mar, MMMM March
//             d, D  day of month, of year d 5, dd 05, DDD 065
//             E     day of week           EEE Tue, EEEE Tuesday
//             u     day of week           1 Monday to 7 Sunday
//             a     AM or PM              in English where the language has no words for them
//             H, k  hour                  0 to 23, 1 to 24
//             K, h  hour of half a day    0 to 11, 1 to 12
//             m, s  minute, second
//             S     fraction of a second  S tenths, SS hundredths, SSS and more milliseconds; not rounded
//             X     offset from UTC       X +05, XX +0530, XXX +05:30; Z for UTC itself
//             Z     offset from UTC       +0530, +0000
//           Numbers (d D u H k K h m s) have as many digits as letters at least.
// Names:    of months and days, AM and PM, from the library's messages in the locale's language.
// Limits:   one item of a pattern (a field, a row of equal characters) writes at most 4,096 characters. What is
//           loaded has at most 16,384 in all, letters of fields and others, as a few bytes could ask for
//           thousands. A parsed pattern writes about as much as it is long; who takes it from outside limits that.
// Errors:   formatting has none; a month or day of week that does not exist is written as "?".
// Threads:  formatting changes nothing: any number of threads at a time, each with its own output.
#pragma once

#include <QVPlatform/String.h>
#include <QVPlatform/TimeZone.h>
#include <QVPlatform/Timestamp.h>
#include <initializer_list>
#include <vector>

class CBinaryInput;
class CBinaryOutput;
class CQVLocale;
class CTextOutput;

class DateTimeFormat {
public:
    // An item of a pattern: equal characters in a row, all quoted or none.
    struct FormatChar {
        bool m_bLiteral = false; // quoted
        int m_CodePoint = 0;
        int m_nRepeat = 1;
    };

    // The pattern without items, which writes nothing.
    DateTimeFormat();
    DateTimeFormat(const DateTimeFormat&);
    DateTimeFormat& operator=(const DateTimeFormat&);
    ~DateTimeFormat();

    // Takes another pattern, in UTF-8.
    void ParseDateTimeFormat(const char* text, unsigned int length);
    void ParseDateTimeFormat(const qvstring& text);
    // The date, a blank and the time. Either may be this object.
    void SetFromDateAndTimeFormat(const DateTimeFormat& date, const DateTimeFormat& time);

    // Writes a time, given in UTC, as the clocks of `zone` show it; null is UTC. A zone's offset from UTC is
    // cut to whole minutes (they all were in the last hundred years, with few exceptions).
    void FormatDateTime(const CQVLocale& locale, const CQVTimeZone* zone, const CQVTimestamp& time,
                        CTextOutput& out) const;
    void FormatDateTime(const CQVLocale& locale, const CQVTimeZone* zone, long long time,
                        CTextOutput& out) const;
    // Writes a local time that has been taken apart; its clocks are `offsetMinutes` ahead of UTC.
    void FormatDateTime(const CQVLocale& locale, const CQVTimeZone* zone,
                        const CQVTimestamp::TimestampStruct& fields, int offsetMinutes,
                        CTextOutput& out) const;

    // The pattern as it was parsed; loading does not change it.
    const qvstring& GetFormat() const { return m_Format; }
    // Which fields the pattern has: 1 "y", 2 "M", 4 "d", 8 "K" or "h", 16 "H" or "k", 32 "a", 64 "m",
    // 128 "s".
    unsigned int GetDateTimeFormatComponents() const;
    // Year, month and day of month are all there.
    bool IsCompleteDateFormat() const;
    // Hour and minute and second are all there, and AM or PM where the hour needs it.
    bool IsCompleteTimeOfDayFormat() const;

    // The items as bytes: their number as unsigned int, then for each the literal flag, the repeat count
    // seven bits per byte, and the character in UTF-8.
    void SaveDateTimeFormat(CBinaryOutput& output) const;
    // Replaces the items by those that were saved; none leave the old ones. Throws EOFException when the
    // bytes end too early, and std::logic_error "date and time format error" for a repeat count below 1, a
    // character that Unicode does not have, or repeat counts (each as far as 4,096) that add up to more than
    // 16,384; this object is then as it was.
    void LoadDateTimeFormat(CBinaryInput& input);

    // The parts of FormatDateTime().

    // Writes one field, or any other character `repeat` times.
    void PrintDateTimeField(const CQVLocale& locale, const CQVTimeZone* zone,
                            const CQVTimestamp::TimestampStruct& fields, int offsetMinutes, int letter,
                            int repeat, CTextOutput& out) const;
    // Writes the message ids[index], "?" when there is no such index.
    void PrintFieldValue(const CQVLocale& locale, int index, const unsigned int* ids, int count,
                         CTextOutput& out) const;
    // Writes a message of the library; at most 63 bytes of it.
    void PrintResourceValue(const CQVLocale& locale, unsigned int id, CTextOutput& out) const;

private:
    // Two digits to be put into a text.
    struct Place {
        unsigned char m_Offset; // from the start of the step's text
        unsigned char m_Value;  // which value
    };
    // A text with places for digits, and the item that follows it.
    struct Step {
        unsigned int m_Length = 0; // of the text, at most 255
        unsigned int m_NumPlaces = 0;
        FormatChar m_Item; // repeated 0 times: none
    };

    void AddFormatChar(bool bLiteral, int codePoint);
    void MakeSteps();
    bool AddToText(const FormatChar& item, Step& step);
    bool AddPlaces(std::initializer_list<unsigned char> values, unsigned int digits, Step& step);
    bool EndLongStep(Step& step);
    void EndStep(const FormatChar& item, Step& step);

    qvstring m_Format;
    std::vector<FormatChar> m_FormatChars;
    // The same once more, as it is written fastest: what has a fixed width is part of a text.
    std::vector<Step> m_Steps;
    std::vector<Place> m_Places; // of all steps
    qvstring m_Texts;            // of all steps
};
