#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/TextOutput.h>
#include <QVPlatform/Unicode.h>
#include <cstring>

namespace {

const char* BytesOf(const Utf8String* text) {
    return reinterpret_cast<const char*>(text->GetUnits());
}

} // namespace

TextInputUtf8Bytes::TextInputUtf8Bytes(const char* start, const char* end) : m_pStart(start) {
    SetWindow(start, end);
}

TextInputUtf8Bytes::TextInputUtf8Bytes(const char* start, const char* end, const qvstring& name)
    : TextInputUtf8Bytes(start, end) {
    SetName(name);
}

bool TextInputUtf8Bytes::ReadNextCodePoint(int& codePoint) {
    if (GetWindow() >= GetWindowEnd())
        return false;
    const char* current = GetWindow();
    codePoint = qv_codepoint_from_qvchar(current, GetWindowEnd());
    SetWindow(current, GetWindowEnd());
    return true;
}

TextInputQVString::TextInputQVString(const char* text, const qvstring& name)
    : TextInputUtf8Bytes(text, text + strlen(text), name) {}

TextInputQVString::TextInputQVString(const char* text, unsigned int length, const qvstring& name)
    : TextInputUtf8Bytes(text, text + length, name) {}

TextInputQVString::TextInputQVString(const qvstring& text, const qvstring& name)
    : TextInputUtf8Bytes(text.data(), text.data() + text.size(), name) {}

CTextInputUtf8::CTextInputUtf8(const Utf8String* text)
    : TextInputUtf8Bytes(BytesOf(text), BytesOf(text) + text->m_Length) {}

bool CTextInputUtf8::ReadNextCodePoint(int& codePoint) {
    if (GetWindow() >= GetWindowEnd())
        return false;
    const unsigned char* current = reinterpret_cast<const unsigned char*>(GetWindow());
    codePoint = qv_decode_utf8(current, reinterpret_cast<const unsigned char*>(GetWindowEnd()));
    SetWindow(codePoint == -1 ? GetWindowEnd() : reinterpret_cast<const char*>(current), GetWindowEnd());
    return codePoint != -1;
}

CTextInputFromTextOutputString::CTextInputFromTextOutputString(CTextOutputString* text, const qvstring& name)
    : TextInputUtf8Bytes(text->GetString().data(), text->GetString().data() + text->GetString().size(), name),
      m_pText(text) {}

CTextInputFromTextOutputString::~CTextInputFromTextOutputString() = default;

TextInputU16String::TextInputU16String(const Utf16String* text)
    : m_pStart(text->GetUnits()), m_pCurrent(m_pStart), m_pEnd(m_pStart + text->m_Length) {}

TextInputU16String::TextInputU16String(const Utf16String* text, const qvstring& name)
    : TextInputU16String(text->GetUnits(), text->m_Length, name) {}

TextInputU16String::TextInputU16String(const unsigned short* units, unsigned int count, const qvstring& name)
    : CTextInput(name), m_pStart(units), m_pCurrent(units), m_pEnd(units + count) {}

bool TextInputU16String::ReadNextCodePoint(int& codePoint) {
    if (m_pCurrent >= m_pEnd)
        return false;
    codePoint = qv_decode_utf16(m_pCurrent, m_pEnd);
    return true;
}

TextInputU32String::TextInputU32String(const char32_t* text, unsigned int count, const qvstring& name)
    : CTextInput(name), m_pStart(text), m_pCurrent(text), m_pEnd(text + count) {}

TextInputU32String::TextInputU32String(const std::u32string& text, const qvstring& name)
    : CTextInput(name), m_pStart(text.data()), m_pCurrent(m_pStart), m_pEnd(m_pStart + text.size()) {}

bool TextInputU32String::ReadNextCodePoint(int& codePoint) {
    if (m_pCurrent >= m_pEnd)
        return false;
    codePoint = static_cast<int>(*m_pCurrent++);
    return true;
}
