#include "CharacterClass.h"
#include <QVLib/Parsing/ParseContext.h>
#include <QVLib/Resources/Messages.h>

namespace {

// What a message calls the token that was found.
const char* Found(const CParseToken& token) {
    return token.Type() == TokenEndOfFile ? "End of File" : token.Text().c_str();
}

} // namespace

void ParseTokenStack::Push(CParseToken&& token) {
    if (m_Count == m_Tokens.size())
        m_Tokens.emplace_back();
    m_Tokens[m_Count++] = std::move(token);
}

void ParseTokenStack::CopyFrom(const ParseTokenStack& other) {
    m_Tokens.assign(other.m_Tokens.begin(),
                    other.m_Tokens.begin() + static_cast<std::ptrdiff_t>(other.m_Count));
    m_Count = other.m_Count;
}

CParseContext::CParseContext(CTextInput* input, COutputLog* log) : CErrorLog(log), m_pTextInput(input) {}

void CParseContext::GetNextToken(CParseToken& token) {
    if (m_ReplacedTokens.IsEmpty())
        token.Parse(m_pTextInput, m_IdentifierMode, m_NumericMode);
    else
        m_ReplacedTokens.Pop(token);
}

int CParseContext::GetNextTokenSkipWS(CParseToken& token) {
    do {
        SkipBlanks();
        GetNextToken(token);
    } while (token.Type() == TokenWhitespace || (token.Type() == TokenEndOfLine && m_bSkipEndOfLine));
    return token.Type();
}

// Takes what would become tokens only to be skipped, as far as it is in memory.
void CParseContext::SkipBlanks() {
    if (!m_ReplacedTokens.IsEmpty())
        return;
    do
        m_pTextInput->TakePlainAscii(LengthOfRun(m_pTextInput->PeekText(), CharacterBlank));
    while (m_bSkipEndOfLine && m_pTextInput->TakePlainLineFeed());
}

void CParseContext::ReplaceToken(CParseToken&& token) {
    if (token.Type() != TokenEndOfFile)
        m_ReplacedTokens.Push(std::move(token));
}

int CParseContext::AppendTokensUntil(CParseToken& token, int type1, int type2, CParseToken& stop) {
    for (;;) {
        if (m_ReplacedTokens.IsEmpty())
            token.AppendTextBefore(m_pTextInput, static_cast<char>(type1), static_cast<char>(type2));
        GetNextToken(stop);
        const int type = stop.Type();
        if (type == type1 || type == type2 || type == TokenEndOfFile)
            return type;
        token.Append(stop);
    }
}

void CParseContext::SkipToBeforeToken(int type) {
    SkipToBeforeToken(type, type);
}

void CParseContext::SkipToBeforeToken(int type1, int type2) {
    CParseToken token;
    do
        GetNextToken(token);
    while (token.Type() != type1 && token.Type() != type2 && token.Type() != TokenEndOfFile);
    ReplaceToken(std::move(token));
}

void CParseContext::SaveState(ParseState& state) const {
    m_pTextInput->SavePosition(state.m_Position);
    state.m_ReplacedTokens.CopyFrom(m_ReplacedTokens);
}

void CParseContext::RestoreState(const ParseState& state) {
    m_pTextInput->RestorePosition(state.m_Position);
    m_ReplacedTokens.CopyFrom(state.m_ReplacedTokens);
}

void CParseContext::SetIdentifierTokens(const TokenKeyword* table, unsigned int count) {
    m_pIdentifierTokens = table;
    m_nIdentifierTokens = count;
}

void CParseContext::TranslateIdentifierToken(CParseToken& token) const {
    int lower = 0;
    int upper = static_cast<int>(m_nIdentifierTokens) - 1;
    while (lower <= upper) {
        const int middle = lower + (upper - lower) / 2;
        const int order = token.CompareIdentifier(m_pIdentifierTokens[middle].m_pKeyword);
        if (order == 0) {
            token.SetType(m_pIdentifierTokens[middle].m_TokenType);
            return;
        }
        if (order > 0)
            lower = middle + 1;
        else
            upper = middle - 1;
    }
}

void CParseContext::LogTokenError(const CParseToken& token, const CQVModule& module, unsigned int id, ...) {
    va_list arguments;
    va_start(arguments, id);
    LogErrorVA(token.Location(), module, id, arguments);
    va_end(arguments);
}

void CParseContext::LogUnexpectedTokenError(const CParseToken& token, const char* expected) {
    LogTokenError(token, g_LibModule, QVMessage::UnexpectedToken, Found(token), expected);
}

void CParseContext::LogUnexpectedTokenError(const CParseToken& token, const char* expected1,
                                            const char* expected2) {
    LogTokenError(token, g_LibModule, QVMessage::UnexpectedTokenOf2, Found(token), expected1, expected2);
}

void CParseContext::LogUnexpectedTokenError(const CParseToken& token, const char* expected1,
                                            const char* expected2, const char* expected3) {
    LogTokenError(token, g_LibModule, QVMessage::UnexpectedTokenOf3, Found(token), expected1, expected2,
                  expected3);
}

void CParseContext::LogMissingTokenBeforeError(const CParseToken& token, const char* missing) {
    LogTokenError(token, g_LibModule, QVMessage::MissingTokenBefore, missing, Found(token));
}

void CParseContext::LogMissingTokenAfterError(const CParseToken& token, const char* missing) {
    LogTokenError(token, g_LibModule, QVMessage::MissingTokenAfter, missing, Found(token));
}

void CParseContext::LogSyntaxError(const CParseToken& token) {
    LogTokenError(token, g_LibModule, QVMessage::SyntaxError, Found(token));
}

void CParseContext::LogUnexpectedExtraTokenError(const CParseToken& token) {
    LogTokenError(token, g_LibModule, QVMessage::UnexpectedExtraToken, token.Text().c_str());
}

void CParseContext::LogMissingKeywordBeforeError(const CParseToken& token, const char* keyword) {
    LogTokenError(token, g_LibModule, QVMessage::MissingKeywordBefore, keyword, Found(token));
}

void CParseContext::LogExpectedOneOfError(const CParseToken& token, const char* list) {
    LogTokenError(token, g_LibModule, QVMessage::ExpectedOneOf, Found(token), list);
}
