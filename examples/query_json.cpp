// Judges readings by conditions that an engineer wrote in JSONata. A condition is compiled once and evaluated for each
// reading.
#include <QVLib/Json/JSONValue.h>
#include <QVLib/Json/JSONata.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/TextOutput.h>
#include <cstdio>
#include <memory>

struct ReleaseValue {
    void operator()(JSONValue* value) const { value->Release(); }
};
using ValuePointer = std::unique_ptr<JSONValue, ReleaseValue>;

static ValuePointer Parse(const char* text, COutputLog* log) {
    TextInputQVString input(text, "reading");
    JSONParseContext context(&input, log);
    return ValuePointer(JSONValue::ParseProperty(context));
}

int main() {
    COutputLogToString log;
    const char* const readings[] = {
        R"({"tag": "Boiler", "value": 96.5, "limits": {"high": 90}})",
        R"({"tag": "Tank", "value": 41, "limits": {"high": 90}})",
        R"({"tag": "Pump", "value": "off", "limits": {"high": 90}})",
        R"({"tag": "Fan", "value": })",
    };
    const char* const text = "value - limits.high > 0";
    TextInputQVString input(text, "condition");
    JSONParseContext context(&input, &log);
    JSONataExpr condition;
    if (!condition.ParseJSONataExpr(context))
        return 1;
    for (const char* reading : readings) {
        const ValuePointer document = Parse(reading, &log);
        if (!document)
            continue; // the log says why
        const ValuePointer result(condition.Evaluate(document.get(), context));
        CTextOutputString shown;
        document->Format(false, shown);
        std::printf("%s: %s\n", shown.GetCStr(),
                    !result                   ? "cannot say"
                    : result->CastToBoolean() ? "ALARM"
                                              : "well");
    }
    std::printf("%s", log.GetString().c_str());
}
