#include <QVLib/BinaryStreams/BinaryOutputToTextOutput.h>
#include <QVPlatform/TextOutput.h>
#include <algorithm>
#include <cstring>

BinaryOutputToTextOutput::BinaryOutputToTextOutput(BinaryStringLength mode, CTextOutput& output,
                                                   TextToBinaryMode textMode, bool lineBreaks)
    : CBinaryOutput(mode), m_pOutput(&output), m_TextMode(textMode), m_bLineBreaks(lineBreaks) {}

bool BinaryOutputToTextOutput::Write(const void* data, unsigned int count) {
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    while (count > 0) {
        if (m_PendingCount == 0 && count >= BytesPerLine) {
            PrintBytes(bytes, BytesPerLine);
            bytes += BytesPerLine;
            count -= BytesPerLine;
            continue;
        }
        const unsigned int taken = std::min(count, BytesPerLine - m_PendingCount);
        std::memcpy(m_Pending + m_PendingCount, bytes, taken);
        m_PendingCount += taken;
        bytes += taken;
        count -= taken;
        if (m_PendingCount == BytesPerLine)
            FlushFinalOutput();
    }
    return true;
}

void BinaryOutputToTextOutput::WriteComment(const char*, ...) {}

void BinaryOutputToTextOutput::FlushFinalOutput() {
    if (m_PendingCount > 0)
        PrintBytes(m_Pending, m_PendingCount);
    m_PendingCount = 0;
}

void BinaryOutputToTextOutput::PrintBytes(const unsigned char* data, unsigned int count) {
    if (m_bLineBreaks && m_LinesPrinted > 0)
        m_pOutput->PrintLine();
    if (m_TextMode == TextToBinaryBase64)
        m_pOutput->PrintBase64(data, count);
    else
        PrintHexadecimal(data, count);
    m_LinesPrinted++;
}

void BinaryOutputToTextOutput::PrintHexadecimal(const unsigned char* data, unsigned int count) {
    static constexpr char digits[] = "0123456789ABCDEF";
    char line[2 * BytesPerLine];
    for (unsigned int i = 0; i < count; i++) {
        line[2 * i] = digits[data[i] >> 4];
        line[2 * i + 1] = digits[data[i] & 15];
    }
    m_pOutput->WriteString(line, 2 * count);
}
