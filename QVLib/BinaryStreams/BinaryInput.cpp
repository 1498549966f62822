#include <QVLib/BinaryStreams/BinaryInput.h>

#include <QVLib/BinaryStreams/DataSink.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/SecureMemory.h>
#include <QVPlatform/Unicode.h>
#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace {

// How the first byte of a character announces the rest of it.
struct CharacterForm {
    unsigned int further; // bytes behind the first
    unsigned char mask;   // of the value bits in the first byte
};

CharacterForm FormOfCharacter(unsigned char first) {
    if (first < 0x80)
        return {0, 0x7F};
    if ((first & 0xE0) == 0xC0)
        return {1, 0x1F};
    if ((first & 0xF0) == 0xE0)
        return {2, 0x0F};
    if ((first & 0xF8) == 0xF0)
        return {3, 0x07};
    if ((first & 0xFC) == 0xF8)
        return {4, 0x03};
    return {5, 0x01};
}

int ValueOfCharacter(unsigned char first, CharacterForm form, const unsigned char* further) {
    unsigned int value = first & form.mask;
    for (unsigned int i = 0; i < form.further; i++)
        value = value << 6 | (further[i] & 0x3Fu);
    return static_cast<int>(value);
}

// Characters that lie in a run of bytes as they will lie in the text.
struct Span {
    unsigned int bytes;
    unsigned int characters;
};

bool IsContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// The number of ASCII characters at the start of a run, to a multiple of eight.
unsigned int CountASCIIEights(const unsigned char* run, unsigned int length) {
    unsigned int count = 0;
    for (unsigned long long eight; length - count >= sizeof eight; count += sizeof eight) {
        std::memcpy(&eight, run + count, sizeof eight);
        if ((eight & 0x8080808080808080) != 0)
            break;
    }
    return count;
}

// The length of the well-formed character of one to three bytes at the start of a run; 0 for everything else.
unsigned int LengthOfWellFormed(const unsigned char* run, unsigned int length) {
    if (run[0] < 0x80)
        return 1;
    if (length >= 2 && run[0] >= 0xC2 && run[0] < 0xE0 && IsContinuation(run[1]))
        return 2;
    if (length >= 3 && (run[0] & 0xF0) == 0xE0 && (run[0] != 0xE0 || run[1] >= 0xA0) &&
        IsContinuation(run[1]) && IsContinuation(run[2]))
        return 3;
    return 0;
}

// The well-formed characters that a run starts with.
Span FindWellFormed(const unsigned char* run, unsigned int length) {
    Span span = {0, 0};
    while (span.bytes < length) {
        const unsigned int plain = CountASCIIEights(run + span.bytes, length - span.bytes);
        span.bytes += plain;
        span.characters += plain;
        if (span.bytes == length)
            break;
        const unsigned int character = LengthOfWellFormed(run + span.bytes, length - span.bytes);
        if (character == 0)
            break;
        span.bytes += character;
        span.characters++;
    }
    return span;
}

bool IsHighSurrogate(int unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}

bool IsLowSurrogate(int unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}

// Puts UTF-16 units together to the characters of a text.
class SurrogateJoiner {
public:
    explicit SurrogateJoiner(qvstring& text) : m_Text(text) {}

    void Append(int unit) {
        if (m_High != 0 && IsLowSurrogate(unit)) {
            qv_append_codepoint_to_qvstring(((m_High - 0xD800) << 10 | (unit - 0xDC00)) + 0x10000, m_Text);
            m_High = 0;
            return;
        }
        Finish();
        if (IsHighSurrogate(unit))
            m_High = unit;
        else
            qv_append_codepoint_to_qvstring(IsLowSurrogate(unit) ? Replacement : unit, m_Text);
    }

    void Finish() {
        if (m_High != 0)
            qv_append_codepoint_to_qvstring(Replacement, m_Text);
        m_High = 0;
    }

private:
    static constexpr int Replacement = 0xFFFD;

    qvstring& m_Text;
    int m_High = 0; // waits for its other half; 0 when none does
};

} // namespace

