// Tokens of any bytes, in every encoding. However much of the text lies in memory, the tokens are the same; each
// begins where the one before it ended; and joined they are the text.
#include "support/ChunkedInput.h"
#include <QVLib/BinaryStreams/TextInputBinary.h>
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

// The tokens of two inputs over one text, which are the same; joined they are the result.
qvstring CheckTokens(CTextInput& plain, CTextInput& windowed) {
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
    return joined;
}

void CheckWindows(const char* text, unsigned int length) {
    ChunkedInput plain(qvstring(text, length), 0);
    TextInputQVString windowed(text, length, "n");
    const qvstring joined = CheckTokens(plain, windowed);
    plain.ResetPosition();
    ChunkedInput pieces(qvstring(text, length), 5);
    CheckTokens(plain, pieces);

    qvstring all;
    TextInputQVString(text, length, "n").ReadAllInput(all);
    QV_ASSERT(joined == all.substr(0, all.find('\0')));
}

// The first byte chooses the encoding of the others, where no mark tells another.
void CheckEncodings(const unsigned char* data, unsigned int length) {
    const TextEncoding encoding = static_cast<TextEncoding>(length == 0 ? 0 : data[0] % 6);
    TextInputFromRawData raw(data, length);
    BinaryInputFromReadOnlyData bytes(BinaryStringLengthNotAllowed, data, length);
    CTextInputFromBinaryInput binary(&bytes, false);
    QV_ASSERT(raw.GetEncoding() == binary.GetEncoding() && raw.Tell() == binary.Tell());
    if (raw.GetEncoding() == TextEncodingUTF8) {
        raw.SetEncoding(encoding);
        binary.SetEncoding(encoding);
    }
    CheckTokens(binary, raw);
}

void CheckStringsAndIdentifiers(const char* text, unsigned int length) {
    ChunkedInput plain(qvstring(text, length), 0);
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
    CheckWindows(text, static_cast<unsigned int>(size));
    CheckEncodings(data, static_cast<unsigned int>(size));
    CheckStringsAndIdentifiers(text, static_cast<unsigned int>(size));
    return 0;
}
