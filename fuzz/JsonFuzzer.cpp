// JSON of any bytes. They give a value or one message, the same whether or not the text lies in memory; and a
// value that was formatted, compact or pretty, reads back as itself.
#include "support/ChunkedInput.h"
#include <QVLib/Json/JSONParseContext.h>
#include <QVLib/Json/JSONValue.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/TextOutput.h>
#include <algorithm>
#include <cmath>
#include <cstdint>

namespace {

struct Parsed {
    explicit Parsed(CTextInput& input) {
        COutputLogToString log;
        JSONParseContext context(&input, &log);
        m_pValue = JSONValue::ParseProperty(context);
        QV_ASSERT(context.GetErrorCount() == (m_pValue ? 0u : 1u));
        m_Messages = log.GetString();
        CParseToken next;
        context.GetNextJSONToken(next);
        m_Rest = next.Text();
    }
    Parsed(const Parsed&) = delete;
    ~Parsed() {
        if (m_pValue)
            m_pValue->Release();
    }

    JSONValue* m_pValue;
    qvstring m_Messages;
    qvstring m_Rest; // the token behind the value
};

qvstring Format(const JSONValue& value, bool pretty) {
    CTextOutputString out;
    value.Format(pretty, out);
    return out.GetString();
}

bool HasAny(const qvstring& text, std::initializer_list<std::string_view> pieces) {
    return std::any_of(pieces.begin(), pieces.end(),
                       [&](std::string_view piece) { return text.find(piece) != qvstring::npos; });
}

// Newlines that are written as they are and read as a line feed. They can stand in a text as \u escapes only.
bool HasForeignNewline(const qvstring& text) {
    return HasAny(text, {"\u0085", "\u2028", "\u2029"});
}

// Member names are written without escapes, so a quote or a backslash ends or changes them, a zero byte cuts
// them off, a carriage return is a newline, and behind a line feed pretty text is indented.
bool IsReadableName(const qvstring& name, bool pretty) {
    return !HasForeignNewline(name) && !HasAny(name, {"\"", "\\", "\r", std::string_view("\0", 1)}) &&
           !(pretty && HasAny(name, {"\n"}));
}

// True unless the written form cannot be read back by design.
bool IsReadable(const JSONValue& value, bool pretty) {
    if (const auto* const array = dynamic_cast<const JSONValueArray*>(&value)) {
        return std::all_of(array->GetValues().begin(), array->GetValues().end(),
                           [&](const JSONValue* element) { return IsReadable(*element, pretty); });
    }
    if (const auto* const object = dynamic_cast<const JSONValueObject*>(&value)) {
        return std::all_of(object->GetMembers().begin(), object->GetMembers().end(), [&](const auto& member) {
            return IsReadableName(member.first, pretty) && IsReadable(*member.second, pretty);
        });
    }
    if (const auto* const text = dynamic_cast<const JSONValueString*>(&value))
        return !HasForeignNewline(text->GetValue());
    double number = 0;
    return !value.GetNumericValue(number) || std::isfinite(number); // JSON has no word for infinity
}

void CheckReadsBack(const JSONValue& value, bool pretty) {
    if (!IsReadable(value, pretty))
        return;
    const qvstring written = Format(value, pretty);
    TextInputQVString input(written, "n");
    const Parsed again(input);
    QV_ASSERT(again.m_pValue && again.m_Rest.empty());
    QV_ASSERT(Format(*again.m_pValue, false) == Format(value, false));
    QV_ASSERT(Format(*again.m_pValue, true) == Format(value, true));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* const text = reinterpret_cast<const char*>(data);
    TextInputQVString windowed(text, static_cast<unsigned int>(size), "n");
    ChunkedInput plain(qvstring(text, size), 0);
    const Parsed parsed(windowed);
    const Parsed byTokens(plain);
    QV_ASSERT(parsed.m_Messages == byTokens.m_Messages && parsed.m_Rest == byTokens.m_Rest);
    if (!parsed.m_pValue)
        return 0;

    QV_ASSERT(byTokens.m_pValue && Format(*byTokens.m_pValue, false) == Format(*parsed.m_pValue, false));
    CheckReadsBack(*parsed.m_pValue, false);
    CheckReadsBack(*parsed.m_pValue, true);
    return 0;
}
