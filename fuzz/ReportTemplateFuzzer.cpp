// Templates, and tokens read again as text. The pieces of a template are the template; tokens that are read again are the
// same tokens at the same places; and a string literal ends, wherever its escapes are cut.
#include <QVLib/Parsing/TextInputFromParseTokens.h>
#include <QVLib/Parsing/TextInputFromStringToken.h>
#include <QVLib/Parsing/TextReportParseContext.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/Assert.h>
#include <cstdint>
#include <list>

namespace {

bool IsSamePlace(const CQVTextLocation& a, const CQVTextLocation& b) {
    return a.GetLine() == b.GetLine() && a.GetColumn() == b.GetColumn();
}

void CheckTemplate(const char* text, unsigned int length) {
    TextInputQVString input(text, length, "n");
    COutputLogNull log;
    TextReportParseContext context(&input, &log);
    qvstring joined;
    CQVTextLocation end;
    for (CParseToken token; context.GetReportToken(token) != TokenEndOfFile; token = CParseToken()) {
        QV_ASSERT(token.Type() >= ReportTokenText && token.Type() <= ReportTokenCode);
        QV_ASSERT(IsSamePlace(token.Location().GetBegin(), end));
        QV_ASSERT(token.IsTerminated() || token.Type() != ReportTokenText);
        end = token.Location().GetEnd();
        joined += token.Text();
    }
    qvstring all;
    TextInputQVString(text, length, "n").ReadAllInput(all);
    QV_ASSERT(joined == all.substr(0, all.find('\0')));
}

void CheckReplay(const char* text, unsigned int length) {
    TextInputQVString input(text, length, "n");
    COutputLogNull log;
    CParseContext context(&input, &log);
    std::list<CParseToken> tokens;
    TextInputFromParseTokens replay;
    do {
        context.GetNextToken(tokens.emplace_back());
        replay.AddToken(tokens.back());
    } while (tokens.back().Type() != TokenEndOfFile);

    CParseContext again(&replay, &log);
    CParseToken token;
    for (const CParseToken& expected : tokens) {
        CTextInputFromStringToken content(expected);
        qvstring value;
        content.ReadAllInput(value);
        again.GetNextToken(token);
        QV_ASSERT(token.Text() == expected.Text() && token.Type() == expected.Type());
        QV_ASSERT(token.Type() == TokenEndOfFile ||
                  IsSamePlace(token.Location().GetBegin(), expected.Location().GetBegin()));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* text = reinterpret_cast<const char*>(data);
    CheckTemplate(text, static_cast<unsigned int>(size));
    CheckReplay(text, static_cast<unsigned int>(size));
    CErrorLocationTextRange nowhere;
    const CParseToken whole(qvstring(text, size), nowhere);
    CTextInputFromStringToken content(whole);
    qvstring value;
    content.ReadAllInput(value);
    return 0;
}
