// Splitting a file in two, so that a crash at any moment neither loses a record nor leaves it twice.
//
//   1. journal written and synced           crash before: nothing happened; an unfinished journal is ignored
//   2. halves written and synced            crash: the old file is there, the halves are erased at start-up
//   3. old file erased, folder synced       crash behind it: the old file is gone, the halves are complete
//   4. journal erased
#include "HistoricFileName.h"
#include "LockGuards.h"
#include "SplitJournal.h"
#include <QVPlatform/Assert.h>
#include <QVPlatform/Format.h>
#include <algorithm>
#include <cerrno>

namespace {

// 0 when the file is there, ENOENT when it is not, another errno when that cannot be told.
int ExamineFile(QVFileSystemInterface* fileSystem, const CQVFilePath& path) {
    const std::unique_ptr<QVFileInterface> file(fileSystem->CreateFileObject());
    return file->OpenFileForRead(path, false) ? 0 : file->GetLastError();
}

CQVFilePath PathOf(const CHistoricTable::HistoricFile& file, const CQVFilePath& directory) {
    CQVFilePath path;
    file.GetFilePath(directory, path);
    return path;
}

qvstring NameOf(const CHistoricTable::HistoricFile& file) {
    char name[CHistoricTable::FileNameBufferSize];
    const int length = file.GetFileName(name);
    return qvstring(name, static_cast<size_t>(length));
}

// True when the file is gone afterwards.
bool EraseHalf(const CHistoricTable::HistoricFile& half, const CQVFilePath& directory) {
    CQVFilePath path = PathOf(half, directory);
    return path.EraseFile() || path.GetLastError() == ENOENT;
}

qvstring ErrorText(const CQVError& error) {
    char text[256];
    return qvstring(text, error.GetLastErrorString(text, sizeof text));
}

} // namespace

// A split about to be done: the old file as it was, what it becomes, and the names for messages.
struct CHistoricTable::SplitPlan {
    SplitPlan(const HistoricFile& old, long long splitTimestamp)
        : oldFile(old), split{old.m_Start, splitTimestamp, old.GetEnd()}, oldName(NameOf(old)),
          firstName(NameOf(split.GetFirstHalf())), secondName(NameOf(split.GetSecondHalf())) {}

    HistoricFile oldFile;
    CQVSplitJournal::Split split;
    qvstring oldName;
    qvstring firstName;
    qvstring secondName;
};

bool CHistoricTable::SplitLargestFile(COutputLog* log, unsigned int maxRecordsPerFile) {
    const unsigned int threshold = maxRecordsPerFile * 4 / 3;
    const WriteLockGuard lock(*this);
    if (!EnsureFolderIsRead(log))
        return false;
    auto largest = m_Files.end();
    for (auto file = m_Files.begin(); file != m_Files.end(); ++file) {
        if (file->second.m_Duration > CQVTimeInterval::UnitsPerMinute &&
            (largest == m_Files.end() || file->second.m_NumRecords > largest->second.m_NumRecords))
            largest = file;
    }
    return largest != m_Files.end() && largest->second.m_NumRecords > threshold &&
           SplitFile(log, largest, maxRecordsPerFile);
}

bool CHistoricTable::SplitFile(COutputLog* log, FileMap::iterator file, unsigned int maxRecordsPerFile) {
    QV_ASSERT(m_bFilesWriteLockActive);
    FileContents contents(m_RecordSize);
    if (!ReadFileToSplit(log, file, contents))
        return false;
    std::vector<long long>& timestamps = contents.m_Timestamps;
    if (timestamps.size() <= maxRecordsPerFile)
        return false;
    std::sort(timestamps.begin(), timestamps.end());

    constexpr long long minute = CQVTimeInterval::UnitsPerMinute;
    long long split = timestamps[maxRecordsPerFile] / minute * minute;
    if (split == file->second.m_Start)
        split += minute;
    if (split >= file->first)
        return false;
    const SplitPlan plan(file->second, split);
    if (!SplitInTwo(log, contents, plan))
        return false;
    if (IsStandbyTransferActive())
        NoteSplitForStandby(plan.oldFile, split, contents.m_bInTimeOrder);
    SaySplit(log, plan, contents);
    return true;
}

void CHistoricTable::SplitFileAtTimestamp(COutputLog* log, FileMap::iterator file, long long splitTimestamp) {
    QV_ASSERT(m_bFilesWriteLockActive);
    FileContents contents(m_RecordSize);
    if (!ReadFileToSplit(log, file, contents))
        return;
    const SplitPlan plan(file->second, splitTimestamp);
    if (SplitInTwo(log, contents, plan))
        SaySplit(log, plan, contents);
}

