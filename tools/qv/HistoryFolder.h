// HistoryFolder - a table's folder as the commands of `qv history` open it: the table, its record layout, its
// tag names, and the lock that keeps two processes from changing one folder.
//
// Errors: what makes the folder unusable throws a ToolError; what can be lived with is a warning.
#pragma once

#include "SampleLayout.h"
#include "TagFile.h"
#include "Tool.h"

#include <CLI/App.hpp>
#include <QVLib/HistoricTables/HistoricTable.h>
#include <QVPlatform/FileLock.h>
#include <functional>
#include <string>
#include <vector>

// What every command asks for: the folder, and the layout of its records.
struct FolderOptions {
    std::string m_Folder;
    std::string m_Layout = SampleLayout::Standard;

    void AddTo(CLI::App& command);
};

// The part of a table that a reading command looks at.
struct RangeOptions {
    std::string m_From;
    std::string m_To;
    std::string m_Last;

    void AddTo(CLI::App& command);
};

struct TimeRange {
    long long m_From;
    long long m_To; // inclusive
};

// The lines of a table's operations, on the error stream.
class MessageLog : public COutputLog {
public:
    void Clear() override {}
    bool AppendMessage(LogType type, int number, const char* text, unsigned int length) override;
};

class HistoryFolder {
public:
    enum Access {
        Inspect, // nothing is changed, and files that do not fit the layout are no hindrance
        Read,    // nothing is changed
        Change,  // the folder must exist, and is this process's alone
        Create,  // the same, but a missing folder is made
        Erase,   // as Change, but files that do not fit the layout are no hindrance
    };

    HistoryFolder(const FolderOptions& options, Access access);
    HistoryFolder(const HistoryFolder&) = delete;
    HistoryFolder& operator=(const HistoryFolder&) = delete;

    const std::string& GetPath() const { return m_Path; }
    const SampleLayout& GetLayout() const { return m_Layout; }
    CHistoricTable& GetTable() { return m_Table; }
    const CHistoricTable& GetTable() const { return m_Table; }
    HistoricTableErrorSummary& GetErrors() { return m_Errors; }
    TagFile& GetTags() { return m_Tags; }
    const TagFile& GetTags() const { return m_Tags; }

    // The number that the user means by a tag's name or number; a name that the table does not have throws.
    unsigned long long GetTagNumber(const std::string& tag) const;
    // The number for a name, given to it now when it is new. It is no number that records use already;
    // SaveTags() must follow before records with it are flushed.
    unsigned long long GetOrAddTag(std::string_view name, std::string_view unit);
    // Appends the name of a tag, or its number when it has none.
    void AppendTagName(unsigned long long number, std::string& text) const;

    // The size from which the table's files are split, as --max-file gives it.
    unsigned int ParseFileBudget(std::string_view text) const;
    TimeRange GetRange(const RangeOptions& options) const;
    // Calls `visit` with every record of a range, file by file, until it returns false.
    template<typename Visit>
    void ForEachRecord(const TimeRange& range, Visit visit) const {
        CHistoricTable::ReadContext context;
        for (bool bFound = m_Table.BeginRead(range.m_From, range.m_To, context);
             bFound && visit(context.m_pRecord, context); bFound = m_Table.NextRecord(context)) {
        }
        m_Table.EndRead(context);
    }
    // Records in the table's files.
    unsigned long long GetRecordCount() const;
    std::size_t GetFileCount() const;

    // What went wrong with files since the folder was opened, in one line; empty when nothing did.
    std::string GetErrorSummary() const;

private:
    void TakeLock();
    void CheckFolder(Access access);
    void CheckFit() const;
    long long GetNewestTime() const;
    void ReserveUsedTagNumbers();

    const std::string m_Path;
    const SampleLayout m_Layout;
    CQVFileLock m_Lock;
    TagFile m_Tags;
    bool m_bUsedTagNumbersKnown = false;
    HistoricTableErrorSummary m_Errors;
    CHistoricTable m_Table;
};
