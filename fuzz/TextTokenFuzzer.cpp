// Tokens of any bytes, in every encoding. However much of the text lies in memory, the tokens are the same; each
// begins where the one before it ended; and joined they are the text.
#include "PlainInput.h"
#include <QVLib/BinaryStreams/TextInputBinary.h>
#include <QVLib/Parsing/ParseContextEx.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/OutputLog.h>
#include <algorithm>
#include <cstdint>

namespace {

// The same bytes with a window that shows a few of them at a time, as that of a file does.
class PiecesInput : public CTextInput {
public:
    PiecesInput(const char* start, unsigned int length)
        : CTextInput(qvstring("n")), m_pStart(start), m_pEnd(start + length) {
        Show(start);
    }

    long long Tell() const override { return GetWindow() - m_pStart; }
    void Seek(long long offset) override { Show(m_pStart + offset); }
    bool ReadNextCodePoint(int& codePoint) override {
        const char* current = GetWindow();
        if (current == m_pEnd)
            return false;
        codePoint = qv_codepoint_from_qvchar(current, m_pEnd);
        Show(current);
        return true;
    }

private:
    void Show(const char* current) { SetWindow(current, current + std::min<long long>(5, m_pEnd - current)); }

    const char* const m_pStart;
    const char* const m_pEnd;
};

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
    PlainInput plain(text, length);
    TextInputQVString windowed(text, length, "n");
    const qvstring joined = CheckTokens(plain, windowed);
    plain.ResetPosition();
    PiecesInput pieces(text, length);
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
    CheckWindows(text, static_cast<unsigned int>(size));
    CheckEncodings(data, static_cast<unsigned int>(size));
    CheckStringsAndIdentifiers(text, static_cast<unsigned int>(size));
    return 0;
}
