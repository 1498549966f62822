#include <QVPlatform/OutputLog.h>
#include <QVPlatform/TextOutputToOutputLog.h>
#include <QVPlatform/Unicode.h>

CTextOutputToOutputLog::~CTextOutputToOutputLog() {
    if (!m_Line.empty())
        AppendLine();
}

bool CTextOutputToOutputLog::WriteCodePoint(int codePoint) {
    if (codePoint == '\n')
        WriteNewLine();
    else
        qv_append_codepoint_to_qvstring(codePoint, m_Line);
    return true;
}

void CTextOutputToOutputLog::WriteNewLine() {
    if (m_Line.ends_with('\r'))
        m_Line.pop_back();
    AppendLine();
    StartNewText();
}

bool CTextOutputToOutputLog::WriteRun(const char* text, unsigned int length) {
    m_Line.append(text, length);
    return true;
}

void CTextOutputToOutputLog::AppendLine() {
    m_pLog->AppendMessage(COutputLog::Information, 0, m_Line.data(),
                          static_cast<unsigned int>(m_Line.size()));
    m_Line.clear();
}
