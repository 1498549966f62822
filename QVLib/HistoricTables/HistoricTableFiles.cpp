// Which file holds which time: names, spans and the map.
#include "HistoricFileName.h"
#include "SplitJournal.h"
#include <QVLib/HistoricTables/HistoricTable.h>
#include <QVPlatform/FindFiles.h>
#include <QVPlatform/Format.h>
#include <algorithm>
#include <cerrno>
#include <climits>

namespace {

constexpr unsigned int kHalfLength = 12; // yyyymmddhhmm
constexpr unsigned int kSeparatorAt = kHalfLength;
constexpr unsigned int kDotAt = 2 * kHalfLength + 1;

// Of the list of a folder that changes all the time.
constexpr unsigned int kMaxListRetries = 20;

// 0001-01-01 00:00 and 9999-12-31 23:59.
constexpr long long kFirstNameableTime = -504'911'232'000'000'000;
constexpr long long kLastNameableTime = 2'650'467'743'400'000'000;

// A number of decimal digits. A character that is no digit gives a value that the calendar check refuses, or
// one that it takes; either way nothing overflows.
unsigned int ReadDigits(const char* text, unsigned int count) {
    unsigned int value = 0;
    for (unsigned int i = 0; i < count; ++i)
        value = value * 10 + (static_cast<unsigned int>(text[i]) - '0');
    return value;
}

bool ReadMinute(const char* text, CQVTimestamp& time) {
    return time.SetDateAndHHMM(ReadDigits(text, 4), ReadDigits(text + 4, 2), ReadDigits(text + 6, 2),
                               ReadDigits(text + 8, 2), ReadDigits(text + 10, 2));
}

CQVTimestamp::TimestampStruct FieldsOf(long long time) {
    CQVTimestamp::TimestampStruct fields;
    CQVTimestamp(time).GetTimestampStruct(fields);
    return fields;
}

// Sizes by name.
using FileSizes = std::map<qvstring, long long>;

// The folder's candidates. `error` is the errno of a list that is not complete, else 0; a folder
// that is missing holds nothing.
FileSizes ListFiles(const CQVFilePath& directory, int& error) {
    FileSizes sizes;
    CQVFilePath pattern = directory;
    pattern.AppendFileName(kHistoricFilePattern);
    CQVFindFiles find;
    for (bool more = find.FirstFile(pattern.GetPath()); more; more = find.NextFile()) {
        qvstring name;
        find.GetName(name);
        sizes[name] = find.GetSize64();
    }
    error = find.GetLastError();
    if (error == ENOENT || error == ENOTDIR)
        error = 0;
    return sizes;
}

// While the file of an unfinished split exists, its halves are copies.
void HideCopies(const CQVSplitJournal::Split& split, FileSizes& sizes) {
    char name[CHistoricTable::FileNameBufferSize];
    split.GetOldFile().GetFileName(name);
    if (!sizes.contains(name))
        return;
    split.GetFirstHalf().GetFileName(name);
    sizes.erase(name);
    split.GetSecondHalf().GetFileName(name);
    sizes.erase(name);
}

// The files that count, with regard to an unfinished split, which another process may begin or end meanwhile: its
// journal is asked for on both sides.
FileSizes ListTableFiles(QVFileSystemInterface* fileSystem, const CQVFilePath& directory, int& error) {
    CQVSplitJournal journal(fileSystem, directory);
    CQVSplitJournal::Split split;
    const CQVSplitJournal::State before = journal.Read(split);
    FileSizes sizes = ListFiles(directory, error);
    if (before == CQVSplitJournal::State::Complete)
        HideCopies(split, sizes);
    const CQVSplitJournal::State after = journal.Read(split);
    if (after == CQVSplitJournal::State::Complete)
        HideCopies(split, sizes);
    if (before == CQVSplitJournal::State::Unreadable || after == CQVSplitJournal::State::Unreadable)
        error = journal.GetLastError();
    return sizes;
}

bool HaveSameNames(const FileSizes& a, const FileSizes& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const auto& left, const auto& right) { return left.first == right.first; });
}

// a + b, or the nearest end of the range.
long long SaturatingSum(long long a, long long b) {
    long long sum;
    if (__builtin_add_overflow(a, b, &sum))
        return b < 0 ? LLONG_MIN : LLONG_MAX;
    return sum;
}

} // namespace

bool qv_parse_historic_file_name(const char* name, unsigned int length, CQVTimestamp& start,
                                 CQVTimestamp& end) {
    return length == CHistoricTable::FileNameLength && name[kSeparatorAt] == '_' && name[kDotAt] == '.' &&
           ReadMinute(name, start) && ReadMinute(name + kSeparatorAt + 1, end);
}

bool qv_historic_span_has_name(long long start, long long end) {
    const auto nameable = [](long long time) {
        return time >= kFirstNameableTime && time <= kLastNameableTime;
    };
    return nameable(start) && nameable(end);
}

long long qv_floor_to_file_period(long long timestamp) {
    return timestamp / CHistoricTable::FilePeriod * CHistoricTable::FilePeriod;
}

