#include <QVLib/Parsing/ErrorLog.h>
#include <QVPlatform/Format.h>
#include <algorithm>

namespace {

constexpr unsigned int LocatedLineSize = 1024;
constexpr unsigned int BareLineSize = 512;

// What stands between the location, if there is one, and the text.
unsigned int PrintKind(char* buffer, unsigned int size, COutputLog::LogType kind, bool isLocated,
                       unsigned int id) {
    switch (kind) {
    case COutputLog::Error:
        return qv_sprintf(buffer, size, isLocated ? ": error %u: " : "Error %u: ", id);
    case COutputLog::Warning:
        return qv_sprintf(buffer, size, isLocated ? ": warning %u: " : "Warning %u: ", id);
    default:
        return qv_strcpy(buffer, size, isLocated ? ": " : " ");
    }
}

} // namespace

constinit const CQVLocale CErrorLog::m_ErrorLocale;

CErrorLog::CErrorLog(COutputLog* log) : CErrorLog(m_ErrorLocale, log) {}

CErrorLog::CErrorLog(const CQVLocale& locale, COutputLog* log) : m_pLocale(&locale), m_pOutputLog(log) {}

void CErrorLog::LogError(const ErrorLocation& where, const CQVModule& module, unsigned int id, ...) {
    va_list arguments;
    va_start(arguments, id);
    LogErrorVA(where, module, id, arguments);
    va_end(arguments);
}

void CErrorLog::LogErrorVA(const ErrorLocation& where, const CQVModule& module, unsigned int id,
                           va_list arguments) {
    LogVA(GetErrorKind(), where, module, id, arguments);
}

void CErrorLog::LogWarning(const ErrorLocation& where, const CQVModule& module, unsigned int id, ...) {
    va_list arguments;
    va_start(arguments, id);
    LogVA(COutputLog::Warning, where, module, id, arguments);
    va_end(arguments);
}

void CErrorLog::LogInformation(const ErrorLocation& where, const CQVModule& module, unsigned int id, ...) {
    va_list arguments;
    va_start(arguments, id);
    LogVA(COutputLog::Information, where, module, id, arguments);
    va_end(arguments);
}

void CErrorLog::LogVA(int kind, const ErrorLocation& where, const CQVModule& module, unsigned int id,
                      va_list arguments) {
    const COutputLog::LogType type = static_cast<COutputLog::LogType>(kind);
    char line[LocatedLineSize];
    unsigned int length = std::min(where.PrintLocation(line, LocatedLineSize), LocatedLineSize - 1);
    length += PrintKind(line + length, LocatedLineSize - length, type, length > 0, id);
    length +=
        module.FormatResourceStringVA(*m_pLocale, id, line + length, LocatedLineSize - length, arguments);
    Count(type);
    m_pOutputLog->AppendMessage(type, static_cast<int>(id), line, length);
}

void CErrorLog::LogError(const CQVModule& module, unsigned int id, ...) {
    va_list arguments;
    va_start(arguments, id);
    LogErrorVA(module, id, arguments);
    va_end(arguments);
}

void CErrorLog::LogErrorVA(const CQVModule& module, unsigned int id, va_list arguments) {
    LogBareVA(GetErrorKind(), module, id, arguments);
}

void CErrorLog::LogWarning(const CQVModule& module, unsigned int id, ...) {
    va_list arguments;
    va_start(arguments, id);
    LogWarningVA(module, id, arguments);
    va_end(arguments);
}

void CErrorLog::LogWarningVA(const CQVModule& module, unsigned int id, va_list arguments) {
    LogBareVA(COutputLog::Warning, module, id, arguments);
}

void CErrorLog::LogInformation(const CQVModule& module, unsigned int id, ...) {
    va_list arguments;
    va_start(arguments, id);
    LogBareVA(COutputLog::Information, module, id, arguments);
    va_end(arguments);
}

void CErrorLog::LogBareVA(COutputLog::LogType kind, const CQVModule& module, unsigned int id,
                          va_list arguments) {
    char line[BareLineSize];
    const unsigned int length = module.FormatResourceStringVA(*m_pLocale, id, line, BareLineSize, arguments);
    Count(kind);
    m_pOutputLog->AppendMessage(kind, static_cast<int>(id), line, length);
}

char* CErrorLog::GetResourceString(const CQVModule& module, unsigned int id, char* buffer,
                                   unsigned int size) const {
    if (!module.LoadResourceString(*m_pLocale, id, buffer, size))
        qv_sprintf(buffer, size, "Resource string with id %u not found!", id);
    return buffer;
}

void CErrorLog::PropagateErrorAndWarningCount(const CErrorLog& other) {
    m_nErrors += other.m_nErrors;
    m_nWarnings += other.m_nWarnings;
}

void CErrorLog::PropagateErrorsFromOutputLog(const COutputLogToRawList& list) {
    for (const COutputLogToRawList::LogEntry& entry : list.GetLogEntries()) {
        Count(entry.type);
        m_pOutputLog->AppendMessage(entry.type, entry.number, entry.text.data(),
                                    static_cast<unsigned int>(entry.text.size()));
    }
}

void CErrorLog::ResetCounts() {
    m_nErrors = 0;
    m_nWarnings = 0;
}

void CErrorLog::Count(COutputLog::LogType kind) {
    if (kind == COutputLog::Error)
        ++m_nErrors;
    else if (kind == COutputLog::Warning)
        ++m_nWarnings;
}

CErrorLogToMessageList::CErrorLogToMessageList() : CErrorLog(&m_MessageList) {}

CErrorLogToMessageList::CErrorLogToMessageList(const CQVLocale& locale) : CErrorLog(locale, &m_MessageList) {}

void CErrorLogToMessageList::Clear() {
    m_MessageList.Clear();
    ResetCounts();
}

CErrorLogToNull::CErrorLogToNull() : CErrorLog(&m_NullLog) {}

CErrorLogToNull::CErrorLogToNull(const CErrorLogToNull&) : CErrorLogToNull() {}

CErrorLogToString::CErrorLogToString() : CErrorLog(&m_StringLog) {}

CErrorLogToString::CErrorLogToString(const CQVLocale& locale) : CErrorLog(locale, &m_StringLog) {}

CErrorLogToString::CErrorLogToString(const CErrorLogToString& other)
    : CErrorLog(other.GetLocale(), &m_StringLog), m_StringLog(other.m_StringLog) {
    PropagateErrorAndWarningCount(other);
}

void CErrorLogToString::ClearErrorLog() {
    m_StringLog.Clear();
    ResetCounts();
}
