// CDataFormatSettings - how one client wants to see times: its zone, its locale and its formats.
//
//     CDataFormatSettings settings;
//     settings.InitialiseForCurrentUser();
//     settings.FormatDateAndTime(time, out); // 2024-03-05 07:08:09.045
//
// Part of a client's access context; a client sends its own to the server in binary form.
//
// Threads:   formatting changes nothing: any number of threads at a time, each with its own output.
#pragma once

#include <QVLib/Formatting/DateTimeFormat.h>
#include <QVPlatform/Locale.h>
#include <QVPlatform/TimeZone.h>

class CDataFormatSettings {
public:
    static constexpr char DefaultDateFormat[] = "yyyy-MM-dd";
    static constexpr unsigned int DefaultDateFormatLength = 10;
    static constexpr char DefaultTimeFormat[] = "HH:mm:ss.SSS";
    static constexpr unsigned int DefaultTimeFormatLength = 12;

    // UTC, the default locale and three formats that write nothing.
    CDataFormatSettings();
    CDataFormatSettings(const CDataFormatSettings&);
    CDataFormatSettings& operator=(const CDataFormatSettings&);

    // The machine's time zone, the user's locale, the default formats and both in a row. UTC where the
    // machine does not say in which zone it is.
    void InitialiseForCurrentUser();
    // The same with other formats; an empty one stands for the default.
    void InitialiseForCurrentUser(const qvstring& dateFormat, const qvstring& timeFormat);

    // Writes a time, given in UTC, with the date-and-time format.
    void FormatDateAndTime(const CQVTimestamp& time, CTextOutput& out) const;
    void FormatDateAndTime(long long time, CTextOutput& out) const;

    // The binary form, as far as the other side's `version` knows it: the time zone's name from 18 on, the
    // locale's name from 28 on, the date, time and date-and-time formats from 44 on.
    void SaveDataFormatSettings(unsigned short version, CBinaryOutput& output) const;
    // What the version does not carry stays, and so does a zone or locale whose name is not known here.
    // Throws what reading strings and DateTimeFormat::LoadDateTimeFormat() throw; the settings are then as
    // they were.
    void LoadDataFormatSettings(unsigned short version, CBinaryInput& input);

    // For everyone to read and set.
    CQVTimeZone m_TimeZone;
    CQVLocale m_Locale;
    DateTimeFormat m_DateFormat;
    DateTimeFormat m_TimeFormat;
    DateTimeFormat m_DateTimeFormat;
};
