// CTextInputFromStringToken - reads what a string literal means, at the places where it is written.
//
//     text                    content
//     'abc'  STRING#'abc'     narrow, with escapes
//     "abc"  WSTRING#"abc"    wide, with escapes
//     %'abc'  %"abc"          raw: '$' is a character like any other (narrow and wide)
//     anything else           narrow, with escapes, from the first byte on
//
// A quote of either kind at the end is not part of the content. Escapes: $$ $' $" for the character, $N and $L for a line
// feed (10), $R for a carriage return (13), $T for a tab (9), in either case of the letter, and $ with two hexadecimal
// digits (four in a wide string) for a code point. Newlines become 10 as in every text input, also escaped ones: $R$N is
// a single 10.
// Errors:    an escape that is none of these, or is cut off, ends the text.
// Ownership: the token is borrowed and must outlive the input unchanged.
// Offsets:   bytes from the start of the content.
// Threads:   one thread at a time.
#pragma once

#include <QVLib/TextStreams/TextInput.h>

class CParseToken;

class CTextInputFromStringToken : public CTextInput {
public:
    explicit CTextInputFromStringToken(const CParseToken& token);

    long long Tell() const override { return m_pCurrent - m_pStart; }
    void Seek(long long offset) override { m_pCurrent = m_pStart + offset; }
    bool ReadNextCodePoint(int& codePoint) override;
    // Nothing: reading has moved the location over all that was written.
    void IncrementPosition(int codePoint) override;

private:
    bool ReadWritten(const char*& current, CQVTextLocation& location, int& codePoint) const;
    bool ReadEscape(const char*& current, CQVTextLocation& location, int& codePoint) const;

    bool m_bWide = false;
    bool m_bRaw = false;
    const char* m_pStart;
    const char* m_pCurrent;
    const char* m_pEnd;
};
