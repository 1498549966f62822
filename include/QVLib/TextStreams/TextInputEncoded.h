// Text inputs over bytes in one of the encodings of QVPlatform/TextEncoding.h.
//
// Which one:  TextInputFile           a text file
//             TextInputFromRawData    bytes in memory
//             BinaryStreams/TextInputBinary.h has those over binary inputs and buffers.
//
//     TextInputFile input;
//     if (!input.OpenFile(path))
//         return false; // GetLastError() says why
//     MyParseContext context(&input, log);
//
// Encoding:   a byte-order mark at the start of the text tells it; without one the text is UTF-8. Text that is
//             known to be UTF-16 without a mark needs SetEncoding().
// Offsets:    Tell() counts bytes from the start of the file or array, a mark included: 3 at the start of marked
//             UTF-8. Seek(0), and so ResetPosition(), goes to the first character, behind the mark. No other
//             offset is treated specially.
// Malformed:  nothing fails, text ends only where the bytes end, if need be within a character. In UTF-8 a byte
//             that starts no character is U+FFFD; the bytes behind a start byte are taken as they come, six bits
//             of each. In UTF-16 a high surrogate takes ten bits of the next unit, whatever that is; a lone low
//             one is delivered as it is.
// Threads:    one thread per input.
// Cost:       UTF-8 is read in place through the window of CTextInput. Each character of UTF-16 costs a
//             virtual call.
#pragma once

#include <QVLib/TextStreams/TextInput.h>
#include <QVPlatform/Error.h>
#include <QVPlatform/FileSystem.h>
#include <QVPlatform/TextEncoding.h>

class CQVFilePath;

// The common part: finds the encoding and decodes. A concrete input delivers bytes.
class CTextInputWithEncoding : public CTextInput {
public:
    CTextInputWithEncoding() = default;
    explicit CTextInputWithEncoding(const qvstring& name) : CTextInput(name) {}
    explicit CTextInputWithEncoding(const CQVTextLocation& start) : CTextInput(start) {}

    bool ReadNextCodePoint(int& codePoint) override;
    // The next byte, false at the end. Behind the operations of CTextInput, for the same compiled programs.
    virtual bool ReadNextByte(unsigned char& byte) = 0;

    TextEncoding GetEncoding() const { return m_Encoding; }
    // Decodes what comes next in this encoding.
    void SetEncoding(TextEncoding encoding);

protected:
    // Looks for a mark at the present place, which becomes the start of the text, or the byte behind the mark
    // does. For constructors, and whenever the bytes are new.
    void ReadEncoding();

    // The offset that a Seek() to `offset` means: 0 is the start of the text.
    long long OffsetToSeek(long long offset) const { return offset == 0 ? m_TextStart : offset; }
    // Whether the bytes themselves may be the window.
    bool IsUtf8() const { return m_Encoding <= TextEncodingUTF8WithMark; }
    // Puts the window on bytes that lie in memory: all of them for UTF-8, none for UTF-16, whose place is then
    // GetWindow() all the same.
    void SetBytes(const char* current, const char* end) {
        m_pBytesEnd = end;
        SetWindow(current, IsUtf8() && current < end ? end : current);
    }

    // The decoders; false when the bytes end within the character.
    bool ReadUtf8(int& codePoint);
    bool ReadUtf16LE(int& codePoint);
    bool ReadUtf16BE(int& codePoint);
    bool ReadUint16LE(int& unit);
    bool ReadUint16BE(int& unit);

private:
    bool TakeUtf16(bool bBigEndian, int& codePoint);

    TextEncoding m_Encoding = TextEncodingUTF8;
    long long m_TextStart = 0;
    const char* m_pBytesEnd = nullptr; // of the bytes in memory that start at GetWindow()
};

// Reads a file in blocks of 1,024 bytes. A seek within the block in memory costs nothing, every other one reads a
// block, aligned to its size. What is appended to the file while it is read is found by later reads.
class TextInputFile : public CTextInputWithEncoding, public CQVError {
public:
    // No file; reads answer false.
    TextInputFile();
    ~TextInputFile() override; // closes the file

    // Opens a file and stands at line 1, column 1 of its text; a file that is open is closed first. Locations
    // name the file by its path or by `name`. False when it cannot be opened or read, with the system's errno
    // in the object; no file is then open.
    bool OpenFile(const CQVFilePath& path);
    bool OpenFile(const CQVFilePath& path, const qvstring& name);

    // About how many code points the file holds: half its size in bytes where a mark says UTF-16, else two
    // thirds of it.
    unsigned int GetLengthEstimate() const;

    long long Tell() const override;
    // At or past the end Tell() is then `offset`, and reads answer false.
    void Seek(long long offset) override;
    void IncrementPosition(int codePoint) final { CTextInput::IncrementPosition(codePoint); }
    // Closes the file; reads then answer false.
    void Close() override;
    // False too when the system cannot read, which leaves its errno in the object.
    bool ReadNextByte(unsigned char& byte) override;

private:
    static constexpr unsigned int BlockSize = 1024;

    bool ReadBlock(long long start);
    bool SeekFile(long long offset);
    void UseBlock(unsigned int length, unsigned int index);
    void DropBlock(long long offset);

    QVFileUnix m_File;
    char m_Block[BlockSize];
    unsigned int m_BlockLength = 0;
    long long m_BlockStart = 0; // offset of the block's first byte; the place in the block is GetWindow()
};

// Reads bytes in place. They stay the caller's and must be there, unchanged, as long as the input; `data` may be
// null when `length` is 0.
class TextInputFromRawData : public CTextInputWithEncoding {
public:
    TextInputFromRawData(const unsigned char* data, unsigned int length);
    TextInputFromRawData(const unsigned char* data, unsigned int length, const qvstring& name);
    TextInputFromRawData(const unsigned char* data, unsigned int length, const CQVTextLocation& start);

    long long Tell() const override { return GetWindow() - m_pStart; }
    // `offset` is at most the length.
    void Seek(long long offset) override { SetBytes(m_pStart + OffsetToSeek(offset), m_pEnd); }
    void IncrementPosition(int codePoint) final { CTextInput::IncrementPosition(codePoint); }
    bool ReadNextByte(unsigned char& byte) override;

private:
    void UseData(const unsigned char* data, unsigned int length);

    const char* m_pStart;
    const char* m_pEnd;
};
