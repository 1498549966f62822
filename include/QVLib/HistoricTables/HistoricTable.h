// CHistoricTable - a store of time-stamped records that keeps growing for years.
//
// Any thread hands in records of one fixed size with WriteNewRecord(); they wait in memory until
// FlushRecords() appends them to files, each file holding the records of one span of time. The spans, sizes
// and counts of all files are in memory, so finding the file of a record is one look-up. HouseKeepFiles()
// keeps the number of records and the size of the files within budgets. BeginRead() and NextRecord() read any
// time range back.
//
//     HistoricTableErrorSummary errors;
//     CHistoricTable table(QVFileSystem::GetInstance(), sizeof(Sample), &errors);
//     table.InitialiseFromPath(CQVFilePath("/data/temperatures"));
//     table.WriteNewRecord(sample.timestamp, &sample);
//     table.FlushRecords(&log);
//
//     CHistoricTable::ReadContext context;
//     for (bool found = table.BeginRead(from, to, context); found; found = table.NextRecord(context))
//         Use(*reinterpret_cast<const Sample*>(context.m_pRecord));
//     table.EndRead(context);
//
// Records   are opaque but for their first 8 bytes: the time stamp as a signed 64-bit little-endian number,
//           in units of CQVTimestamp (100 ns since 1601-01-01 UTC). The time stamp passed to WriteNewRecord()
//           must be the same: writing files a record by the one, reading finds it by the other. A record has
//           8 to 131,072 bytes.
// Files     lie in one folder that belongs to the table. A file is its records back to back, without a
//           header, in order of arrival, and is named after the UTC minutes of its span, start (inclusive)
//           and end (exclusive): "202103040506_202103262314.qvhis". The layout on disk is
//           docs/historic-table.md.
// Errors    go to the log that an operation is given and are counted in the error summary, as are records
//           that could not be written. Reading reports nothing but the end.
// Threads   WriteNewRecord() from any thread at any time; it waits for no file. FlushRecords(),
//           HouseKeepFiles(), DeleteAll(), ValidateFiles() and InitialiseFromPath() lock the files
//           themselves. Reading locks nothing: hold LockRead() from the begin of a read to its end where
//           another thread may flush, or keep house. No lock is recursive; a thread that holds LockRead()
//           must call nothing that locks the files. A log given to a flush or to maintenance is called with
//           the files locked; it may call WriteNewRecord() of the same table, and nothing else of it.
// Processes One process at a time may call InitialiseFromPath() on a folder and change it. Others look on
//           with InitialiseForReading().
//
// What a crash leaves (the process killed, or the power cut, at any moment):
//   flush       Each record is whole or torn at the end of its file, never in the middle: records are
//               appended, and the next append to that file first cuts a torn tail. A flush that has returned
//               is on the disk: every file it wrote was synced when it was closed. Records still in memory
//               are lost.
//   trim        Files are erased one by one, oldest first; what is left is a shorter table.
//   split       A small journal, "split.journal", names the file and its two halves before either half
//               exists, and is erased after the file is. InitialiseFromPath() finds it: where the file is
//               still there, the halves are copies and are erased; where the file is gone, the halves are
//               complete.
#pragma once

#include <QVLib/HistoricTables/HistoricTableErrorSummary.h>
#include <QVLib/HistoricTables/RecordList.h>
#include <QVLib/TextStreams/CountedString.h>
#include <QVPlatform/FilePath.h>
#include <QVPlatform/FileSystem.h>
#include <QVPlatform/Locks.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/TextOutput.h>
#include <atomic>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <vector>

class CBinaryInput;
class CBinaryOutput;

class CHistoricTable {
public:
    // The boundaries of new files are multiples of this, counted from time stamp 0: 32,768 minutes.
    static constexpr long long FilePeriod = 19'660'800'000'000;
    static constexpr unsigned int MinRecordSize = 8;
    static constexpr unsigned int MaxRecordSize = 131'072;
    // Of a file's name, without the terminator; and the buffer that GetFileName() asks for.
    static constexpr unsigned int FileNameLength = 31;
    static constexpr unsigned int FileNameBufferSize = 32;

    // How far the transfer to a standby has come.
    enum TransferState : int {
        TransferStateInactive = 0,
        TransferStateActiveQueryState = 1,
        TransferStateActiveWaiting = 2,
        TransferStateActiveTransferIncrement = 3,
    };

