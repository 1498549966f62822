// UnicodeCharacter - one code point and its properties.
//
// Properties follow the Unicode Character Database of the ICU library that the platform was built with; ASCII
// is answered without it. Values that are no Unicode scalar value (surrogates, negative, above 0x10FFFF) have
// no property: they are no letter, no digit, no white space, and their own upper case.
#pragma once

// The tables behind UnicodeCharacter, whose operations of the same names tell what each means.
class UnicodeCharTable {
public:
    static bool IsWhitespace(int codePoint);
    static bool IsDigit(int codePoint);
    static bool IsLetter(int codePoint);
    static int GetNumericValue(int codePoint);
    // The simple upper-case mapping: one code point to one code point, independent of language.
    static int ToUpper(int codePoint);
    static int GetDisplayWidth(int codePoint);
};

class UnicodeCharacter {
public:
    UnicodeCharacter() = default;
    explicit UnicodeCharacter(int codePoint) : m_CodePoint(codePoint) {}

    void SetCodePoint(int codePoint) { m_CodePoint = codePoint; }
    int GetCodePoint() const { return m_CodePoint; }

    // White space in the sense of the White_Space property (tab, line feed, blank, no-break space, ...).
    bool IsWhitespace() const {
        if (IsASCII())
            return m_CodePoint == ' ' || (m_CodePoint >= '\t' && m_CodePoint <= '\r');
        return UnicodeCharTable::IsWhitespace(m_CodePoint);
    }
    bool IsASCIIDigit() const { return m_CodePoint >= '0' && m_CodePoint <= '9'; }
    // A decimal digit of any script (general category Nd).
    bool IsDigit() const { return IsASCII() ? IsASCIIDigit() : UnicodeCharTable::IsDigit(m_CodePoint); }
    // A letter of any script (general categories Lu, Ll, Lt, Lm, Lo); '_' and digits are none.
    bool IsLetter() const { return IsASCII() ? IsASCIILetter() : UnicodeCharTable::IsLetter(m_CodePoint); }
    bool IsASCIILetter() const {
        return (m_CodePoint >= 'A' && m_CodePoint <= 'Z') || (m_CodePoint >= 'a' && m_CodePoint <= 'z');
    }
    int ToUpper() const { return UnicodeCharTable::ToUpper(m_CodePoint); }
    // The columns that a terminal gives the character: 2 for wide ones (East_Asian_Width W and F), 0 for marks that
    // stand over another one and for control and format characters, otherwise 1.
    int GetDisplayWidth() const {
        return m_CodePoint >= ' ' && m_CodePoint <= '~' ? 1 : UnicodeCharTable::GetDisplayWidth(m_CodePoint);
    }
    // The value of a decimal digit of any script, 0 to 9; -1 for anything else.
    int GetNumericValue() const {
        return IsASCIIDigit() ? m_CodePoint - '0' : UnicodeCharTable::GetNumericValue(m_CodePoint);
    }

private:
    bool IsASCII() const { return m_CodePoint >= 0 && m_CodePoint < 0x80; }

    int m_CodePoint = 0;
};
