// qv history import: records from a CSV file or the standard input.
//
// A file is read twice: first only checked, so that a bad line far down leaves the table as it was. What can
// be read only once (the standard input, a pipe) is imported up to its first bad line, and the error says how
// far that was. With --keep-going bad lines are reported, counted and left out.

#include "CsvReader.h"
#include "Help.h"
#include "History.h"
#include "HistoryFolder.h"
#include "Output.h"
#include "TimeText.h"

#include <CLI/CLI.hpp>
#include <QVPlatform/Process.h>
#include <QVPlatform/Timestamp.h>
#include <algorithm>
#include <array>
#include <chrono>
#include <memory>

namespace {

constexpr unsigned int MaxReportedLines = 20;
constexpr unsigned int LinesPerProgress = 4096;
constexpr unsigned int BytesPerFlush = 16u << 20;
// Names that a header or a line must have where the layout has the field.
constexpr std::array RequiredColumns = {"time", "tag", "value"};

struct ImportOptions {
    FolderOptions m_Folder;
    std::string m_File;
    bool m_bKeepGoing = false;
};

// The times that a table's file names can hold: the years 1 to 9999.
struct TimeLimits {
    TimeLimits() {
        CQVTimestamp time;
        time.SetDateAndHHMM(1, 1, 1, 0, 0);
        m_First = time.GetValue();
        time.SetDateAndHHMM(10000, 1, 1, 0, 0);
        m_End = time.GetValue();
    }
    long long m_First;
    long long m_End;
};

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
    const auto lower = [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character | 0x20) : character;
    };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [&](char x, char y) { return lower(x) == lower(y); });
}

