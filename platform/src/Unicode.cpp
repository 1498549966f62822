#include <QVPlatform/Unicode.h>
#include <algorithm>
#include <bit>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

using Byte = unsigned char;
using Unit = unsigned short;

constexpr int ReplacementCharacter = 0xFFFD;
constexpr int LastCodePoint = 0x10FFFF;
constexpr int FirstSupplementary = 0x10000;

const Byte* AsBytes(const char* text) {
    return reinterpret_cast<const Byte*>(text);
}

bool IsSurrogate(int codePoint) {
    return (codePoint & ~0x7FF) == 0xD800;
}
bool IsHighSurrogate(Unit unit) {
    return (unit & 0xFC00) == 0xD800;
}
bool IsLowSurrogate(Unit unit) {
    return (unit & 0xFC00) == 0xDC00;
}

// ---- Runs of ASCII, a machine word at a time ----

// The bits of a word that no ASCII unit has set.
template<typename T>
constexpr uint64_t NonAsciiBits = sizeof(T) == 1 ? 0x8080808080808080U : 0xFF80FF80FF80FF80U;

template<typename T>
size_t UnitsBefore(uint64_t nonAscii) {
    const int zeros =
        std::endian::native == std::endian::little ? std::countr_zero(nonAscii) : std::countl_zero(nonAscii);
    return static_cast<size_t>(zeros) / (8 * sizeof(T));
}

// The number of ASCII units that [current, end) starts with.
template<typename T>
size_t AsciiRun(const T* current, const T* end) {
    constexpr ptrdiff_t UnitsPerWord = sizeof(uint64_t) / sizeof(T);
    const T* p = current;
    while (end - p >= UnitsPerWord) {
        uint64_t word;
        memcpy(&word, p, sizeof word);
        if (const uint64_t nonAscii = word & NonAsciiBits<T>)
            return static_cast<size_t>(p - current) + UnitsBefore<T>(nonAscii);
        p += UnitsPerWord;
    }
    while (p < end && *p < 0x80)
        ++p;
    return static_cast<size_t>(p - current);
}

// Copies ASCII from one width to another, in blocks that the compiler turns into vector instructions.
template<typename T, typename Target>
void CopyAscii(const T* __restrict from, size_t count, Target* __restrict to) {
    constexpr size_t Block = 16;
    for (; count >= Block; count -= Block, from += Block, to += Block)
        for (size_t i = 0; i < Block; ++i)
            to[i] = static_cast<Target>(from[i]);
    for (size_t i = 0; i < count; ++i)
        to[i] = static_cast<Target>(from[i]);
}

// ---- One code point ----

bool IsContinuation(Byte byte) {
    return (byte & 0xC0) == 0x80;
}
int Payload(Byte byte) {
    return byte & 0x3F;
}

// Reads the sequence of two to four bytes at `current` and moves past it; surrogates count as characters. For
// anything else it gives -1 and stays.
inline int DecodeSequence(const Byte*& current, const Byte* end) {
    const Byte* const p = current;
    const ptrdiff_t available = end - p;
    if (p[0] < 0xE0) {
        if (p[0] >= 0xC2 && available >= 2 && IsContinuation(p[1])) {
            current += 2;
            return (p[0] & 0x1F) << 6 | Payload(p[1]);
        }
    } else if (p[0] < 0xF0) {
        if (available >= 3 && IsContinuation(p[1]) && IsContinuation(p[2])) {
            const int codePoint = (p[0] & 0x0F) << 12 | Payload(p[1]) << 6 | Payload(p[2]);
            if (codePoint >= 0x800) {
                current += 3;
                return codePoint;
            }
        }
    } else if (p[0] < 0xF5 && available >= 4 && IsContinuation(p[1]) && IsContinuation(p[2]) &&
               IsContinuation(p[3])) {
        const int codePoint = (p[0] & 0x07) << 18 | Payload(p[1]) << 12 | Payload(p[2]) << 6 | Payload(p[3]);
        if (codePoint >= FirstSupplementary && codePoint <= LastCodePoint) {
            current += 4;
            return codePoint;
        }
    }
    return -1;
}

// Whether `second` may follow `lead`: not in an over-long form, not above U+10FFFF.
bool MayFollow(Byte lead, Byte second) {
    if (!IsContinuation(second) || lead < 0xC2 || lead > 0xF4)
        return false;
    switch (lead) {
    case 0xE0:
        return second >= 0xA0;
    case 0xF0:
        return second >= 0x90;
    case 0xF4:
        return second < 0x90;
    default:
        return true;
    }
}

// The bytes that one U+FFFD stands for: the longest start of a character, at least one byte. Called only
// where no whole character stands.
ptrdiff_t MalformedLength(const Byte* p, const Byte* end) {
    if (end - p < 2 || !MayFollow(p[0], p[1]))
        return 1;
    const bool hasThird = p[0] >= 0xF0 && end - p >= 3 && IsContinuation(p[2]);
    return hasThird ? 3 : 2;
}

