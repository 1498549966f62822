#include <QVLib/TextStreams/TextInputEncoded.h>

#include <QVPlatform/FilePath.h>
#include <algorithm>
#include <limits>

namespace {

// The second unit is not checked.
int FromPair(int first, int second) {
    return ((first << 10 & 0xFFC00) | (second & 0x3FF)) + 0x10000;
}

} // namespace

// CTextInputWithEncoding

bool CTextInputWithEncoding::ReadNextCodePoint(int& codePoint) {
    switch (m_Encoding) {
    case TextEncodingUTF16LEWithMark:
    case TextEncodingUTF16LE:
        return TakeUtf16(false, codePoint) || ReadUtf16LE(codePoint);
    case TextEncodingUTF16BEWithMark:
    case TextEncodingUTF16BE:
        return TakeUtf16(true, codePoint) || ReadUtf16BE(codePoint);
    default:
        return ReadUtf8(codePoint);
    }
}

// Takes a character that lies in memory for certain; all others are read unit by unit.
bool CTextInputWithEncoding::TakeUtf16(bool bBigEndian, int& codePoint) {
    const char* const place = GetWindow();
    if (m_pBytesEnd - place < 4)
        return false;
    const auto unit = [place, bBigEndian](int at) {
        const int first = static_cast<unsigned char>(place[at]);
        const int second = static_cast<unsigned char>(place[at + 1]);
        return bBigEndian ? first << 8 | second : second << 8 | first;
    };
    codePoint = unit(0);
    const bool bPair = codePoint >= 0xD800 && codePoint < 0xDC00;
    if (bPair)
        codePoint = FromPair(codePoint, unit(2));
    const char* const next = place + (bPair ? 4 : 2);
    SetWindow(next, next);
    return true;
}

void CTextInputWithEncoding::SetEncoding(TextEncoding encoding) {
    m_Encoding = encoding;
    Seek(Tell()); // the window depends on the encoding
}

void CTextInputWithEncoding::ReadEncoding() {
    m_Encoding = TextEncodingUTF8;
    m_TextStart = Tell();
    unsigned char first = 0, second = 0, third = 0;
    bool marked = false;
    if (ReadNextByte(first) && ReadNextByte(second)) {
        marked = true;
        if (first == 0xFF && second == 0xFE)
            m_Encoding = TextEncodingUTF16LEWithMark;
        else if (first == 0xFE && second == 0xFF)
            m_Encoding = TextEncodingUTF16BEWithMark;
        else if (first == 0xEF && second == 0xBB && ReadNextByte(third) && third == 0xBF)
            m_Encoding = TextEncodingUTF8WithMark;
        else
            marked = false;
    }
    if (marked)
        m_TextStart = Tell();
    Seek(m_TextStart);
}

bool CTextInputWithEncoding::ReadUtf8(int& codePoint) {
    unsigned char byte;
    if (!ReadNextByte(byte))
        return false;
    int trail = 0;
    if (byte < 0x80)
        codePoint = byte;
    else if ((byte & 0xE0) == 0xC0)
        trail = 1;
    else if ((byte & 0xF0) == 0xE0)
        trail = 2;
    else if ((byte & 0xF8) == 0xF0)
        trail = 3;
    else
        codePoint = 0xFFFD;
    if (trail == 0)
        return true;
    int value = byte & (0x3F >> trail);
    for (; trail > 0; --trail) {
        if (!ReadNextByte(byte))
            return false;
        value = value << 6 | (byte & 0x3F);
    }
    codePoint = value;
    return true;
}

bool CTextInputWithEncoding::ReadUtf16LE(int& codePoint) {
    int next;
    if (!ReadUint16LE(codePoint))
        return false;
    if (codePoint < 0xD800 || codePoint >= 0xDC00)
        return true;
    if (!ReadUint16LE(next))
        return false;
    codePoint = FromPair(codePoint, next);
    return true;
}

bool CTextInputWithEncoding::ReadUtf16BE(int& codePoint) {
    int next;
    if (!ReadUint16BE(codePoint))
        return false;
    if (codePoint < 0xD800 || codePoint >= 0xDC00)
        return true;
    if (!ReadUint16BE(next))
        return false;
    codePoint = FromPair(codePoint, next);
    return true;
}

bool CTextInputWithEncoding::ReadUint16LE(int& unit) {
    unsigned char low, high;
    if (!ReadNextByte(low) || !ReadNextByte(high))
        return false;
    unit = high << 8 | low;
    return true;
}

bool CTextInputWithEncoding::ReadUint16BE(int& unit) {
    unsigned char high, low;
    if (!ReadNextByte(high) || !ReadNextByte(low))
        return false;
    unit = high << 8 | low;
    return true;
}

// TextInputFile

TextInputFile::TextInputFile() : m_File(false) {
    DropBlock(0);
}

TextInputFile::~TextInputFile() = default;

bool TextInputFile::OpenFile(const CQVFilePath& path) {
    return OpenFile(path, path.GetPath());
}

