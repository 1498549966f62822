// Text inputs over text that is already in memory.
//
// Which one:  TextInputQVString               UTF-8 in a qvstring or a char array, malformed bytes tolerated
//             CTextInputUtf8                  a counted UTF-8 string; the first invalid byte ends the text
//             CTextInputFromTextOutputString  what a text output has collected; the input owns that output
//             TextInputU16String              UTF-16 in a counted string or an array
//             TextInputU32String              UTF-32, unchecked
// Ownership:  the text is read in place, not copied, and must outlive the input unchanged. Counted strings and
//             text outputs must not be null.
// Offsets:    Tell() counts the text's own units (bytes, 16-bit or 32-bit units) from its start.
// Errors:     malformed text reads as QVPlatform/Unicode.h says for the decoder of each class.
// Threads:    one thread per input; any number of inputs may read the same text.
#pragma once

#include <QVLib/TextStreams/CountedString.h>
#include <QVLib/TextStreams/TextInput.h>
#include <memory>
#include <string>

class CTextOutputString;

// The common part of the inputs over UTF-8 bytes, whose whole text is the window.
class TextInputUtf8Bytes : public CTextInput {
public:
    long long Tell() const override { return GetWindow() - m_pStart; }
    void Seek(long long offset) override { SetWindow(m_pStart + offset, GetWindowEnd()); }
    bool ReadNextCodePoint(int& codePoint) override;
    void IncrementPosition(int codePoint) final { CTextInput::IncrementPosition(codePoint); }

protected:
    TextInputUtf8Bytes(const char* start, const char* end);
    TextInputUtf8Bytes(const char* start, const char* end, const qvstring& name);

private:
    const char* m_pStart;
};

class TextInputQVString : public TextInputUtf8Bytes {
public:
    // Zero-terminated text.
    TextInputQVString(const char* text, const qvstring& name);
    // Zero bytes inside are characters like any other.
    TextInputQVString(const char* text, unsigned int length, const qvstring& name);
    TextInputQVString(const qvstring& text, const qvstring& name);
};

class CTextInputUtf8 : public TextInputUtf8Bytes {
public:
    explicit CTextInputUtf8(const Utf8String* text);

    // A byte that is not part of valid UTF-8 moves the input to the end of its text.
    bool ReadNextCodePoint(int& codePoint) override;
};

class CTextInputFromTextOutputString : public TextInputUtf8Bytes {
public:
    // Takes ownership of `text`. What is written to it afterwards is not read, and invalidates the input.
    CTextInputFromTextOutputString(CTextOutputString* text, const qvstring& name);
    ~CTextInputFromTextOutputString() override;

private:
    std::unique_ptr<CTextOutputString> m_pText;
};

class TextInputU16String : public CTextInput {
public:
    explicit TextInputU16String(const Utf16String* text);
    TextInputU16String(const Utf16String* text, const qvstring& name);
    TextInputU16String(const unsigned short* units, unsigned int count, const qvstring& name);

    long long Tell() const override { return m_pCurrent - m_pStart; }
    void Seek(long long offset) override { m_pCurrent = m_pStart + offset; }
    bool ReadNextCodePoint(int& codePoint) override;

private:
    const unsigned short* m_pStart;
    const unsigned short* m_pCurrent;
    const unsigned short* m_pEnd;
};

class TextInputU32String : public CTextInput {
public:
    TextInputU32String(const char32_t* text, unsigned int count, const qvstring& name);
    TextInputU32String(const std::u32string& text, const qvstring& name);

    long long Tell() const override { return m_pCurrent - m_pStart; }
    void Seek(long long offset) override { m_pCurrent = m_pStart + offset; }
    bool ReadNextCodePoint(int& codePoint) override;

private:
    const char32_t* m_pStart;
    const char32_t* m_pCurrent;
    const char32_t* m_pEnd;
};
