// BinaryOutputToTextOutput - binary output as lines of text, for people and for files that must be text.
//
//     BinaryOutputToTextOutput dump(BinaryStringLengthUTF8Character, text, TextToBinaryHex, true);
//     dump << value;
//     dump.FlushFinalOutput();
//
// Lines hold 48 bytes, 96 hexadecimal digits or 64 characters of Base64 (RFC 4648). Without line breaks they follow each
// other. No line end is written behind the last one.
// Errors:    writing always succeeds; what the text output refuses is lost as the text output says.
// Ownership: the text output is borrowed. Nothing is flushed by the destructor.
// Threads:   one thread at a time.
#pragma once

#include <QVLib/BinaryStreams/BinaryOutput.h>

class CTextOutput;

// The text form of binary data.
enum TextToBinaryMode : int {
    TextToBinaryHex = 0,    // two digits a byte, capitals
    TextToBinaryBase64 = 1, // with padding at the end
};

class BinaryOutputToTextOutput : public CBinaryOutput {
public:
    BinaryOutputToTextOutput(BinaryStringLength mode, CTextOutput& output, TextToBinaryMode textMode,
                             bool lineBreaks);

    // True. Bytes that fill no line wait for more.
    bool Write(const void* data, unsigned int count) override;
    // Nothing: the text holds the data and nothing else.
    void WriteComment(const char* format, ...) override __attribute__((format(printf, 2, 3)));

    // Prints the bytes that wait. To be called behind the last write.
    void FlushFinalOutput();

private:
    static constexpr unsigned int BytesPerLine = 48;

    void PrintBytes(const unsigned char* data, unsigned int count);
    void PrintHexadecimal(const unsigned char* data, unsigned int count);

    CTextOutput* m_pOutput;
    TextToBinaryMode m_TextMode;
    bool m_bLineBreaks;
    unsigned char m_Pending[BytesPerLine];
    unsigned int m_PendingCount = 0;
    unsigned long long m_LinesPrinted = 0;
};
