// DecimalFormat - numbers as text, by a pattern such as "#,##0.00", "0.###E0" or "'Level '0.0 m;'Level -'0.0 m".
//
//     TextInputQVString pattern("#,##0.00", "pattern"); // a string that outlives it
//     DecimalFormat format;
//     const int error = format.ParseDecimalFormat(&pattern);
//     if (error == 0)
//         format.FormatDouble(1234.567, output); // 1,234.57
//
// Pattern:  0        a digit, written in any case
//           #        a digit, written where the number has one
//           ,        groups the integer digits: as many to a group as the pattern has digits behind the last ','
//           .        between integer and fraction digits; first or last in the pattern it is always written
//           E0 e0    scientific notation with at least so many digits of exponent; "E+0" also signs positive ones.
//                    More than one integer digit with a '#' in front ("##0.##E0") keeps the exponent a multiple
//                    of their number (engineering notation)
//           ;        ends the pattern for zero and positive numbers and begins one, complete in itself, for
//                    negative numbers; without it they get the first with "-" in front
//           'text'   as it is; '' within is one quotation mark
//           Other characters stand for themselves, before and behind the number.
// Rounding: half to even on the number's form of 16 significant digits: 0.125 to two places is 0.12, and 2.675 is
//           2.68 although its double is a little less. What lies beyond 16 digits is written as 0.
// Locale:   none. The separators are always "," and ".", the digits ASCII; who needs others replaces them.
// Errors:   parsing answers with a code and reports nothing else; formatting never fails. NaN is "NaN" alone, an
//           infinity is "Infinity" between the texts of its sign's format. The sign of negative zero is shown.
// Size:     what is written grows with the pattern (a million '0' are a million digits), nothing is allocated for
//           it. Who takes patterns from outside limits their length.
// Threads:  one thread at a time; any number may format with one object while nobody changes it.
#pragma once

#include <QVPlatform/String.h>

class CTextInput;
class CTextOutput;

class DecimalFormat {
public:
    // "No limit" for the numbers of digits.
    static constexpr int Unlimited = 0x7FFFFFFF;

    // Reads one pattern of the two that ';' may separate: a state machine that takes the pattern character by
    // character. Of use by itself to whoever wants to know where in a pattern something is.
    class FormatParseState {
    public:
        enum State : int {
            FormatStatePrefix = 0,
            FormatStateQuotedPrefix = 1,
            FormatStateMantissa = 2, // digits, ',' and '.'
            FormatStateExponent = 3, // '+' and digits behind the letter
            FormatStateSuffix = 4,
            FormatStateQuotedSuffix = 5,
            FormatStateDone = 6, // a ';' ended it
        };

        FormatParseState() = default;

        // Reads up to and including a ';', or to the end of the input. Answers as ParseDecimalFormat(); at
        // the first error that a single character shows it stops reading, behind that character.
        int ParseFormat(CTextInput* input);
        // Something other than nothing was read.
        bool IsFormatDefined() const { return m_State != FormatStatePrefix || !m_Prefix.empty(); }
        int GetState() const { return m_State; }

        // The steps of ParseFormat(). Those that may find an error return its code, or 0.
        int ProcessCodePoint(CTextInput* input, int c);
        int ProcessAffixCodePoint(bool suffix, int c);
        void ProcessQuotedAffixCodePoint(bool suffix, CTextInput* input, int c);
        void AppendCodePointToAffix(bool suffix, int c);
        int ProcessMantissaCodePoint(int c);
        int ProcessExponentCodePoint(int c);
        // Makes "0.##" of "#.##".
        void HandlePatternsWithNoZeroCharacter();

        // All digits of the pattern; never above Unlimited, digits beyond are not counted.
        int GetDigitCount() const { return m_DigitLeftCount + m_ZeroDigitCount + m_DigitRightCount; }

        int m_State = FormatStatePrefix;
        qvstring m_Prefix;
        int m_ZeroDigitCount = 0;
        int m_DigitLeftCount = 0;  // '#' before the first '0'
        int m_DigitRightCount = 0; // '#' behind it
        int m_GroupingCount = -1;  // digits since the last ',', -1 without one
        int m_DecimalPos = -1;     // digits before the '.', -1 without one
        int m_ExponentChar = 0;    // 0 without one
        int m_ExponentDigits = -1; // -1 without an exponent
        bool m_bExponentPlus = false;
        qvstring m_Suffix;

    private:
        void CountDigit(int& count);
        int CheckFormat() const;
    };

