#include "Output.h"

#include <QVPlatform/Assert.h>
#include <QVPlatform/Process.h>
#include <QVPlatform/Timestamp.h>
#include <QVPlatform/Unicode.h>
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace {

constexpr std::size_t OutputBufferSize = 64u << 10;
constexpr unsigned int RowsBeforeWidths = 256;
constexpr long long MillisecondsPerUpdate = 200;

template<typename Number>
void AppendDigits(std::string& text, Number number) {
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, number);
    text.append(buffer, result.ptr);
}

// Columns that text takes in a terminal, taking every character as one wide.
unsigned int DisplayWidth(const char* text, unsigned int length) {
    return qv_utf32len_of_wchar(text, length);
}

// People see control characters escaped: they would move the cursor or worse.
void AppendVisible(std::string& out, std::string_view text) {
    for (const char character : text) {
        if (static_cast<unsigned char>(character) < 0x20 || character == 0x7F)
            out += '?';
        else
            out += character;
    }
}

long long MonotonicMilliseconds() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

std::string RemainingText(long long seconds) {
    char buffer[48];
    if (seconds >= 3600)
        std::snprintf(buffer, sizeof buffer, "%lld:%02lld:%02lld left", seconds / 3600, seconds / 60 % 60,
                      seconds % 60);
    else
        std::snprintf(buffer, sizeof buffer, "%lld:%02lld left", seconds / 60, seconds % 60);
    return buffer;
}

} // namespace

void AppendNumber(std::string& text, long long number) {
    AppendDigits(text, number);
}

void AppendNumber(std::string& text, unsigned long long number) {
    AppendDigits(text, number);
}

void AppendNumber(std::string& text, double number) {
    AppendDigits(text, number);
}

void AppendJsonString(std::string& text, std::string_view value) {
    text += '"';
    const char* current = value.data();
    const char* const end = current + value.size();
    while (current != end) {
        const int codePoint = qv_codepoint_from_qvchar(current, end);
        if (codePoint == '"' || codePoint == '\\') {
            text += '\\';
            text += static_cast<char>(codePoint);
        } else if (codePoint < 0x20 || codePoint == 0x7F || (codePoint >= 0xD800 && codePoint < 0xE000)) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned int>(codePoint));
            text += escape;
        } else {
            qv_append_codepoint_to_qvstring(codePoint, text);
        }
    }
    text += '"';
}

void AppendCsv(std::string& text, std::string_view value) {
    if (value.find_first_of(",\"\r\n") == std::string_view::npos) {
        text += value;
        return;
    }
    text += '"';
    for (const char character : value)
        text.append(character == '"' ? 2 : 1, character);
    text += '"';
}

void TimeFormatter::Append(std::string& text, long long time, bool bShort) {
    CQVTimestamp second(time);
    second.RoundDown(CQVTimeInterval(CQVTimeInterval::UnitsPerSecond));
    if (m_Text.empty() || m_Second != second.GetValue()) {
        m_Second = second.GetValue();
        second.ToText(m_Text);
        m_Text.resize(m_Text.find_first_of(".Z"));
    }
    const long long fraction = (CQVTimestamp(time) - second).GetValue();
    if (fraction < 0 || fraction >= CQVTimeInterval::UnitsPerSecond) {
        // So early that no second starts before it.
        qvstring whole;
        CQVTimestamp(time).ToText(whole);
        text += whole;
        return;
    }
    char digits[8] = "0000000";
    char number[8];
    const auto length = std::to_chars(number, number + sizeof number, fraction).ptr - number;
    std::copy(number, number + length, digits + 7 - length);
    text += m_Text;
    text += '.';
    text.append(digits, bShort && fraction % CQVTimeInterval::UnitsPerMillisecond == 0 ? 3 : 7);
    text += 'Z';
}

TableWriter::TableWriter(OutputFormat format, std::vector<Column> columns)
    : m_Format(format), m_bColour(MayUseColour(1)), m_Columns(std::move(columns)) {
    QV_ASSERT(!m_Columns.empty());
    m_Out.reserve(OutputBufferSize + 4096);
    for (const Column& column : m_Columns) {
        m_Keys.push_back(m_Keys.empty() ? "{" : ",");
        AppendJsonString(m_Keys.back(), column.m_Name);
        m_Keys.back() += ':';
        if (m_Format == OutputFormat::Csv) {
            if (&column != &m_Columns.front())
                m_Out += ',';
            AppendCsv(m_Out, column.m_Name);
        }
    }
    if (m_Format == OutputFormat::Csv)
        m_Out += '\n';
}

