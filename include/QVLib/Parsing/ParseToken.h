// CParseToken - a piece of source text with its type and its place: the one token of every textual syntax.
//
// Model:    Parse() reads the next token of a text. Nothing is skipped: blanks and line ends are tokens
//           too, so the texts of all tokens, joined, are the text that was read. There are no keywords,
//           strings, comments or real numbers here; parsers build those by re-typing tokens and appending
//           tokens to each other.
// Types:    a small integer. 0 to 10 are below, a single ASCII character is its own type ('+', '[', ...), and
//           types from 128 belong to the parser that uses them.
// Range:    from the token's first code point to just behind its last one.
// Errors:   there are none. What fits no rule is TokenUnknown; the parser that meets it complains.
// Cost:     over a text in memory a token takes runs of ASCII straight out of it. A token object keeps the
//           room of its text, and its hold on the source's name, from one Parse() to the next: reuse it.
#pragma once

#include <QVLib/Parsing/ErrorLocation.h>
#include <QVPlatform/String.h>
#include <QVPlatform/Unicode.h>

class CTextInput;

enum ParseTokenType : int {
    TokenUnknown = 0,
    // The end of the text, or a code point 0, which ends it too. Reading on gives the same again.
    TokenEndOfFile = 1,
    TokenEndOfLine = 2,
    // A run of white space other than line ends.
    TokenWhitespace = 3,
    TokenRange = 4,    // ..
    TokenEllipsis = 5, // ...
    // A letter of any script, and what follows it by the ParseIdentifierMode.
    TokenIdentifier = 6,
    // ASCII digits, by the ParseNumericMode: no sign, no decimal point, no exponent.
    TokenNumeric = 7,
    TokenGreaterEqual = 8, // >=
    TokenLessEqual = 9,    // <=
    TokenNotEqual = 10,    // != and <>
};

// The underscore is no letter.
enum ParseIdentifierMode : int {
    ParseIdentifierLettersAndDigits = 0,
    ParseIdentifierLettersOnly = 1,
    ParseIdentifierSingleLetter = 2,
};

enum ParseNumericMode : int {
    ParseNumericDigitRun = 0,
    ParseNumericSingleDigit = 1,
};

class CParseToken {
public:
    CParseToken() = default;
    // An identifier that stands in no text, or was made of one.
    CParseToken(const char* text, const CErrorLocationTextRange& location);
    CParseToken(const qvstring& text, const CErrorLocationTextRange& location);
    CParseToken(const CParseToken&) = default;
    CParseToken& operator=(const CParseToken&) = default;
    // Moving leaves `other` with type 0 and the texts' memory swapped, where that saves an allocation.
    CParseToken(CParseToken&& other) noexcept;
    CParseToken& operator=(CParseToken&& other) noexcept;
    virtual ~CParseToken() = default;

    int Type() const { return m_Type; }
    // UTF-8, exactly as read but for line ends, which are a line feed each.
    const qvstring& Text() const { return m_Text; }
    const CErrorLocationTextRange& Location() const { return m_Location; }
    // False for a string that ran into the end of the text.
    bool IsTerminated() const { return m_bTerminated; }

    // Reads the next token of `input` into this object.
    void Parse(CTextInput* input, ParseIdentifierMode identifierMode, ParseNumericMode numericMode);

    // Gives the token another type, such as a keyword's or a string's.
    void SetType(int type) { m_Type = type; }
    // There is no way back: neither Clear() nor Parse() makes the token terminated again.
    void SetNotTerminated() { m_bTerminated = false; }
    // Type 0 and an empty text; location and termination stay.
    void Clear() {
        m_Text.clear();
        m_Type = TokenUnknown;
    }
    // Takes in the token that follows: its text and its end. Type and begin stay.
    void Append(const CParseToken& other);
    // Adds to the text only.
    void AppendCodePoint(int codePoint) { qv_append_codepoint_to_qvstring(codePoint, m_Text); }
    // Takes in whatever comes next in `input`, up to and without `stop1`, `stop2`, or anything that a
    // Parse() has to judge: a code point 0, a newline that is no plain line feed, malformed bytes, the end.
    // That is what parsing and appending the tokens would give, in one step. Nothing where the input has no
    // text in memory, so this is a short cut before a loop over tokens and never its replacement. The stops
    // are ASCII characters that are always a token of their own (quotes, a backslash).
    void AppendTextBefore(CTextInput* input, char stop1, char stop2);

    // ASCII letters are compared without regard to case, everything else byte by byte. Keyword tables are
    // sorted in the order of CompareIdentifier(): negative when the text comes before `s`.
    bool EqualIdentifier(const char* s) const { return CompareIdentifier(s) == 0; }
    bool EqualIdentifierCaseSensitive(const char* s) const { return m_Text == s; }
    int CompareIdentifier(const char* s) const;
    // "e" or "E" followed by ASCII digits or nothing: the piece of a real number that parsers must tell
    // from an identifier.
    bool IsNumberExponent() const;

    // What to call a type in a message; null for types that are never produced or not the tokenizer's.
    static const char* GetTokenName(int type);

private:
    // The steps of Parse(): each finishes a token that has begun.
    void ParseRun(CTextInput* input, unsigned int members);
    void ParseCharacter(CTextInput* input, int first);
    bool TakeIfNext(CTextInput* input, char expected);

    int m_Type = TokenUnknown;
    qvstring m_Text;
    CErrorLocationTextRange m_Location;
    bool m_bTerminated = true;
};
