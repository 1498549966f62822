// qv history files, validate, housekeep and delete: a table's files as such.

#include "Help.h"
#include "History.h"
#include "HistoryFolder.h"
#include "Output.h"
#include "TimeText.h"

#include <CLI/CLI.hpp>
#include <QVPlatform/FindFiles.h>
#include <QVPlatform/Process.h>
#include <QVPlatform/Timestamp.h>
#include <memory>

namespace {

ExitCode ListFiles(const FolderOptions& options, OutputFormat format) {
    const HistoryFolder folder(options, HistoryFolder::Inspect);
    std::vector<CHistoricTable::HistoricFile> files;
    folder.GetTable().GetFiles(files);
    TableWriter writer(format, {{"file", Column::Text},
                                {"from", Column::Text},
                                {"to", Column::Text},
                                {"records", Column::Number},
                                {"bytes", Column::Number}});
    unsigned long long records = 0;
    for (const CHistoricTable::HistoricFile& file : files) {
        char name[CHistoricTable::FileNameBufferSize];
        const int length = file.GetFileName(name);
        writer.AddText({name, static_cast<std::size_t>(length)});
        writer.AddTime(file.m_Start);
        writer.AddTime(file.GetEnd());
        writer.AddUnsigned(file.m_NumRecords);
        writer.AddUnsigned(1ULL * file.m_NumRecords * folder.GetLayout().GetRecordSize());
        writer.EndRow();
        records += file.m_NumRecords;
    }
    writer.Finish();
    if (format == OutputFormat::Human)
        WriteStandardOutput(CountText(files.size(), "file") + ", " + CountText(records, "record") + ", " +
                            CountText(records * folder.GetLayout().GetRecordSize(), "byte") + "\n");
    return ExitDone;
}

void PrintMessages(const COutputLogToRawList& log, OutputFormat format) {
    if (format == OutputFormat::Human) {
        for (const COutputLogToRawList::LogEntry& entry : log.GetLogEntries())
            WriteStandardOutput(entry.text + "\n");
        return;
    }
    TableWriter writer(format, {{"kind", Column::Text}, {"message", Column::Text}});
    for (const COutputLogToRawList::LogEntry& entry : log.GetLogEntries()) {
        writer.AddText(entry.type == COutputLog::Error ? "error" : "information");
        writer.AddText(entry.text);
        writer.EndRow();
    }
    writer.Finish();
}

// A process that records at the same time makes sizes differ from what was seen a moment ago. Such a
// difference is gone the next time, a fault is not.
ExitCode Validate(const FolderOptions& options, OutputFormat format) {
    constexpr int MaxAttempts = 3;
    bool bValid = false;
    for (int attempt = 1; !bValid && attempt <= MaxAttempts; ++attempt) {
        const HistoryFolder folder(options, HistoryFolder::Inspect);
        COutputLogToRawList log;
        bValid = folder.GetTable().ValidateFiles(log);
        if (bValid || attempt == MaxAttempts)
            PrintMessages(log, format);
        if (bValid && format == OutputFormat::Human)
            WriteStandardOutput("No faults in " + CountText(folder.GetFileCount(), "file") + ", " +
                                CountText(folder.GetRecordCount(), "record") + "\n");
    }
    if (bValid)
        return ExitDone;
    SayError("the table has the faults listed; records before a torn end and in other files are intact");
    return ExitFindings;
}

struct HousekeepOptions {
    FolderOptions m_Folder;
    unsigned int m_Keep = 0;
    std::string m_MaxFile;
};

// The files that a trim should have erased: the oldest, as long as the others hold more than `keep` without
// them.
std::size_t CountExpiredFiles(const HistoryFolder& folder, unsigned int keep) {
    std::vector<CHistoricTable::HistoricFile> files;
    folder.GetTable().GetFiles(files);
    unsigned long long sum = 0;
    std::size_t left = files.size();
    while (left != 0 && sum <= keep)
        sum += files[--left].m_NumRecords;
    return left;
}

ExitCode HouseKeep(const HousekeepOptions& options, OutputFormat format) {
    HistoryFolder folder(options.m_Folder, HistoryFolder::Change);
    const unsigned int maxFile = folder.ParseFileBudget(options.m_MaxFile);
    const unsigned long long recordsBefore = folder.GetRecordCount();
    CHistoricTable& table = folder.GetTable();
    MessageLog log;
    int erased = table.TrimFilesToGetTargetNumberOfRecords(&log, options.m_Keep);
    unsigned int splits = 0;
    while (table.SplitLargestFile(&log, maxFile / table.GetRecordSize()))
        ++splits;
    // Of a file that was too large to go as a whole, parts may.
    erased += table.TrimFilesToGetTargetNumberOfRecords(&log, options.m_Keep);

    TableWriter writer(format, {{"files", Column::Number},
                                {"records", Column::Number},
                                {"erased_files", Column::Number},
                                {"erased_records", Column::Number},
                                {"splits", Column::Number}});
    writer.AddUnsigned(folder.GetFileCount());
    writer.AddUnsigned(folder.GetRecordCount());
    writer.AddInteger(erased);
    writer.AddUnsigned(recordsBefore - folder.GetRecordCount());
    writer.AddUnsigned(splits);
    writer.EndRow();
    writer.Finish();

    const std::string errors = folder.GetErrorSummary();
    if (!errors.empty() || CountExpiredFiles(folder, options.m_Keep) != 0)
        throw ToolError(ExitInputOutput, "not everything could be done" +
                                             (errors.empty() ? "" : ": " + errors) +
                                             "; the messages above name the files");
    return ExitDone;
}

struct DeleteOptions {
    FolderOptions m_Folder;
    bool m_bYes = false;
};

ExitCode Delete(const DeleteOptions& options, OutputFormat format) {
    if (!options.m_bYes)
        throw ToolError(ExitUsage, "delete erases every record in " + Quoted(options.m_Folder.m_Folder) +
                                       "; say --yes if that is what you want");
    HistoryFolder folder(options.m_Folder, HistoryFolder::Erase);
    std::vector<CHistoricTable::HistoricFile> files;
    folder.GetTable().GetFiles(files);
    const unsigned long long records = folder.GetRecordCount();
    folder.GetTable().DeleteAll();

    // The table keeps silent about files that it could not erase.
    unsigned long long left = 0;
    for (const CHistoricTable::HistoricFile& file : files) {
        CQVFilePath path;
        file.GetFilePath(CQVFilePath(folder.GetPath()), path);
        left += path.FileExists() ? 1 : 0;
    }
    TableWriter writer(format, {{"erased_files", Column::Number}, {"erased_records", Column::Number}});
    writer.AddUnsigned(files.size() - left);
    writer.AddUnsigned(records);
    writer.EndRow();
    writer.Finish();
    if (left != 0)
        throw ToolError(ExitInputOutput, CountText(left, "file") + " of " + WithSeparators(files.size()) +
                                             " could not be erased; check who may write to the folder");
    return ExitDone;
}

} // namespace