void TableWriter::BeginCell() {
    QV_ASSERT(m_Column < m_Columns.size());
    if (m_Format == OutputFormat::Json)
        m_Out += m_Keys[m_Column];
    else if (m_Format == OutputFormat::Csv && m_Column != 0)
        m_Out += ',';
    ++m_Column;
}

void TableWriter::EndHumanCell() {
    m_CellLengths.push_back(static_cast<unsigned int>(m_Cells.size() - m_CellStart));
    m_CellStart = m_Cells.size();
}

void TableWriter::AddText(std::string_view text) {
    BeginCell();
    switch (m_Format) {
    case OutputFormat::Human:
        AppendVisible(m_Cells, text);
        EndHumanCell();
        break;
    case OutputFormat::Json:
        AppendJsonString(m_Out, text);
        break;
    case OutputFormat::Csv:
        AppendCsv(m_Out, text);
        break;
    }
}

void TableWriter::AddTime(long long time) {
    BeginCell();
    switch (m_Format) {
    case OutputFormat::Human:
        m_TimeFormatter.Append(m_Cells, time, true);
        EndHumanCell();
        break;
    case OutputFormat::Json:
        m_Out += '"';
        m_TimeFormatter.Append(m_Out, time, false);
        m_Out += '"';
        break;
    case OutputFormat::Csv:
        m_TimeFormatter.Append(m_Out, time, false);
        break;
    }
}

void TableWriter::AddInteger(long long number) {
    BeginCell();
    AppendNumber(m_Format == OutputFormat::Human ? m_Cells : m_Out, number);
    if (m_Format == OutputFormat::Human)
        EndHumanCell();
}

void TableWriter::AddUnsigned(unsigned long long number) {
    BeginCell();
    AppendNumber(m_Format == OutputFormat::Human ? m_Cells : m_Out, number);
    if (m_Format == OutputFormat::Human)
        EndHumanCell();
}

void TableWriter::AddReal(double number, bool bSingle) {
    BeginCell();
    std::string& text = m_Format == OutputFormat::Human ? m_Cells : m_Out;
    if (m_Format == OutputFormat::Json && !std::isfinite(number))
        text += "null";
    else if (bSingle)
        AppendDigits(text, static_cast<float>(number));
    else
        AppendDigits(text, number);
    if (m_Format == OutputFormat::Human)
        EndHumanCell();
}

void TableWriter::AddNothing() {
    BeginCell();
    if (m_Format == OutputFormat::Json)
        m_Out += "null";
    else if (m_Format == OutputFormat::Human)
        EndHumanCell();
}

void TableWriter::EndRow() {
    QV_ASSERT(m_Column == m_Columns.size());
    m_Column = 0;
    ++m_Rows;
    if (m_Format == OutputFormat::Json) {
        m_Out += "}\n";
    } else if (m_Format == OutputFormat::Csv) {
        m_Out += '\n';
    } else if (m_bWidthsKnown) {
        WriteHumanRow(m_Cells.data(), m_CellLengths.data(), false);
        m_Cells.clear();
        m_CellLengths.clear();
        m_CellStart = 0;
    } else if (m_Rows == RowsBeforeWidths) {
        WriteFirstRows();
    }
    if (m_Out.size() >= OutputBufferSize)
        WriteOut();
}

void TableWriter::WriteFirstRows() {
    m_bWidthsKnown = true;
    std::string names;
    std::vector<unsigned int> nameLengths;
    for (const Column& column : m_Columns) {
        names += column.m_Name;
        nameLengths.push_back(static_cast<unsigned int>(column.m_Name.size()));
        m_Widths.push_back(DisplayWidth(column.m_Name.data(), nameLengths.back()));
    }
    const char* cell = m_Cells.data();
    for (std::size_t index = 0; index < m_CellLengths.size(); ++index) {
        unsigned int& width = m_Widths[index % m_Columns.size()];
        width = std::max(width, DisplayWidth(cell, m_CellLengths[index]));
        cell += m_CellLengths[index];
    }

    WriteHumanRow(names.data(), nameLengths.data(), true);
    cell = m_Cells.data();
    for (std::size_t index = 0; index < m_CellLengths.size(); index += m_Columns.size()) {
        WriteHumanRow(cell, &m_CellLengths[index], false);
        for (std::size_t column = 0; column < m_Columns.size(); ++column)
            cell += m_CellLengths[index + column];
    }
    m_Cells.clear();
    m_CellLengths.clear();
    m_CellStart = 0;
}

