// CSecuritySettingsParseContext - the tokens of the user-rights text: those of every parser, without comments.
//
// A comment is a '#' or ';' that is the very first character of its line, and the rest of that line. Anywhere
// else the two are ordinary tokens, and ';' ends an entry. Parsers of this text read with GetToken();
// SkipToBeforeToken(), which goes on behind an error, knows no comments and stops at a ';' in one.
//
// Ownership: input and log are borrowed, as by CParseContext.
#pragma once

#include <QVLib/Parsing/ParseContext.h>

// Token type of this context: a whole comment line.
constexpr int TokenSecuritySettingsComment = 200;

class CSecuritySettingsParseContext : public CParseContext {
public:
    CSecuritySettingsParseContext(CTextInput* input, COutputLog* log) : CParseContext(input, log) {}

    // Reads the next token that is no blank, no line end and no comment. Returns its type.
    int GetToken(CParseToken& token);
    // The same with comments, each as one token that includes its line end.
    void GetNextSecuritySettingsToken(CParseToken& token);
};