void AddHistoryFilesCommands(CLI::App& history, ToolContext& context) {
    CLI::App* const files = history.add_subcommand("files", "List the table's files, oldest first");
    const auto filesOptions = std::make_shared<FolderOptions>();
    filesOptions->AddTo(*files);
    SetExample(*files, "qv history files plant");
    files->callback(
        [filesOptions, &context] { context.m_ExitCode = ListFiles(*filesOptions, context.m_Format); });

    CLI::App* const validate =
        history.add_subcommand("validate", "Check files and records; exit 1 on a fault");
    const auto validateOptions = std::make_shared<FolderOptions>();
    validateOptions->AddTo(*validate);
    SetExample(*validate, "qv history validate plant");
    validate->callback(
        [validateOptions, &context] { context.m_ExitCode = Validate(*validateOptions, context.m_Format); });

    CLI::App* const housekeep =
        history.add_subcommand("housekeep", "Erase the oldest files and split large ones");
    const auto housekeepOptions = std::make_shared<HousekeepOptions>();
    housekeepOptions->m_Folder.AddTo(*housekeep);
    housekeep->add_option("--keep", housekeepOptions->m_Keep, "records to keep at least")
        ->check(CLI::NonNegativeNumber)
        ->required();
    housekeep
        ->add_option("--max-file", housekeepOptions->m_MaxFile,
                     "bytes from whose 4/3 on a file is split, such as 64M")
        ->required();
    SetExample(*housekeep, "qv history housekeep plant --keep 10000000 --max-file 64M");
    housekeep->callback([housekeepOptions, &context] {
        context.m_ExitCode = HouseKeep(*housekeepOptions, context.m_Format);
    });

    CLI::App* const erase =
        history.add_subcommand("delete", "Erase all records of the table; tags.txt stays");
    const auto deleteOptions = std::make_shared<DeleteOptions>();
    deleteOptions->m_Folder.AddTo(*erase);
    erase->add_flag("--yes", deleteOptions->m_bYes, "do it, without which nothing is erased");
    SetExample(*erase, "qv history delete plant --yes");
    erase->callback(
        [deleteOptions, &context] { context.m_ExitCode = Delete(*deleteOptions, context.m_Format); });
}
