#include "CharacterClass.h"
#include <QVLib/Parsing/ParseToken.h>
#include <QVLib/TextStreams/TextInput.h>
#include <QVPlatform/Ascii.h>

namespace {

constexpr const char* NamesFrom33[] = {
    "Exclamation",     "DoubleQuote",      "Hash",     "Dollar", "Percent", "Ampersand", "SingleQuote",
    "OpenParenthesis", "CloseParenthesis", "Asterisk", "Plus",   "Comma",   "Minus",     "FullStop",
    "ForwardSlash",
};
constexpr const char* NamesFrom58[] = {"Colon",       "SemiColon", "LessThan", "Equal",
                                       "GreaterThan", "Question",  "At"};
constexpr const char* NamesFrom91[] = {"OpenBracket", "BackSlash",  "CloseBracket",
                                       "Circumflex",  "Underscore", "GraveAccent"};
constexpr const char* NamesFrom123[] = {"OpenBrace", "VerticalBar", "CloseBrace", "Tilda"};

const char* GetCharacterName(int type) {
    if (type >= 33 && type <= 47)
        return NamesFrom33[type - 33];
    if (type >= 58 && type <= 64)
        return NamesFrom58[type - 58];
    if (type >= 91 && type <= 96)
        return NamesFrom91[type - 91];
    if (type >= 123 && type <= 126)
        return NamesFrom123[type - 123];
    return nullptr;
}

unsigned int MembersOfIdentifier(ParseIdentifierMode mode) {
    switch (mode) {
    case ParseIdentifierLettersAndDigits:
        return CharacterLetter | CharacterDigit | CharacterOtherDigit;
    case ParseIdentifierLettersOnly:
        return CharacterLetter;
    default:
        return 0;
    }
}

unsigned int MembersOfNumber(ParseNumericMode mode) {
    return mode == ParseNumericDigitRun ? CharacterDigit : 0;
}

// A token of characters that belong together, found by the class of its first one. Without members, that
// one is all.
struct Run {
    int m_Type = TokenUnknown;
    unsigned int m_Members = 0;
};

Run GetRun(unsigned int firstClass, ParseIdentifierMode identifierMode, ParseNumericMode numericMode) {
    switch (firstClass) {
    case CharacterBlank:
        return {TokenWhitespace, CharacterBlank};
    case CharacterDigit:
        return {TokenNumeric, MembersOfNumber(numericMode)};
    case CharacterLetter:
        return {TokenIdentifier, MembersOfIdentifier(identifierMode)};
    default:
        return {};
    }
}

int ToLower(char byte) {
    return qv_ascii_to_lower(static_cast<unsigned char>(byte));
}

} // namespace

CParseToken::CParseToken(const char* text, const CErrorLocationTextRange& location)
    : m_Type(TokenIdentifier), m_Text(text), m_Location(location) {}

CParseToken::CParseToken(const qvstring& text, const CErrorLocationTextRange& location)
    : m_Type(TokenIdentifier), m_Text(text), m_Location(location) {}

CParseToken::CParseToken(CParseToken&& other) noexcept
    : m_Type(other.m_Type), m_Text(std::move(other.m_Text)), m_Location(std::move(other.m_Location)),
      m_bTerminated(other.m_bTerminated) {
    other.m_Type = TokenUnknown;
}

// The location is copied: `other` keeps its hold on the source's name for the next token that it reads.
CParseToken& CParseToken::operator=(CParseToken&& other) noexcept {
    if (this == &other)
        return *this;
    m_Type = other.m_Type;
    m_Text.swap(other.m_Text);
    m_Location = other.m_Location;
    m_bTerminated = other.m_bTerminated;
    other.m_Type = TokenUnknown;
    return *this;
}

void CParseToken::Parse(CTextInput* input, ParseIdentifierMode identifierMode, ParseNumericMode numericMode) {
    Clear();
    CQVTextLocation& begin = m_Location.Begin();
    const std::string_view ahead = input->PeekText();
    if (!ahead.empty()) {
        const Run run = GetRun(ClassOfByte(ahead[0]), identifierMode, numericMode);
        if (run.m_Members != 0) {
            m_Type = run.m_Type;
            input->GetNextLocation(begin);
            ParseRun(input, run.m_Members);
            return;
        }
    }
    int first = 0;
    const bool isRead = input->ReadCodePointWithLocation(first, begin);
    if (first == 0 || !isRead) {
        // A zero ends the text for every further token too.
        if (isRead)
            input->ReplaceCodePoint(first, begin);
        m_Type = TokenEndOfFile;
        m_Location.End() = begin;
        return;
    }
    AppendCodePoint(first);
    const Run run = GetRun(ClassOfCodePoint(first), identifierMode, numericMode);
    m_Type = run.m_Type;
    if (run.m_Members != 0)
        ParseRun(input, run.m_Members);
    else
        ParseCharacter(input, first);
}

