// Replication, the main's side: what it notes down for the standby, the requests, and what their replies
// change.
#include "LockGuards.h"
#include "ReplicationFormat.h"
#include <QVLib/BinaryStreams/BinaryInput.h>
#include <QVLib/BinaryStreams/BinaryOutput.h>
#include <algorithm>
#include <climits>
#include <set>

namespace {

// Moves a freshly opened file to an offset that may be past what the file object's 32 bits can hold.
bool SeekFile(QVFileInterface& file, unsigned long long offset) {
    unsigned int step = static_cast<unsigned int>(std::min<unsigned long long>(offset, UINT_MAX));
    if (!file.SeekToOffset(step))
        return false;
    while ((offset -= step) > 0) {
        step = static_cast<unsigned int>(std::min<unsigned long long>(offset, UINT_MAX));
        if (!file.SkipForward(step))
            return false;
    }
    return true;
}

// The records of a file that the standby lacks. None of a file whose span is empty: records of before time
// stamp 0 can end up in one, and as a standby refuses it, it would hold up everything else.
unsigned int RecordsToTransfer(const CHistoricTable::HistoricFile& file) {
    if (file.m_Duration <= 0 || file.m_NumRecordsTransferred >= file.m_NumRecords)
        return 0;
    return file.m_NumRecords - file.m_NumRecordsTransferred;
}

} // namespace

const char* CHistoricTable::GetTransferStateText(TransferState state) {
    switch (state) {
    case TransferStateInactive:
        return "Inactive";
    case TransferStateActiveQueryState:
        return "ActiveQueryState";
    case TransferStateActiveWaiting:
        return "ActiveWaiting";
    case TransferStateActiveTransferIncrement:
        return "ActiveTransferIncrement";
    }
    return "???";
}

bool CHistoricTable::MainGetNextStandbyRequest(unsigned short channel, CBinaryOutput& out) {
    const ReadLockGuard lock(*this);
    switch (m_TransferState) {
    case TransferStateInactive:
        out << static_cast<unsigned char>(TransferTypeQueryState);
        m_TransferState = TransferStateActiveQueryState;
        return true;
    case TransferStateActiveWaiting:
        return MainGetNextStandbyRequestForUpdate(channel, out);
    default:
        return false;
    }
}

bool CHistoricTable::MainHasDataToTransfer() const {
    const ReadLockGuard lock(*this);
    return HasDataToTransfer();
}

// For use with the files locked.
bool CHistoricTable::HasDataToTransfer() const {
    if (m_TransferState == TransferStateInactive)
        return true;
    if (m_TransferState != TransferStateActiveWaiting)
        return false;
    return !m_DeletedFiles.empty() || !m_SplitCommands.empty() ||
           std::any_of(m_Files.begin(), m_Files.end(),
                       [](const FileMap::value_type& entry) { return RecordsToTransfer(entry.second) != 0; });
}

bool CHistoricTable::MainGetNextStandbyRequestForUpdate(unsigned short, CBinaryOutput& out) {
    if (!HasDataToTransfer())
        return false;
    out << static_cast<unsigned char>(TransferTypeUpdate);
    out << static_cast<unsigned int>(m_DeletedFiles.size());
    for (const long long end : m_DeletedFiles)
        out.WriteInt64(end);
    out << static_cast<unsigned int>(m_SplitCommands.size());
    for (const SplitCommand& command : m_SplitCommands) {
        out.WriteInt64(command.m_Start);
        out.WriteInt64(command.m_SplitTimestamp);
        out.WriteInt64(command.m_End);
    }
    out << m_RecordSize;

    unsigned int budget = kUpdateBytes / m_RecordSize;
    for (auto& [end, file] : m_Files) {
        const unsigned int wanted = std::min(RecordsToTransfer(file), budget);
        if (wanted == 0)
            continue;
        const unsigned int sent = WriteFileBlock(file, wanted, out);
        // Others may look at the count while this thread, alone, changes it under the read lock.
        __atomic_store_n(&file.m_NumRecordsSent, sent, __ATOMIC_RELAXED);
        budget -= sent;
    }
    out.WriteInt64(kEndOfBlocks);
    m_TransferState = TransferStateActiveTransferIncrement;
    return true;
}