void TableWriter::WriteHumanRow(const char* cells, const unsigned int* lengths, bool bHeader) {
    if (bHeader && m_bColour)
        m_Out += "\x1b[1m";
    std::size_t blanks = 0;
    for (std::size_t column = 0; column < m_Columns.size(); ++column) {
        const unsigned int displayed = DisplayWidth(cells, lengths[column]);
        const std::size_t padding = m_Widths[column] > displayed ? m_Widths[column] - displayed : 0;
        if (m_Columns[column].m_Kind == Column::Number)
            blanks += padding;
        // Blanks go out with the text behind them, so that a line ends without any.
        if (lengths[column] != 0) {
            m_Out.append(blanks, ' ');
            m_Out.append(cells, lengths[column]);
            blanks = 0;
        }
        if (m_Columns[column].m_Kind == Column::Text)
            blanks += padding;
        blanks += 2;
        cells += lengths[column];
    }
    if (bHeader && m_bColour)
        m_Out += "\x1b[0m";
    m_Out += '\n';
}

void TableWriter::WriteOut() {
    WriteStandardOutput(m_Out);
    m_Out.clear();
}

void TableWriter::Finish() {
    if (m_Format == OutputFormat::Human && !m_bWidthsKnown && m_Rows != 0)
        WriteFirstRows();
    WriteOut();
}

void LineWriter::Add(std::string_view text) {
    if (m_bHuman) {
        AddLine(text);
        return;
    }
    m_Table.AddText(text);
    m_Table.EndRow();
}

void LineWriter::AddLine(std::string_view text) {
    constexpr std::size_t Enough = 64U << 10;
    m_Lines.append(text) += '\n';
    if (m_Lines.size() >= Enough)
        Flush();
}

void LineWriter::Flush() {
    WriteStandardOutput(m_Lines);
    m_Lines.clear();
    if (!m_bHuman)
        m_Table.Flush();
}

void LineWriter::Finish() {
    if (m_bHuman)
        Flush();
    else
        m_Table.Finish();
}

void WriteStandardOutput(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
        throw ToolError(ExitInputOutput, "the standard output cannot be written: " + ErrorText(errno));
}

Progress::Progress(const char* verb, const char* unit, unsigned long long total)
    : m_pVerb(verb), m_pUnit(unit), m_Total(total), m_bTerminal(qv_is_terminal(2)),
      m_Start(MonotonicMilliseconds()), m_NextUpdate(m_Start + 2 * MillisecondsPerUpdate) {}

Progress::~Progress() {
    Clear();
}

void Progress::Update(unsigned long long done) {
    Update(done, done, m_Total);
}

void Progress::Update(unsigned long long done, unsigned long long part, unsigned long long whole) {
    if (!m_bTerminal)
        return;
    const long long now = MonotonicMilliseconds();
    if (now < m_NextUpdate)
        return;
    m_NextUpdate = now + MillisecondsPerUpdate;
    m_bShown = true;

    const double seconds = static_cast<double>(now - m_Start) / 1000.0;
    const auto rate = static_cast<unsigned long long>(static_cast<double>(done) / seconds);
    std::string line = std::string(m_pVerb) + ' ' + WithSeparators(done) + ' ' + m_pUnit + ", " +
                       WithSeparators(rate) + "/s";
    if (whole != 0 && part != 0) {
        const double fraction = std::min(1.0, static_cast<double>(part) / static_cast<double>(whole));
        char percent[16];
        std::snprintf(percent, sizeof percent, ", %.0f %%, ", 100.0 * fraction);
        line += percent + RemainingText(static_cast<long long>(seconds * (1.0 - fraction) / fraction));
    }
    RewriteTerminalLine(line);
}

void Progress::Clear() {
    if (m_bShown)
        RewriteTerminalLine("");
    m_bShown = false;
}

void RewriteTerminalLine(std::string_view text) {
    const std::size_t width = std::max(qv_terminal_width(2), 2u) - 1;
    const std::string line = "\r" + std::string(text.substr(0, width)) + "\x1b[K";
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
}