    // A number as decimal digits: 0.d1d2...dn times 10 to the power m_nDecimalAt. 1234.5 is 12345 with the
    // point at 4, 0.00123 is 123 at -2, zero is no digits at 0.
    class DigitList {
    public:
        DigitList() = default;

        // Takes a number and rounds it: to `maximumDigits` decimal places (`fixedPoint`), or to as many digits
        // in all unless that is below 1. A double must be finite and not negative, and leaves no trailing
        // zeros; of an integer they stay as long as nothing is rounded away.
        void SetDouble(double value, bool fixedPoint, int maximumDigits);
        void SetUInt64(unsigned long long value, bool fixedPoint, int maximumDigits);

        // Rounds to so many digits; nothing happens when there are no more, or for a negative number.
        void RoundDigitList(int maximumDigits);
        // Whether rounding in front of the digit at `index` goes up: half to even, and to the 0 before the
        // first digit.
        bool ShouldRoundUp(int index);
        // One digit stays.
        void RemoveTrailingZeros();
        // No digit other than '0'.
        bool IsDigitListZero() const;
        // For diagnostics: the digits, then ", DP 4".
        void PrintDigitList(CTextOutput& out) const;

        static constexpr int MaximumDigits = 24;
        char m_Digits[MaximumDigits] = {}; // '0' to '9', without a terminator
        int m_nCount = 0;
        int m_nDecimalAt = 0;

    private:
        void RoundForNotation(bool fixedPoint, int maximumDigits);
        void CarryUp();
    };

    // One pattern, ready for use.
    class Format {
    public:
        Format() = default;

        // Puts the numbers back to their defaults and keeps the texts.
        void ResetFormat();
        // Takes over what was read; the texts are moved out of `state`.
        void ApplyFormatParseState(FormatParseState& state);
        // Becomes `positive` with "-" in front.
        void DeriveDefaultNegativeFormat(const Format& positive);

        // The value must be finite and not negative.
        void FormatDouble(double value, CTextOutput& out) const;
        void FormatUInt64(unsigned long long value, CTextOutput& out) const;
        // What the digits of a number are to be rounded to, see DigitList.
        int GetMaxDigitsForFormat() const;
        // Writes digits with the texts around them, in one piece unless they are many.
        void FormatDigitList(const DigitList& digits, CTextOutput& out) const;
        // For diagnostics: "Prefix '', Int 1-2147483647, Frac 2-2". The groups are not shown.
        void PrintFormat(CTextOutput& out) const;

        qvstring m_Prefix;
        int m_MaxIntegerDigits = Unlimited;
        int m_MinIntegerDigits = 0;
        int m_GroupingSize = 0; // integer digits to a group, 0 without groups
        int m_MaxFractionDigits = Unlimited;
        int m_MinFractionDigits = 0;
        bool m_bAlwaysShowDecimal = false; // in fixed-point notation only
        char m_ExponentChar = 0;           // the letter, as it is written; 0 for fixed-point notation
        bool m_bExponentPlusSign = false;
        int m_MinExponentDigits = 0;
        qvstring m_Suffix;
    };

    // Until a pattern was parsed, numbers have the digits that they have, and negative ones no sign.
    DecimalFormat() = default;

    // Reads a pattern and returns 0, or, with nothing changed,
    //     1  a '0' behind a '#' that stands behind a '0'           "0#0"
    //     2  a second '.'                                          "0..0"
    //     3  an exponent letter without a '0' behind it            "0.0E"
    //     4  a second exponent letter                              "0EE0"
    //     6  a '#' behind the '.' and before a '0'                 "#.#0"
    //     7  a '#' between the '0' and the '.'                     "0#.#"
    //     8  a ',' without a digit between it and the '.' or end   "#,.0"
    //     9  a quotation that does not end                         "'abc"
    // A pattern of nothing is none: it only gives negative numbers their "-". Flags of an earlier pattern stay
    // set, so start from a new or a reset object.
    int ParseDecimalFormat(CTextInput* input);

    // Write the number.
    void FormatDouble(double value, CTextOutput& out) const;
    void FormatInt64(long long value, CTextOutput& out) const;
    void FormatUInt64(unsigned long long value, CTextOutput& out) const;

    // Back to the defaults; the texts before and behind the numbers stay.
    void ResetDecimalFormat();
    // For diagnostics: the positive format, and ";" and the negative one where the pattern had its own.
    void PrintDecimalFormat(CTextOutput& out) const;

    bool m_bPositiveDefined = false; // a pattern with content was parsed
    Format m_PositiveFormat;         // for zero and positive numbers
    bool m_bNegativeDefined = false; // the pattern had a ';'
    Format m_NegativeFormat;
};
