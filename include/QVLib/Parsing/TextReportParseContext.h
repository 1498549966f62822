// TextReportParseContext - the tokens of a report template: text, comments and code.
//
//     Total: <?sum?> items <!-- a note -->
//
// GetReportToken() reads it piece by piece; joined, the pieces are the template. Code and comments do not nest, and end
// with the first of their end marks; a mark is four, three or two characters, whatever stands behind them ("?>=" ends code
// and leaves "="). Marks are told apart from left to right, also where they mean nothing: the "?" of a "<?" within code
// is taken, so "<?>" does not end it.
// Errors:  a comment or code block that the end of the template cuts off is a token that is not terminated.
// Threads: one thread at a time.
#pragma once

#include <QVLib/Parsing/ParseContext.h>

enum ReportTokenType : int {
    ReportTokenText = 200,
    ReportTokenComment = 201, // with its marks
    ReportTokenCode = 202,    // with its marks
    ReportTokenCommentStart = 210,
    ReportTokenCommentEnd = 211,
    ReportTokenCodeStart = 212,
    ReportTokenCodeEnd = 213,
};

class TextReportParseContext : public CParseContext {
public:
    TextReportParseContext(CTextInput* input, COutputLog* log);

    // Reads one piece: ReportTokenText, ReportTokenComment, ReportTokenCode or TokenEndOfFile, which is returned too.
    int GetReportToken(CParseToken& token);
    // Reads one token of the text, nothing skipped, or one mark (ReportTokenCommentStart and so on). Returns its type.
    int GetNextReportToken(CParseToken& token);

private:
    void ExtendToMark(CParseToken& token, int type, const char* rest);
    bool TakeCharacter(char expected, CParseToken& token);
    void ExtendBlock(CParseToken& token, int type, int endType);
};