bool IsNumber(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

class Importer {
    using Clock = std::chrono::steady_clock;

public:
    Importer(const ImportOptions& options, OutputFormat format)
        : m_Format(format), m_bKeepGoing(options.m_bKeepGoing), m_Reader(options.m_File),
          m_Folder(options.m_Folder, HistoryFolder::Create), m_Record(m_Folder.GetLayout().GetRecordSize()) {}

    ExitCode Run() {
        qv_catch_stop_signals();
        if (CanRewind()) {
            ReadLines(false);
            if (m_bInterrupted)
                return Finish();
            if (m_BadLines != 0 && !m_bKeepGoing)
                throw ToolError(ExitInputOutput,
                                CountText(m_BadLines, "bad line") +
                                    "; nothing was imported. Correct the file, or leave such "
                                    "lines out with --keep-going");
            m_Reader.Rewind();
            m_BadLines = 0;
        }
        ReadLines(true);
        return Finish();
    }

private:
    bool CanRewind() const { return m_Reader.GetSize() != 0; }

    ExitCode Finish() {
        Flush();
        PrintResult();
        return GetExitCode();
    }

    // Goes through the lines, checking them or also storing their records.
    void ReadLines(bool bStore) {
        Progress progress(bStore ? "Importing:" : "Checking:", "lines", 0);
        m_Columns.clear();
        std::string problem;
        unsigned long long lines = 0;
        while (m_Reader.NextLine(m_Fields, problem)) {
            if (m_Columns.empty() && problem.empty() && TakeHeader())
                continue;
            if (problem.empty())
                problem = ParseRecord(bStore);
            if (!problem.empty())
                Report(problem, bStore, progress);
            else if (bStore)
                Store();
            if (!problem.empty() && bStore && !m_bKeepGoing) {
                m_bStopped = true;
                return;
            }
            if (++lines % LinesPerProgress == 0)
                progress.Update(lines, m_Reader.GetBytesRead(), m_Reader.GetSize());
            m_bInterrupted = qv_stop_requested();
            if (m_bInterrupted)
                return;
        }
    }

    // The first line names the columns when it starts with "time"; otherwise the columns stand in the
    // layout's order and the line is a record.
    bool TakeHeader() {
        const SampleLayout& layout = m_Folder.GetLayout();
        if (m_Fields.empty() || !EqualsIgnoringCase(m_Fields.front(), "time")) {
            for (const SampleField& field : layout.GetFields())
                m_Columns.push_back(&field);
            m_RequiredFields = static_cast<std::size_t>(
                std::count_if(RequiredColumns.begin(), RequiredColumns.end(),
                              [&](const char* name) { return layout.Find(name) != nullptr; }));
            return false;
        }
        for (const std::string_view name : m_Fields) {
            const auto& fields = layout.GetFields();
            const auto field = std::find_if(fields.begin(), fields.end(), [&](const SampleField& candidate) {
                return EqualsIgnoringCase(candidate.m_Name, name);
            });
            if (field == fields.end())
                RefuseHeader("the layout has no field " + Quoted(name));
            if (std::find(m_Columns.begin(), m_Columns.end(), &*field) != m_Columns.end())
                RefuseHeader("the column " + Quoted(name) + " is named twice");
            m_Columns.push_back(&*field);
        }
        for (const char* const name : RequiredColumns) {
            const SampleField* const field = layout.Find(name);
            if (field != nullptr && std::find(m_Columns.begin(), m_Columns.end(), field) == m_Columns.end())
                RefuseHeader(std::string("there is no column '") + name + "'");
        }
        m_RequiredFields = m_Columns.size();
        return true;
    }

    [[noreturn]] void RefuseHeader(const std::string& problem) const {
        throw ToolError(ExitInputOutput, m_Reader.GetLocation() + problem + "; nothing was imported");
    }

    // Fills the record from the fields. Answers what is wrong with them, or nothing.
    std::string ParseRecord(bool bStore) {
        if (m_Fields.size() < m_RequiredFields || m_Fields.size() > m_Columns.size())
            return "there are " + std::to_string(m_Fields.size()) + " fields where " +
                   (m_RequiredFields == m_Columns.size() ? "" : std::to_string(m_RequiredFields) + " to ") +
                   std::to_string(m_Columns.size()) + " belong";
        std::fill(m_Record.begin(), m_Record.end(), static_cast<unsigned char>(0));
        for (std::size_t index = 0; index < m_Fields.size(); ++index) {
            std::string problem = ParseField(*m_Columns[index], m_Fields[index], bStore);
            if (!problem.empty())
                return problem;
        }
        return {};
    }

    std::string ParseField(const SampleField& field, std::string_view text, bool bStore) {
        if (field.m_Name == "time")
            return ParseTime(field, text);
        if (field.m_Name == "tag" && !IsNumber(text))
            return ParseTagName(field, text, bStore);
        if (!field.SetText(text, m_Record.data()))
            return "the " + field.m_Name + " " + Quoted(text) + " is no number that the field can hold";
        if (field.m_Name == "tag")
            m_Folder.GetTags().Reserve(field.GetUnsigned(m_Record.data()));
        return {};
    }

    std::string ParseTime(const SampleField& field, std::string_view text) {
        static const TimeLimits limits;
        if (!ParseTimestamp(text, m_Time))
            return "the time " + Quoted(text) + " is neither ISO 8601 (2021-03-04T05:06:07Z) nor raw ticks";
        if (m_Time < limits.m_First || m_Time >= limits.m_End)
            return "the time " + Quoted(text) + " is not in the years 1 to 9999";
        field.SetText(std::to_string(m_Time), m_Record.data());
        return {};
    }

    std::string ParseTagName(const SampleField& field, std::string_view name, bool bStore) {
        std::string problem = TagFile::CheckName(name);
        if (!problem.empty() || !bStore)
            return problem;
        const bool bNew = m_Folder.GetTags().FindName(name) == nullptr;
        if (!field.SetUnsigned(m_Folder.GetOrAddTag(name, ""), m_Record.data()))
            return "the layout's tag field has no room for the number of " + Quoted(name);
        m_NewTags += bNew ? 1 : 0;
        return {};
    }

    void Report(const std::string& problem, bool bStore, Progress& progress) {
        ++m_BadLines;
        // Lines that are left out are reported when they are, not when the file is checked.
        const bool bQuiet = m_bKeepGoing && !bStore;
        if (bQuiet || m_BadLines > MaxReportedLines + 1)
            return;
        progress.Clear();
        SayError(m_Reader.GetLocation() +
                 (m_BadLines > MaxReportedLines ? "further bad lines are only counted" : problem));
    }

    void Store() {
        m_Folder.GetTable().WriteNewRecord(m_Time, m_Record.data());
        if (++m_Queued >= std::max(1u, BytesPerFlush / m_Folder.GetLayout().GetRecordSize()) || IsFlushDue())
            Flush();
    }

    // What a slow producer pipes in should not wait long for its flush.
    bool IsFlushDue() const { return !CanRewind() && Clock::now() - m_LastFlush >= std::chrono::seconds(1); }

    // Names reach tags.txt before any record that uses their numbers reaches a file.
    void Flush() {
        m_Folder.GetTags().Save();
        m_Imported += m_Folder.GetTable().FlushRecords(&m_Log);
        m_Queued = 0;
        m_LastFlush = Clock::now();
        const std::string errors = m_Folder.GetErrorSummary();
        if (!errors.empty())
            throw ToolError(ExitInputOutput, m_Reader.GetLocation() +
                                                 "the records up to here could not all be "
                                                 "written: " +
                                                 errors + "; " + CountText(m_Imported, "record") +
                                                 " were imported");
    }

    void PrintResult() {
        TableWriter writer(m_Format, {{"records", Column::Number},
                                      {"skipped", Column::Number},
                                      {"new_tags", Column::Number},
                                      {"files", Column::Number}});
        writer.AddUnsigned(m_Imported);
        writer.AddUnsigned(m_BadLines);
        writer.AddUnsigned(m_NewTags);
        writer.AddUnsigned(m_Folder.GetFileCount());
        writer.EndRow();
        writer.Finish();
    }

    ExitCode GetExitCode() const {
        if (m_bInterrupted || m_bStopped) {
            SayError(m_Reader.GetLocation() + (m_bInterrupted ? "interrupted" : "stopped at a bad line") +
                     "; " + CountText(m_Imported, "record") + " before it imported, nothing behind it");
            return ExitInputOutput;
        }
        return m_BadLines != 0 ? ExitFindings : ExitDone;
    }

    const OutputFormat m_Format;
    const bool m_bKeepGoing;
    CsvReader m_Reader;
    HistoryFolder m_Folder;
    MessageLog m_Log;
    std::vector<const SampleField*> m_Columns; // in the order of the file; empty before the first line
    std::size_t m_RequiredFields = 0;          // a line's first columns that must be there
    std::vector<std::string_view> m_Fields;
    std::vector<unsigned char> m_Record;
    long long m_Time = 0; // of the record
    bool m_bStopped = false;
    bool m_bInterrupted = false;
    unsigned long long m_BadLines = 0;
    unsigned long long m_Queued = 0;
    unsigned long long m_Imported = 0;
    unsigned long long m_NewTags = 0;
    Clock::time_point m_LastFlush = Clock::now();
};

} // namespace

void AddHistoryImportCommand(CLI::App& history, ToolContext& context) {
    CLI::App* const command =
        history.add_subcommand("import", "Import records from a CSV file: time, tag, value[, quality]");
    const auto options = std::make_shared<ImportOptions>();
    options->m_Folder.AddTo(*command);
    command->add_option("FILE", options->m_File, "CSV file, or - for the standard input")->required();
    command->add_flag("--keep-going", options->m_bKeepGoing, "leave bad lines out instead of stopping");
    SetExample(*command, "qv history import plant readings.csv");
    command->callback(
        [options, &context] { context.m_ExitCode = Importer(*options, context.m_Format).Run(); });
}