int CHistoricTable::HistoricFile::GetFileName(char* buffer) const {
    const CQVTimestamp::TimestampStruct start = FieldsOf(m_Start);
    const CQVTimestamp::TimestampStruct end = FieldsOf(GetEnd());
    return static_cast<int>(
        qv_sprintf(buffer, FileNameBufferSize, "%04u%02u%02u%02u%02u_%04u%02u%02u%02u%02u.qvhis",
                   static_cast<unsigned int>(start.year), start.month, start.day, start.hour, start.minute,
                   static_cast<unsigned int>(end.year), end.month, end.day, end.hour, end.minute));
}

Utf16String* CHistoricTable::HistoricFile::GetFileName() const {
    char name[FileNameBufferSize];
    const int length = GetFileName(name);
    return Utf16StringCopy(name, static_cast<unsigned int>(length));
}

void CHistoricTable::HistoricFile::GetFilePath(const CQVFilePath& directory, CQVFilePath& path) const {
    char name[FileNameBufferSize];
    const int length = GetFileName(name);
    path = directory;
    path.AppendFileName(qvstring(name, static_cast<size_t>(length)));
}

bool CHistoricTable::HistoricFile::OverlapsSearchRange(long long from, long long to) const {
    return to >= m_Start && GetEnd() >= from;
}

// Returns 0, or the errno of what kept the map from being complete. `bOthersChange` says that another process may
// be changing the folder meanwhile.
int CHistoricTable::BuildFileMap(bool bOthersChange) {
    int error = 0;
    FileSizes sizes = ListTableFiles(m_pFileSystem, m_Path, error);
    // A split that came to its end while the folder was listed may have shown both the file and its halves. Then
    // the next list shows other names.
    for (unsigned int retry = 0; bOthersChange && retry < kMaxListRetries; ++retry) {
        FileSizes next = ListTableFiles(m_pFileSystem, m_Path, error);
        const bool bSameNames = HaveSameNames(sizes, next);
        sizes = std::move(next);
        if (bSameNames)
            break;
    }

    // In order of their names, so that one folder always gives the same map whatever order the system lists
    // it in.
    for (const auto& [name, size] : sizes) {
        CQVTimestamp start;
        CQVTimestamp end;
        if (!qv_parse_historic_file_name(name.data(), static_cast<unsigned int>(name.size()), start, end))
            continue;
        AddNewFile(start.GetValue(), end.GetValue())->second.m_NumRecords =
            static_cast<unsigned int>(std::min<long long>(size / m_RecordSize, UINT_MAX));
    }
    return error;
}

CHistoricTable::FileMap::iterator CHistoricTable::AddNewFile(long long start, long long end) {
    const auto file = m_Files.try_emplace(end).first;
    // A name made by hand can span more than 64 bits hold; the difference then wraps, and GetEnd() wraps it
    // back.
    const long long duration =
        static_cast<long long>(static_cast<unsigned long long>(end) - static_cast<unsigned long long>(start));
    file->second = HistoricFile{start, duration, 0, 0, 0};
    return file;
}

// As AddNewFile(), but an entry that holds records already takes the new one too instead of being reset:
// times before the epoch are rounded up, so a span chosen for one can end where such an entry does.
CHistoricTable::FileMap::iterator CHistoricTable::AddNewTargetFile(long long start, long long end) {
    if (!qv_historic_span_has_name(start, end))
        return m_Files.end();
    const auto existing = m_Files.find(end);
    if (existing != m_Files.end() && existing->second.m_NumRecords != 0)
        return existing;
    if (existing == m_Files.end() && HasFileOfSameName(start, end))
        return m_Files.end();
    return AddNewFile(start, end);
}

CHistoricTable::HistoricFile* CHistoricTable::FindTargetFileForRecord(long long timestamp) {
    const auto file = FindTargetFile(timestamp);
    return file == m_Files.end() ? nullptr : &file->second;
}

CHistoricTable::FileMap::iterator CHistoricTable::FindTargetFile(long long timestamp) {
    const long long floor = qv_floor_to_file_period(timestamp);
    // A new table gets a first file of two periods: its first records may be followed by somewhat older ones.
    if (m_Files.empty())
        return AddNewTargetFile(floor, SaturatingSum(floor, 2 * FilePeriod));

    const auto next = m_Files.upper_bound(timestamp);
    if (next == m_Files.end()) {
        const long long start = std::max(m_Files.rbegin()->first, floor);
        return AddNewTargetFile(start, SaturatingSum(start, FilePeriod));
    }
    if (timestamp >= next->second.m_Start) {
        // A name with characters that are no digits may have stood for years that no name can be written for.
        return qv_historic_span_has_name(next->second.m_Start, next->first) ? next : m_Files.end();
    }
    return AddNewTargetFile(floor, next->second.m_Start);
}

// True when a file of the map, though its span is another, has the name of this one: names tell full minutes
// only.
bool CHistoricTable::HasFileOfSameName(long long start, long long end) const {
    const auto minuteOf = [](long long time) {
        CQVTimestamp minute(time);
        minute.RoundDown(CQVTimeInterval(CQVTimeInterval::UnitsPerMinute));
        return minute.GetValue();
    };
    const long long minute = minuteOf(end);
    for (auto file = m_Files.lower_bound(minute); file != m_Files.end() && minuteOf(file->first) == minute;
         ++file) {
        if (minuteOf(file->second.m_Start) == minuteOf(start))
            return true;
    }
    return false;
}
