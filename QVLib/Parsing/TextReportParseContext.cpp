#include <QVLib/Parsing/TextReportParseContext.h>

TextReportParseContext::TextReportParseContext(CTextInput* input, COutputLog* log)
    : CParseContext(input, log) {}

int TextReportParseContext::GetReportToken(CParseToken& token) {
    switch (GetNextReportToken(token)) {
    case TokenEndOfFile:
        break;
    case ReportTokenCommentStart:
        ExtendBlock(token, ReportTokenComment, ReportTokenCommentEnd);
        break;
    case ReportTokenCodeStart:
        ExtendBlock(token, ReportTokenCode, ReportTokenCodeEnd);
        break;
    default: {
        token.SetType(ReportTokenText);
        CParseToken next;
        for (int type = GetNextReportToken(next); type != TokenEndOfFile; type = GetNextReportToken(next)) {
            if (type == ReportTokenCommentStart || type == ReportTokenCodeStart) {
                ReplaceToken(std::move(next));
                break;
            }
            token.Append(next);
        }
    }
    }
    return token.Type();
}

int TextReportParseContext::GetNextReportToken(CParseToken& token) {
    GetNextToken(token);
    switch (token.Type()) {
    case '<':
        ExtendToMark(token, ReportTokenCommentStart, "!--");
        if (token.Type() == '<')
            ExtendToMark(token, ReportTokenCodeStart, "?");
        break;
    case '?':
        ExtendToMark(token, ReportTokenCodeEnd, ">");
        break;
    case '-':
        ExtendToMark(token, ReportTokenCommentEnd, "->");
        break;
    default:
        break;
    }
    return token.Type();
}

// Makes a mark of a token that may begin one. If other characters follow, they are read again later.
void TextReportParseContext::ExtendToMark(CParseToken& token, int type, const char* rest) {
    CParseToken taken[3];
    int count = 0;
    for (; rest[count] != 0; count++) {
        if (TakeCharacter(rest[count], taken[count]))
            continue;
        while (count > 0)
            ReplaceToken(std::move(taken[--count]));
        return;
    }
    for (int i = 0; i < count; i++)
        token.Append(taken[i]);
    token.SetType(type);
}

// Reads a token that is this character. The ">" of a ">=" counts too, and the "=" is then read next.
bool TextReportParseContext::TakeCharacter(char expected, CParseToken& token) {
    GetNextToken(token);
    if (token.Type() == expected)
        return true;
    if (expected != '>' || token.Type() != TokenGreaterEqual) {
        ReplaceToken(std::move(token));
        return false;
    }
    CQVTextLocation middle = token.Location().GetBegin();
    middle.AdvanceColumns(1);
    CParseToken equals("=", CErrorLocationTextRange(middle, token.Location().GetEnd()));
    equals.SetType('=');
    ReplaceToken(std::move(equals));
    token = CParseToken(">", CErrorLocationTextRange(token.Location().GetBegin(), middle));
    token.SetType('>');
    return true;
}

void TextReportParseContext::ExtendBlock(CParseToken& token, int type, int endType) {
    token.SetType(type);
    CParseToken next;
    do {
        if (GetNextReportToken(next) == TokenEndOfFile) {
            token.SetNotTerminated();
            return;
        }
        token.Append(next);
    } while (next.Type() != endType);
}
