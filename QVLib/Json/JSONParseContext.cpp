#include <QVLib/Json/JSONParseContext.h>

#include "JSONNumber.h"
#include <QVPlatform/Unicode.h>

namespace {

// The value of a hexadecimal digit, -1 for any other byte.
int HexDigit(char byte) {
    if (byte >= '0' && byte <= '9')
        return byte - '0';
    if (byte >= 'a' && byte <= 'f')
        return byte - 'a' + 10;
    if (byte >= 'A' && byte <= 'F')
        return byte - 'A' + 10;
    return -1;
}

// Reads up to four hexadecimal digits.
int ReadUnicodeEscape(const char*& current, const char* end) {
    int codePoint = 0;
    for (int digits = 0; digits < 4 && current != end; ++digits, ++current) {
        const int digit = HexDigit(*current);
        if (digit < 0)
            break;
        codePoint = codePoint * 16 + digit;
    }
    return codePoint;
}

// What a letter behind a backslash stands for; every other byte stands for itself.
char ControlEscape(char letter) {
    switch (letter) {
    case 'b':
        return '\b';
    case 'f':
        return '\f';
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    case 't':
        return '\t';
    default:
        return letter;
    }
}

// Most identifiers are told from the three words by their length.
int TypeOfIdentifier(const CParseToken& token) {
    const size_t length = token.Text().size();
    if (length == 4 && token.EqualIdentifier("true"))
        return JSONTokenTrue;
    if (length == 5 && token.EqualIdentifier("false"))
        return JSONTokenFalse;
    if (length == 4 && token.EqualIdentifier("null"))
        return JSONTokenNull;
    return TokenIdentifier;
}

} // namespace

int JSONParseContext::GetNextJSONToken(CParseToken& token) {
    switch (GetNextTokenSkipWS(token)) {
    case TokenNumeric:
        ExtendNumber(token);
        break;
    case '"':
        ExtendString(token);
        break;
    case TokenIdentifier:
        token.SetType(TypeOfIdentifier(token));
        break;
    default:
        break;
    }
    return token.Type();
}

// `token` holds the integer digits.
void JSONParseContext::ExtendNumber(CParseToken& token) {
    token.SetType(JSONTokenNumber);
    const int ahead = PeekNextCharacter();
    if (ahead >= 0 && ahead != '.' && ahead != 'e' && ahead != 'E')
        return;
    CParseToken& next = m_Piece;
    const auto appendDigits = [&] {
        for (; next.Type() == TokenNumeric; GetNextToken(next))
            token.Append(next);
    };
    GetNextToken(next);
    if (next.Type() == '.') {
        token.Append(next);
        GetNextToken(next);
        appendDigits();
    }
    if (next.IsNumberExponent()) {
        token.Append(next);
        if (next.Text().size() == 1) {
            GetNextToken(next);
            if (next.Type() == '+' || next.Type() == '-')
                token.Append(next);
            else
                ReplaceToken(std::move(next));
        }
        GetNextToken(next);
        appendDigits();
    }
    ReplaceToken(std::move(next));
}

// `token` holds the opening quote.
void JSONParseContext::ExtendString(CParseToken& token) {
    token.SetType(JSONTokenString);
    CParseToken& next = m_Piece;
    while (AppendTokensUntil(token, '"', '\\', next) == '\\') {
        token.Append(next);
        GetNextToken(next); // whatever follows a backslash belongs to the string, a quote too
        if (next.Type() == TokenEndOfFile)
            break;
        token.Append(next);
    }
    if (next.Type() == '"')
        token.Append(next);
    else
        token.SetNotTerminated();
}

void JSONParseContext::TranslateJSONStringToken(const CParseToken& token, qvstring& text) {
    text.clear();
    const char* current = token.Text().data() + 1;
    const char* const end = token.Text().data() + token.Text().size();
    while (current < end && *current != '"') {
        const char* const run = current;
        while (current < end && *current != '"' && *current != '\\')
            ++current;
        text.append(run, current);
        if (current == end || *current == '"')
            break;
        if (++current == end)
            break;
        const char escaped = *current++;
        if (escaped == 'u')
            qv_append_codepoint_to_qvstring(ReadUnicodeEscape(current, end), text);
        else
            text.push_back(ControlEscape(escaped));
    }
}

double JSONParseContext::NumberFromToken(const CParseToken& token) {
    return qv_number_from_text(token.Text());
}
