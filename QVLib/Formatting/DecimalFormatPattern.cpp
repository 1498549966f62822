// How a pattern is read, and what a format makes of it.
#include <QVLib/Formatting/DecimalFormat.h>
#include <QVLib/TextStreams/TextInput.h>
#include <QVPlatform/Unicode.h>
#include <utility>

namespace {

enum PatternError : int {
    NoError = 0,
    ZeroBehindRightHash = 1,
    SecondDecimalPoint = 2,
    NoExponentDigit = 3,
    SecondExponent = 4,
    ZeroBehindFractionHash = 6,
    HashBeforeDecimalPoint = 7,
    EmptyGroup = 8,
    OpenQuotation = 9,
};

} // namespace

int DecimalFormat::FormatParseState::ParseFormat(CTextInput* input) {
    int c;
    while (m_State != FormatStateDone && input->ReadCodePoint(c)) {
        const int error = ProcessCodePoint(input, c);
        if (error != NoError)
            return error;
    }
    HandlePatternsWithNoZeroCharacter();
    return CheckFormat();
}

int DecimalFormat::FormatParseState::ProcessCodePoint(CTextInput* input, int c) {
    switch (m_State) {
    case FormatStateQuotedPrefix:
    case FormatStateQuotedSuffix:
        ProcessQuotedAffixCodePoint(m_State == FormatStateQuotedSuffix, input, c);
        return NoError;
    case FormatStateMantissa:
        return ProcessMantissaCodePoint(c);
    case FormatStateExponent:
        return ProcessExponentCodePoint(c);
    default:
        return ProcessAffixCodePoint(m_State == FormatStateSuffix, c);
    }
}

int DecimalFormat::FormatParseState::ProcessAffixCodePoint(bool suffix, int c) {
    switch (c) {
    case '\'':
        m_State = suffix ? FormatStateQuotedSuffix : FormatStateQuotedPrefix;
        return NoError;
    case '#':
    case '0':
    case ',':
    case '.':
        // Also behind the number: text may stand between two parts of it.
        m_State = FormatStateMantissa;
        return ProcessMantissaCodePoint(c);
    case ';':
        m_State = FormatStateDone;
        return NoError;
    default:
        AppendCodePointToAffix(suffix, c);
        return NoError;
    }
}

void DecimalFormat::FormatParseState::ProcessQuotedAffixCodePoint(bool suffix, CTextInput* input, int c) {
    if (c != '\'') {
        AppendCodePointToAffix(suffix, c);
        return;
    }
    int next;
    CQVTextLocation location;
    const bool bMore = input->ReadCodePointWithLocation(next, location);
    if (bMore && next == '\'') {
        AppendCodePointToAffix(suffix, '\'');
        return;
    }
    if (bMore)
        input->ReplaceCodePoint(next, location);
    m_State = suffix ? FormatStateSuffix : FormatStatePrefix;
}

void DecimalFormat::FormatParseState::AppendCodePointToAffix(bool suffix, int c) {
    qv_append_codepoint_to_qvstring(c, suffix ? m_Suffix : m_Prefix);
}

int DecimalFormat::FormatParseState::ProcessMantissaCodePoint(int c) {
    switch (c) {
    case '#':
        CountDigit(m_ZeroDigitCount == 0 ? m_DigitLeftCount : m_DigitRightCount);
        return NoError;
    case '0':
        if (m_DigitRightCount > 0)
            return ZeroBehindRightHash;
        CountDigit(m_ZeroDigitCount);
        return NoError;
    case ',':
        m_GroupingCount = 0;
        return NoError;
    case '.':
        if (m_DecimalPos >= 0)
            return SecondDecimalPoint;
        m_DecimalPos = GetDigitCount();
        return NoError;
    case 'e':
    case 'E':
        m_ExponentChar = c;
        m_ExponentDigits = 0;
        m_State = FormatStateExponent;
        return NoError;
    case ';':
        m_State = FormatStateDone;
        return NoError;
    default:
        m_State = FormatStateSuffix;
        return ProcessAffixCodePoint(true, c);
    }
}

int DecimalFormat::FormatParseState::ProcessExponentCodePoint(int c) {
    switch (c) {
    case '0':
        if (m_ExponentDigits < Unlimited)
            ++m_ExponentDigits;
        return NoError;
    case 'e':
    case 'E':
        return SecondExponent;
    case ';':
        m_State = FormatStateDone;
        return NoError;
    case '+':
        if (m_ExponentDigits == 0) {
            m_bExponentPlus = true;
            return NoError;
        }
        break;
    default:
        break;
    }
    m_State = FormatStateSuffix;
    return ProcessAffixCodePoint(true, c);
}