const char* CBinaryInput::EOFException::what() const noexcept {
    return "EOF Exception";
}

CBinaryInput::~CBinaryInput() = default;

unsigned int CBinaryInput::GetLength() const {
    // Moves the input, but leaves it where it was.
    CBinaryInput& input = const_cast<CBinaryInput&>(*this);
    const unsigned int position = Tell();
    unsigned int length = 0;
    input.Seek(0);
    for (; !IsEOF(); length++) {
        unsigned char byte;
        input.Read(&byte, 1);
    }
    input.Seek(position);
    return length;
}

int CBinaryInput::ReadStringLength() {
    QV_ASSERT(m_StringLengthMode != BinaryStringLengthNotAllowed);
    return m_StringLengthMode == BinaryStringLength7BitEncodedInt ? Read7BitEncodedInt()
                                                                  : ReadUTF8Character();
}

void CBinaryInput::ReadWString(unsigned int maxCharacters, qvstring& text) {
    text.clear();
    const int count = ReadStringLength();
    if (count < 0 || count > static_cast<int>(maxCharacters))
        throw std::length_error("string too long");
    text.reserve(static_cast<std::size_t>(count));
    ReadCharacters(count, text);
}

void CBinaryInput::ReadCharacters(int count, qvstring& text) {
    while (count > 0) {
        const unsigned int start = Tell();
        const std::size_t size = text.size();
        try {
            count -= ReadRun(count, text);
        } catch (const EOFException&) {
            // The string is cut short. Go on character by character, to fail where the missing byte is.
            if (Seek(start)) {
                text.resize(size);
                for (; count > 0; count--)
                    qv_append_codepoint_to_qvstring(ReadUTF8Character(), text);
            }
            // Some inputs cannot go back, or not to the same bytes: what is missing stays missing.
            throw;
        }
    }
}

// Reads some of the next `count` characters, one or more, and returns how many. They take at least `count`
// bytes, so that many can be read ahead without touching what follows the string; only the last character may
// need more.
int CBinaryInput::ReadRun(int count, qvstring& text) {
    constexpr unsigned int MaxRun = 256;
    constexpr unsigned int MaxFurther = 5;
    unsigned char run[MaxRun + MaxFurther];
    const unsigned int length = std::min(static_cast<unsigned int>(count), MaxRun);
    Read(run, length);
    int characters = 0;
    for (unsigned int i = 0; i < length;) {
        const Span span = FindWellFormed(run + i, length - i);
        text.append(reinterpret_cast<const char*>(run + i), span.bytes);
        characters += static_cast<int>(span.characters);
        i += span.bytes;
        if (i == length)
            break;
        const unsigned char first = run[i++];
        const CharacterForm form = FormOfCharacter(first);
        if (form.further > length - i)
            Read(run + length, form.further - (length - i));
        qv_append_codepoint_to_qvstring(ValueOfCharacter(first, form, run + i), text);
        characters++;
        i += form.further;
    }
    return characters;
}

CBinaryInput& CBinaryInput::operator>>(qvstring& text) {
    ReadWString(MaxStringLength, text);
    return *this;
}

CBinaryInput& CBinaryInput::operator>>(CQVSecureWString& text) {
    text.Clear();
    const int count = ReadStringLength();
    if (count > MaxSecureStringLength)
        throw std::length_error("string too long");
    for (int i = 0; i < count; i++) {
        char bytes[4];
        const unsigned int length = qv_qvchar_from_codepoint(ReadUTF8Character(), bytes);
        for (unsigned int j = 0; j < length; j++)
            text.Append(bytes[j]);
    }
    return *this;
}

void CBinaryInput::ReadVMString(unsigned short& length, unsigned char* buffer, int bufferSize) {
    const int count = std::max(ReadStringLength(), 0);
    const int size = std::max(bufferSize, 0);
    const int stored = std::min({count, size, static_cast<int>(std::numeric_limits<unsigned short>::max())});
    if (stored > 0)
        Read(buffer, static_cast<unsigned int>(stored));
    length = static_cast<unsigned short>(stored);
    if (stored < size)
        std::memset(buffer + stored, 0, static_cast<std::size_t>(size - stored));
    for (int i = stored; i < count; i++) {
        unsigned char discarded;
        Read(&discarded, 1);
    }
}