    // One file. Its end time is its key in the table's map.
    struct HistoricFile {
        long long m_Start = 0;                    // first time of the span, inclusive
        long long m_Duration = 0;                 // end time - m_Start
        unsigned int m_NumRecords = 0;            // records in the file
        unsigned int m_NumRecordsSent = 0;        // sent to the standby, reply awaited
        unsigned int m_NumRecordsTransferred = 0; // leading records that the standby holds

        // The end of the span, exclusive.
        long long GetEnd() const {
            return static_cast<long long>(static_cast<unsigned long long>(m_Start) +
                                          static_cast<unsigned long long>(m_Duration));
        }
        // Writes the name into a buffer of at least FileNameBufferSize bytes; returns its length.
        int GetFileName(char* buffer) const;
        // The name as a counted string that the caller frees with Utf16StringFree().
        Utf16String* GetFileName() const;
        // The path in the table's folder.
        void GetFilePath(const CQVFilePath& directory, CQVFilePath& path) const;
        // True when the span and [from, to], both ends inclusive, have a point in common.
        bool OverlapsSearchRange(long long from, long long to) const;
    };
    using FileMap = std::map<long long, HistoricFile>;

    enum ReadContextState : int {
        ReadStateNone = 0,   // no read begun
        ReadStateRange = 1,  // a time range across files
        ReadStateFile = 2,   // one file
        ReadStateRecord = 3, // one record
    };

    // One read in progress: made by the caller, used for any number of reads one after another, by one thread
    // at a time. Several contexts may read a table at once. It must not outlive the file system of the table
    // that it last read.
    class ReadContext {
    public:
        ReadContext();
        ~ReadContext();
        ReadContext(const ReadContext&) = delete;
        ReadContext& operator=(const ReadContext&) = delete;

        // Prepares for a read; the table's begin operations do this.
        void InitReadContext(QVFileSystemInterface* fileSystem, long long from, long long to,
                             unsigned int recordSize, ReadContextState state);

        long long m_From; // range of time stamps delivered, both inclusive
        long long m_To;
        ReadContextState m_State;
        FileMap::const_iterator m_FileIterator;
        unsigned int m_RecordIndex; // of the current record in its file, from 0
        QVFileInterface* m_pFile;   // owned
        unsigned int m_RecordSize;
        unsigned char* m_pBuffer; // owned
        // The current record: m_RecordSize bytes, valid after a true answer until the next call.
        const unsigned char* m_pRecord;
        unsigned int m_NumFilesOpened; // files of the range that the read tried to open
        unsigned int m_NumRecordsRead; // delivered or passed over

    private:
        friend class CHistoricTable;

        bool HistoricFileNextRecord(const CQVFilePath& directory, const FileMap& files);
        bool HistoricFileReadNextRecord();
        bool TakeBufferedRecord();
        void CloseFile();

        QVFileSystemInterface* m_pFileSystem; // that made m_pFile
        bool m_bHasMore; // NextRecord() may find one: not for one record, nor past the end
    };

    // `fileSystem` and `errorSummary` are borrowed and must outlive the table; neither may be null.
    CHistoricTable(QVFileSystemInterface* fileSystem, unsigned int recordSize,
                   HistoricTableErrorSummary* errorSummary);
    // Records that were not flushed are dropped and not counted as lost.
    virtual ~CHistoricTable();
    CHistoricTable(const CHistoricTable&) = delete;
    CHistoricTable& operator=(const CHistoricTable&) = delete;

    // Shared ownership. A table starts with a count of 0: each holder calls AddRef() once and Release() once;
    // the last Release() deletes the table. A table that nobody holds this way is deleted like any other
    // object.
    void AddRef() { m_RefCount.Increment(); }
    void Release();

    // Adopts a folder and the files in it. Files whose names are none of a table's are passed over; a missing
    // folder gives an empty table. Call once, before anything else. A split that a crash interrupted is
    // completed or undone; the next operation that has a log says so there. A folder that is there but cannot be
    // read is read by the next operation that would change it; while that fails, flushed records are lost, with
    // a line in the log.
    void InitialiseFromPath(const CQVFilePath& path);
    // The same for a folder that another process may be changing: nothing in it is touched, and of an
    // interrupted split only the valid side is seen. The table must then only be read, validated or listed.
    // Files that the other process removes later are passed over by reading.
    void InitialiseForReading(const CQVFilePath& path);

