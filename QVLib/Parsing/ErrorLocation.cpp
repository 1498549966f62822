#include <QVLib/Parsing/ErrorLocation.h>
#include <QVPlatform/Format.h>

unsigned int ErrorLocationNull::PrintLocation(char* buffer, unsigned int size) const {
    return qv_strcpy(buffer, size, "");
}

unsigned int ErrorLocationString::PrintLocation(char* buffer, unsigned int size) const {
    return qv_strcpy(buffer, size, m_pText);
}

unsigned int CErrorLocationTextRange::PrintLocation(char* buffer, unsigned int size) const {
    const CQVTextLocationSourceName* name = m_Begin.GetSourceNameRef();
    return qv_sprintf(buffer, size, "%s(%u,%u-%u)", name ? name->GetName().c_str() : "", m_Begin.GetLine(),
                      m_Begin.GetColumn(), m_End.GetColumn());
}

bool CErrorLocationTextRange::IsLineInLocation(int line) const {
    const unsigned int wanted = static_cast<unsigned int>(line);
    return line >= 0 && m_Begin.GetLine() <= wanted && wanted <= m_End.GetLine();
}

bool CErrorLocationTextRange::IsLineAndColumnInLocation(int line, int column) const {
    if (!IsLineInLocation(line))
        return false;
    const long long wanted = column;
    const unsigned int wantedLine = static_cast<unsigned int>(line);
    const bool isBeforeBegin = wantedLine == m_Begin.GetLine() && wanted < m_Begin.GetColumn();
    const bool isBehindEnd = wantedLine == m_End.GetLine() && wanted > m_End.GetColumn();
    return !isBeforeBegin && !isBehindEnd;
}
