// TableWriter - the rows that a command prints: a table for people, one JSON object a line, or CSV.
//
//     TableWriter writer(context.m_Format, {{"time", Column::Text}, {"value", Column::Number}});
//     for (...) {
//         writer.AddTime(time);
//         writer.AddReal(value);
//         writer.EndRow();
//     }
//     writer.Finish();
//
// Rows go out as they come, through a buffer and without an allocation per row, so a result may be larger
// than memory. A table for people takes its column widths from its first rows; a wider cell later only shifts
// its own line. Empty cells are null in JSON, and so are numbers that are none (NaN, infinite).
//
// Errors: a standard output that cannot be written throws a ToolError.
#pragma once

#include "Tool.h"

#include <string>
#include <string_view>
#include <vector>

// Appends as digits, as short as they read back the same.
void AppendNumber(std::string& text, long long number);
void AppendNumber(std::string& text, unsigned long long number);
void AppendNumber(std::string& text, double number);
// Appends text as a JSON string with its quotes; malformed UTF-8 becomes U+FFFD.
void AppendJsonString(std::string& text, std::string_view value);
// Appends text as a field of CSV, quoted where it must be.
void AppendCsv(std::string& text, std::string_view value);

// Writes times as ISO 8601 in UTC. Remembers the last second, so a run of times costs little.
class TimeFormatter {
public:
    // With all seven digits of the fraction, or, `bShort`, with three where the others are 0.
    void Append(std::string& text, long long time, bool bShort);

private:
    long long m_Second = 0;
    std::string m_Text; // of m_Second, up to the seconds; empty at first
};

struct Column {
    enum Kind { Text, Number };

    std::string m_Name;
    Kind m_Kind;
};

class TableWriter {
public:
    TableWriter(OutputFormat format, std::vector<Column> columns);

    // The cells of a row, left to right; a row has one for each column.
    void AddText(std::string_view text);
    void AddTime(long long time);
    void AddInteger(long long number);
    void AddUnsigned(unsigned long long number);
    // `bSingle`: as short as the number reads back the same in single precision.
    void AddReal(double number, bool bSingle = false);
    void AddNothing();
    void EndRow();

    // Writes the rows so far; first ones of a table for people wait for its widths.
    void Flush() { WriteOut(); }
    // Writes what is buffered. Call once, after the last row.
    void Finish();

    unsigned long long GetRows() const { return m_Rows; }

private:
    void BeginCell();
    void EndHumanCell();
    void WriteFirstRows();
    void WriteHumanRow(const char* cells, const unsigned int* lengths, bool bHeader);
    void WriteOut();

    const OutputFormat m_Format;
    const bool m_bColour;
    std::vector<Column> m_Columns;
    std::vector<std::string> m_Keys; // what precedes each cell in JSON
    std::string m_Out;
    std::size_t m_Column = 0; // of the next cell
    unsigned long long m_Rows = 0;
    TimeFormatter m_TimeFormatter;

    // A table for people: cells back to back, and their lengths. Kept until the widths are known, then reused
    // row by row.
    bool m_bWidthsKnown = false;
    std::string m_Cells;
    std::size_t m_CellStart = 0;
    std::vector<unsigned int> m_CellLengths;
    std::vector<unsigned int> m_Widths;
};

// Writes results that are one text each: to people the text alone, a line each; else as rows of a table.
class LineWriter {
public:
    LineWriter(OutputFormat format, std::vector<Column> columns)
        : m_bHuman(format == OutputFormat::Human), m_Table(format, std::move(columns)) {}

    // A result that is a text and nothing else: a line, or the row of a table with one column.
    void Add(std::string_view text);

    bool IsForPeople() const { return m_bHuman; }
    // For people.
    void AddLine(std::string_view text);
    // For programs.
    TableWriter& GetTable() { return m_Table; }
    // Writes the results so far.
    void Flush();
    // Call once, after the last result.
    void Finish();

private:
    const bool m_bHuman;
    TableWriter m_Table;
    std::string m_Lines;
};

// Writes finished text to the standard output; throws a ToolError when that fails.
void WriteStandardOutput(std::string_view text);

// A line on the error stream that tells how far long work is: rewritten in place, a few times a second, and
// only where a terminal watches.
class Progress {
public:
    // `total` units of work, 0 when unknown; `unit` names them ("records").
    Progress(const char* verb, const char* unit, unsigned long long total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Cheap enough to call every few thousand units.
    void Update(unsigned long long done);
    // `part` of `whole` tells how far the work is where that is not known in units.
    void Update(unsigned long long done, unsigned long long part, unsigned long long whole);
    void Clear();

private:
    const char* const m_pVerb;
    const char* const m_pUnit;
    const unsigned long long m_Total;
    const bool m_bTerminal;
    bool m_bShown = false;
    const long long m_Start; // monotonic milliseconds
    long long m_NextUpdate;
};
// Writes `text` over the line that the cursor of the error stream's terminal is on, cut to its width.
void RewriteTerminalLine(std::string_view text);