    // Queues a copy of the `recordSize` bytes at `record`. Costs a copy under a short lock; waits for no
    // file.
    void WriteNewRecord(long long timestamp, const void* record);
    // Writes everything queued to the files and returns how many records were written. The first file that
    // cannot be opened or written ends the flush: it is logged, and the records not written are dropped and
    // counted as lost in the error summary. A record whose time has no file name (before year 1 or after year
    // 9999) is logged and lost alone.
    unsigned int FlushRecords(COutputLog* log);

    // Trims to `targetNumberOfRecords`, then splits the largest file if it passed 4/3 of `maxFileSize` bytes.
    // At most one file is split per call. Call it now and then, between flushes.
    void HouseKeepFiles(COutputLog* log, unsigned int targetNumberOfRecords, unsigned int maxFileSize);
    // Erases the oldest files as long as the others hold more than `targetNumberOfRecords` without them;
    // returns how many were erased. Stops at a file that cannot be erased.
    int TrimFilesToGetTargetNumberOfRecords(COutputLog* log, unsigned int targetNumberOfRecords);
    // Splits the file with the most records when it holds more than 4/3 of `maxRecordsPerFile` and spans more
    // than a minute. True when a file was split; a split that could not be done leaves everything as it was.
    bool SplitLargestFile(COutputLog* log, unsigned int maxRecordsPerFile);
    // Checks map, files and folder against each other and logs every fault; changes nothing. True without
    // any.
    bool ValidateFiles(COutputLog& log) const;
    // Erases every file and drops what is queued; neither is counted as lost. A file that cannot be erased is
    // left behind in silence.
    void DeleteAll();

    // Reading: true means that `ctx` holds a record, false that there is none (any more). Records come file
    // by file in order of their ends, within a file in order of arrival. Queued records are not seen before a
    // flush.
    //
    // All records with from <= time stamp <= to.
    bool BeginRead(long long from, long long to, ReadContext& ctx) const;
    // All records from 0 to `time`, starting in the newest file that ends at or before `time`, so that the
    // record before `time` is found also where `time` starts a file.
    bool BeginReadFLowerBound(long long time, ReadContext& ctx) const;
    // The records (from time 0 on) of the file of that name, which need not be terminated. A file without any
    // gives the first record of the files behind it.
    bool BeginReadFile(const char* fileName, unsigned int fileNameLength, ReadContext& ctx) const;
    // The record at a position (from 0) of a file; a record before time 0 gives the next one that is not.
    bool BeginReadRecord(const char* fileName, unsigned int fileNameLength, unsigned int recordIndex,
                         ReadContext& ctx) const;
    bool NextRecord(ReadContext& ctx) const {
        return ctx.TakeBufferedRecord() || NextRecordBeyondBuffer(ctx);
    }
    // Closes the file. Call after every read, also after one that found nothing.
    void EndRead(ReadContext& ctx) const;

    // Writes one line per file, oldest first: name and number of records. Locks nothing.
    void PrintContents(CTextOutput& out) const;
    // A copy of what is known of each file, oldest first.
    void GetFiles(std::vector<HistoricFile>& files) const;
    unsigned int GetRecordSize() const { return m_RecordSize; }

    // Keep others from changing the files, or from using them at all. Not recursive.
    void LockRead() const { m_FilesLock.LockRead(); }
    void UnLockRead() const { m_FilesLock.UnLockRead(); }
    void LockWrite();
    void UnLockWrite();

    // Replication. The main's table asks the standby's for its files, works out what it lacks, and sends that
    // in updates of at most 128 KiB of records, one at a time:
    //
    //     main:    MainGetNextStandbyRequest(channel, request)     until it answers false
    //     standby:     StandbyProcessRequest(log, channel, request, reply, added)
    //     main:    MainProcessStandbyReply(log, channel, reply)
    //
    // The caller carries the messages and frames them; docs/replication.md describes their bytes. `channel`
    // is the caller's own and is passed through unread. After a lost connection, or a reply that never came,
    // call MainResetTransferState(): the next request is a query again, and whatever the two sides disagree
    // on is sent anew. Messages that the caller resends, or delivers late, break the agreement until the next
    // query.
    //
    // The main's side is for one thread at a time; it locks the files, and its lock is shared with readers
    // while a request is built. A log is called with nothing locked.
    //
    // Deletions and splits that housekeeping does while the reply to an update is awaited are forgotten with
    // that reply. The standby keeps such a file, whole, until the next query repairs it: it holds records that
    // the main deleted, or twice what the main sends anew because it split a file out of time order. Records
    // are missing there only when the second half of a forgotten split is split again, out of time order: the
    // standby then deletes the whole file. A query takes files of one span and number of records for the same
    // file; should the doubled records make up just the difference, it does not notice them. Keep house between
    // two exchanges, and nothing is forgotten.
    //
    // Two records of before time stamp 0 can end up in a file whose span is empty. It is not sent.

