// Text written as bytes.
//
// CTextOutputUTF8            collects text as UTF-8 in a buffer in memory, which it is at the same time
// CTextOutputToBinaryOutput  writes text in any TextEncoding to a binary output
//
//     CTextOutputUTF8 text;
//     settings.SaveAsText(text);
//     text.CopyAllDataToBinaryOutput(file);
//
// Neither writes a terminator or a length. An output does not see what is done to the bytes beneath it: text
// that is printed after other bytes were written, or after the buffer was cleared through its base, goes on in
// the line where the text stood.
// Threads:   one thread at a time.
#pragma once

#include <QVLib/BinaryStreams/BinaryOutputBuffer.h>
#include <QVPlatform/TextOutput.h>

class CTextOutputUTF8 : public CTextOutput, public BinaryOutputBuffer {
public:
    CTextOutputUTF8();

    // True. Writes the code point as CBinaryOutput::WriteUTFCharacter() does, also one that is none: printed
    // text never has such, its malformed bytes are U+FFFD.
    bool WriteCodePoint(int codePoint) override;

    // Forgets the text; the next character starts a line. The indentation level stays.
    void Clear();
    void SecureClearBuffer();

private:
    bool WriteRun(const char* text, unsigned int length);
};

class CTextOutputToBinaryOutput : public CTextOutputWithEncoding {
public:
    // UTF-8 without a byte-order mark, lines end with CR LF. `output` is borrowed and must outlive the object.
    explicit CTextOutputToBinaryOutput(CBinaryOutput* output);

    // The output's own result.
    bool WriteBytes(const unsigned char* data, unsigned int count) override;

private:
    CBinaryOutput* m_pOutput;
};
