#include "HistoryFolder.h"

#include "TimeText.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <limits>

namespace {

constexpr const char* LockFileName = ".qv-lock";

std::string WithoutTrailingSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

void RequireNoProblems(const std::vector<std::string>& problems) {
    if (problems.empty())
        return;
    for (std::size_t index = 0; index + 1 < problems.size(); ++index)
        SayError(problems[index]);
    throw ToolError(ExitInputOutput, problems.back() + "; correct the file first");
}

// What the first records of a file tell about the layout.
struct FileProbe {
    unsigned int m_Records = 0; // looked at
    unsigned int m_InSpan = 0;  // of those behind the first, which any layout reads right
    bool m_bOddSize = false;
};

FileProbe ProbeFile(const CHistoricTable::HistoricFile& historicFile, const std::string& folder,
                    unsigned int recordSize) {
    constexpr unsigned int MaxRecords = 16;
    FileProbe probe;
    CQVFilePath path;
    historicFile.GetFilePath(CQVFilePath(folder), path);
    QVFileUnix file;
    if (!file.OpenFileForRead(path, false))
        return probe;
    probe.m_bOddSize = file.GetFileSize() % recordSize != 0;
    std::vector<unsigned char> record(recordSize);
    unsigned int got = 0;
    while (probe.m_Records < MaxRecords && file.ReadBytes(record.data(), recordSize, got) &&
           got == recordSize) {
        const long long time = SampleLayout::GetTime(record.data());
        if (probe.m_Records != 0 && time >= historicFile.m_Start && time < historicFile.GetEnd())
            ++probe.m_InSpan;
        ++probe.m_Records;
    }
    return probe;
}

} // namespace

void FolderOptions::AddTo(CLI::App& command) {
    command.add_option("DIR", m_Folder, "folder of the table")->required();
    command.add_option("--layout", m_Layout, "fields of a record, name:type,... (default: " + m_Layout + ")");
}

void RangeOptions::AddTo(CLI::App& command) {
    CLI::Option* const from = command.add_option(
        "--from", m_From, "first time, such as 2021-03-04T05:06:07Z, raw ticks, now or -10m");
    command.add_option("--to", m_To, "last time, inclusive");
    command
        .add_option("--last", m_Last, "only so long before the newest record, or before --to, such as 10m")
        ->excludes(from);
}

bool MessageLog::AppendMessage(LogType type, int, const char* text, unsigned int length) {
    const std::string_view line(text, length);
    if (type == Error)
        SayError(line);
    else if (type == Warning)
        SayWarning(line);
    else
        std::fprintf(stderr, "qv: %.*s\n", static_cast<int>(length), text);
    return true;
}

HistoryFolder::HistoryFolder(const FolderOptions& options, Access access)
    : m_Path(WithoutTrailingSlash(options.m_Folder)), m_Layout(options.m_Layout),
      m_Table(QVFileSystem::GetInstance(), m_Layout.GetRecordSize(), &m_Errors) {
    CheckFolder(access);
    std::vector<std::string> problems;
    if (access != Inspect && access != Read) {
        TakeLock();
        m_Tags.Load(m_Path, problems);
        if (access != Erase) {
            RequireNoProblems(problems);
            CheckFit();
        }
        m_Table.InitialiseFromPath(CQVFilePath(m_Path));
        return;
    }
    m_Tags.Load(m_Path, problems);
    for (const std::string& problem : problems)
        SayWarning(problem);
    if (access == Read)
        CheckFit();
    m_Table.InitialiseForReading(CQVFilePath(m_Path));
}

void HistoryFolder::CheckFolder(Access access) {
    CQVFilePath path(m_Path);
    if (access == Create && !path.MakeDirectory())
        throw ToolError(ExitInputOutput, "the folder " + Quoted(m_Path) +
                                             " cannot be made: " + ErrorText(path.GetLastError()));
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(m_Path, error);
    if (!std::filesystem::exists(status))
        throw ToolError(ExitInputOutput, "there is no folder " + Quoted(m_Path) +
                                             "; 'qv history record' and 'qv history import' make one");
    if (!std::filesystem::is_directory(status))
        throw ToolError(ExitInputOutput,
                        Quoted(m_Path) + " is no folder; give the folder that holds the table");
    // A folder that cannot be listed would look like an empty table.
    const std::filesystem::directory_iterator listing(m_Path, error);
    if (error)
        throw ToolError(ExitInputOutput,
                        "the folder " + Quoted(m_Path) + " cannot be read: " + ErrorText(error.value()));
}

void HistoryFolder::TakeLock() {
    if (m_Lock.TryLock(CQVFilePath(m_Path + "/" + LockFileName)))
        return;
    if (m_Lock.IsHeldElsewhere())
        throw ToolError(ExitInputOutput, "another process is recording into or changing " + Quoted(m_Path) +
                                             "; wait until it is done, or stop it");
    throw ToolError(ExitInputOutput, "the folder " + Quoted(m_Path) +
                                         " cannot be changed: " + ErrorText(m_Lock.GetLastError()));
}

