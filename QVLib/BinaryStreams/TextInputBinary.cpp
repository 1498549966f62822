#include <QVLib/BinaryStreams/TextInputBinary.h>

bool TextInputFromBinary::ReadNextCodePoint(int& codePoint) {
    if (m_End >= 0 && Tell() == m_End)
        return false;
    if (!CTextInputWithEncoding::ReadNextCodePoint(codePoint))
        return false;
    if (codePoint == 0)
        m_End = Tell();
    return codePoint != 0;
}

bool TextInputFromBinary::ReadNextByte(unsigned char& byte) {
    if (m_pInput->IsEOF())
        return false;
    m_pInput->Read(&byte, 1);
    return true;
}

// An input that cannot be read from the start throws here, where no destructor will delete what it owns.
CTextInputFromBinaryInput::CTextInputFromBinaryInput(CBinaryInput* input, bool ownsInput)
    : TextInputFromBinary(input), m_bOwnsInput(ownsInput) {
    try {
        ReadEncoding();
    } catch (...) {
        if (m_bOwnsInput)
            delete m_pInput;
        throw;
    }
}

CTextInputFromBinaryInput::~CTextInputFromBinaryInput() {
    if (m_bOwnsInput)
        delete m_pInput;
}

CTextInputFromBinaryOutputBuffer::CTextInputFromBinaryOutputBuffer(BinaryOutputBuffer* buffer)
    : TextInputFromBinary(&m_Input), m_Input(buffer) {
    ReadEncoding();
}