    // Writes the next request into `out`; false when none is due (nothing is written then).
    bool MainGetNextStandbyRequest(unsigned short channel, CBinaryOutput& out);
    // Applies a reply. False, with the reason in the log, for one that is of no known type or ends too early;
    // what had been applied by then stays applied.
    bool MainProcessStandbyReply(COutputLog* log, unsigned short channel, CBinaryInput& in);
    // Consumes a reply without applying it. Throws CBinaryInput::EOFException when it ends too early.
    void MainSkipStandbyReply(unsigned short channel, CBinaryInput& in);
    void MainResetTransferState();
    // True when a request is due.
    bool MainHasDataToTransfer() const;
    // True while the standby's state is known; splits and deletions are noted down for it then.
    bool IsStandbyTransferActive() const;
    TransferState GetTransferState() const { return m_TransferState; }
    static const char* GetTransferStateText(TransferState state);

    // Applies a request and writes the reply into `out`; `recordsAdded` is the number of records received.
    // False, with the reason in the log and without a reply, for a request that is of no known type, ends too
    // early, is of another record size or names an impossible span; deletions and splits done by then stay
    // done. Records that cannot be written here are counted as lost here.
    bool StandbyProcessRequest(COutputLog* log, unsigned short channel, CBinaryInput& in, CBinaryOutput& out,
                               unsigned int& recordsAdded);
    // Consumes a request without applying it. Throws CBinaryInput::EOFException when it ends too early and
    // std::logic_error for an unknown type.
    void StandbySkipRequest(unsigned short channel, CBinaryInput& in);

protected:
    using ListOfCachedRecord = HistoricRecordList;

    // A split that the standby has to repeat.
    struct SplitCommand {
        long long m_Start = 0; // span of the file that was split
        long long m_End = 0;
        long long m_SplitTimestamp = 0;

        // True when the file of that span is one of the two halves.
        bool MakesPiece(long long start, long long end) const {
            return (start == m_Start && end == m_SplitTimestamp) ||
                   (start == m_SplitTimestamp && end == m_End);
        }
    };

    // One file, read whole.
    struct FileContents {
        explicit FileContents(unsigned int recordSize) : m_Records(recordSize) {}

        CQVFilePath m_Path;
        ListOfCachedRecord m_Records;
        bool m_bInTimeOrder = true; // no record is older than the one before it
        std::vector<long long> m_Timestamps;
    };

    // The steps that all operations share. Those that change files or the map need the write lock.
    //
    // Makes the entry with key `end`, or resets the one there is: no records.
    FileMap::iterator AddNewFile(long long start, long long end);
    // The file that takes a record of time `timestamp`, its entry made when needed; null when no name can be
    // written for its span.
    HistoricFile* FindTargetFileForRecord(long long timestamp);
    // Appends records to their files in order; `written` says how many went. False when a file failed.
    bool FlushListOfCachedRecord(COutputLog* log, const ListOfCachedRecord& records, size_t& written);
    static void FreeListOfCachedRecord(ListOfCachedRecord& records) { records.Clear(); }
    bool ReadFileContents(HistoricFile& file, FileContents& contents);
    // Splits a file behind its first `maxRecordsPerFile` records in time order, at a full minute.
    bool SplitFile(COutputLog* log, FileMap::iterator file, unsigned int maxRecordsPerFile);
    // Splits a file at a given time, for a standby.
    void SplitFileAtTimestamp(COutputLog* log, FileMap::iterator file, long long splitTimestamp);

    std::atomic<TransferState> m_TransferState{TransferStateInactive};
    QVFileSystemInterface* m_pFileSystem;
    const unsigned int m_RecordSize;
    HistoricTableErrorSummary* m_pErrorSummary;
    CQVRefCount m_RefCount;
    mutable CQVReaderWriterLock m_FilesLock; // guards the path, the map, the files and the standby's lists
    bool m_bFilesWriteLockActive = false;
    CQVFilePath m_Path;
    FileMap m_Files; // by end time
    std::list<long long> m_DeletedFiles;
    std::list<SplitCommand> m_SplitCommands;
    CQVCriticalSection m_CacheLock; // guards the queue and the spare blocks; never held with m_FilesLock
    ListOfCachedRecord m_CachedRecords;

private:
    class AppendSession;
    class NewEntries;
    struct SplitPlan;
    class ReadLockGuard;
    class WriteLockGuard;