inline int DecodeNonAscii(const Byte*& current, const Byte* end) {
    const int codePoint = DecodeSequence(current, end);
    if (codePoint >= 0)
        return codePoint;
    current += MalformedLength(current, end);
    return ReplacementCharacter;
}

inline int DecodeNonAscii(const Unit*& current, const Unit* end) {
    const Unit unit = *current++;
    if (!IsHighSurrogate(unit) || current == end || !IsLowSurrogate(*current))
        return unit;
    return FirstSupplementary + ((unit & 0x3FF) << 10) + (*current++ & 0x3FF);
}

unsigned int Utf8Length(int codePoint) {
    if (codePoint < 0x80)
        return 1;
    return codePoint < 0x800 ? 2 : codePoint < FirstSupplementary ? 3 : 4;
}

// Takes what the decoders deliver, so nothing outside 0 to U+10FFFF.
unsigned int EncodeUtf8(int codePoint, Byte* buffer) {
    const unsigned int length = Utf8Length(codePoint);
    if (length == 1) {
        buffer[0] = static_cast<Byte>(codePoint);
        return 1;
    }
    constexpr Byte LeadMarks[] = {0, 0, 0xC0, 0xE0, 0xF0};
    for (unsigned int i = length - 1; i > 0; --i) {
        buffer[i] = static_cast<Byte>(0x80 | (codePoint & 0x3F));
        codePoint >>= 6;
    }
    buffer[0] = static_cast<Byte>(LeadMarks[length] | codePoint);
    return length;
}

unsigned int Utf16Length(int codePoint) {
    return codePoint < FirstSupplementary ? 1 : 2;
}

// As EncodeUtf8().
unsigned int EncodeUtf16(int codePoint, Unit* buffer) {
    if (codePoint < FirstSupplementary) {
        buffer[0] = static_cast<Unit>(codePoint);
        return 1;
    }
    const int offset = codePoint - FirstSupplementary;
    buffer[0] = static_cast<Unit>(0xD800 | offset >> 10);
    buffer[1] = static_cast<Unit>(0xDC00 | (offset & 0x3FF));
    return 2;
}

// What is no code point at all is written as the character for that.
int CodePointOrReplacement(int codePoint) {
    return codePoint < 0 || codePoint > LastCodePoint ? ReplacementCharacter : codePoint;
}

// ---- Whole texts: one loop decodes for every count and every conversion ----

// Hands the text to the sink, runs of ASCII at once, until the sink has no more room.
template<typename T, typename Sink>
void DecodeText(const T* current, unsigned int length, Sink& sink) {
    const T* const end = current + length;
    while (current < end) {
        if (*current < 0x80) {
            const size_t run = AsciiRun(current, end);
            if (!sink.TakeAscii(current, run))
                return;
            current += run;
        } else if (!sink.TakeCodePoint(DecodeNonAscii(current, end))) {
            return;
        }
    }
}

// Adds up what each code point takes in the target.
template<unsigned int (*UnitsOf)(int codePoint)>
class Counter {
public:
    template<typename T>
    bool TakeAscii(const T*, size_t count) {
        m_Count += count;
        return true;
    }
    bool TakeCodePoint(int codePoint) {
        m_Count += UnitsOf(codePoint);
        return true;
    }
    unsigned int Result() const { return static_cast<unsigned int>(std::min<uint64_t>(m_Count, UINT_MAX)); }

private:
    uint64_t m_Count = 0;
};

unsigned int OneEach(int) {
    return 1;
}

// A buffer that is filled with whole characters.
template<typename Target>
class Writer {
public:
    Writer(Target* buffer, unsigned int capacity) : m_pBuffer(buffer), m_Capacity(capacity) {}

    template<typename T>
    bool TakeAscii(const T* run, size_t count) {
        const size_t taken = std::min<size_t>(count, m_Capacity - m_Used);
        CopyAscii(run, taken, m_pBuffer + m_Used);
        m_Used += static_cast<unsigned int>(taken);
        return taken == count;
    }
    bool TakeCodePoint(int codePoint);
    unsigned int Result() const { return m_Used; }

private:
    Target* m_pBuffer;
    unsigned int m_Capacity;
    unsigned int m_Used = 0;
};

template<>
bool Writer<Byte>::TakeCodePoint(int codePoint) {
    if (m_Capacity - m_Used < Utf8Length(codePoint))
        return false;
    m_Used += EncodeUtf8(codePoint, m_pBuffer + m_Used);
    return true;
}

template<>
bool Writer<Unit>::TakeCodePoint(int codePoint) {
    if (m_Capacity - m_Used < Utf16Length(codePoint))
        return false;
    m_Used += EncodeUtf16(codePoint, m_pBuffer + m_Used);
    return true;
}

