// Tokens of any bytes. However much of the text lies in memory, the tokens are the same; each begins where
// the one before it ended; and joined they are the text.
#include "PlainInput.h"
#include <QVLib/Parsing/ParseContextEx.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/OutputLog.h>
#include <cstdint>

namespace {

bool IsSamePlace(const CQVTextLocation& a, const CQVTextLocation& b) {
    return a.GetLine() == b.GetLine() && a.GetColumn() == b.GetColumn();
}

void RequireSame(const CParseToken& a, const CParseToken& b) {
    QV_ASSERT(a.Type() == b.Type());
    QV_ASSERT(a.Text() == b.Text());
    QV_ASSERT(a.IsTerminated() == b.IsTerminated());
    QV_ASSERT(IsSamePlace(a.Location().GetBegin(), b.Location().GetBegin()));
    QV_ASSERT(IsSamePlace(a.Location().GetEnd(), b.Location().GetEnd()));
}

void CheckTokens(const char* text, unsigned int length) {
    PlainInput plain(text, length);
    TextInputQVString windowed(text, length, "n");
    COutputLogNull log;
    CParseContext plainContext(&plain, &log);
    CParseContext windowedContext(&windowed, &log);
    CParseToken expected;
    CParseToken token;
    CQVTextLocation end;
    qvstring joined;
    do {
        plainContext.GetNextToken(expected);
        windowedContext.GetNextToken(token);
        RequireSame(expected, token);
        QV_ASSERT(IsSamePlace(token.Location().GetBegin(), end));
        end = token.Location().GetEnd();
        joined += token.Text();
    } while (token.Type() != TokenEndOfFile);

    qvstring all;
    TextInputQVString(text, length, "n").ReadAllInput(all);
    QV_ASSERT(joined == all.substr(0, all.find('\0')));
}

void CheckStringsAndIdentifiers(const char* text, unsigned int length) {
    PlainInput plain(text, length);
    TextInputQVString windowed(text, length, "n");
    COutputLogNull log;
    constexpr int Options =
        ParseExSingleQuoteStrings | ParseExDoubleQuoteStrings | ParseExExtendedIdentifiers;
    ParseContextEx plainContext(&plain, &log, Options);
    ParseContextEx windowedContext(&windowed, &log, Options);
    int type;
    do {
        CParseToken expected;
        CParseToken token;
        plainContext.GetNextTokenEx(expected);
        type = windowedContext.GetNextTokenEx(token);
        RequireSame(expected, token);
    } while (type != TokenEndOfFile);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* text = reinterpret_cast<const char*>(data);
    CheckTokens(text, static_cast<unsigned int>(size));
    CheckStringsAndIdentifiers(text, static_cast<unsigned int>(size));
    return 0;
}
