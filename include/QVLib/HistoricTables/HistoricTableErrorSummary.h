// FileSystemErrorSummary, HistoricTableErrorSummary - what went wrong with files since a program started, in
// one line for an operator's status page.
//
// The owner of a historic table supplies one; several tables may share it. Nothing resets a summary: its
// owner makes a new one.
//
// Threads:  every operation may be called from any thread.
// Example:  two full disks, one missing folder and 12 lost records read
//           "No File/Directory, Disk Full (2), Lost Records (12)".
#pragma once

#include <QVPlatform/Locks.h>
#include <QVPlatform/TextOutput.h>
#include <map>

class FileSystemErrorSummary {
public:
    // Counts one occurrence of an errno.
    void AddFileSystemError(int code);
    bool HasFileSystemErrors() const;
    // Writes the errors in ascending order of their codes, separated by ", ", each with " (n)" behind it when
    // it occurred more than once. Codes that share a text are listed apart.
    void GetFileSystemErrorSummary(CTextOutput& out) const;

    // Writes the short text of an errno into `buffer` (at most `size` bytes, terminated); returns its length.
    static unsigned int GetErrorTypeText(int code, char* buffer, unsigned int size);

protected:
    // For use with m_CS held, which is not recursive.
    void GetFileSystemErrorSummaryNoCS(CTextOutput& out) const;

    std::map<int, int> m_Errors; // occurrences by code
    mutable CQVCriticalSection m_CS;
};

class HistoricTableErrorSummary : public FileSystemErrorSummary {
public:
    void AddRecordLostCount(unsigned int count);
    bool HasError() const;
    // The file-system errors, then ", Lost Records (n)" when records were lost; the comma stands there also
    // when nothing precedes it.
    void GetHistoricTableErrorSummary(CTextOutput& out) const;

private:
    unsigned int m_LostRecords = 0;
};