template<unsigned int (*UnitsOf)(int codePoint), typename T>
unsigned int Count(const T* text, unsigned int length) {
    Counter<UnitsOf> counter;
    DecodeText(text, length, counter);
    return counter.Result();
}

template<typename T, typename Target>
unsigned int Convert(const T* text, unsigned int length, Target* buffer, unsigned int capacity) {
    Writer<Target> writer(buffer, capacity);
    DecodeText(text, length, writer);
    return writer.Result();
}

} // namespace

int qv_codepoint_from_qvchar_slow(const char*& current, const char* end) {
    const Byte* bytes = AsBytes(current);
    const int codePoint = DecodeNonAscii(bytes, AsBytes(end));
    current = reinterpret_cast<const char*>(bytes);
    return codePoint;
}

unsigned int qv_utf32len_of_wchar(const char* text, unsigned int length) {
    return Count<OneEach>(AsBytes(text), length);
}

bool qv_is_valid_utf8(const char* text, unsigned int length, unsigned int& codePoints) {
    const Byte* current = AsBytes(text);
    const Byte* const end = current + length;
    size_t count = 0;
    while (current < end) {
        if (*current < 0x80) {
            const size_t run = AsciiRun(current, end);
            current += run;
            count += run;
        } else {
            const int codePoint = DecodeSequence(current, end);
            if (codePoint < 0 || IsSurrogate(codePoint))
                return false;
            ++count;
        }
    }
    codePoints = static_cast<unsigned int>(count);
    return true;
}

unsigned int qv_qvchar_from_codepoint(int codePoint, char* buffer) {
    return qv_encode_utf8(codePoint, reinterpret_cast<Byte*>(buffer));
}

void qv_append_codepoint_to_qvstring_slow(int codePoint, qvstring& text) {
    char bytes[4];
    text.append(bytes, qv_qvchar_from_codepoint(codePoint, bytes));
}

unsigned int qv_encode_utf8(int codePoint, unsigned char* buffer) {
    return EncodeUtf8(CodePointOrReplacement(codePoint), buffer);
}

unsigned int qv_encode_utf16(int codePoint, unsigned short* buffer) {
    return EncodeUtf16(CodePointOrReplacement(codePoint), buffer);
}

unsigned int qv_utf16len_of_utf32(int codePoint) {
    return Utf16Length(CodePointOrReplacement(codePoint));
}

unsigned int qv_utf8len_of_utf32(int codePoint) {
    return Utf8Length(CodePointOrReplacement(codePoint));
}

int qv_decode_utf8(const unsigned char*& current, const unsigned char* end) {
    if (*current < 0x80)
        return *current++;
    const Byte* const start = current;
    const int codePoint = DecodeSequence(current, end);
    if (codePoint >= 0 && !IsSurrogate(codePoint))
        return codePoint;
    current = start + 1;
    return -1;
}

int qv_decode_utf16(const unsigned short*& current, const unsigned short* end) {
    return DecodeNonAscii(current, end);
}

unsigned int qv_utf16len_of_utf8(const unsigned char* text, unsigned int length) {
    return Count<Utf16Length>(text, length);
}

unsigned int qv_utf16_from_utf8(const unsigned char* text, unsigned int length, unsigned short* buffer,
                                unsigned int capacity) {
    return Convert(text, length, buffer, capacity);
}

unsigned int qv_utf8len_of_utf16(const unsigned short* units, unsigned int count) {
    return Count<Utf8Length>(units, count);
}

unsigned int qv_utf8_from_utf16(const unsigned short* units, unsigned int count, unsigned char* buffer,
                                unsigned int capacity) {
    return Convert(units, count, buffer, capacity);
}

unsigned int qv_utf16len_of_qvchar(const char* text, unsigned int length) {
    return Count<Utf16Length>(AsBytes(text), length);
}

unsigned int qv_utf16_from_qvchar(const char* text, unsigned int length, unsigned short* buffer,
                                  unsigned int capacity) {
    return Convert(AsBytes(text), length, buffer, capacity);
}

unsigned int qv_utf8len_of_qvchar(const char* text, unsigned int length) {
    return Count<Utf8Length>(AsBytes(text), length);
}

unsigned int qv_utf8_from_qvchar(const char* text, unsigned int length, unsigned char* buffer,
                                 unsigned int capacity) {
    return Convert(AsBytes(text), length, buffer, capacity);
}

unsigned int qv_qvchar_from_utf8(const unsigned char* text, unsigned int length, char* buffer,
                                 unsigned int capacity) {
    return Convert(text, length, reinterpret_cast<Byte*>(buffer), capacity);
}

unsigned int qv_qvchar_from_utf16(const unsigned short* units, unsigned int count, char* buffer,
                                  unsigned int capacity) {
    return Convert(units, count, reinterpret_cast<Byte*>(buffer), capacity);
}
