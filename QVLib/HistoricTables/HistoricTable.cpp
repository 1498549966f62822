// The table itself: construction, start-up, the queue of records and the locks.
#include "LockGuards.h"
#include <QVPlatform/Assert.h>

namespace {

// Emptied blocks that a table keeps for its next records; what a burst needed beyond that goes back to the
// heap.
constexpr std::size_t kMaxSpareBytes = 16 * 1024 * 1024;

} // namespace

CHistoricTable::CHistoricTable(QVFileSystemInterface* fileSystem, unsigned int recordSize,
                               HistoricTableErrorSummary* errorSummary)
    : m_pFileSystem(fileSystem), m_RecordSize(recordSize), m_pErrorSummary(errorSummary),
      m_CachedRecords(recordSize), m_SpareBlocks(recordSize) {
    QV_ASSERT(fileSystem != nullptr);
    QV_ASSERT(recordSize >= MinRecordSize && recordSize <= MaxRecordSize);
    QV_ASSERT(errorSummary != nullptr);
}

CHistoricTable::~CHistoricTable() {
    const CQVCriticalSectionGuard guard(m_CacheLock);
    FreeListOfCachedRecord(m_CachedRecords);
}

void CHistoricTable::Release() {
    if (m_RefCount.Decrement() == 0)
        delete this;
}

void CHistoricTable::InitialiseFromPath(const CQVFilePath& path) {
    const WriteLockGuard lock(*this);
    m_Path = path;
    m_FolderError = ReadFolder();
}

void CHistoricTable::InitialiseForReading(const CQVFilePath& path) {
    const WriteLockGuard lock(*this);
    m_Path = path;
    BuildFileMap(true);
}

void CHistoricTable::WriteNewRecord(long long timestamp, const void* record) {
    m_CacheLock.Enter();
    const bool bAppended = m_CachedRecords.TryAppend(timestamp, record);
    m_CacheLock.Leave();
    if (!bAppended)
        QueueRecordInNewBlock(timestamp, record);
}

// The queue's last block is full. A new one is made outside the lock, so that no thread waits for the heap;
// other threads may have queued records or blocks meanwhile.
void CHistoricTable::QueueRecordInNewBlock(long long timestamp, const void* record) {
    HistoricRecordList::Block* block = nullptr;
    for (;;) {
        unsigned int capacity;
        {
            const CQVCriticalSectionGuard guard(m_CacheLock);
            if (m_CachedRecords.TryAppend(timestamp, record))
                break;
            if (!block)
                block = m_SpareBlocks.TakeBlock();
            if (block) {
                m_CachedRecords.AddBlock(std::exchange(block, nullptr));
                m_CachedRecords.TryAppend(timestamp, record);
                break;
            }
            capacity = m_CachedRecords.GetNextBlockCapacity();
        }
        block = HistoricRecordList::AllocateBlock(m_RecordSize, capacity);
    }
    if (block) {
        const CQVCriticalSectionGuard guard(m_CacheLock);
        m_SpareBlocks.AddBlock(block);
    }
}

// Gives the blocks of a flushed list to the next records, without the cost of the heap.
void CHistoricTable::RecycleBlocks(ListOfCachedRecord& records) {
    const CQVCriticalSectionGuard guard(m_CacheLock);
    std::size_t spareBytes = 0;
    for (auto* block = m_SpareBlocks.GetFirstBlock(); block; block = block->next)
        spareBytes += static_cast<std::size_t>(block->capacity) * m_RecordSize;
    while (spareBytes < kMaxSpareBytes) {
        HistoricRecordList::Block* const block = records.TakeBlock();
        if (!block)
            break;
        spareBytes += static_cast<std::size_t>(block->capacity) * m_RecordSize;
        m_SpareBlocks.AddBlock(block);
    }
}

void CHistoricTable::LockWrite() {
    m_FilesLock.LockWrite();
    m_bFilesWriteLockActive = true;
}

void CHistoricTable::UnLockWrite() {
    m_bFilesWriteLockActive = false;
    m_FilesLock.UnLockWrite();
}

void CHistoricTable::PrintContents(CTextOutput& out) const {
    for (const auto& [end, file] : m_Files) {
        char name[FileNameBufferSize];
        file.GetFileName(name);
        out.PrintLine("%s, %d records", name, static_cast<int>(file.m_NumRecords));
    }
}

void CHistoricTable::GetFiles(std::vector<HistoricFile>& files) const {
    files.clear();
    const ReadLockGuard lock(*this);
    files.reserve(m_Files.size());
    for (const auto& [end, file] : m_Files)
        files.push_back({file.m_Start, file.m_Duration, file.m_NumRecords,
                         __atomic_load_n(&file.m_NumRecordsSent, __ATOMIC_RELAXED),
                         file.m_NumRecordsTransferred});
}

// Both steps always: what the second finds is there to be read although the first failed.
int CHistoricTable::ReadFolder() {
    const int splitError = RecoverInterruptedSplit();
    const int listError = BuildFileMap(false);
    return splitError != 0 ? splitError : listError;
}

// Makes up for a start-up that could not read everything: choosing files and erasing them by a map that lacks
// some would hide records or lose them. False when it still cannot be done; nothing may be changed then.
bool CHistoricTable::EnsureFolderIsRead(COutputLog* log) {
    if (m_FolderError != 0) {
        m_Files.clear();
        m_FolderError = ReadFolder();
    }
    SayPendingNotes(log);
    if (m_FolderError == 0)
        return true;
    char text[256];
    QVFormatMessage(m_FolderError, text, sizeof text);
    log->PrintError("Read folder '%s' returns: %s", m_Path.GetPathCStr(), text);
    m_pErrorSummary->AddFileSystemError(m_FolderError);
    return false;
}

void CHistoricTable::SayPendingNotes(COutputLog* log) {
    for (const qvstring& note : m_PendingNotes)
        log->Print("%s", note.c_str());
    m_PendingNotes.clear();
}