bool CHistoricTable::ReadFileContents(HistoricFile& file, FileContents& contents) {
    file.GetFilePath(m_Path, contents.m_Path);
    const std::unique_ptr<QVFileInterface> object(m_pFileSystem->CreateFileObject());
    if (!object->OpenFileForRead(contents.m_Path, false))
        return false;

    contents.m_bInTimeOrder = true;
    contents.m_Timestamps.reserve(file.m_NumRecords);
    long long previous = 0;
    for (;;) {
        unsigned int room = 0;
        unsigned char* const space = contents.m_Records.ReserveSpace(room);
        const unsigned int asked = room * m_RecordSize; // a block's size, far below 32 bits
        unsigned int got = 0;
        if (!object->ReadBytes(space, asked, got))
            return true;
        const unsigned int records = got / m_RecordSize;
        for (unsigned int i = 0; i < records; ++i) {
            const long long timestamp = qv_record_timestamp(space + static_cast<size_t>(i) * m_RecordSize);
            contents.m_Timestamps.push_back(timestamp);
            contents.m_bInTimeOrder = contents.m_bInTimeOrder && timestamp >= previous;
            previous = timestamp;
        }
        contents.m_Records.CommitSpace(records);
        if (got < asked)
            return true;
    }
}

// Reads a whole file, and nothing less: a split erases what it could not read.
bool CHistoricTable::ReadFileToSplit(COutputLog* log, FileMap::iterator file, FileContents& contents) {
    if (!ReadFileContents(file->second, contents))
        return false;
    if (contents.m_Records.GetSize() >= file->second.m_NumRecords)
        return true;
    log->PrintError("File %s is not split: only %zu of its %u records could be read",
                    NameOf(file->second).c_str(), contents.m_Records.GetSize(), file->second.m_NumRecords);
    return false;
}

void CHistoricTable::SaySplit(COutputLog* log, const SplitPlan& plan, const FileContents& contents) {
    log->Print("Split %s (%d records) -> %s and %s", plan.oldName.c_str(),
               static_cast<int>(contents.m_Records.GetSize()), plan.firstName.c_str(),
               plan.secondName.c_str());
}

bool CHistoricTable::SplitInTwo(COutputLog* log, const FileContents& contents, const SplitPlan& plan) {
    if (!CheckSplit(log, plan, contents) || !UndoUnfinishedSplit() ||
        !MoveStrayFileAside(log, plan.split.GetFirstHalf()) ||
        !MoveStrayFileAside(log, plan.split.GetSecondHalf()) || !WriteSplitJournal(log, plan))
        return false;

    // The second half takes over the old file's entry, so going back needs no memory.
    AddNewFile(plan.split.start, plan.split.split);
    AddNewFile(plan.split.split, plan.split.end);
    CQVFilePath oldPath = PathOf(plan.oldFile, m_Path);
    bool bDone = false;
    try {
        bDone = WriteHalves(log, plan, contents) && EraseSplitFile(log, oldPath);
        if (!bDone)
            log->Print("Split %s (%d records) FAILED", plan.oldName.c_str(),
                       static_cast<int>(contents.m_Records.GetSize()));
    } catch (...) {
        GoBackToOldFile(plan);
        throw;
    }
    if (!bDone) {
        GoBackToOldFile(plan);
        return false;
    }
    // From here on the halves are what counts.
    m_UnfinishedSplit.reset();
    // The journal may go only once the old file can no longer come back. If it stays, it says what is true.
    if (m_Path.SyncFolder())
        CQVSplitJournal(m_pFileSystem, m_Path).Erase();
    return true;
}

void CHistoricTable::GoBackToOldFile(const SplitPlan& plan) {
    m_Files.erase(plan.split.split);
    m_Files.at(plan.split.end) = plan.oldFile;
    UndoUnfinishedSplit();
}

// A split is refused unless it yields two files that every record finds its way to and whose names are free.
bool CHistoricTable::CheckSplit(COutputLog* log, const SplitPlan& plan, const FileContents& contents) const {
    const auto refuse = [&](const char* reason) {
        log->PrintError("File %s is not split at time stamp %lld: %s", plan.oldName.c_str(), plan.split.split,
                        reason);
        return false;
    };
    if (plan.split.split <= plan.split.start || plan.split.split >= plan.split.end)
        return refuse("the time is not inside its span");
    if (m_Files.contains(plan.split.split))
        return refuse("another file ends at that time");
    if (plan.firstName == plan.oldName || plan.secondName == plan.oldName ||
        plan.firstName == plan.secondName)
        return refuse("the time is not a full minute inside its span");
    for (const auto& [end, file] : m_Files) {
        const qvstring name = NameOf(file);
        if (name == plan.firstName || name == plan.secondName)
            return refuse("another file has the name of one of its halves");
    }
    if (!contents.m_Timestamps.empty()) {
        const auto [oldest, newest] =
            std::minmax_element(contents.m_Timestamps.begin(), contents.m_Timestamps.end());
        const auto target = m_Files.upper_bound(*oldest);
        if (*oldest < plan.split.start || *newest >= plan.split.end || target->first != plan.split.end)
            return refuse("it holds records that belong to another file");
    }
    return true;
}

