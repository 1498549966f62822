// JSONata of any bytes. They give an expression or one message, the same whether or not the text lies in
// memory; an expression prints to what parses to itself; and it can be evaluated against anything.
#include "support/ChunkedInput.h"
#include <QVLib/Json/JSONValue.h>
#include <QVLib/Json/JSONata.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/TextOutput.h>
#include <cstdint>

namespace {

// Every kind of value under a short name, and two that are deep enough for a path.
constexpr const char* Document = R"({"a":[10,[20,"x"],{"b":-1.5}],"b":{"a":[0],"in":"y"},"e":"","f":false,)"
                                 R"("i":1,"n":null,"o":{},"s":"text","t":true,"my field":[[]]})";

struct Compiled {
    explicit Compiled(CTextInput& input) {
        COutputLogToString log;
        JSONParseContext context(&input, &log);
        m_bParsed = m_Expr.ParseJSONataExpr(context);
        QV_ASSERT(context.GetErrorCount() == (m_bParsed ? 0u : 1u));
        m_Messages = log.GetString();
        CParseToken next;
        context.GetNextJSONToken(next);
        m_Rest = next.Text();
    }

    qvstring Print() const {
        CTextOutputString out;
        m_Expr.FormatJSONataExpr(out);
        return out.GetString();
    }
    // The value as JSON, and the messages behind it.
    qvstring Evaluate(JSONValue* input) const {
        CErrorLogToString log;
        CTextOutputString out;
        if (JSONValue* const value = m_Expr.Evaluate(input, log)) {
            value->Format(false, out);
            value->Release();
        }
        return out.GetString() + log.GetString();
    }

    JSONataExpr m_Expr;
    bool m_bParsed;
    qvstring m_Messages;
    qvstring m_Rest; // the token behind the expression
};

JSONValue* ParseDocument() {
    TextInputQVString input(Document, "document");
    COutputLogNull log;
    JSONParseContext context(&input, &log);
    return JSONValue::ParseProperty(context);
}

// False for what prints to something else by design: a literal past a double's range prints as "inf", a name;
// and newlines that stand as \u escapes in a string literal are printed as they are and read as line feeds.
bool IsReadable(const qvstring& printed) {
    for (const char* const piece : {"inf", "\u0085", "\u2028", "\u2029"}) {
        if (printed.find(piece) != qvstring::npos)
            return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* const text = reinterpret_cast<const char*>(data);
    TextInputQVString windowed(text, static_cast<unsigned int>(size), "n");
    ChunkedInput plain(qvstring(text, size), 0);
    const Compiled compiled(windowed);
    const Compiled byTokens(plain);
    QV_ASSERT(compiled.m_bParsed == byTokens.m_bParsed);
    QV_ASSERT(compiled.m_Messages == byTokens.m_Messages && compiled.m_Rest == byTokens.m_Rest);
    if (!compiled.m_bParsed)
        return 0;

    const qvstring printed = compiled.Print();
    QV_ASSERT(byTokens.Print() == printed);
    if (IsReadable(printed)) {
        TextInputQVString input(printed, "n");
        const Compiled again(input);
        QV_ASSERT(again.m_bParsed && again.m_Rest.empty());
        QV_ASSERT(again.Print() == printed);
    }

    JSONValue* const document = ParseDocument();
    QV_ASSERT(compiled.Evaluate(document) == byTokens.Evaluate(document));
    QV_ASSERT(compiled.Evaluate(nullptr) == byTokens.Evaluate(nullptr));
    document->Release();
    return 0;
}