// Writes the block of the next records that the standby lacks and returns how many they are. A damaged file
// may yield fewer than it should, so they are read before their number is written; none, and there is no
// block.
unsigned int CHistoricTable::WriteFileBlock(const HistoricFile& file, unsigned int wanted,
                                            CBinaryOutput& out) {
    if (!m_pTransferFile)
        m_pTransferFile.reset(m_pFileSystem->CreateFileObject());
    if (m_TransferBuffer.empty())
        m_TransferBuffer.resize(kUpdateBytes);
    CQVFilePath path;
    file.GetFilePath(m_Path, path);
    unsigned int read = 0;
    unsigned char* record = m_TransferBuffer.data();
    if (m_pTransferFile->OpenFileForRead(path, false) &&
        SeekFile(*m_pTransferFile,
                 static_cast<unsigned long long>(file.m_NumRecordsTransferred) * m_RecordSize)) {
        for (unsigned int got = 0; read < wanted; ++read, record += m_RecordSize) {
            if (!m_pTransferFile->ReadBuffered(record, m_RecordSize, got) || got < m_RecordSize)
                break;
        }
    }
    m_pTransferFile->CloseFile();
    if (read == 0)
        return 0;

    out.WriteInt64(file.m_Start);
    out.WriteInt64(file.GetEnd());
    out << read;
    record = m_TransferBuffer.data();
    for (unsigned int i = 0; i < read; ++i, record += m_RecordSize)
        out.Write(record, m_RecordSize);
    return read;
}

bool CHistoricTable::MainProcessStandbyReply(COutputLog* log, unsigned short channel, CBinaryInput& in) {
    // Said when the files are unlocked again, so that the log may use the table.
    COutputLogToRawList messages;
    bool bResult = true;
    {
        const WriteLockGuard lock(*this);
        try {
            unsigned char type = 0;
            in >> type;
            if (type == TransferTypeQueryState) {
                MainProcessStandbyReplyQueryState(channel, in);
            } else if (type == TransferTypeUpdate) {
                MainProcessStandbyReplyUpdate(channel, in);
            } else {
                messages.PrintError("MainProcessStandbyReply() - Invalid reply type %d", type);
                bResult = false;
            }
        } catch (const std::exception& exception) {
            messages.PrintError("MainProcessStandbyReply() - Exception %s", exception.what());
            bResult = false;
        }
    }
    SayMessages(messages, log);
    return bResult;
}

void CHistoricTable::MainProcessStandbyReplyQueryState(unsigned short, CBinaryInput& in) {
    for (auto& [end, file] : m_Files)
        file.m_NumRecordsSent = file.m_NumRecordsTransferred = 0;
    // Ends that the standby is told to delete: should a broken one name a file twice, the deletion counts.
    std::set<long long> mismatches;
    unsigned int count = 0;
    in >> count;
    for (unsigned int i = 0; i < count; ++i) {
        const long long start = in.ReadInt64();
        const long long end = in.ReadInt64();
        unsigned int records = 0;
        in >> records;
        HistoricFile* const file = FindMatchingFile(start, end, records);
        if (file && !mismatches.contains(end)) {
            file->m_NumRecordsTransferred = file->m_NumRecords;
            continue;
        }
        if (mismatches.insert(end).second)
            m_DeletedFiles.push_back(end);
        const auto sameEnd = m_Files.find(end);
        if (sameEnd != m_Files.end())
            sameEnd->second.m_NumRecordsTransferred = 0;
    }
    m_TransferState = TransferStateActiveWaiting;
}

void CHistoricTable::MainProcessStandbyReplyUpdate(unsigned short, CBinaryInput&) {
    m_DeletedFiles.clear();
    m_SplitCommands.clear();
    for (auto& [end, file] : m_Files) {
        file.m_NumRecordsTransferred += file.m_NumRecordsSent;
        file.m_NumRecordsSent = 0;
    }
    m_TransferState = TransferStateActiveWaiting;
}