bool CHistoricTable::WriteHalves(COutputLog* log, const SplitPlan& plan, const FileContents& contents) {
    size_t written = 0;
    return FlushListOfCachedRecord(log, contents.m_Records, written) &&
           written == contents.m_Records.GetSize() && CreateIfEmpty(log, m_Files.at(plan.split.split)) &&
           CreateIfEmpty(log, m_Files.at(plan.split.end));
}

// A half that received no record has no file yet; without one the table would not match its folder.
bool CHistoricTable::CreateIfEmpty(COutputLog* log, const HistoricFile& file) {
    if (file.m_NumRecords != 0)
        return true;
    const CQVFilePath path = PathOf(file, m_Path);
    const std::unique_ptr<QVFileInterface> object(m_pFileSystem->CreateFileObject());
    if (object->OpenFileForAppend(path) && object->CloseFile())
        return true;
    log->PrintError("Open file '%s' (Append) returns: %s", path.GetPathCStr(), ErrorText(*object).c_str());
    m_pErrorSummary->AddFileSystemError(object->GetLastError());
    return false;
}

bool CHistoricTable::EraseSplitFile(COutputLog* log, CQVFilePath& path) {
    if (path.EraseFile())
        return true;
    log->PrintError("Erase file '%s' returns: %s", path.GetPathCStr(), ErrorText(path).c_str());
    m_pErrorSummary->AddFileSystemError(path.GetLastError());
    return false;
}

// A file that bears a half's name but is none of the table's would be appended to. It may be worth something
// to somebody, so it is renamed, not erased.
bool CHistoricTable::MoveStrayFileAside(COutputLog* log, const HistoricFile& file) {
    CQVFilePath path = PathOf(file, m_Path);
    if (!path.FileExists())
        return true;
    CQVFilePath target = path;
    target.AppendName(".aside");
    for (unsigned int number = 2; target.FileExists(); ++number) {
        target = path;
        target.AppendName(".aside" + std::to_string(number));
    }
    if (!path.RenameFile(target)) {
        log->PrintError("Rename file '%s' returns: %s", path.GetPathCStr(), ErrorText(path).c_str());
        m_pErrorSummary->AddFileSystemError(path.GetLastError());
        return false;
    }
    log->Print("File '%s' is none of the table's and was renamed to '%s'", path.GetPathCStr(),
               target.GetPathCStr());
    return true;
}

bool CHistoricTable::WriteSplitJournal(COutputLog* log, const SplitPlan& plan) {
    CQVSplitJournal journal(m_pFileSystem, m_Path);
    m_UnfinishedSplit = SplitCommand{plan.split.start, plan.split.end, plan.split.split};
    if (journal.Write(plan.split))
        return true;
    log->PrintError("Write file '%s' returns: %s", journal.GetPath().GetPathCStr(),
                    ErrorText(journal).c_str());
    m_pErrorSummary->AddFileSystemError(journal.GetLastError());
    UndoUnfinishedSplit();
    return false;
}

// Removes what a failed split left: its halves, then its journal. While a half cannot be erased the journal
// stays, so that the next start does not take it for a file of the table. True when nothing is left.
bool CHistoricTable::UndoUnfinishedSplit() {
    if (!m_UnfinishedSplit)
        return true;
    const CQVSplitJournal::Split split{m_UnfinishedSplit->m_Start, m_UnfinishedSplit->m_SplitTimestamp,
                                       m_UnfinishedSplit->m_End};
    if (!EraseHalf(split.GetFirstHalf(), m_Path) || !EraseHalf(split.GetSecondHalf(), m_Path) ||
        !m_Path.SyncFolder() || !CQVSplitJournal(m_pFileSystem, m_Path).Erase())
        return false;
    m_UnfinishedSplit.reset();
    return true;
}

// At start-up, before the map is built. Returns 0, or the errno of what kept it from finding out.
int CHistoricTable::RecoverInterruptedSplit() {
    CQVSplitJournal journal(m_pFileSystem, m_Path);
    CQVSplitJournal::Split split;
    switch (journal.Read(split)) {
    case CQVSplitJournal::State::None:
        return 0;
    case CQVSplitJournal::State::Unfinished:
        journal.Erase();
        return 0;
    case CQVSplitJournal::State::Unreadable:
        return journal.GetLastError();
    case CQVSplitJournal::State::Complete:
        break;
    }
    const qvstring name = NameOf(split.GetOldFile());
    const int error = ExamineFile(m_pFileSystem, PathOf(split.GetOldFile(), m_Path));
    if (error == 0) {
        m_UnfinishedSplit = SplitCommand{split.start, split.end, split.split};
        m_PendingNotes.push_back("The split of " + name + " was interrupted and is undone" +
                                 (UndoUnfinishedSplit() ? "" : ", but its halves could not be erased yet"));
        return 0;
    }
    if (error != ENOENT)
        return error;
    m_PendingNotes.push_back("The split of " + name + " was interrupted and is complete");
    if (m_Path.SyncFolder())
        journal.Erase();
    return 0;
}
