#include "Diagnostics.h"

#include "Output.h"

#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/Process.h>
#include <charconv>
#include <cstdio>

namespace {

const char* KindText(COutputLog::LogType type) {
    switch (type) {
    case COutputLog::Error:
        return "error";
    case COutputLog::Warning:
        return "warning";
    default:
        return "information";
    }
}

// Takes `expected` from the front of the text.
bool Take(std::string_view& text, std::string_view expected) {
    if (!text.starts_with(expected))
        return false;
    text.remove_prefix(expected.size());
    return true;
}

bool TakeNumber(std::string_view& text, unsigned int& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return error == std::errc();
}

} // namespace

void Report::Add(const Message& message, std::string_view line) {
    ++m_Count;
    switch (m_Format) {
    case OutputFormat::Human:
        AddForPeople(message, line);
        break;
    case OutputFormat::Json:
        AddObject(message);
        break;
    case OutputFormat::Csv:
        AddCsv(message);
        break;
    }
}

void Report::AddForPeople(const Message& message, std::string_view line) {
    const Place& place = message.m_Place;
    AppendHarmless(m_Pending, message.m_Source);
    if (place.m_Line != 0) {
        char range[64];
        std::snprintf(range, sizeof range, "(%u,%u-%u)", place.m_Line, place.m_Column, place.m_EndColumn);
        m_Pending += range;
    }
    m_Pending.append(": ").append(KindText(message.m_Type));
    if (message.m_Number != 0)
        m_Pending.append(" ").append(std::to_string(message.m_Number));
    m_Pending += ": ";
    AppendHarmless(m_Pending, message.m_Text);
    m_Pending += '\n';
    if (place.m_Line != 0)
        AppendExcerpt(m_Pending, line, place, qv_terminal_width(2));
    if (!message.m_Input.empty()) {
        m_Pending += "  evaluated against ";
        AppendHarmless(m_Pending, message.m_Input);
        m_Pending += '\n';
    }
}

void Report::AddObject(const Message& message) {
    const Place& place = message.m_Place;
    const auto addNumber = [&](const char* name, unsigned int value) {
        m_Pending.append(",\"").append(name).append("\":");
        m_Pending += place.m_Line != 0 ? std::to_string(value) : "null";
    };
    m_Pending += "{\"source\":";
    AppendJsonString(m_Pending, message.m_Source);
    addNumber("line", place.m_Line);
    addNumber("column", place.m_Column);
    addNumber("end_column", place.m_EndColumn);
    m_Pending.append(",\"kind\":\"").append(KindText(message.m_Type));
    m_Pending.append("\",\"number\":").append(std::to_string(message.m_Number)).append(",\"text\":");
    AppendJsonString(m_Pending, message.m_Text);
    if (!message.m_Input.empty()) {
        m_Pending += ",\"input\":";
        AppendJsonString(m_Pending, message.m_Input);
    }
    m_Pending += "}\n";
}

void Report::AddCsv(const Message& message) {
    const Place& place = message.m_Place;
    const auto addNumber = [&](unsigned int value) {
        m_Pending.append(",").append(place.m_Line != 0 ? std::to_string(value) : "");
    };
    if (m_Count == 1)
        m_Pending += "source,line,column,end_column,kind,number,text,input\n";
    AppendCsv(m_Pending, message.m_Source);
    addNumber(place.m_Line);
    addNumber(place.m_Column);
    addNumber(place.m_EndColumn);
    m_Pending.append(",").append(KindText(message.m_Type));
    m_Pending.append(",").append(std::to_string(message.m_Number)).append(",");
    AppendCsv(m_Pending, message.m_Text);
    m_Pending += ',';
    AppendCsv(m_Pending, message.m_Input);
    m_Pending += '\n';
}

void Report::Write() {
    std::fwrite(m_Pending.data(), 1, m_Pending.size(), stderr);
    m_Pending.clear();
}

void Diagnostics::SetText(std::string_view text, unsigned int firstLine) {
    m_Text = text;
    m_FirstLine = firstLine;
}

bool Diagnostics::AppendMessage(LogType type, int number, const char* text, unsigned int length) {
    std::string_view message(text, length);
    Place place;
    if (!TakePrefix(type, number, message, place))
        place = {};
    Add(type, number, place, message);
    return true;
}

// Takes "name(1,2-3): error 101: " from a message. What has no such beginning is left as it is.
bool Diagnostics::TakePrefix(LogType type, int number, std::string_view& text, Place& place) const {
    std::string_view rest = text;
    if (!Take(rest, m_Source) || !Take(rest, "(") || !TakeNumber(rest, place.m_Line) || !Take(rest, ",") ||
        !TakeNumber(rest, place.m_Column) || !Take(rest, "-") || !TakeNumber(rest, place.m_EndColumn) ||
        !Take(rest, std::string("): ") + KindText(type) + " " + std::to_string(number) + ": "))
        return false;
    text = rest;
    return true;
}

void Diagnostics::Add(LogType type, int number, const Place& place, std::string_view text) {
    m_Report.Add({type, number, place, text, m_Source, m_Input}, GetLine(place.m_Line));
}

Place Diagnostics::Locate(std::size_t offset) const {
    TextInputQVString input(m_Text.data(), static_cast<unsigned int>(m_Text.size()), "");
    CQVTextLocation location;
    int codePoint = 0;
    while (input.ReadCodePointWithLocation(codePoint, location)) {
        if (input.Tell() > static_cast<long long>(offset))
            break;
    }
    return {location.GetLine() + m_FirstLine - 1, location.GetColumn(), location.GetColumn() + 1};
}

// A line of the text, as the library counts lines; empty where there is none.
std::string Diagnostics::GetLine(unsigned int line) const {
    TextInputQVString input(m_Text.data(), static_cast<unsigned int>(m_Text.size()), "");
    std::string text;
    bool bEnded = true;
    for (unsigned int current = m_FirstLine; current <= line; ++current) {
        if (!input.ReadLine(text, bEnded))
            return {};
    }
    return text;
}
