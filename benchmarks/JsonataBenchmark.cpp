// Compiling and evaluating JSONata, beside the language's reference implementation, the package jsonata on
// node.
//
//   Compile     text into an expression, and the expression released
//   Evaluate    a compiled expression against a document, and the value released
//
// The expressions are conditions and calculations of a plant's displays, of the part of the language that
// both sides have; a value that differs is an error. The peer measures itself (JsonataPeer.js) and each of
// its results is one iteration here. `./dev bench` fetches it; without it the peer's lines say so.
#include <QVLib/Json/JSONValue.h>
#include <QVLib/Json/JSONata.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/TextOutput.h>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

const std::string kDocument =
    R"({"plant": "north", "scale": 2, "running": true, "limit": {"low": 4, "high": 20}, "points": [)"
    R"({"name": "pump1.flow", "value": 12.5, "unit": "m3/h", "alarm": false, "limits": [0, 10, 100]},)"
    R"({"name": "pump2.flow", "value": 7.25, "unit": "m3/h", "alarm": true, "limits": [0, 8, 100]},)"
    R"({"name": "tank.level", "value": 3.5, "unit": "m", "alarm": false, "limits": [0, 1, 5]}]})";

struct Case {
    const char* name;
    const char* expression;
};
constexpr Case kCases[] = {
    {"path", "points[1].limits[2]"},
    {"arithmetic", "(points[0].value - points[1].value) * 4 / scale + limit.low"},
    {"condition",
     "running and points[0].value > limit.low and points[0].value <= limit.high or plant = \"south\""},
    {"text", "plant & \"/\" & points[2].name & \": \" & points[2].value & \" \" & points[2].unit"},
    {"functions", "$exists(points[0].alarm) and $not(points[0].alarm) and $boolean(plant)"},
};

struct Releaser {
    void operator()(JSONValue* value) const { value->Release(); }
};
using Value = std::unique_ptr<JSONValue, Releaser>;

Value ParseDocument() {
    COutputLogNull log;
    TextInputQVString input(kDocument, "document");
    JSONParseContext context(&input, &log);
    return Value(JSONValue::ParseProperty(context));
}

void Compile(const std::string& text, JSONataExpr& expression) {
    COutputLogNull log;
    TextInputQVString input(text, "expression");
    JSONParseContext context(&input, &log);
    if (!expression.ParseJSONataExpr(context))
        throw std::runtime_error("an expression was not understood");
}

std::string Format(const JSONValue& value) {
    CTextOutputString out;
    value.Format(false, out);
    return out.GetString();
}

void Compile_QVLib(benchmark::State& state, const Case& benchmarked) {
    const std::string text = benchmarked.expression;
    for (auto _ : state) {
        JSONataExpr expression;
        Compile(text, expression);
    }
}

void Evaluate_QVLib(benchmark::State& state, const Case& benchmarked) {
    const Value document = ParseDocument();
    CErrorLogToNull log;
    JSONataExpr expression;
    Compile(benchmarked.expression, expression);
    for (auto _ : state)
        Value(expression.Evaluate(document.get(), log));
}

// What the peer prints; empty when it is not there.
std::string RunPeer(const std::string& operation, const Case& benchmarked) {
    setenv("QV_EXPRESSION", benchmarked.expression, 1);
    setenv("QV_DOCUMENT", kDocument.c_str(), 1);
    const std::string command =
        "node '" QV_JSONATA_PEER "' '" QV_JSONATA_PACKAGE "' " + operation + " 2>/dev/null";
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string output;
    for (int byte; pipe && (byte = fgetc(pipe.get())) != EOF;)
        output.push_back(static_cast<char>(byte));
    return output;
}

void Peer(benchmark::State& state, const std::string& operation, const Case& benchmarked) {
    JSONataExpr expression;
    Compile(benchmarked.expression, expression);
    CErrorLogToNull log;
    const std::string expected = Format(*Value(expression.Evaluate(ParseDocument().get(), log)));
    for (auto _ : state) {
        std::istringstream output(RunPeer(operation, benchmarked));
        double nanoseconds = 0;
        std::string value;
        if (!(output >> nanoseconds >> std::ws) || !std::getline(output, value))
            state.SkipWithError("no node with the package jsonata; ./dev bench fetches it");
        else if (value != expected)
            state.SkipWithError(("the peer's value differs: " + value).c_str());
        state.SetIterationTime(nanoseconds * 1e-9);
    }
}

const bool g_bRegistered = [] {
    for (const Case& each : kCases) {
        const std::string name = each.name;
        benchmark::RegisterBenchmark(("Compile_QVLib/" + name).c_str(), Compile_QVLib, each);
        benchmark::RegisterBenchmark(("Compile_PeerNode/" + name).c_str(), Peer, "compile", each)
            ->UseManualTime()
            ->Iterations(1);
    }
    for (const Case& each : kCases) {
        const std::string name = each.name;
        benchmark::RegisterBenchmark(("Evaluate_QVLib/" + name).c_str(), Evaluate_QVLib, each);
        benchmark::RegisterBenchmark(("Evaluate_PeerNode/" + name).c_str(), Peer, "evaluate", each)
            ->UseManualTime()
            ->Iterations(1);
    }
    return true;
}();

} // namespace
