// CParseContext - what every parser is derived from: tokens read, pushed back and tried, and messages about
// them.
//
// Model:    a parser takes tokens from a CTextInput one after the other. A token too many is pushed back;
//           SaveState() and RestoreState() try one reading of the text and go back. The context is the
//           CErrorLog of the parse: an error count of 0 is how callers know that a text was understood.
// Example:  CParseToken token;
//           if (context.GetNextTokenSkipWS(token) != ';') {
//               context.LogUnexpectedTokenError(token, ";");
//               context.SkipToBeforeToken(';');
//           }
// Ownership: the text input, the output log and the keyword table are borrowed.
// Threads:  one thread at a time. A context lives for one parse of one input.
// Cost:     pushing a token back allocates nothing once the stack has been as deep before. Better still is
//           not to read a token that is not wanted: PeekNextCharacter() often knows.
#pragma once

#include <QVLib/Parsing/ErrorLog.h>
#include <QVLib/Parsing/ParseToken.h>
#include <QVLib/TextStreams/TextInput.h>
#include <vector>

// One entry of a keyword table. Tables are sorted in the order of CParseToken::CompareIdentifier().
struct TokenKeyword {
    const char* m_pKeyword;
    int m_TokenType;
};

// The tokens that were pushed back. Popped entries stay allocated for the next push.
class ParseTokenStack {
public:
    bool IsEmpty() const { return m_Count == 0; }
    void Push(CParseToken&& token);
    // The stack must not be empty.
    void Pop(CParseToken& token) { token = std::move(m_Tokens[--m_Count]); }
    void CopyFrom(const ParseTokenStack& other);

private:
    std::vector<CParseToken> m_Tokens;
    unsigned int m_Count = 0;
};

class CParseContext : public CErrorLog {
public:
    // A place in the text, filled by SaveState(). It may be restored any number of times, into the same
    // context.
    class ParseState {
    private:
        friend class CParseContext;

        CTextInput::Position m_Position;
        ParseTokenStack m_ReplacedTokens;
    };

    CParseContext(CTextInput* input, COutputLog* log);
    CParseContext(const CParseContext&) = delete;

    // Reads one token, blanks and line ends included.
    void GetNextToken(CParseToken& token);
    // Reads the next token that is no white space and (unless line ends matter to the parser) no line end.
    // Returns its type.
    int GetNextTokenSkipWS(CParseToken& token);
    // Pushes a token back. The end of the text is not kept: it is read again at any time.
    void ReplaceToken(CParseToken&& token);

    // The character that the next token starts with, where a look into memory tells: ASCII, from 1, no line
    // end. -1 when only reading can tell (a token is pushed back, the input has no text in memory, any
    // other character, the end). So a parser may rely on what it gets, but must be able to go on without it.
    int PeekNextCharacter() const;
    // The same behind the blanks that GetNextTokenSkipWS() would skip. They are gone then, so only for
    // parsers that skip them anyway.
    int PeekNextCharacterSkipWS();
    // Passes over the character that a peek just told.
    void TakeNextCharacter() { m_pTextInput->TakePlainAscii(1); }
    // Reads tokens and appends them to `token` until one of the given types or the end of the text, which
    // is left in `stop`. The types are ASCII characters that are always a token of their own, such as
    // quotes. Returns the type of `stop`.
    int AppendTokensUntil(CParseToken& token, int type1, int type2, CParseToken& stop);

    // Goes on behind an error: reads up to a token of a given type or the end, which is then read next.
    void SkipToBeforeToken(int type);
    void SkipToBeforeToken(int type1, int type2);

    void SaveState(ParseState& state) const;
    void RestoreState(const ParseState& state);

    void SetIdentifierTokens(const TokenKeyword* table, unsigned int count);
    // Turns an identifier that stands in the keyword table into that keyword's type.
    void TranslateIdentifierToken(CParseToken& token) const;

    // Messages about a token: an error, or a warning when errors are warnings, at the token's place. The
    // end of the text is called "End of File".
    void LogTokenError(const CParseToken& token, const CQVModule& module, unsigned int id, ...);
    void LogUnexpectedTokenError(const CParseToken& token, const char* expected);
    void LogUnexpectedTokenError(const CParseToken& token, const char* expected1, const char* expected2);
    void LogUnexpectedTokenError(const CParseToken& token, const char* expected1, const char* expected2,
                                 const char* expected3);
    void LogMissingTokenBeforeError(const CParseToken& token, const char* missing);
    void LogMissingTokenAfterError(const CParseToken& token, const char* missing);
    void LogSyntaxError(const CParseToken& token);
    // Names the token by its text, so the end of the text has no name here.
    void LogUnexpectedExtraTokenError(const CParseToken& token);
    void LogMissingKeywordBeforeError(const CParseToken& token, const char* keyword);
    // `list` is shown as it is: "a, b or c".
    void LogExpectedOneOfError(const CParseToken& token, const char* list);

protected:
    CTextInput* GetTextInput() const { return m_pTextInput; }

private:
    CTextInput* m_pTextInput;

protected:
    // For the constructors of parsers with a grammar of their own.
    bool m_bSkipEndOfLine = true;
    ParseIdentifierMode m_IdentifierMode = ParseIdentifierLettersAndDigits;
    ParseNumericMode m_NumericMode = ParseNumericDigitRun;

private:
    void SkipBlanks();

    ParseTokenStack m_ReplacedTokens;
    const TokenKeyword* m_pIdentifierTokens = nullptr;
    unsigned int m_nIdentifierTokens = 0;
};

inline int CParseContext::PeekNextCharacter() const {
    const std::string_view ahead = m_pTextInput->PeekText();
    if (ahead.empty() || !m_ReplacedTokens.IsEmpty())
        return -1;
    const signed char next = static_cast<signed char>(ahead[0]);
    return next > 0 && next != 10 && next != 13 ? next : -1;
}

inline int CParseContext::PeekNextCharacterSkipWS() {
    const int next = PeekNextCharacter();
    if (next > ' ')
        return next;
    SkipBlanks();
    return PeekNextCharacter();
}