void CHistoricTable::MainSkipStandbyReply(unsigned short, CBinaryInput& in) {
    unsigned char type = 0;
    in >> type;
    if (type != TransferTypeQueryState)
        return;
    unsigned int count = 0;
    in >> count;
    for (unsigned int i = 0; i < count; ++i) {
        in.ReadInt64();
        in.ReadInt64();
        unsigned int records = 0;
        in >> records;
    }
}

void CHistoricTable::MainResetTransferState() {
    const WriteLockGuard lock(*this);
    m_TransferState = TransferStateInactive;
    m_DeletedFiles.clear();
    m_SplitCommands.clear();
    for (auto& [end, file] : m_Files)
        file.m_NumRecordsSent = file.m_NumRecordsTransferred = 0;
}

CHistoricTable::HistoricFile* CHistoricTable::FindMatchingFile(long long start, long long end,
                                                               unsigned int numRecords) {
    const auto file = m_Files.find(end);
    const bool bMatches =
        file != m_Files.end() && file->second.m_Start == start && file->second.m_NumRecords == numRecords;
    return bMatches ? &file->second : nullptr;
}

bool CHistoricTable::IsStandbyTransferActive() const {
    const TransferState state = m_TransferState;
    return state == TransferStateActiveWaiting || state == TransferStateActiveTransferIncrement;
}

void CHistoricTable::NoteSplitForStandby(const HistoricFile& oldFile, long long split, bool bInTimeOrder) {
    HistoricFile& first = m_Files.at(split);
    HistoricFile& second = m_Files.at(oldFile.GetEnd());
    if (!bInTimeOrder) {
        // Which of the records the standby holds cannot be told from a count: it gets both halves anew.
        NoteDeletionForStandby(oldFile);
        first.m_NumRecordsSent = first.m_NumRecordsTransferred = 0;
        second.m_NumRecordsSent = second.m_NumRecordsTransferred = 0;
        return;
    }
    m_SplitCommands.push_back({oldFile.m_Start, oldFile.GetEnd(), split});
    // Records in flight are taken as held; the reply to their update adds nothing more.
    const unsigned int held = oldFile.m_NumRecordsSent + oldFile.m_NumRecordsTransferred;
    first.m_NumRecordsTransferred = std::min(held, first.m_NumRecords);
    second.m_NumRecordsTransferred = held - first.m_NumRecordsTransferred;
    first.m_NumRecordsSent = second.m_NumRecordsSent = 0;
}

// Notes that the standby must delete a file that is no more.
//
// The standby deletes before it splits. Where the file came out of splits that the standby has still to
// repeat, it does not know it yet and would bring it back, or delete the whole original with it. It is then
// told to delete the original instead, and gets all that is left of it anew.
void CHistoricTable::NoteDeletionForStandby(const HistoricFile& file) {
    long long start = file.m_Start;
    long long end = file.GetEnd();
    // While a reply is awaited no split is pending: the standby has it by now, or it is forgotten with the
    // reply.
    if (m_TransferState == TransferStateActiveWaiting) {
        for (auto command = m_SplitCommands.rbegin(); command != m_SplitCommands.rend(); ++command) {
            if (command->MakesPiece(start, end)) {
                start = command->m_Start;
                end = command->m_End;
            }
        }
        if (start != file.m_Start || end != file.GetEnd())
            ForgetSplitsOf(start, end);
    }
    m_DeletedFiles.push_back(end);
}

// Drops the pending splits of a file, and of its pieces; what is left of it is to be sent anew.
void CHistoricTable::ForgetSplitsOf(long long start, long long end) {
    std::map<long long, long long> pieces{{end, start}}; // start by end
    for (auto command = m_SplitCommands.begin(); command != m_SplitCommands.end();) {
        const auto piece = pieces.find(command->m_End);
        if (piece == pieces.end() || piece->second != command->m_Start) {
            ++command;
            continue;
        }
        pieces.emplace(command->m_SplitTimestamp, piece->second);
        piece->second = command->m_SplitTimestamp;
        command = m_SplitCommands.erase(command);
    }
    for (const auto& [pieceEnd, pieceStart] : pieces) {
        const auto file = m_Files.find(pieceEnd);
        if (file != m_Files.end() && file->second.m_Start == pieceStart)
            file->second.m_NumRecordsSent = file->second.m_NumRecordsTransferred = 0;
    }
}
