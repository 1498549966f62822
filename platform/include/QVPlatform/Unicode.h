// Conversions between UTF-8, UTF-16, UTF-32 and the library's own strings.
//
// Code points are signed 32-bit. "qvchar" is the byte of a qvstring: UTF-8 that may be malformed.
//
// Malformed input: every decoder advances by at least one unit, never reads at or past `end`, and yields
// U+FFFD for what it cannot decode, except where a function says otherwise. Truncated, over-long and out of
// range UTF-8 sequences and stray continuation bytes give one U+FFFD for each maximal run that starts a
// character (the practice that the Unicode Standard recommends, chapter 3.9). Surrogates encoded as three
// bytes of UTF-8 are delivered as they are, so that text with single surrogates survives a round trip.
// The counting functions count exactly what the decoding functions then yield.
//
// All decoders ask that `current` is below `end`.
//
// Buffers: the conversions write at most `capacity` units, cut between characters, write no terminator and
// return the units written. Lengths are 32-bit; inputs are shorter than 4 GiB, and a count that would pass 32
// bits is 0xFFFFFFFF.
#pragma once

#include <QVPlatform/String.h>

// The other half of qv_codepoint_from_qvchar(), for bytes from 0x80.
int qv_codepoint_from_qvchar_slow(const char*& current, const char* end);
// Reads one code point at `current` and moves `current` past it.
inline int qv_codepoint_from_qvchar(const char*& current, const char* end) {
    const unsigned char first = static_cast<unsigned char>(*current);
    if (first < 0x80) {
        ++current;
        return first;
    }
    return qv_codepoint_from_qvchar_slow(current, end);
}

// The number of code points that qv_codepoint_from_qvchar() delivers from `length` bytes.
unsigned int qv_utf32len_of_wchar(const char* text, unsigned int length);
// True when the bytes are well-formed UTF-8 (single surrogates are not); `codePoints` then is their number
// and otherwise left alone.
bool qv_is_valid_utf8(const char* text, unsigned int length, unsigned int& codePoints);

// Writes a code point as UTF-8 into `buffer` (room for at least 4 bytes) and returns the bytes written.
// Single surrogates are written as three bytes; values outside 0 to 0x10FFFF as U+FFFD.
unsigned int qv_qvchar_from_codepoint(int codePoint, char* buffer);
// Appends a code point as qv_qvchar_from_codepoint() writes it.
void qv_append_codepoint_to_qvstring_slow(int codePoint, qvstring& text);
inline void qv_append_codepoint_to_qvstring(int codePoint, qvstring& text) {
    if (codePoint >= 0 && codePoint < 0x80)
        text.push_back(static_cast<char>(codePoint));
    else
        qv_append_codepoint_to_qvstring_slow(codePoint, text);
}

// One code point out: the units that it takes, and writing it into `buffer` (room for at least 4 bytes, or 2
// units), which returns that number. Single surrogates and values that are no code points: as
// qv_qvchar_from_codepoint(). The names differ by what the units are for: encoded text, bytes of UTF-8, bytes
// of a qvstring.
unsigned int qv_encode_utf8(int codePoint, unsigned char* buffer);
unsigned int qv_encode_utf16(int codePoint, unsigned short* buffer);
unsigned int qv_utf16len_of_utf32(int codePoint);
unsigned int qv_utf8len_of_utf32(int codePoint);
inline unsigned int qv_utf8_from_utf32(int codePoint, unsigned char* buffer) {
    return qv_encode_utf8(codePoint, buffer);
}
inline unsigned int qv_strlen_of_utf32(int codePoint) {
    return qv_utf8len_of_utf32(codePoint);
}
inline unsigned int qv_qvchar_from_utf32(int codePoint, char* buffer) {
    return qv_qvchar_from_codepoint(codePoint, buffer);
}

// Reads one code point of strict UTF-8; -1, and `current` moved by one byte, for anything that is not
// well-formed.
int qv_decode_utf8(const unsigned char*& current, const unsigned char* end);
// Reads one code point of UTF-16. A surrogate pair is one code point; a single surrogate is delivered as it
// is.
int qv_decode_utf16(const unsigned short*& current, const unsigned short* end);

// UTF-8 bytes <-> UTF-16 units. The first of each pair counts what the second writes.
unsigned int qv_utf16len_of_utf8(const unsigned char* text, unsigned int length);
unsigned int qv_utf16_from_utf8(const unsigned char* text, unsigned int length, unsigned short* buffer,
                                unsigned int capacity);
unsigned int qv_utf8len_of_utf16(const unsigned short* units, unsigned int count);
unsigned int qv_utf8_from_utf16(const unsigned short* units, unsigned int count, unsigned char* buffer,
                                unsigned int capacity);

// The library's strings <-> UTF-16 units and UTF-8 bytes.
unsigned int qv_utf16len_of_qvchar(const char* text, unsigned int length);
unsigned int qv_utf16_from_qvchar(const char* text, unsigned int length, unsigned short* buffer,
                                  unsigned int capacity);
unsigned int qv_utf8len_of_qvchar(const char* text, unsigned int length);
unsigned int qv_utf8_from_qvchar(const char* text, unsigned int length, unsigned char* buffer,
                                 unsigned int capacity);
unsigned int qv_qvchar_from_utf8(const unsigned char* text, unsigned int length, char* buffer,
                                 unsigned int capacity);
unsigned int qv_qvchar_from_utf16(const unsigned short* units, unsigned int count, char* buffer,
                                  unsigned int capacity);