// Appending with the wrong record size would take the end of each file for a torn record and cut it off, so
// files that speak against the layout stop the command. A single torn end, as a crash leaves it, does not.
void HistoryFolder::CheckFit() const {
    constexpr std::size_t ProbedFiles = 4; // at either end of the table
    HistoricTableErrorSummary errors;
    CHistoricTable probeTable(QVFileSystem::GetInstance(), m_Layout.GetRecordSize(), &errors);
    probeTable.InitialiseForReading(CQVFilePath(m_Path));
    std::vector<CHistoricTable::HistoricFile> files;
    probeTable.GetFiles(files);

    const CHistoricTable::HistoricFile* misfit = nullptr;
    std::size_t probed = 0;
    std::size_t oddSizes = 0;
    for (std::size_t index = 0; index < files.size() && misfit == nullptr; ++index) {
        if (index >= ProbedFiles && index + ProbedFiles < files.size())
            continue;
        const FileProbe probe = ProbeFile(files[index], m_Path, m_Layout.GetRecordSize());
        ++probed;
        oddSizes += probe.m_bOddSize ? 1 : 0;
        const bool bTimesWrong = probe.m_Records >= 2 && 2 * probe.m_InSpan <= probe.m_Records - 1;
        if (bTimesWrong || (oddSizes >= 2 && oddSizes == probed && index + 1 == files.size()))
            misfit = &files[index];
    }
    if (misfit == nullptr)
        return;
    char name[CHistoricTable::FileNameBufferSize];
    misfit->GetFileName(name);
    throw ToolError(ExitInputOutput, m_Path + "/" + name + " does not hold records of " +
                                         std::to_string(m_Layout.GetRecordSize()) +
                                         " bytes; give the table's own fields with --layout, or see what "
                                         "'qv history validate' says");
}

unsigned long long HistoryFolder::GetTagNumber(const std::string& tag) const {
    if (const TagFile::Tag* const found = m_Tags.FindName(tag); found != nullptr)
        return found->m_Number;
    unsigned long long number = 0;
    const auto result = std::from_chars(tag.data(), tag.data() + tag.size(), number);
    if (result.ec == std::errc() && result.ptr == tag.data() + tag.size())
        return number;
    throw ToolError(ExitUsage,
                    m_Path + " has no tag " + Quoted(tag) + "; its names are in " + m_Path + "/tags.txt");
}

unsigned long long HistoryFolder::GetOrAddTag(std::string_view name, std::string_view unit) {
    if (const TagFile::Tag* const found = m_Tags.FindName(name); found != nullptr)
        return found->m_Number;
    if (!m_bUsedTagNumbersKnown)
        ReserveUsedTagNumbers();
    return m_Tags.Add(name, unit).m_Number;
}

// Records may carry numbers that have no name: imported as such, or named in a tags.txt that is gone.
void HistoryFolder::ReserveUsedTagNumbers() {
    m_bUsedTagNumbersKnown = true;
    const SampleField* const tag = m_Layout.Find("tag");
    if (tag == nullptr)
        return;
    const TimeRange everything{std::numeric_limits<long long>::min(), std::numeric_limits<long long>::max()};
    ForEachRecord(everything, [&](const unsigned char* record, const auto&) {
        m_Tags.Reserve(tag->GetUnsigned(record));
        return true;
    });
}

void HistoryFolder::AppendTagName(unsigned long long number, std::string& text) const {
    if (const TagFile::Tag* const tag = m_Tags.FindNumber(number); tag != nullptr)
        text += tag->m_Name;
    else
        text += std::to_string(number);
}

long long HistoryFolder::GetNewestTime() const {
    std::vector<CHistoricTable::HistoricFile> files;
    m_Table.GetFiles(files);
    long long newest = 0;
    bool bFound = false;
    // The spans do not overlap, so the newest file that holds a record holds the newest one.
    for (auto file = files.rbegin(); file != files.rend() && !bFound; ++file) {
        ForEachRecord({file->m_Start, file->GetEnd()}, [&](const unsigned char* record, const auto&) {
            const long long time = SampleLayout::GetTime(record);
            newest = bFound ? std::max(newest, time) : time;
            bFound = true;
            return true;
        });
    }
    return newest;
}

unsigned int HistoryFolder::ParseFileBudget(std::string_view text) const {
    // The table counts four thirds of the budget's records in 32 bits.
    const unsigned long long recordSize = m_Layout.GetRecordSize();
    const unsigned long long max =
        std::min<unsigned long long>(std::numeric_limits<unsigned int>::max(), recordSize * (1u << 30) - 1);
    const unsigned long long bytes = ParseBytesOption("--max-file", text);
    if (bytes < recordSize || bytes > max)
        throw ToolError(ExitUsage, "--max-file: must be between " + std::to_string(recordSize) +
                                       " (a record) and " + std::to_string(max) + " bytes");
    return static_cast<unsigned int>(bytes);
}

TimeRange HistoryFolder::GetRange(const RangeOptions& options) const {
    constexpr long long First = std::numeric_limits<long long>::min();
    constexpr long long Last = std::numeric_limits<long long>::max();
    TimeRange range{First, Last};
    if (!options.m_From.empty())
        range.m_From = ParseTimeOption("--from", options.m_From);
    if (!options.m_To.empty())
        range.m_To = ParseTimeOption("--to", options.m_To);
    if (!options.m_Last.empty()) {
        const long long duration = ParseDurationOption("--last", options.m_Last);
        const long long end = options.m_To.empty() ? GetNewestTime() : range.m_To;
        range.m_From = end < First + duration ? First : end - duration;
    }
    if (range.m_From > range.m_To)
        throw ToolError(ExitUsage, "--from lies behind --to; exchange them");
    return range;
}

unsigned long long HistoryFolder::GetRecordCount() const {
    std::vector<CHistoricTable::HistoricFile> files;
    m_Table.GetFiles(files);
    unsigned long long count = 0;
    for (const CHistoricTable::HistoricFile& file : files)
        count += file.m_NumRecords;
    return count;
}

std::size_t HistoryFolder::GetFileCount() const {
    std::vector<CHistoricTable::HistoricFile> files;
    m_Table.GetFiles(files);
    return files.size();
}

std::string HistoryFolder::GetErrorSummary() const {
    CTextOutputString text;
    m_Errors.GetHistoricTableErrorSummary(text);
    const std::string& summary = text.GetString();
    return summary.starts_with(", ") ? summary.substr(2) : summary;
}