bool TextInputFile::OpenFile(const CQVFilePath& path, const qvstring& name) {
    Close();
    ClearLastError();
    if (!m_File.OpenFileForRead(path, false)) {
        PropagateErrorFrom(m_File);
        return false;
    }
    DropBlock(0);
    if (!ReadBlock(0) && GetLastError() != 0) { // a folder, say, opens like a file
        const int error = GetLastError();
        Close();
        SetLastError(error);
        return false;
    }
    SetName(name);
    ReadEncoding();
    ResetPosition();
    return true;
}

unsigned int TextInputFile::GetLengthEstimate() const {
    const unsigned long long size =
        static_cast<unsigned long long>(std::max<long long>(m_File.GetFileSize(), 0));
    const TextEncoding encoding = GetEncoding();
    const bool isMarkedUtf16 =
        encoding == TextEncodingUTF16LEWithMark || encoding == TextEncodingUTF16BEWithMark;
    const unsigned long long estimate = isMarkedUtf16 ? size / 2 : size * 2 / 3;
    return static_cast<unsigned int>(
        std::min<unsigned long long>(estimate, std::numeric_limits<unsigned int>::max()));
}

long long TextInputFile::Tell() const {
    return m_BlockStart + (GetWindow() - m_Block);
}

void TextInputFile::Seek(long long offset) {
    offset = OffsetToSeek(offset);
    const bool isInBlock = offset >= m_BlockStart && offset - m_BlockStart < m_BlockLength;
    if (!isInBlock && SeekFile(offset - offset % BlockSize))
        ReadBlock(offset - offset % BlockSize);
    if (offset >= m_BlockStart && offset - m_BlockStart < m_BlockLength) {
        UseBlock(m_BlockLength, static_cast<unsigned int>(offset - m_BlockStart));
        return;
    }
    // Nothing there. Text that is appended to the file later is found where it belongs.
    SeekFile(offset);
    DropBlock(offset);
}

void TextInputFile::Close() {
    if (!m_File.CloseFile())
        PropagateErrorFrom(m_File);
    DropBlock(Tell());
}

// The block that follows begins where this one ended, which at the end of the file may be within a block's size.
bool TextInputFile::ReadNextByte(unsigned char& byte) {
    if (GetWindow() == m_Block + m_BlockLength && !ReadBlock(m_BlockStart + m_BlockLength))
        return false;
    byte = static_cast<unsigned char>(*GetWindow());
    SetBytes(GetWindow() + 1, m_Block + m_BlockLength);
    return true;
}

// Reads the next block of the file, which starts at `start`. At the end of the file all stays as it is.
bool TextInputFile::ReadBlock(long long start) {
    if (!m_File.IsOpen())
        return false;
    // The window looks back at what it has delivered, so it settles before that changes.
    SetWindow(GetWindow(), GetWindow());
    unsigned int length = 0;
    if (!m_File.ReadBytes(m_Block, BlockSize, length)) {
        PropagateErrorFrom(m_File);
        DropBlock(Tell());
    }
    if (length == 0)
        return false;
    m_BlockStart = start;
    UseBlock(length, 0);
    return true;
}

// The file takes 32 bits at a time.
bool TextInputFile::SeekFile(long long offset) {
    constexpr long long MaxStep = std::numeric_limits<unsigned int>::max();
    long long step = std::min(offset, MaxStep);
    bool moved = m_File.IsOpen() && m_File.SeekToOffset(static_cast<unsigned int>(step));
    while (moved && (offset -= step) > 0) {
        step = std::min(offset, MaxStep);
        moved = m_File.SkipForward(static_cast<unsigned int>(step));
    }
    if (!moved)
        PropagateErrorFrom(m_File);
    return moved;
}

void TextInputFile::UseBlock(unsigned int length, unsigned int index) {
    m_BlockLength = length;
    SetBytes(m_Block + index, m_Block + length);
}

// An empty block at `offset`.
void TextInputFile::DropBlock(long long offset) {
    UseBlock(0, 0);
    m_BlockStart = offset;
}

// TextInputFromRawData

TextInputFromRawData::TextInputFromRawData(const unsigned char* data, unsigned int length) {
    UseData(data, length);
}

TextInputFromRawData::TextInputFromRawData(const unsigned char* data, unsigned int length,
                                           const qvstring& name)
    : CTextInputWithEncoding(name) {
    UseData(data, length);
}

TextInputFromRawData::TextInputFromRawData(const unsigned char* data, unsigned int length,
                                           const CQVTextLocation& start)
    : CTextInputWithEncoding(start) {
    UseData(data, length);
}

bool TextInputFromRawData::ReadNextByte(unsigned char& byte) {
    const char* const current = GetWindow();
    if (current >= m_pEnd)
        return false;
    byte = static_cast<unsigned char>(*current);
    SetBytes(current + 1, m_pEnd);
    return true;
}

void TextInputFromRawData::UseData(const unsigned char* data, unsigned int length) {
    m_pStart = reinterpret_cast<const char*>(data);
    m_pEnd = m_pStart + length;
    SetBytes(m_pStart, m_pEnd);
    ReadEncoding();
}
