// Text read from binary streams, in the encoding that its byte-order mark tells (TextStreams/TextInputEncoded.h).
//
// CTextInputFromBinaryInput              from any binary input
// CTextInputFromBinaryOutputBuffer       from what a BinaryOutputBuffer holds
//
// End:        a zero character ends the text, as `output << textInput` writes one behind it; so does the end of
//             the bytes. The binary input then stands behind the zero, at whatever was written next; the text
//             input stays at its end.
// Offsets:    those of the binary input. Seek(0) goes to the first character of the text, wherever the binary
//             input stood when the text input was made.
// Errors:     what the binary input throws where it cannot read passes through.
// Threads:    one thread per input.
// Cost:       virtual calls for each byte. Text in memory is read faster with TextInputFromRawData.
#pragma once

#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVLib/TextStreams/TextInputEncoded.h>

// The common part: text from the binary input that it is given.
class TextInputFromBinary : public CTextInputWithEncoding {
public:
    long long Tell() const override { return m_pInput->Tell(); }
    void Seek(long long offset) override { m_pInput->Seek(static_cast<unsigned int>(OffsetToSeek(offset))); }
    bool ReadNextCodePoint(int& codePoint) override;
    bool ReadNextByte(unsigned char& byte) override;

protected:
    // `input` need not be made yet.
    explicit TextInputFromBinary(CBinaryInput* input) : m_pInput(input) {}

    CBinaryInput* const m_pInput;

private:
    long long m_End = -1; // behind the zero character, once that was read
};

class CTextInputFromBinaryInput : public TextInputFromBinary {
public:
    // Reads from where `input` stands. Deletes it in the destructor when `ownsInput`; else it is borrowed.
    CTextInputFromBinaryInput(CBinaryInput* input, bool ownsInput);
    ~CTextInputFromBinaryInput() override;

private:
    const bool m_bOwnsInput;
};

class CTextInputFromBinaryOutputBuffer : public TextInputFromBinary {
public:
    // The buffer is borrowed. What is written to it later is read too, unless a zero has ended the text.
    explicit CTextInputFromBinaryOutputBuffer(BinaryOutputBuffer* buffer);

private:
    CBinaryInputFromBinaryOutputBuffer m_Input;
};
