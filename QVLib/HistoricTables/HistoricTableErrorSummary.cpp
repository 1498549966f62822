#include <QVLib/HistoricTables/HistoricTableErrorSummary.h>
#include <QVPlatform/Format.h>
#include <cerrno>

void FileSystemErrorSummary::AddFileSystemError(int code) {
    const CQVCriticalSectionGuard guard(m_CS);
    ++m_Errors[code];
}

bool FileSystemErrorSummary::HasFileSystemErrors() const {
    const CQVCriticalSectionGuard guard(m_CS);
    return !m_Errors.empty();
}

void FileSystemErrorSummary::GetFileSystemErrorSummary(CTextOutput& out) const {
    const CQVCriticalSectionGuard guard(m_CS);
    GetFileSystemErrorSummaryNoCS(out);
}

unsigned int FileSystemErrorSummary::GetErrorTypeText(int code, char* buffer, unsigned int size) {
    switch (code) {
    case EPERM:
    case EACCES:
    case EROFS:
        return qv_strcpy(buffer, size, "Access Denied");
    case ENOENT:
        return qv_strcpy(buffer, size, "No File/Directory");
    case EFBIG:
        return qv_strcpy(buffer, size, "File too Big");
    case ENOSPC:
        return qv_strcpy(buffer, size, "Disk Full");
    default:
        return qv_sprintf(buffer, size, "Error %d", code);
    }
}

void FileSystemErrorSummary::GetFileSystemErrorSummaryNoCS(CTextOutput& out) const {
    const char* separator = "";
    for (const auto& [code, occurrences] : m_Errors) {
        char text[32];
        const unsigned int length = GetErrorTypeText(code, text, sizeof text);
        out.Print("%s", separator);
        out.WriteString(text, length);
        if (occurrences > 1)
            out.Print(" (%d)", occurrences);
        separator = ", ";
    }
}

void HistoricTableErrorSummary::AddRecordLostCount(unsigned int count) {
    const CQVCriticalSectionGuard guard(m_CS);
    m_LostRecords += count;
}

bool HistoricTableErrorSummary::HasError() const {
    const CQVCriticalSectionGuard guard(m_CS);
    return m_LostRecords != 0 || !m_Errors.empty();
}

void HistoricTableErrorSummary::GetHistoricTableErrorSummary(CTextOutput& out) const {
    const CQVCriticalSectionGuard guard(m_CS);
    GetFileSystemErrorSummaryNoCS(out);
    if (m_LostRecords != 0)
        out.Print(", Lost Records (%d)", static_cast<int>(m_LostRecords));
}
