#include <QVLib/TextStreams/TextOutputArray.h>
#include <QVPlatform/Unicode.h>
#include <cstring>

namespace {

// Appends whole or not at all; one byte always stays for the zero.
bool Append(const char* bytes, unsigned int count, char* buffer, unsigned int size, unsigned int& used) {
    if (count >= size - used) // `used` stays below `size`, or both are 0
        return false;
    std::memcpy(buffer + used, bytes, count);
    used += count;
    buffer[used] = '\0';
    return true;
}

} // namespace

CTextOutputOnCharArray::CTextOutputOnCharArray(char* buffer, unsigned int size)
    : m_pBuffer(buffer), m_Size(size) {
    TakeRuns<CTextOutputOnCharArray, &CTextOutputOnCharArray::WriteRun>();
}

bool CTextOutputOnCharArray::WriteCodePoint(int codePoint) {
    unsigned char bytes[4];
    const unsigned int count = qv_utf8_from_utf32(codePoint, bytes);
    return Append(reinterpret_cast<const char*>(bytes), count, m_pBuffer, m_Size, m_Used);
}

bool CTextOutputOnCharArray::WriteRun(const char* text, unsigned int length) {
    return Append(text, length, m_pBuffer, m_Size, m_Used);
}

CTextOutputOnWcharArray::CTextOutputOnWcharArray(char* buffer, unsigned int size)
    : m_pBuffer(buffer), m_Size(size) {
    TakeRuns<CTextOutputOnWcharArray, &CTextOutputOnWcharArray::WriteRun>();
    if (m_Size > 0)
        m_pBuffer[0] = '\0';
}

bool CTextOutputOnWcharArray::WriteCodePoint(int codePoint) {
    char bytes[4];
    const unsigned int count = qv_qvchar_from_utf32(codePoint, bytes);
    return Append(bytes, count, m_pBuffer, m_Size, m_Used);
}

bool CTextOutputOnWcharArray::WriteRun(const char* text, unsigned int length) {
    return Append(text, length, m_pBuffer, m_Size, m_Used);
}
