// CTextOutputOnCharArray, CTextOutputOnWcharArray - text output into an array of fixed size.
//
//     char line[80];
//     CTextOutputOnWcharArray out(line, sizeof line);
//     time.PrintTime(out); // `line` is the text, cut if need be
//
// The text is UTF-8 with a zero behind it, at most `size` - 1 bytes of whole characters. The two differ only
// in the beginning: the char array is left alone until the first code point, so it holds a text only when
// something was written; the wchar array (characters of a qvstring) is the empty text at once.
//
// Errors:    a code point that does not fit is refused and nothing else changes. A shorter one may still fit
//            after it, so a text that was cut may lack a character before its end.
// Ownership: the array is borrowed and must outlive the object. An array of size 0 is never touched.
// Threads:   one thread at a time.
#pragma once

#include <QVPlatform/TextOutput.h>

class CTextOutputOnCharArray : public CTextOutput {
public:
    // `size` in bytes.
    CTextOutputOnCharArray(char* buffer, unsigned int size);
    CTextOutputOnCharArray(const CTextOutputOnCharArray&) = delete;
    CTextOutputOnCharArray& operator=(const CTextOutputOnCharArray&) = delete;

    // False when it does not fit.
    bool WriteCodePoint(int codePoint) override;

private:
    bool WriteRun(const char* text, unsigned int length);

    char* m_pBuffer;
    unsigned int m_Size;
    unsigned int m_Used = 0; // without the zero
};

class CTextOutputOnWcharArray : public CTextOutput {
public:
    // `size` in bytes.
    CTextOutputOnWcharArray(char* buffer, unsigned int size);
    CTextOutputOnWcharArray(const CTextOutputOnWcharArray&) = delete;
    CTextOutputOnWcharArray& operator=(const CTextOutputOnWcharArray&) = delete;

    // False when it does not fit.
    bool WriteCodePoint(int codePoint) override;

private:
    bool WriteRun(const char* text, unsigned int length);

    char* m_pBuffer;
    unsigned int m_Size;
    unsigned int m_Used = 0; // without the zero
};
