#include <QVLib/Formatting/DataFormatSettings.h>

#include <QVLib/BinaryStreams/BinaryInput.h>
#include <QVLib/BinaryStreams/BinaryOutput.h>

namespace {

// The first version of the binary form that holds each part.
constexpr unsigned short VersionWithTimeZone = 18;
constexpr unsigned short VersionWithLocale = 28;
constexpr unsigned short VersionWithFormats = 44;

} // namespace

CDataFormatSettings::CDataFormatSettings() {
    m_TimeZone.UseSpecifiedTimeZone("Etc/UTC");
}

CDataFormatSettings::CDataFormatSettings(const CDataFormatSettings&) = default;
CDataFormatSettings& CDataFormatSettings::operator=(const CDataFormatSettings&) = default;

void CDataFormatSettings::InitialiseForCurrentUser() {
    InitialiseForCurrentUser(qvstring(), qvstring());
}

void CDataFormatSettings::InitialiseForCurrentUser(const qvstring& dateFormat, const qvstring& timeFormat) {
    m_TimeZone.UseCurrentTimeZone();
    m_Locale.SetFromCurrentUser();
    if (dateFormat.empty())
        m_DateFormat.ParseDateTimeFormat(DefaultDateFormat, DefaultDateFormatLength);
    else
        m_DateFormat.ParseDateTimeFormat(dateFormat);
    if (timeFormat.empty())
        m_TimeFormat.ParseDateTimeFormat(DefaultTimeFormat, DefaultTimeFormatLength);
    else
        m_TimeFormat.ParseDateTimeFormat(timeFormat);
    m_DateTimeFormat.SetFromDateAndTimeFormat(m_DateFormat, m_TimeFormat);
}

void CDataFormatSettings::FormatDateAndTime(const CQVTimestamp& time, CTextOutput& out) const {
    m_DateTimeFormat.FormatDateTime(m_Locale, &m_TimeZone, time, out);
}

void CDataFormatSettings::FormatDateAndTime(long long time, CTextOutput& out) const {
    FormatDateAndTime(CQVTimestamp(time), out);
}

void CDataFormatSettings::SaveDataFormatSettings(unsigned short version, CBinaryOutput& output) const {
    if (version >= VersionWithTimeZone)
        output << m_TimeZone.GetIANATimeZoneName();
    if (version >= VersionWithLocale)
        output << m_Locale.GetLocaleName();
    if (version >= VersionWithFormats) {
        m_DateFormat.SaveDateTimeFormat(output);
        m_TimeFormat.SaveDateTimeFormat(output);
        m_DateTimeFormat.SaveDateTimeFormat(output);
    }
}

void CDataFormatSettings::LoadDataFormatSettings(unsigned short version, CBinaryInput& input) {
    CDataFormatSettings loaded(*this);
    qvstring name;
    if (version >= VersionWithTimeZone) {
        input >> name;
        loaded.m_TimeZone.UseSpecifiedTimeZone(name);
    }
    if (version >= VersionWithLocale) {
        input >> name;
        loaded.m_Locale.SetFromLocaleName(name);
    }
    if (version >= VersionWithFormats) {
        loaded.m_DateFormat.LoadDateTimeFormat(input);
        loaded.m_TimeFormat.LoadDateTimeFormat(input);
        loaded.m_DateTimeFormat.LoadDateTimeFormat(input);
    }
    *this = loaded;
}
