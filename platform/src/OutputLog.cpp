#include "FormattedText.h"
#include <QVPlatform/OutputLog.h>

void COutputLog::Print(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    PrintVA(Information, format, arguments);
    va_end(arguments);
}

void COutputLog::PrintError(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    PrintVA(Error, format, arguments);
    va_end(arguments);
}

void COutputLog::PrintVA(LogType type, const char* format, va_list arguments) {
    const FormattedText line(format, arguments);
    AppendMessage(type, 0, line.Text(), line.Length());
}

void COutputLog::PrefixedPrintInfoVA(const char* prefix, unsigned int length, const char* format,
                                     va_list arguments) {
    const FormattedText line(prefix, length, format, arguments);
    AppendMessage(Information, 0, line.Text(), line.Length());
}

bool COutputLogToString::AppendMessage(LogType, int, const char* text, unsigned int length) {
    m_Text.append(text, length);
    m_Text.push_back('\n');
    return true;
}

bool COutputLogToRawList::AppendMessage(LogType type, int number, const char* text, unsigned int length) {
    m_Entries.push_back({type, number, qvstring(text, length)});
    return true;
}
