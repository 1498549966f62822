// CBinaryInputFromTextInput - reads binary data back from hexadecimal text.
//
//     CBinaryInputFromTextInput input(BinaryStringLengthUTF8Character, &text, TextToBinaryHex);
//
// Two digits, in either case, make a byte, the high one first; everything else in the text (blanks, line ends, dashes) is
// passed over.
// Modes:     the text mode is kept and not used: the digits are always hexadecimal. Base64 text is decoded by CBase64.
// Errors:    a text that ends before a byte, or within one, throws CBinaryInput::EOFException.
// Cost:      one code point of the text at a time. Seek() goes back to the start of the text and reads from there;
//            GetLength() reads all of it.
// Ownership: the text input is borrowed; it should stand at its start.
// Threads:   one thread at a time.
#pragma once

#include <QVLib/BinaryStreams/BinaryInput.h>
#include <QVLib/BinaryStreams/BinaryOutputToTextOutput.h>

class CTextInput;

class CBinaryInputFromTextInput : public CBinaryInput {
public:
    CBinaryInputFromTextInput(BinaryStringLength mode, CTextInput* text, TextToBinaryMode textMode);

    void Read(void* buffer, unsigned int count) override;
    // True when no digit is left. Passes over what is none.
    bool IsEOF() const override;
    unsigned int Tell() const override { return m_Position; }
    // False when the text ends before `position`.
    bool Seek(unsigned int position) override;

    TextToBinaryMode GetTextMode() const { return m_TextMode; }

private:
    bool ReadByte(unsigned char& byte);

    TextToBinaryMode m_TextMode;
    CTextInput* m_pText;
    unsigned int m_Position = 0; // bytes delivered
};
