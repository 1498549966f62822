// Parsing and formatting JSON, beside the libraries that a program would use instead.
//
//   Parse    text into values, and the values released    RapidJSON (DOM), nlohmann::json
//   Format   values into compact text                     RapidJSON (Writer), nlohmann::json (dump)
//
// The document is a list of measuring points as a server would send it: objects, short strings, whole and real
// numbers, booleans; about 1 KiB and about 1 MiB. Ours writes six significant digits, RapidJSON the shortest digits
// that read back.
#include <QVLib/Json/JSONParseContext.h>
#include <QVLib/Json/JSONValue.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/TextOutput.h>
#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <stdexcept>
#include <string>

namespace {

std::string MakeDocument(size_t size) {
    std::string text = "{\"plant\": \"north\", \"points\": [";
    for (int i = 0; text.size() < size - 40; ++i) {
        if (i != 0)
            text += ", ";
        text += "{\"name\": \"pump" + std::to_string(i) + ".flow\", \"id\": " + std::to_string(1000 + i) +
                ", \"value\": " + std::to_string(i * 7 % 1000) + "." + std::to_string(i % 90 + 10) +
                ", \"alarm\": " + (i % 7 == 0 ? "true" : "false") + ", \"limits\": [0, " +
                std::to_string(i % 100) + ", 100], \"unit\": \"m3/h\"}";
    }
    return text + "], \"end\": null}";
}

void Require(bool bCondition) {
    if (!bCondition)
        throw std::runtime_error("a document was not understood");
}

JSONValue* Parse(const std::string& text) {
    COutputLogNull log;
    TextInputQVString input(text, "document");
    JSONParseContext context(&input, &log);
    JSONValue* const value = JSONValue::ParseProperty(context);
    Require(value != nullptr);
    return value;
}

void CountBytes(benchmark::State& state, size_t bytes) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

void Parse_QVLib(benchmark::State& state) {
    const std::string text = MakeDocument(static_cast<size_t>(state.range(0)));
    for (auto _ : state)
        Parse(text)->Release();
    CountBytes(state, text.size());
}
BENCHMARK(Parse_QVLib)->Arg(1 << 10)->Arg(1 << 20);

void Parse_PeerRapidJson(benchmark::State& state) {
    const std::string text = MakeDocument(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        rapidjson::Document document;
        document.Parse(text.c_str(), text.size());
        Require(!document.HasParseError());
    }
    CountBytes(state, text.size());
}
BENCHMARK(Parse_PeerRapidJson)->Arg(1 << 10)->Arg(1 << 20);

void Parse_PeerNlohmann(benchmark::State& state) {
    const std::string text = MakeDocument(static_cast<size_t>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(nlohmann::json::parse(text));
    CountBytes(state, text.size());
}
BENCHMARK(Parse_PeerNlohmann)->Arg(1 << 10)->Arg(1 << 20);

void Format_QVLib(benchmark::State& state) {
    JSONValue* const value = Parse(MakeDocument(static_cast<size_t>(state.range(0))));
    size_t bytes = 0;
    for (auto _ : state) {
        CTextOutputString out;
        value->Format(false, out);
        bytes = out.GetString().size();
    }
    value->Release();
    CountBytes(state, bytes);
}
BENCHMARK(Format_QVLib)->Arg(1 << 10)->Arg(1 << 20);

void Format_PeerRapidJson(benchmark::State& state) {
    rapidjson::Document document;
    document.Parse(MakeDocument(static_cast<size_t>(state.range(0))).c_str());
    size_t bytes = 0;
    for (auto _ : state) {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        Require(document.Accept(writer));
        bytes = buffer.GetSize();
    }
    CountBytes(state, bytes);
}
BENCHMARK(Format_PeerRapidJson)->Arg(1 << 10)->Arg(1 << 20);

void Format_PeerNlohmann(benchmark::State& state) {
    const auto document = nlohmann::json::parse(MakeDocument(static_cast<size_t>(state.range(0))));
    size_t bytes = 0;
    for (auto _ : state)
        bytes = document.dump().size();
    CountBytes(state, bytes);
}
BENCHMARK(Format_PeerNlohmann)->Arg(1 << 10)->Arg(1 << 20);

} // namespace
