// From the queue to the files.
#include "LockGuards.h"
#include "LossCounter.h"
#include <QVPlatform/Assert.h>
#include <algorithm>
#include <cerrno>
#include <climits>

namespace {

// Runs gathered before they are written. A run is part of one block, so this bounds one write to a few
// megabytes.
constexpr std::size_t kMaxRuns = 64;

} // namespace

// The files that one flush appends to, and the records on their way to the current one.
//
// Consecutive records for one file are gathered and handed to the file object together. They are written
// before the next record's file is looked up, so a failing write leaves the map as if every record had been
// written alone.
class CHistoricTable::AppendSession {
public:
    AppendSession(CHistoricTable& table, COutputLog* log, std::size_t& written)
        : m_Table(table), m_pLog(log), m_Written(written) {
        m_Runs.reserve(kMaxRuns);
    }

    bool Append(const HistoricRecordList::Block& block);
    // Writes what is pending.
    bool WritePending();
    // Closes every file; false when one could not keep what was written.
    bool Close();

private:
    struct OpenFile {
        CQVFilePath path;
        std::unique_ptr<QVFileInterface> object;
        long long size = 0;
    };

    bool SelectFile(long long timestamp);
    bool OpenForAppend(HistoricFile& file, OpenFile& open);
    bool AlignToRecords(HistoricFile& file, OpenFile& open);
    void Fail(const char* format, const OpenFile& open) __attribute__((format(printf, 2, 0)));

    CHistoricTable& m_Table;
    COutputLog* const m_pLog;
    std::size_t& m_Written;
    std::map<HistoricFile*, OpenFile> m_OpenFiles;

    // The file of the last record, and the times that the map gives to it.
    HistoricFile* m_pFile = nullptr;
    OpenFile* m_pOpen = nullptr;
    long long m_From = 0; // inclusive
    long long m_To = 0;   // exclusive

    std::vector<QVRecordRun> m_Runs;
};

bool CHistoricTable::AppendSession::Append(const HistoricRecordList::Block& block) {
    unsigned int first = 0;
    while (first < block.count) {
        const long long timestamp = block.timestamps[first];
        if (timestamp < m_From || timestamp >= m_To || !m_pFile) {
            if (!WritePending() || !SelectFile(timestamp))
                return false;
            if (!m_pFile) {
                ++first; // lost, alone
                continue;
            }
        }
        unsigned int last = first + 1;
        while (last < block.count && block.timestamps[last] >= m_From && block.timestamps[last] < m_To)
            ++last;
        m_Runs.push_back({block.data + static_cast<std::size_t>(first) * m_Table.m_RecordSize, last - first});
        if (m_Runs.size() == kMaxRuns && !WritePending())
            return false;
        first = last;
    }
    return true;
}

bool CHistoricTable::AppendSession::WritePending() {
    if (m_Runs.empty())
        return true;
    unsigned long long pending = 0;
    for (const QVRecordRun& run : m_Runs)
        pending += run.count;
    if (pending > UINT_MAX - m_pFile->m_NumRecords) {
        // The map counts a file's records in 32 bits.
        m_pOpen->object->SetLastError(EFBIG);
        Fail("Write file '%s' returns: %s", *m_pOpen);
        return false;
    }

    const unsigned long long whole = m_pOpen->object->WriteRecords(
        m_Runs.data(), static_cast<unsigned int>(m_Runs.size()), m_Table.m_RecordSize);
    m_Runs.clear();
    m_pOpen->size += static_cast<long long>(whole) * m_Table.m_RecordSize;
    m_pFile->m_NumRecords += static_cast<unsigned int>(whole);
    m_Written += whole;
    if (whole == pending)
        return true;

    Fail("Write file '%s' returns: %s", *m_pOpen);
    // Should this fail too, the next flush to this file cuts it.
    m_pOpen->object->CutFile(m_pOpen->size);
    return false;
}