    // Store.
    int ReadFolder();
    int BuildFileMap(bool bOthersChange);
    bool EnsureFolderIsRead(COutputLog* log);
    int m_FolderError = 0; // errno while the map does not stand for the folder; guarded by m_FilesLock
    FileMap::iterator FindTargetFile(long long timestamp);
    FileMap::iterator AddNewTargetFile(long long start, long long end);
    void QueueRecordInNewBlock(long long timestamp, const void* record);
    void RecycleBlocks(ListOfCachedRecord& records);

    // Reading.
    bool NextRecordBeyondBuffer(ReadContext& ctx) const;

    // Validation.
    bool ValidateFile(COutputLog& log, long long end, const HistoricFile& file) const;
    bool FindUnexpectedFiles(COutputLog& log) const;

    // Splitting.
    bool ReadFileToSplit(COutputLog* log, FileMap::iterator file, FileContents& contents);
    bool SplitInTwo(COutputLog* log, const FileContents& contents, const SplitPlan& plan);
    void GoBackToOldFile(const SplitPlan& plan);
    static void SaySplit(COutputLog* log, const SplitPlan& plan, const FileContents& contents);
    bool CheckSplit(COutputLog* log, const SplitPlan& plan, const FileContents& contents) const;
    bool WriteHalves(COutputLog* log, const SplitPlan& plan, const FileContents& contents);
    bool CreateIfEmpty(COutputLog* log, const HistoricFile& file);
    bool EraseSplitFile(COutputLog* log, CQVFilePath& path);
    bool MoveStrayFileAside(COutputLog* log, const HistoricFile& file);
    bool WriteSplitJournal(COutputLog* log, const SplitPlan& plan);
    bool UndoUnfinishedSplit();
    int RecoverInterruptedSplit();
    std::optional<SplitCommand> m_UnfinishedSplit; // its journal is on the disk; guarded by m_FilesLock

    // Replication, main.
    void NoteSplitForStandby(const HistoricFile& oldFile, long long split, bool bInTimeOrder);
    void NoteDeletionForStandby(const HistoricFile& file);
    void ForgetSplitsOf(long long start, long long end);
    bool HasDataToTransfer() const;
    bool MainGetNextStandbyRequestForUpdate(unsigned short channel, CBinaryOutput& out);
    unsigned int WriteFileBlock(const HistoricFile& file, unsigned int wanted, CBinaryOutput& out);
    void MainProcessStandbyReplyQueryState(unsigned short channel, CBinaryInput& in);
    void MainProcessStandbyReplyUpdate(unsigned short channel, CBinaryInput& in);
    HistoricFile* FindMatchingFile(long long start, long long end, unsigned int numRecords);
    std::unique_ptr<QVFileInterface> m_pTransferFile;
    std::vector<unsigned char> m_TransferBuffer; // the records of one update

    // Replication, standby.
    void StandbyProcessRequestQueryState(unsigned short channel, CBinaryOutput& out);
    unsigned int StandbyProcessRequestUpdate(COutputLog* log, unsigned short channel, CBinaryInput& in,
                                             CBinaryOutput& out);
    void StandbyDeleteFile(COutputLog* log, long long end);
    void StandbyReadBlock(CBinaryInput& in, long long start, ListOfCachedRecord& records,
                          NewEntries& newEntries);
    void StandbySkipRequestUpdate(unsigned short channel, CBinaryInput& in);
    bool HasFileOfSameName(long long start, long long end) const;

    // Things to say that had no log at hand; said by the next operation that has one.
    void SayPendingNotes(COutputLog* log);
    std::list<qvstring> m_PendingNotes; // guarded by m_FilesLock

    // Emptied blocks, for the next records.
    ListOfCachedRecord m_SpareBlocks;
};

// The common step of NextRecord(): the next record is in the file object's buffer and belongs to the range.
inline bool CHistoricTable::ReadContext::TakeBufferedRecord() {
    if (!m_bHasMore || m_pFile->BufferedBytes() < m_RecordSize)
        return false;
    const unsigned char* const record = m_pFile->PeekBuffered();
    const long long timestamp = qv_record_timestamp(record);
    if (timestamp < m_From || timestamp > m_To)
        return false;
    qv_copy_record(m_pBuffer, record, m_RecordSize);
    m_pFile->SkipBuffered(m_RecordSize);
    ++m_RecordIndex;
    ++m_NumRecordsRead;
    return true;
}