void CBinaryInput::ReadJavaModifiedString(qvstring& text) {
    text.clear();
    unsigned char head[2];
    Read(head, sizeof head);
    const unsigned int byteCount = head[0] * 256u + head[1];
    SurrogateJoiner joiner(text);
    for (unsigned int consumed = 0; consumed < byteCount;) {
        unsigned char first;
        Read(&first, 1);
        CharacterForm form = FormOfCharacter(first);
        if (form.further > 1) // the format has no longer characters than three bytes
            form = {2, 0x0F};
        unsigned char further[2];
        if (form.further > 0)
            Read(further, form.further);
        joiner.Append(ValueOfCharacter(first, form, further));
        consumed += 1 + form.further;
    }
    joiner.Finish();
}

CBinaryInput& CBinaryInput::operator>>(std::list<qvstring>& strings) {
    ReadWStringArray(std::numeric_limits<unsigned int>::max(), MaxStringLength, strings);
    return *this;
}

CBinaryInput& CBinaryInput::operator>>(std::list<unsigned int>& values) {
    values.clear();
    unsigned int count;
    for (*this >> count; count > 0; count--) {
        unsigned int value;
        *this >> value;
        values.push_back(value);
    }
    return *this;
}

void CBinaryInput::ReadWStringArray(unsigned int maxStrings, unsigned int maxCharacters,
                                    std::list<qvstring>& strings) {
    strings.clear();
    unsigned int count;
    *this >> count;
    if (count > maxStrings)
        throw std::length_error("too many strings");
    for (; count > 0; count--) {
        qvstring text;
        ReadWString(maxCharacters, text);
        strings.push_back(std::move(text));
    }
}

CBinaryInput& CBinaryInput::operator>>(COutputLog& log) {
    unsigned int count;
    qvstring text;
    for (*this >> count; count > 0; count--) {
        int type;
        int number;
        *this >> type >> number >> text;
        log.AppendMessage(static_cast<COutputLog::LogType>(type), number, text.data(),
                          static_cast<unsigned int>(text.size()));
    }
    return *this;
}

int CBinaryInput::ReadUTF8Character() {
    unsigned char first;
    Read(&first, 1);
    if (first < 0x80)
        return first;
    const CharacterForm form = FormOfCharacter(first);
    unsigned char further[5];
    Read(further, form.further);
    return ValueOfCharacter(first, form, further);
}

int CBinaryInput::Read7BitEncodedInt() {
    unsigned int value = 0;
    unsigned int shift = 0;
    unsigned char byte;
    do {
        Read(&byte, 1);
        if (shift < 32) {
            value |= (byte & 0x7Fu) << shift;
            shift += 7;
        }
    } while ((byte & 0x80) != 0);
    return static_cast<int>(value);
}

bool CBinaryInput::TryRead(void* buffer, unsigned int count) {
    try {
        Read(buffer, count);
        return true;
    } catch (const EOFException&) {
        return false;
    }
}

bool CBinaryInput::SkipBytes(unsigned int count) {
    constexpr unsigned int last = std::numeric_limits<unsigned int>::max();
    const unsigned int position = Tell();
    if (count > last - position) {
        // A wrapped sum would move backwards, and a reader that skips what the data tell it to could loop.
        Seek(last);
        return false;
    }
    return Seek(position + count);
}

void CBinaryInput::ReadInputToDataSink(unsigned int count, QVDataSink* sink) {
    unsigned char buffer[256];
    while (count > 0) {
        const unsigned int chunk = std::min<unsigned int>(count, sizeof buffer);
        Read(buffer, chunk);
        sink->AddBytes(buffer, chunk);
        count -= chunk;
    }
}

void CBinaryInput::RaiseEOFException(unsigned int count) const {
    throw EOFException(*this, count);
}