void DecimalFormat::FormatParseState::HandlePatternsWithNoZeroCharacter() {
    if (m_ZeroDigitCount != 0 || m_DigitLeftCount < 1 || m_DecimalPos < 0)
        return;
    const int integerDigits = m_DecimalPos == 0 ? 1 : m_DecimalPos;
    m_DigitRightCount = m_DigitLeftCount - integerDigits;
    m_DigitLeftCount = integerDigits - 1;
    m_ZeroDigitCount = 1;
}

// One that is not counted is a digit in a text of gigabytes; the sums stay in range.
void DecimalFormat::FormatParseState::CountDigit(int& count) {
    if (GetDigitCount() == Unlimited)
        return;
    ++count;
    if (m_GroupingCount >= 0 && m_DecimalPos < 0)
        ++m_GroupingCount;
}

// The faults that no single character shows.
int DecimalFormat::FormatParseState::CheckFormat() const {
    if (m_DecimalPos >= 0) {
        if (m_DecimalPos < m_DigitLeftCount)
            return ZeroBehindFractionHash;
        if (m_DecimalPos > m_DigitLeftCount + m_ZeroDigitCount)
            return HashBeforeDecimalPoint;
    }
    if (m_GroupingCount == 0)
        return EmptyGroup;
    if (m_State == FormatStateQuotedPrefix || m_State == FormatStateQuotedSuffix)
        return OpenQuotation;
    if (m_ExponentDigits == 0)
        return NoExponentDigit;
    return NoError;
}

void DecimalFormat::Format::ResetFormat() {
    Format defaults;
    defaults.m_Prefix = std::move(m_Prefix);
    defaults.m_Suffix = std::move(m_Suffix);
    *this = std::move(defaults);
}

void DecimalFormat::Format::ApplyFormatParseState(FormatParseState& state) {
    m_Prefix = std::move(state.m_Prefix);
    m_Suffix = std::move(state.m_Suffix);
    m_ExponentChar = static_cast<char>(state.m_ExponentChar);
    if (m_ExponentChar != 0) {
        m_MinExponentDigits = state.m_ExponentDigits;
        m_bExponentPlusSign = state.m_bExponentPlus;
    }

    const int total = state.GetDigitCount();
    const bool bDecimal = state.m_DecimalPos >= 0;
    m_MinIntegerDigits = (bDecimal ? state.m_DecimalPos : total) - state.m_DigitLeftCount;
    m_MaxIntegerDigits = m_ExponentChar != 0 ? m_MinIntegerDigits + state.m_DigitLeftCount : Unlimited;
    m_GroupingSize = state.m_GroupingCount < 0 ? 0 : state.m_GroupingCount;
    m_MaxFractionDigits = bDecimal ? total - state.m_DecimalPos : 0;
    m_MinFractionDigits = bDecimal ? state.m_DigitLeftCount + state.m_ZeroDigitCount - state.m_DecimalPos : 0;
    m_bAlwaysShowDecimal = state.m_DecimalPos == 0 || state.m_DecimalPos == total;
}

void DecimalFormat::Format::DeriveDefaultNegativeFormat(const Format& positive) {
    *this = positive;
    m_Prefix.insert(0, 1, '-');
}

int DecimalFormat::ParseDecimalFormat(CTextInput* input) {
    FormatParseState first;
    int error = first.ParseFormat(input);
    if (error != NoError)
        return error;

    if (first.GetState() != FormatParseState::FormatStateDone) {
        if (first.IsFormatDefined()) {
            m_bPositiveDefined = true;
            m_PositiveFormat.ApplyFormatParseState(first);
        }
        m_NegativeFormat.DeriveDefaultNegativeFormat(m_PositiveFormat);
        return NoError;
    }

    FormatParseState second;
    error = second.ParseFormat(input);
    if (error != NoError)
        return error;
    m_bPositiveDefined = true;
    m_PositiveFormat.ApplyFormatParseState(first);
    m_bNegativeDefined = true;
    m_NegativeFormat.ApplyFormatParseState(second);
    return NoError;
}

void DecimalFormat::ResetDecimalFormat() {
    m_bPositiveDefined = false;
    m_PositiveFormat.ResetFormat();
    m_bNegativeDefined = false;
    m_NegativeFormat.ResetFormat();
}