// Takes the members that come next. Where the text is in memory, they are taken out of it at once and the
// character that stops the run is only looked at. Elsewhere, and beyond ASCII, each is read, and the last
// one pushed back.
void CParseToken::ParseRun(CTextInput* input, unsigned int members) {
    CQVTextLocation& end = m_Location.End();
    for (;;) {
        const std::string_view ahead = input->PeekText();
        const unsigned int length = LengthOfRun(ahead, members);
        m_Text.append(ahead.data(), length);
        input->TakePlainAscii(length);
        if (length < ahead.size() && static_cast<signed char>(ahead[length]) >= 0) {
            input->GetNextLocation(end);
            return;
        }
        int codePoint;
        if (!input->ReadCodePointWithLocation(codePoint, end))
            return;
        if ((ClassOfCodePoint(codePoint) & members) == 0) {
            input->ReplaceCodePoint(codePoint, end);
            return;
        }
        AppendCodePoint(codePoint);
    }
}

// Everything of one character, and what starts with it.
void CParseToken::ParseCharacter(CTextInput* input, int first) {
    m_Location.End() = m_Location.Begin();
    m_Location.End().IncrementByCodePoint(first);
    switch (first) {
    case 10:
        m_Type = TokenEndOfLine;
        break;
    case '.':
        m_Type = first;
        if (TakeIfNext(input, '.'))
            m_Type = TakeIfNext(input, '.') ? TokenEllipsis : TokenRange;
        break;
    case '!':
        m_Type = TakeIfNext(input, '=') ? TokenNotEqual : first;
        break;
    case '<':
        m_Type = TakeIfNext(input, '=') ? TokenLessEqual : TakeIfNext(input, '>') ? TokenNotEqual : first;
        break;
    case '>':
        m_Type = TakeIfNext(input, '=') ? TokenGreaterEqual : first;
        break;
    default:
        if (m_Type == TokenUnknown && first >= 33 && first <= 126)
            m_Type = first;
    }
}

bool CParseToken::TakeIfNext(CTextInput* input, char expected) {
    const std::string_view ahead = input->PeekText();
    // Bytes beyond ASCII are read: to some inputs, a sequence that is longer than needed is the character all the same.
    if (!ahead.empty() && static_cast<signed char>(ahead[0]) >= 0) {
        if (ahead[0] != expected)
            return false;
        input->TakePlainAscii(1);
    } else {
        CQVTextLocation location;
        int codePoint;
        if (!input->ReadCodePointWithLocation(codePoint, location))
            return false;
        if (codePoint != expected) {
            input->ReplaceCodePoint(codePoint, location);
            return false;
        }
    }
    m_Text.push_back(expected);
    m_Location.End().AdvanceColumns(1);
    return true;
}

void CParseToken::Append(const CParseToken& other) {
    m_Text.append(other.m_Text);
    m_Location.End() = other.m_Location.GetEnd();
}

void CParseToken::AppendTextBefore(CTextInput* input, char stop1, char stop2) {
    const std::string_view text = input->TakeTextBefore(stop1, stop2);
    if (text.empty())
        return;
    m_Text.append(text);
    input->GetNextLocation(m_Location.End());
}

int CParseToken::CompareIdentifier(const char* s) const {
    const char* text = m_Text.c_str();
    while (*text != '\0' && ToLower(*text) == ToLower(*s)) {
        ++text;
        ++s;
    }
    return ToLower(*text) - ToLower(*s);
}

bool CParseToken::IsNumberExponent() const {
    if (m_Text.empty() || ToLower(m_Text[0]) != 'e')
        return false;
    return LengthOfRun(std::string_view(m_Text).substr(1), CharacterDigit) == m_Text.size() - 1;
}

const char* CParseToken::GetTokenName(int type) {
    switch (type) {
    case TokenUnknown:
        return "????";
    case TokenEndOfFile:
        return "EOF";
    case TokenEndOfLine:
        return "End of line";
    case TokenWhitespace:
        return "Whitespace";
    case TokenRange:
        return "Range";
    case TokenEllipsis:
        return "Elipsis";
    case TokenIdentifier:
        return "Identifier";
    case TokenNumeric:
        return "Numeric";
    case TokenGreaterEqual:
        return "GreaterEqual";
    case TokenLessEqual:
        return "LessEqual";
    case TokenNotEqual:
        return "NotEqual";
    default:
        return GetCharacterName(type);
    }
}
