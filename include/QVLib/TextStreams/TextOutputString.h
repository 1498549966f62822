// TextOutputToUtf8String, TextOutputToUtf16String - build a counted string (CountedString.h) as text output.
//
//     TextOutputToUtf8String out;
//     out.Print("%u records", count);
//     return out.GetUtf8String(); // freed by the caller with Utf8StringFree()
//
// Memory:   room for 32 units at first, doubled when it runs out.
// Limits:   a counted string holds at most 65,535 units. The first code point that would pass that, or that
//           there is no memory for, is refused and with it everything that follows, so the text is always cut
//           in one place.
// Threads:  one thread at a time.
#pragma once

#include <QVLib/TextStreams/CountedString.h>
#include <QVPlatform/TextOutput.h>

class TextOutputToUtf8String : public CTextOutput {
public:
    TextOutputToUtf8String();
    TextOutputToUtf8String(const TextOutputToUtf8String&) = delete;
    TextOutputToUtf8String& operator=(const TextOutputToUtf8String&) = delete;
    // Frees a string that was not handed over.
    ~TextOutputToUtf8String() override;

    // False for what is refused. The string must not have been handed over.
    bool WriteCodePoint(int codePoint) override;
    // Hands the string over to the caller; nothing may be written afterwards. Null when handed over before,
    // or when there was no memory for an empty string.
    Utf8String* GetUtf8String();

private:
    bool WriteRun(const char* text, unsigned int length);

    unsigned int m_Capacity; // in bytes
    Utf8String* m_pUtf8String;
    bool m_bOverflow = false;
};

class TextOutputToUtf16String : public CTextOutput {
public:
    TextOutputToUtf16String();
    TextOutputToUtf16String(const TextOutputToUtf16String&) = delete;
    TextOutputToUtf16String& operator=(const TextOutputToUtf16String&) = delete;
    // Frees a string that was not handed over.
    ~TextOutputToUtf16String() override;

    // As in TextOutputToUtf8String.
    bool WriteCodePoint(int codePoint) override;
    Utf16String* GetUtf16String();

private:
    bool WriteRun(const char* text, unsigned int length);

    unsigned int m_Capacity; // in units
    Utf16String* m_pUtf16String;
    bool m_bOverflow = false;
};