bool CHistoricTable::AppendSession::SelectFile(long long timestamp) {
    m_pFile = nullptr;
    const auto target = m_Table.FindTargetFile(timestamp);
    if (target == m_Table.m_Files.end()) {
        m_pLog->PrintError("Record with time stamp %lld is lost: no file name can hold its time", timestamp);
        return true;
    }
    HistoricFile& file = target->second;
    const auto [open, bNew] = m_OpenFiles.try_emplace(&file);
    if (bNew && !OpenForAppend(file, open->second)) {
        m_OpenFiles.erase(open);
        return false;
    }
    m_pFile = &file;
    m_pOpen = &open->second;
    m_From = file.m_Start;
    if (target != m_Table.m_Files.begin())
        m_From = std::max(m_From, std::prev(target)->first);
    m_To = target->first;
    if (timestamp < m_From || timestamp >= m_To) {
        // A time that its file's span does not cover (before the epoch): look up each such record.
        m_From = m_To = timestamp;
    }
    return true;
}

bool CHistoricTable::AppendSession::OpenForAppend(HistoricFile& file, OpenFile& open) {
    open.object.reset(m_Table.m_pFileSystem->CreateFileObject());
    file.GetFilePath(m_Table.m_Path, open.path);
    if (open.object->OpenFileForAppend(open.path)) {
        open.size = open.object->GetFileSize();
        if (open.size < 0)
            open.object->SetLastError(EIO); // which the object does not tell
        else if (AlignToRecords(file, open))
            return true;
    }
    Fail("Open file '%s' (Append) returns: %s", open);
    return false;
}

// Records behind a torn one would be unreadable, so the tail that a crash or a full disk left is cut first.
// The size found is the truth, whatever the map says.
bool CHistoricTable::AppendSession::AlignToRecords(HistoricFile& file, OpenFile& open) {
    const long long tail = open.size % m_Table.m_RecordSize;
    if (tail != 0) {
        if (!open.object->CutFile(open.size - tail))
            return false;
        open.size -= tail;
        m_pLog->Print("Cut %lld bytes of an unfinished record from file '%s'", tail, open.path.GetPathCStr());
    }
    const long long records = open.size / m_Table.m_RecordSize;
    if (records == file.m_NumRecords)
        return true;
    if (records > UINT_MAX) {
        open.object->SetLastError(EFBIG);
        return false;
    }
    m_pLog->Print("File '%s' holds %lld records, expected were %u", open.path.GetPathCStr(), records,
                  file.m_NumRecords);
    file.m_NumRecords = static_cast<unsigned int>(records);
    file.m_NumRecordsTransferred = std::min(file.m_NumRecordsTransferred, file.m_NumRecords);
    file.m_NumRecordsSent = std::min(file.m_NumRecordsSent, file.m_NumRecords - file.m_NumRecordsTransferred);
    return true;
}

void CHistoricTable::AppendSession::Fail(const char* format, const OpenFile& open) {
    char text[256];
    open.object->GetLastErrorString(text, sizeof text);
    m_pLog->PrintError(format, open.path.GetPathCStr(), text);
    m_Table.m_pErrorSummary->AddFileSystemError(open.object->GetLastError());
}

bool CHistoricTable::AppendSession::Close() {
    bool bClosed = true;
    for (auto& [file, open] : m_OpenFiles) {
        if (open.object->CloseFile())
            continue;
        Fail("Close file '%s' returns: %s", open);
        bClosed = false;
    }
    m_OpenFiles.clear();
    return bClosed;
}

unsigned int CHistoricTable::FlushRecords(COutputLog* log) {
    ListOfCachedRecord records(m_RecordSize);
    {
        const CQVCriticalSectionGuard guard(m_CacheLock);
        records.Swap(m_CachedRecords);
    }
    if (records.IsEmpty())
        return 0;

    std::size_t written = 0;
    {
        const LossCounter loss(*m_pErrorSummary, records.GetSize(), written);
        const WriteLockGuard lock(*this);
        if (EnsureFolderIsRead(log))
            FlushListOfCachedRecord(log, records, written);
    }
    RecycleBlocks(records);
    return static_cast<unsigned int>(written);
}

bool CHistoricTable::FlushListOfCachedRecord(COutputLog* log, const ListOfCachedRecord& records,
                                             size_t& written) {
    QV_ASSERT(m_bFilesWriteLockActive);
    written = 0;
    AppendSession session(*this, log, written);
    bool bResult = true;
    for (auto* block = records.GetFirstBlock(); block && bResult; block = block->next)
        bResult = session.Append(*block);
    bResult = bResult && session.WritePending();
    return session.Close() && bResult;
}
