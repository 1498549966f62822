#include <QVLib/BinaryStreams/BinaryOutput.h>

#include <QVLib/BinaryStreams/BinaryInput.h>
#include <QVLib/TextStreams/TextInput.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/SecureMemory.h>
#include <QVPlatform/Unicode.h>
#include <algorithm>
#include <climits>
#include <cstring>
#include <stdexcept>

namespace {

constexpr unsigned int CopyBufferSize = 1024;

struct CharacterForm {
    unsigned int further; // bytes behind the first
    unsigned int lead;    // the bits of the first byte that say so
};

CharacterForm FormOfCharacter(unsigned int value) {
    if (value < 0x800)
        return {1, 0xC0};
    if (value < 0x10000)
        return {2, 0xE0};
    if (value < 0x200000)
        return {3, 0xF0};
    if (value < 0x4000000)
        return {4, 0xF8};
    return {5, 0xFC};
}

// Puts a character into `bytes` (room for 6) and returns its length.
unsigned int EncodeCharacter(int character, unsigned char* bytes) {
    const unsigned int value = static_cast<unsigned int>(character);
    if (character < 0x80) {
        bytes[0] = static_cast<unsigned char>(value);
        return 1;
    }
    const CharacterForm form = FormOfCharacter(value);
    bytes[0] = static_cast<unsigned char>(form.lead | value >> (6 * form.further));
    for (unsigned int i = 1; i <= form.further; i++)
        bytes[i] = static_cast<unsigned char>(0x80 | (value >> (6 * (form.further - i)) & 0x3F));
    return form.further + 1;
}

} // namespace

CBinaryOutput::~CBinaryOutput() = default;

void CBinaryOutput::WriteComment(const char*, ...) {}

bool CBinaryOutput::WriteStringLength(int count) {
    QV_ASSERT(m_StringLengthMode != BinaryStringLengthNotAllowed);
    return m_StringLengthMode == BinaryStringLength7BitEncodedInt ? Write7BitEncodedInt(count)
                                                                  : WriteUTFCharacter(count);
}

bool CBinaryOutput::WriteText(std::size_t byteLength, const char* utf8) {
    if (byteLength > INT_MAX)
        throw std::length_error("string too long");
    const unsigned int length = static_cast<unsigned int>(byteLength);
    unsigned int count = 0;
    const bool bWellFormed = qv_is_valid_utf8(utf8, length, count);
    if (!bWellFormed)
        count = qv_utf32len_of_wchar(utf8, length);
    if (!WriteStringLength(static_cast<int>(count)))
        return false;
    if (bWellFormed) {
        // The characters, encoded one by one, would be these very bytes.
        if (length > 0)
            Write(utf8, length);
        return true;
    }
    for (const char *current = utf8, *end = utf8 + length; current < end;)
        WriteUTFCharacter(qv_codepoint_from_qvchar(current, end));
    return true;
}

CBinaryOutput& CBinaryOutput::operator<<(const qvstring& text) {
    WriteText(text.size(), text.data());
    return *this;
}

CBinaryOutput& CBinaryOutput::operator<<(const char* text) {
    WriteText(std::strlen(text), text);
    return *this;
}

CBinaryOutput& CBinaryOutput::operator<<(const CQVSecureWString& text) {
    WriteText(text.Length(), text.Get());
    return *this;
}

bool CBinaryOutput::WriteVMString(unsigned short length, const unsigned char* data) {
    WriteStringLength(length);
    return length == 0 || Write(data, length);
}

CBinaryOutput& CBinaryOutput::operator<<(const std::list<qvstring>& strings) {
    *this << static_cast<unsigned int>(strings.size());
    for (const qvstring& text : strings)
        *this << text;
    return *this;
}

CBinaryOutput& CBinaryOutput::operator<<(const std::list<unsigned int>& values) {
    *this << static_cast<unsigned int>(values.size());
    for (const unsigned int value : values)
        *this << value;
    return *this;
}

CBinaryOutput& CBinaryOutput::operator<<(const COutputLogToRawList& log) {
    *this << static_cast<unsigned int>(log.GetLogEntries().size());
    for (const COutputLogToRawList::LogEntry& entry : log.GetLogEntries())
        *this << static_cast<int>(entry.type) << entry.number << entry.text;
    return *this;
}

bool CBinaryOutput::WriteUTFCharacter(int value) {
    unsigned char bytes[6];
    return Write(bytes, EncodeCharacter(value, bytes));
}

bool CBinaryOutput::Write7BitEncodedInt(int value) {
    unsigned char bytes[5];
    unsigned int length = 0;
    do {
        const unsigned int group = static_cast<unsigned int>(value) & 0x7F;
        value >>= 7;
        bytes[length++] = static_cast<unsigned char>(value > 0 ? group | 0x80 : group);
    } while (value > 0);
    return Write(bytes, length);
}

bool CBinaryOutput::ReadDataFromBinaryInput(unsigned int count, CBinaryInput& input) {
    unsigned char buffer[CopyBufferSize];
    while (count > 0) {
        const unsigned int chunk = std::min(count, CopyBufferSize);
        input.Read(buffer, chunk);
        if (!Write(buffer, chunk))
            return false;
        count -= chunk;
    }
    return true;
}

CBinaryOutput& CBinaryOutput::operator<<(CBinaryInput& input) {
    unsigned char buffer[CopyBufferSize];
    for (unsigned int count = input.GetLength(); count > 0;) {
        const unsigned int chunk = std::min(count, CopyBufferSize);
        input.Read(buffer, chunk);
        Write(buffer, chunk);
        count -= chunk;
    }
    return *this;
}

CBinaryOutput& CBinaryOutput::operator<<(CTextInput& input) {
    int codePoint;
    while (input.ReadCodePoint(codePoint))
        WriteUTFCharacter(codePoint);
    WriteUTFCharacter(0);
    return *this;
}
