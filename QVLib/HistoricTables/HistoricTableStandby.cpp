// Replication, the standby's side. Everything read here comes from another machine.
#include "HistoricFileName.h"
#include "LockGuards.h"
#include "LossCounter.h"
#include "ReplicationFormat.h"
#include <QVLib/BinaryStreams/BinaryInput.h>
#include <QVLib/BinaryStreams/BinaryOutput.h>
#include <QVPlatform/Assert.h>
#include <algorithm>
#include <cerrno>
#include <climits>
#include <stdexcept>

namespace {

// Passes over bytes whose number came from outside: neither their product nor their sum may wrap.
void SkipBytes(CBinaryInput& in, unsigned long long bytes) {
    while (bytes > 0) {
        const unsigned int step = static_cast<unsigned int>(std::min<unsigned long long>(bytes, UINT_MAX));
        if (!in.SkipBytes(step))
            in.RaiseEOFException(step);
        bytes -= step;
    }
}

unsigned int ReadCount(CBinaryInput& in) {
    unsigned int count = 0;
    in >> count;
    return count;
}

} // namespace

// The entries that an update made. Those that no record was filed under are taken back, so that the map never
// promises a file that is not there.
class CHistoricTable::NewEntries {
public:
    explicit NewEntries(CHistoricTable& table) : m_Table(table) {}
    ~NewEntries() {
        for (const long long end : m_Ends) {
            const auto file = m_Table.m_Files.find(end);
            if (file == m_Table.m_Files.end() || file->second.m_NumRecords != 0)
                continue;
            CQVFilePath path;
            file->second.GetFilePath(m_Table.m_Path, path);
            if (!path.FileExists())
                m_Table.m_Files.erase(file);
        }
    }
    NewEntries(const NewEntries&) = delete;
    NewEntries& operator=(const NewEntries&) = delete;

    void Add(long long end) { m_Ends.push_back(end); }

private:
    CHistoricTable& m_Table;
    std::vector<long long> m_Ends;
};

void SayMessages(const COutputLogToRawList& messages, COutputLog* log) {
    for (const auto& entry : messages.GetLogEntries())
        log->AppendMessage(entry.type, entry.number, entry.text.data(),
                           static_cast<unsigned int>(entry.text.size()));
}

bool CHistoricTable::StandbyProcessRequest(COutputLog* log, unsigned short channel, CBinaryInput& in,
                                           CBinaryOutput& out, unsigned int& recordsAdded) {
    recordsAdded = 0;
    // Said when the files are unlocked again, so that the log may use the table.
    COutputLogToRawList messages;
    bool bResult = true;
    {
        const WriteLockGuard lock(*this);
        try {
            unsigned char type = 0;
            in >> type;
            if (!EnsureFolderIsRead(&messages)) {
                bResult = false;
            } else if (type == TransferTypeQueryState) {
                StandbyProcessRequestQueryState(channel, out);
            } else if (type == TransferTypeUpdate) {
                recordsAdded += StandbyProcessRequestUpdate(&messages, channel, in, out);
            } else {
                messages.PrintError("HistoricTable standby update received the invalid request type %d",
                                    type);
                bResult = false;
            }
        } catch (const std::exception& exception) {
            messages.PrintError("HistoricTable standby update exception: %s", exception.what());
            bResult = false;
        }
    }
    SayMessages(messages, log);
    if (recordsAdded != 0)
        log->Print("Standby update: Added %d records", static_cast<int>(recordsAdded));
    return bResult;
}

void CHistoricTable::StandbyProcessRequestQueryState(unsigned short, CBinaryOutput& out) {
    out << static_cast<unsigned char>(TransferTypeQueryState) << static_cast<unsigned int>(m_Files.size());
    for (const auto& [end, file] : m_Files) {
        out.WriteInt64(file.m_Start);
        out.WriteInt64(end);
        out << file.m_NumRecords;
    }
}

