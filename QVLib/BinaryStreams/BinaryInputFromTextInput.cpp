#include <QVLib/BinaryStreams/BinaryInputFromTextInput.h>
#include <QVLib/TextStreams/TextInput.h>
#include <QVPlatform/Ascii.h>

namespace {

// The value of the next digit of the text; -1 at its end.
int ReadDigit(CTextInput& text) {
    int codePoint;
    while (text.ReadCodePoint(codePoint)) {
        const int digit = qv_hexadecimal_digit(codePoint);
        if (digit >= 0)
            return digit;
    }
    return -1;
}

} // namespace

CBinaryInputFromTextInput::CBinaryInputFromTextInput(BinaryStringLength mode, CTextInput* text,
                                                     TextToBinaryMode textMode)
    : CBinaryInput(mode), m_TextMode(textMode), m_pText(text) {}

bool CBinaryInputFromTextInput::ReadByte(unsigned char& byte) {
    const int high = ReadDigit(*m_pText);
    const int low = high < 0 ? -1 : ReadDigit(*m_pText);
    if (low < 0)
        return false;
    byte = static_cast<unsigned char>(high * 16 + low);
    m_Position++;
    return true;
}

void CBinaryInputFromTextInput::Read(void* buffer, unsigned int count) {
    unsigned char* const bytes = static_cast<unsigned char*>(buffer);
    for (unsigned int i = 0; i < count; i++) {
        if (!ReadByte(bytes[i]))
            RaiseEOFException(count);
    }
}

bool CBinaryInputFromTextInput::IsEOF() const {
    int codePoint;
    for (CQVTextLocation location; m_pText->ReadCodePointWithLocation(codePoint, location);) {
        if (qv_hexadecimal_digit(codePoint) < 0)
            continue;
        m_pText->ReplaceCodePoint(codePoint, location);
        return false;
    }
    return true;
}

bool CBinaryInputFromTextInput::Seek(unsigned int position) {
    m_pText->ResetPosition();
    m_Position = 0;
    unsigned char passedOver;
    while (m_Position < position) {
        if (!ReadByte(passedOver))
            return false;
    }
    return true;
}
