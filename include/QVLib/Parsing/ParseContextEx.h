// ParseContextEx - a parse context with quoted strings and identifiers that hold underscores.
//
// Strings:  text between two equal quotes, over as many lines as it takes; a doubled quote inside stands
//           for one. The token has the text as written, with its quotes. A string without its closing quote
//           reaches to the end of the text and is not terminated (CParseToken::IsTerminated()); the parser
//           that asked for it says so.
// Identifiers: letters, digits and underscores without a gap, a letter first.
#pragma once

#include <QVLib/Parsing/ParseContext.h>

// Token types of ParseContextEx.
constexpr int TokenSingleQuoteString = 130;
constexpr int TokenDoubleQuoteString = 131;

// Option bits.
constexpr int ParseExSingleQuoteStrings = 1;
constexpr int ParseExDoubleQuoteStrings = 2;
constexpr int ParseExExtendedIdentifiers = 4;

class ParseContextEx : public CParseContext {
public:
    // `options` is a sum of the bits above.
    ParseContextEx(CTextInput* input, COutputLog* log, int options);

    // As GetNextTokenSkipWS(), with strings and identifiers put together as the options say.
    int GetNextTokenEx(CParseToken& token);

    // CParseToken::GetTokenName() with the two string types.
    static const char* GetTokenExName(int type);
    // What a single-quoted string token says: without its quotes, doubled quotes undoubled.
    static void SingleQuoteStringContentFromToken(const CParseToken& token, qvstring& content);

private:
    void ParseString(CParseToken& token, int quote, int type);
    void ParseExtendedIdentifier(CParseToken& token);

    int m_Options;
};
