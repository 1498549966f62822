#include <QVLib/BinaryStreams/TextOutputBinary.h>

CTextOutputUTF8::CTextOutputUTF8() : BinaryOutputBuffer(BinaryStringLengthNotAllowed) {
    TakeRuns<CTextOutputUTF8, &CTextOutputUTF8::WriteRun>();
}

bool CTextOutputUTF8::WriteCodePoint(int codePoint) {
    return WriteUTFCharacter(codePoint);
}

void CTextOutputUTF8::Clear() {
    BinaryOutputBuffer::Clear();
    StartNewText();
}

void CTextOutputUTF8::SecureClearBuffer() {
    BinaryOutputBuffer::SecureClearBuffer();
    StartNewText();
}

bool CTextOutputUTF8::WriteRun(const char* text, unsigned int length) {
    return Write(text, length);
}

CTextOutputToBinaryOutput::CTextOutputToBinaryOutput(CBinaryOutput* output) : m_pOutput(output) {
    TakeRuns<CTextOutputToBinaryOutput, &CTextOutputToBinaryOutput::WriteRun>();
    SetLineTermination(TextLineTerminationCRLF);
}

bool CTextOutputToBinaryOutput::WriteBytes(const unsigned char* data, unsigned int count) {
    return m_pOutput->Write(data, count);
}
