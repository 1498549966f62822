#include "CharacterClass.h"
#include <QVLib/Parsing/ParseContextEx.h>

ParseContextEx::ParseContextEx(CTextInput* input, COutputLog* log, int options)
    : CParseContext(input, log), m_Options(options) {}

int ParseContextEx::GetNextTokenEx(CParseToken& token) {
    const int type = GetNextTokenSkipWS(token);
    if (type == '"' && (m_Options & ParseExDoubleQuoteStrings))
        ParseString(token, '"', TokenDoubleQuoteString);
    else if (type == '\'' && (m_Options & ParseExSingleQuoteStrings))
        ParseString(token, '\'', TokenSingleQuoteString);
    else if (type == TokenIdentifier && (m_Options & ParseExExtendedIdentifiers))
        ParseExtendedIdentifier(token);
    return token.Type();
}

void ParseContextEx::ParseString(CParseToken& token, int quote, int type) {
    token.SetType(type);
    CParseToken next;
    while (AppendTokensUntil(token, quote, quote, next) == quote) {
        token.Append(next);
        const int ahead = PeekNextCharacter();
        if (ahead != -1 && ahead != quote)
            return;
        // Only a second quote goes on, and stays doubled.
        GetNextToken(next);
        if (next.Type() != quote) {
            ReplaceToken(std::move(next));
            return;
        }
        token.Append(next);
    }
    token.SetNotTerminated();
}

void ParseContextEx::ParseExtendedIdentifier(CParseToken& token) {
    CParseToken next;
    for (;;) {
        const int ahead = PeekNextCharacter();
        if (ahead != -1 && ahead != '_' &&
            (ClassOfCodePoint(ahead) & (CharacterLetter | CharacterDigit)) == 0)
            return;
        GetNextToken(next);
        if (next.Type() != TokenIdentifier && next.Type() != TokenNumeric && next.Type() != '_') {
            ReplaceToken(std::move(next));
            return;
        }
        token.Append(next);
    }
}

const char* ParseContextEx::GetTokenExName(int type) {
    switch (type) {
    case TokenSingleQuoteString:
        return "SingleQuoteString";
    case TokenDoubleQuoteString:
        return "DoubleQuoteString";
    default:
        return CParseToken::GetTokenName(type);
    }
}

void ParseContextEx::SingleQuoteStringContentFromToken(const CParseToken& token, qvstring& content) {
    const std::string_view text = token.Text();
    content.clear();
    for (std::size_t i = text.starts_with('\'') ? 1 : 0; i < text.size(); ++i) {
        if (text[i] == '\'' && !text.substr(++i).starts_with('\''))
            return;
        content.push_back(text[i]);
    }
}