unsigned int CHistoricTable::StandbyProcessRequestUpdate(COutputLog* log, unsigned short, CBinaryInput& in,
                                                         CBinaryOutput& out) {
    // What is left of a split that failed must not outlive the file that it is a copy of, nor be appended to.
    if (!UndoUnfinishedSplit())
        throw std::runtime_error("HistoricTable unfinished split cannot be undone");
    for (unsigned int count = ReadCount(in); count > 0; --count)
        StandbyDeleteFile(log, in.ReadInt64());
    for (unsigned int count = ReadCount(in); count > 0; --count) {
        in.ReadInt64(); // the start; the end alone names the file
        const long long split = in.ReadInt64();
        const auto file = m_Files.find(in.ReadInt64());
        if (file != m_Files.end())
            SplitFileAtTimestamp(log, file, split);
    }
    const unsigned int recordSize = ReadCount(in);
    if (recordSize != m_RecordSize) {
        log->Print("Record size missmatch.  Rx record size is %u, but table record size is %u.", recordSize,
                   m_RecordSize);
        throw std::logic_error("HistoricTable wrong record size received");
    }

    ListOfCachedRecord records(m_RecordSize);
    NewEntries newEntries(*this);
    for (long long start = in.ReadInt64(); start != kEndOfBlocks; start = in.ReadInt64())
        StandbyReadBlock(in, start, records, newEntries);

    std::size_t written = 0;
    {
        const LossCounter loss(*m_pErrorSummary, records.GetSize(), written);
        FlushListOfCachedRecord(log, records, written);
    }
    out << static_cast<unsigned char>(TransferTypeUpdate);
    return static_cast<unsigned int>(records.GetSize());
}

void CHistoricTable::StandbyDeleteFile(COutputLog* log, long long end) {
    const auto file = m_Files.find(end);
    if (file == m_Files.end())
        return;
    char name[FileNameBufferSize];
    file->second.GetFileName(name);
    CQVFilePath path;
    file->second.GetFilePath(m_Path, path);
    log->Print("Standby Update deleted file '%s' (%d records)", name,
               static_cast<int>(file->second.m_NumRecords));
    // An entry whose file never came to be is gone as soon as it is forgotten.
    if (path.EraseFile() || (path.GetLastError() == ENOENT && file->second.m_NumRecords == 0)) {
        m_Files.erase(file);
        return;
    }
    char text[80];
    path.GetLastErrorString(text, sizeof text);
    log->Print("Error deleting file '%s'. Error %d: %s", name, path.GetLastError(), text);
}

// Reads one file block. The number of records in it is believed only as far as records arrive.
void CHistoricTable::StandbyReadBlock(CBinaryInput& in, long long start, ListOfCachedRecord& records,
                                      NewEntries& newEntries) {
    const long long end = in.ReadInt64();
    if (start >= end || !qv_historic_span_has_name(start, end))
        throw std::logic_error("HistoricTable invalid block received");
    const unsigned int count = ReadCount(in);
    if (count != 0 && !m_Files.contains(end)) {
        if (HasFileOfSameName(start, end))
            throw std::logic_error("HistoricTable invalid block received");
        AddNewFile(start, end);
        newEntries.Add(end);
    }
    for (unsigned int i = 0; i < count; ++i) {
        unsigned int room = 0;
        in.Read(records.ReserveSpace(room), m_RecordSize);
        records.CommitSpace(1);
    }
}

void CHistoricTable::StandbySkipRequest(unsigned short channel, CBinaryInput& in) {
    unsigned char type = 0;
    in >> type;
    if (type == TransferTypeUpdate)
        StandbySkipRequestUpdate(channel, in);
    else if (type != TransferTypeQueryState)
        throw std::logic_error("HistoricTable invalid TransferType");
}

void CHistoricTable::StandbySkipRequestUpdate(unsigned short, CBinaryInput& in) {
    SkipBytes(in, static_cast<unsigned long long>(ReadCount(in)) * kDeletionBytes);
    SkipBytes(in, static_cast<unsigned long long>(ReadCount(in)) * kSplitCommandBytes);
    const unsigned int recordSize = ReadCount(in);
    while (in.ReadInt64() != kEndOfBlocks) {
        in.ReadInt64();
        SkipBytes(in, static_cast<unsigned long long>(ReadCount(in)) * recordSize);
    }
}
