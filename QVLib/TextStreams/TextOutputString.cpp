#include <QVLib/TextStreams/TextOutputString.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/Unicode.h>
#include <algorithm>
#include <utility>

namespace {

constexpr unsigned int FirstCapacity = 32;

// Makes room for `added` more units; false, and nothing changed, when the string cannot become so long.
template<class String>
bool Reserve(String*& text, unsigned int& capacity, unsigned int added, String* (*alloc)(unsigned int),
             void (*release)(String*)) {
    if (added > QVCountedStringMaxLength - text->m_Length)
        return false;
    const unsigned int needed = text->m_Length + added;
    if (needed <= capacity)
        return true;
    unsigned int newCapacity = capacity;
    while (newCapacity < needed)
        newCapacity *= 2;
    String* const larger = alloc(newCapacity);
    if (!larger)
        return false;
    larger->m_Length = text->m_Length;
    std::copy_n(text->GetUnits(), text->m_Length, larger->GetUnits());
    release(text);
    text = larger;
    capacity = newCapacity;
    return true;
}

template<class String>
typename String::Unit* End(String* text) {
    return text->GetUnits() + text->m_Length;
}

template<class String>
void Lengthen(String* text, unsigned int added) {
    text->m_Length = static_cast<unsigned short>(text->m_Length + added);
}

} // namespace

TextOutputToUtf8String::TextOutputToUtf8String()
    : m_Capacity(FirstCapacity), m_pUtf8String(Utf8StringAlloc(FirstCapacity)) {
    TakeRuns<TextOutputToUtf8String, &TextOutputToUtf8String::WriteRun>();
}

TextOutputToUtf8String::~TextOutputToUtf8String() {
    Utf8StringFree(m_pUtf8String);
}

bool TextOutputToUtf8String::WriteCodePoint(int codePoint) {
    QV_ASSERT(m_pUtf8String);
    const unsigned int added = qv_utf8len_of_utf32(codePoint);
    m_bOverflow = m_bOverflow || !Reserve(m_pUtf8String, m_Capacity, added, Utf8StringAlloc, Utf8StringFree);
    if (m_bOverflow)
        return false;
    qv_encode_utf8(codePoint, End(m_pUtf8String));
    Lengthen(m_pUtf8String, added);
    return true;
}

Utf8String* TextOutputToUtf8String::GetUtf8String() {
    return std::exchange(m_pUtf8String, nullptr);
}

bool TextOutputToUtf8String::WriteRun(const char* text, unsigned int length) {
    QV_ASSERT(m_pUtf8String);
    if (m_bOverflow)
        return true;
    if (!Reserve(m_pUtf8String, m_Capacity, length, Utf8StringAlloc, Utf8StringFree))
        return false;
    std::copy_n(text, length, End(m_pUtf8String));
    Lengthen(m_pUtf8String, length);
    return true;
}

TextOutputToUtf16String::TextOutputToUtf16String()
    : m_Capacity(FirstCapacity), m_pUtf16String(Utf16StringAlloc(FirstCapacity)) {
    TakeRuns<TextOutputToUtf16String, &TextOutputToUtf16String::WriteRun>();
}

TextOutputToUtf16String::~TextOutputToUtf16String() {
    Utf16StringFree(m_pUtf16String);
}

bool TextOutputToUtf16String::WriteCodePoint(int codePoint) {
    QV_ASSERT(m_pUtf16String);
    const unsigned int added = qv_utf16len_of_utf32(codePoint);
    m_bOverflow =
        m_bOverflow || !Reserve(m_pUtf16String, m_Capacity, added, Utf16StringAlloc, Utf16StringFree);
    if (m_bOverflow)
        return false;
    qv_encode_utf16(codePoint, End(m_pUtf16String));
    Lengthen(m_pUtf16String, added);
    return true;
}

Utf16String* TextOutputToUtf16String::GetUtf16String() {
    return std::exchange(m_pUtf16String, nullptr);
}

bool TextOutputToUtf16String::WriteRun(const char* text, unsigned int length) {
    QV_ASSERT(m_pUtf16String);
    if (m_bOverflow)
        return true;
    const unsigned int added = qv_utf16len_of_qvchar(text, length);
    if (!Reserve(m_pUtf16String, m_Capacity, added, Utf16StringAlloc, Utf16StringFree))
        return false;
    qv_utf16_from_qvchar(text, length, End(m_pUtf16String), added);
    Lengthen(m_pUtf16String, added);
    return true;
}
