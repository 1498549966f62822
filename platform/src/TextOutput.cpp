#include "FormattedText.h"
#include <QVPlatform/TextOutput.h>
#include <QVPlatform/Unicode.h>
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

namespace {

constexpr unsigned int BlanksPerLevel = 2;
constexpr unsigned int ChunkSize = 64; // characters that a helper makes before it writes them
constexpr int ReplacementCharacter = 0xFFFD;
constexpr int ByteOrderMark = 0xFEFF;
constexpr char Base64Digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Where the ASCII characters that [text, end) starts with stop, or the first line feed among them.
const char* EndOfPlainText(const char* text, const char* end) {
    constexpr uint64_t Ones = 0x0101010101010101U;
    constexpr uint64_t TopBits = 0x80 * Ones;
    for (; end - text >= 8; text += 8) {
        uint64_t word;
        memcpy(&word, text, sizeof word);
        // A byte that was a line feed is 0 here, and subtracting borrows from the first such byte.
        const uint64_t lineFeeds = word ^ '\n' * Ones;
        if ((((lineFeeds - Ones) & ~lineFeeds) | word) & TopBits)
            break;
    }
    while (text < end && static_cast<unsigned char>(*text) < 0x80 && *text != '\n')
        ++text;
    return text;
}

// Where the characters stop that can go out as the bytes they are: at a line feed, at malformed bytes.
const char* EndOfRun(const char* text, const char* end) {
    for (;;) {
        text = EndOfPlainText(text, end);
        if (text == end || *text == '\n')
            return text;
        const char* next = text;
        if (qv_codepoint_from_qvchar(next, end) == ReplacementCharacter) {
            // Bytes that mean this character and do not just stand for it: EF BF BD.
            const bool bGenuine = next - text == 3 && *text == '\xEF';
            if (!bGenuine)
                return text;
        }
        text = next;
    }
}

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
    static constexpr char Blanks[] = "                                                                ";
    static_assert(sizeof Blanks == ChunkSize + 1);
    unsigned int left = m_Indent * BlanksPerLevel;
    while (left > 0) {
        const unsigned int count = std::min(left, ChunkSize);
        if (!PassRun(Blanks, count))
            for (unsigned int i = 0; i < count; ++i)
                WriteCodePoint(' ');
        left -= count;
    }
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
    while (text < end) {
        const char* const runEnd = TakesRuns() ? EndOfRun(text, end) : text;
        if (runEnd > text) {
            StartLine();
            if (PassRun(text, static_cast<unsigned int>(runEnd - text))) {
                text = runEnd;
                continue;
            }
        }
        do
            WriteIndentedCodePoint(qv_codepoint_from_qvchar(text, end));
        while (text < runEnd);
    }
}

void CTextOutput::WritePlainText(const char* text, unsigned int length) {
    if (length == 0)
        return;
    StartLine();
    if (!PassRun(text, length))
        WriteString(text, length);
}

void CTextOutput::WriteCodePoints(unsigned int count, int codePoint) {
    if (codePoint < 0 || codePoint >= 0x80) {
        for (unsigned int i = 0; i < count; ++i)
            WriteIndentedCodePoint(codePoint);
        return;
    }
    char chunk[ChunkSize];
    memset(chunk, codePoint, std::min(count, ChunkSize));
    for (; count > ChunkSize; count -= ChunkSize)
        WriteString(chunk, ChunkSize);
    WriteString(chunk, count);
}

void CTextOutput::PrintBase64(const void* data, unsigned int count) {
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    char chunk[ChunkSize];
    unsigned int used = 0;
    while (count > 0) {
        const unsigned int taken = std::min(count, 3U);
        unsigned int group = 0;
        for (unsigned int i = 0; i < 3; ++i)
            group = (group << 8) | (i < taken ? bytes[i] : 0U);
        // n bytes fill n + 1 of the group's four digits.
        for (unsigned int digit = 0; digit < 4; ++digit)
            chunk[used++] = digit <= taken ? Base64Digits[(group >> (18 - 6 * digit)) & 0x3F] : '=';
        bytes += taken;
        count -= taken;
        if (used == ChunkSize || count == 0) {
            WriteString(chunk, used);
            used = 0;
        }
    }
}

void CTextOutput::AdjustIndent(int levels) {
    const long long indent = static_cast<long long>(m_Indent) + levels;
    m_Indent = static_cast<unsigned int>(std::clamp(indent, 0LL, static_cast<long long>(INT_MAX)));
}

void CTextOutput::StartLine() {
    if (!m_bAtLineStart)
        return;
    m_bAtLineStart = false; // first, so that a derived indentation may print through this object
    if (m_Indent > 0)
        IndentNewLine();
}

void CTextOutput::WriteIndentedCodePoint(int codePoint) {
    if (codePoint == '\n') {
        PrintLine();
        return;
    }
    StartLine();
    WriteCodePoint(codePoint);
}

bool CTextOutputWithEncoding::WriteCodePoint(int codePoint) {
    return WriteMark() && WriteEncoded(codePoint);
}

void CTextOutputWithEncoding::StartNewBytes() {
    m_bStarted = false;
    StartNewText();
}

bool CTextOutputWithEncoding::WriteRun(const char* text, unsigned int length) {
    if (m_Encoding != TextEncodingUTF8 && m_Encoding != TextEncodingUTF8WithMark)
        return false;
    if (WriteMark())
        WriteBytes(reinterpret_cast<const unsigned char*>(text), length);
    return true;
}

// Writes the mark if this is its place; false when that failed, then the next character tries again.
bool CTextOutputWithEncoding::WriteMark() {
    if (m_bStarted)
        return true;
    const bool bHasMark = m_Encoding == TextEncodingUTF8WithMark ||
                          m_Encoding == TextEncodingUTF16LEWithMark ||
                          m_Encoding == TextEncodingUTF16BEWithMark;
    m_bStarted = !bHasMark || WriteEncoded(ByteOrderMark);
    return m_bStarted;
}

bool CTextOutputWithEncoding::WriteEncoded(int codePoint) {
    unsigned char bytes[4];
    unsigned int count = 0;
    if (m_Encoding == TextEncodingUTF8 || m_Encoding == TextEncodingUTF8WithMark) {
        count = qv_encode_utf8(codePoint, bytes);
    } else {
        const bool bBigEndian =
            m_Encoding == TextEncodingUTF16BEWithMark || m_Encoding == TextEncodingUTF16BE;
        unsigned short units[2];
        const unsigned int unitCount = qv_encode_utf16(codePoint, units);
        for (unsigned int i = 0; i < unitCount; ++i) {
            bytes[count++] = static_cast<unsigned char>(bBigEndian ? units[i] >> 8 : units[i]);
            bytes[count++] = static_cast<unsigned char>(bBigEndian ? units[i] : units[i] >> 8);
        }
    }
    return WriteBytes(bytes, count);
}

bool CTextOutputString::WriteCodePoint(int codePoint) {
    qv_append_codepoint_to_qvstring(codePoint, m_Text);
    return true;
}
