// Keeping a table within its budget, checking it, and deleting it.
#include "HistoricFileName.h"
#include "LockGuards.h"
#include <QVPlatform/FindFiles.h>
#include <cerrno>

void CHistoricTable::HouseKeepFiles(COutputLog* log, unsigned int targetNumberOfRecords,
                                    unsigned int maxFileSize) {
    TrimFilesToGetTargetNumberOfRecords(log, targetNumberOfRecords);
    SplitLargestFile(log, maxFileSize / m_RecordSize);
}

int CHistoricTable::TrimFilesToGetTargetNumberOfRecords(COutputLog* log, unsigned int targetNumberOfRecords) {
    const WriteLockGuard lock(*this);
    if (!EnsureFolderIsRead(log))
        return 0;
    UndoUnfinishedSplit();

    // From the newest file backwards: the one that makes the sum exceed the target is the oldest to keep.
    unsigned long long sum = 0;
    auto oldestKept = m_Files.end();
    while (oldestKept != m_Files.begin() && sum <= targetNumberOfRecords)
        sum += (--oldestKept)->second.m_NumRecords;

    int deleted = 0;
    while (m_Files.begin() != oldestKept) {
        const auto file = m_Files.begin();
        const unsigned int records = file->second.m_NumRecords;
        char name[FileNameBufferSize];
        file->second.GetFileName(name);
        CQVFilePath path;
        file->second.GetFilePath(m_Path, path);
        // An entry whose file never came to be (its first write failed) must not keep all newer files for
        // ever.
        // Copies that an unfinished split has left would count as its records once it is gone.
        const bool bHasCopies = m_UnfinishedSplit && m_UnfinishedSplit->m_End == file->first;
        const bool bErased =
            !bHasCopies && (path.EraseFile() || (path.GetLastError() == ENOENT && records == 0));
        if (!bErased) {
            log->Print("Error deleting expired file '%s'", name);
            break;
        }
        const HistoricFile deletedFile = file->second;
        m_Files.erase(file);
        if (IsStandbyTransferActive())
            NoteDeletionForStandby(deletedFile);
        log->Print("Deleted expired file '%s' (%d records)", name, static_cast<int>(records));
        ++deleted;
    }
    return deleted;
}

bool CHistoricTable::ValidateFiles(COutputLog& log) const {
    const ReadLockGuard lock(*this);
    bool bResult = true;
    for (const auto& [end, file] : m_Files) {
        char name[FileNameBufferSize];
        file.GetFileName(name);
        log.Print("Checking %s...", name);
        bResult = ValidateFile(log, end, file) && bResult;
    }
    return FindUnexpectedFiles(log) && bResult;
}

bool CHistoricTable::ValidateFile(COutputLog& log, long long end, const HistoricFile& file) const {
    if (end != file.GetEnd()) {
        log.PrintError("** File key %lld does not match the expected end time %lld", end, file.GetEnd());
        return false;
    }
    CQVFilePath path;
    file.GetFilePath(m_Path, path);
    const std::unique_ptr<QVFileInterface> object(m_pFileSystem->CreateFileObject());
    if (!object->OpenFileForRead(path, false)) {
        log.PrintError("** File could not be opened");
        return false;
    }
    const long long expectedSize = static_cast<long long>(m_RecordSize) * file.m_NumRecords;
    const long long size = object->GetFileSize();
    if (size != expectedSize) {
        log.PrintError("** File size is %lld, but expected size is %lld", size, expectedSize);
        return false;
    }
    const unsigned int rest = m_RecordSize - static_cast<unsigned int>(sizeof(long long));
    for (unsigned int i = 0; i < file.m_NumRecords; ++i) {
        long long timestamp = 0;
        unsigned int got = 0;
        if (!object->ReadBuffered(&timestamp, sizeof timestamp, got) || got < sizeof timestamp ||
            (rest != 0 && !object->SkipForward(rest))) {
            log.PrintError("** Record %d could not be read", static_cast<int>(i));
            return false;
        }
        if (timestamp < file.m_Start) {
            log.PrintError("** Record %d timestamp %lld is before the file start time %lld",
                           static_cast<int>(i), timestamp, file.m_Start);
            return false;
        }
        if (timestamp >= end) {
            log.PrintError("** Record %d timestamp %lld is after the file end time %lld", static_cast<int>(i),
                           timestamp, end);
            return false;
        }
    }
    return true;
}

bool CHistoricTable::FindUnexpectedFiles(COutputLog& log) const {
    bool bResult = true;
    CQVFilePath pattern = m_Path;
    pattern.AppendFileName(kHistoricFilePattern);
    CQVFindFiles find;
    for (bool more = find.FirstFile(pattern.GetPath()); more; more = find.NextFile()) {
        qvstring name;
        find.GetName(name);
        CQVTimestamp start;
        CQVTimestamp end;
        if (qv_parse_historic_file_name(name.data(), static_cast<unsigned int>(name.size()), start, end)) {
            const auto file = m_Files.find(end.GetValue());
            if (file != m_Files.end() && file->second.m_Start == start.GetValue())
                continue;
        }
        log.PrintError("** Unexpected file '%s' found", name.c_str());
        bResult = false;
    }
    if (const int error = find.GetLastError(); error != 0 && error != ENOENT && error != ENOTDIR) {
        char text[256];
        find.GetLastErrorString(text, sizeof text);
        log.PrintError("** Folder could not be listed: %s", text);
        bResult = false;
    }
    return bResult;
}

void CHistoricTable::DeleteAll() {
    {
        const CQVCriticalSectionGuard guard(m_CacheLock);
        FreeListOfCachedRecord(m_CachedRecords);
    }
    const WriteLockGuard lock(*this);
    if (m_FolderError != 0)
        m_FolderError = ReadFolder();
    UndoUnfinishedSplit();
    for (const auto& [end, file] : m_Files) {
        if (m_UnfinishedSplit && m_UnfinishedSplit->m_End == end)
            continue; // its copies would count as its records once it is gone
        CQVFilePath path;
        file.GetFilePath(m_Path, path);
        path.EraseFile();
    }
    m_Files.clear();
}
