// Utf8String, Utf16String - counted strings: a 16-bit length and the units right behind it, in one heap
// block.
//
// For text that one component makes and another keeps: one pointer to pass on, one block to free. Everywhere
// else use a qvstring. Each function leaves its arguments alone and builds a new string, which belongs to the
// caller and is freed with Utf8StringFree() or Utf16StringFree(). The two families are twins in every respect
// but the unit.
//
// Memory:   length (unsigned 16 bits, native order), then `length` units, no terminator. Blocks come from
//           malloc() and may be freed with free().
// Limits:   a string holds at most 65,535 units (QVCountedStringMaxLength); whatever would be longer is cut
//           there. A conversion is cut in front of the first character that does not fit as a whole; copies,
//           concatenation and insertion cut between units.
// Positions are 1-based, except the result of the find functions. Positions and counts outside the text are
//           clamped.
// Errors:   none but lack of memory, which gives null. A null string as an argument (a result that failed so)
//           gives null again, and counts as empty where the result is a number.
// Threads:  functions without state; a string may be read by many threads while none frees it.
#pragma once

constexpr unsigned int QVCountedStringMaxLength = 65535;

struct Utf8String {
    using Unit = unsigned char;

    Unit* GetUnits() { return reinterpret_cast<Unit*>(this + 1); }
    const Unit* GetUnits() const { return reinterpret_cast<const Unit*>(this + 1); }

    unsigned short m_Length;
};

struct Utf16String {
    using Unit = unsigned short;

    Unit* GetUnits() { return reinterpret_cast<Unit*>(this + 1); }
    const Unit* GetUnits() const { return reinterpret_cast<const Unit*>(this + 1); }

    unsigned short m_Length;
};

// The layout is known outside this library.
static_assert(sizeof(Utf8String) == 2 && sizeof(Utf16String) == 2);

// An empty string with room for `capacity` units. The caller may fill them, up to the limit above, and set
// m_Length.
Utf8String* Utf8StringAlloc(unsigned int capacity);
Utf16String* Utf16StringAlloc(unsigned int capacity);
// Accepts null.
void Utf8StringFree(Utf8String* text);
void Utf16StringFree(Utf16String* text);

// Exact copies: of a string, or of the first units of an array.
Utf8String* Utf8StringCopy(const Utf8String* text);
Utf8String* Utf8StringCopy(const unsigned char* bytes, unsigned int count);
Utf16String* Utf16StringCopy(const Utf16String* text);
Utf16String* Utf16StringCopy(const unsigned short* units, unsigned int count);
// Conversions: from UTF-16 units, from UTF-8 bytes, from the bytes of a qvstring. What malformed text becomes
// is the platform's choice (QVPlatform/Unicode.h).
Utf8String* Utf8StringCopy(const unsigned short* units, unsigned int count);
Utf8String* Utf8StringCopy(const char* text, unsigned int length);
Utf16String* Utf16StringCopy(const unsigned char* utf8, unsigned int length);
Utf16String* Utf16StringCopy(const char* text, unsigned int length);
// Converts into the bytes of a qvstring: at most `size` - 1 bytes of whole characters and a zero. Returns the
// bytes in front of the zero. A `size` of 0 writes nothing.
unsigned int WCharFromUtf8String(const Utf8String* text, char* buffer, unsigned int size);
unsigned int WCharFromUtf16String(const Utf16String* text, char* buffer, unsigned int size);

unsigned int Utf8StringLen(const Utf8String* text);
unsigned int Utf16StringLen(const Utf16String* text);
// The difference of the first two units (unsigned) that differ; where one string starts with the other, -1
// when `a` is the shorter one, 1 when it is the longer one, 0 when they are equal.
int Utf8StringCompare(const Utf8String* a, const Utf8String* b);
int Utf16StringCompare(const Utf16String* a, const Utf16String* b);
// Where `pattern` first occurs in `text`, counted from 0; -1 when it does not. An empty pattern occurs at 0.
int Utf8StringFind(const Utf8String* text, const Utf8String* pattern);
int Utf16StringFind(const Utf16String* text, const Utf16String* pattern);

// The first or the last `count` units; all of them when there are fewer, none for a `count` below 1.
Utf8String* Utf8StringLeft(const Utf8String* text, int count);
Utf16String* Utf16StringLeft(const Utf16String* text, int count);
Utf8String* Utf8StringRight(const Utf8String* text, int count);
Utf16String* Utf16StringRight(const Utf16String* text, int count);
// The units at positions `start` to `start` + `count` - 1, as far as they lie inside the text.
Utf8String* Utf8StringMid(const Utf8String* text, int count, int start);
Utf16String* Utf16StringMid(const Utf16String* text, int count, int start);
// `a` followed by `b`.
Utf8String* Utf8StringConcat(const Utf8String* a, const Utf8String* b);
Utf16String* Utf16StringConcat(const Utf16String* a, const Utf16String* b);
// `text` with `inserted` in front of `position`: in front of everything below 2, behind everything past the
// end.
Utf8String* Utf8StringInsert(const Utf8String* text, const Utf8String* inserted, int position);
Utf16String* Utf16StringInsert(const Utf16String* text, const Utf16String* inserted, int position);
// `text` without what Mid() would return.
Utf8String* Utf8StringDelete(const Utf8String* text, int count, int start);
Utf16String* Utf16StringDelete(const Utf16String* text, int count, int start);
// One field of a text whose fields are separated by `delimiter`: `index` 0 is the first, -1 the last. Even an
// empty text has a field, an empty one. An index beyond the fields gives the delimiter itself, as one unit.
Utf8String* Utf8StringGetElement(const Utf8String* text, unsigned char delimiter, int index);
Utf16String* Utf16StringGetElement(const Utf16String* text, unsigned short delimiter, int index);
