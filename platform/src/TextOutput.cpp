#include "FormattedText.h"
#include <QVPlatform/TextOutput.h>
#include <QVPlatform/Unicode.h>
#include <algorithm>
#include <climits>

namespace {

constexpr unsigned int BlanksPerLevel = 2;
constexpr char Base64Digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

} // namespace

void CTextOutput::WriteNewLine() {
    if (m_LineTermination != TextLineTerminationLF)
        WriteCodePoint('\r');
    if (m_LineTermination != TextLineTerminationCR)
        WriteCodePoint('\n');
    m_bAtLineStart = true;
}

void CTextOutput::IndentNewLine() {
    m_bAtLineStart = false;
    for (unsigned int level = 0; level < m_Indent; ++level)
        for (unsigned int blank = 0; blank < BlanksPerLevel; ++blank)
            WriteCodePoint(' ');
}

void CTextOutput::Print(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    PrintVA(format, arguments);
    va_end(arguments);
}

void CTextOutput::PrintVA(const char* format, va_list arguments) {
    const FormattedText text(format, arguments);
    WriteString(text.Text(), text.Length());
}

void CTextOutput::PrintLine(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    PrintVA(format, arguments);
    va_end(arguments);
    PrintLine();
}

void CTextOutput::PrintLine() {
    WriteNewLine();
    m_bAtLineStart = true; // also when a derived output writes its line end in its own way
}

void CTextOutput::PrintChar(char character) {
    WriteIndentedCodePoint(static_cast<unsigned char>(character));
}

void CTextOutput::PrintChars(unsigned int count, char character) {
    WriteCodePoints(count, static_cast<unsigned char>(character));
}

void CTextOutput::WriteString(const char* text, unsigned int length) {
    const char* const end = text + length;
    while (text < end)
        WriteIndentedCodePoint(qv_codepoint_from_qvchar(text, end));
}

void CTextOutput::WriteCodePoints(unsigned int count, int codePoint) {
    for (unsigned int i = 0; i < count; ++i)
        WriteIndentedCodePoint(codePoint);
}

void CTextOutput::PrintBase64(const void* data, unsigned int count) {
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    while (count > 0) {
        const unsigned int taken = std::min(count, 3U);
        unsigned int group = 0;
        for (unsigned int i = 0; i < 3; ++i)
            group = (group << 8) | (i < taken ? bytes[i] : 0U);
        // n bytes fill n + 1 of the group's four digits.
        for (unsigned int digit = 0; digit < 4; ++digit)
            PrintChar(digit <= taken ? Base64Digits[(group >> (18 - 6 * digit)) & 0x3F] : '=');
        bytes += taken;
        count -= taken;
    }
}

void CTextOutput::AdjustIndent(int levels) {
    const long long indent = static_cast<long long>(m_Indent) + levels;
    m_Indent = static_cast<unsigned int>(std::clamp(indent, 0LL, static_cast<long long>(INT_MAX)));
}

void CTextOutput::WriteIndentedCodePoint(int codePoint) {
    if (codePoint == '\n') {
        PrintLine();
        return;
    }
    if (m_bAtLineStart) {
        m_bAtLineStart = false; // first, so that a derived indentation may print through this object
        if (m_Indent > 0)
            IndentNewLine();
    }
    WriteCodePoint(codePoint);
}

bool CTextOutputString::WriteCodePoint(int codePoint) {
    qv_append_codepoint_to_qvstring(codePoint, m_Text);
    return true;
}
