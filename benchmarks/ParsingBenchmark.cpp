// Tokens, as every parser of the library reads them.
//
//   Windowed   a text in memory: runs are taken out of it
//   Single     the same tokens of an input that delivers one code point at a time
//   SkipBlanks what a parser asks for: the tokens behind blanks and line ends
//   Stream     the words of a std::istringstream, which a program would use for a small syntax of its own
//
// The text is a page of settings, 64 KiB. Rates are bytes of text.
#include <QVLib/Parsing/ParseContext.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <benchmark/benchmark.h>
#include <sstream>
#include <string>

namespace {

const qvstring& TheText() {
    static const qvstring text = [] {
        qvstring made;
        for (int i = 0; made.size() < 64 * 1024; ++i)
            made += "pump" + std::to_string(i) + ".speed = " + std::to_string(i * 37) +
                    ", limit <= 1450; # " + "checked by hand\n    mode: automatic\n";
        return made;
    }();
    return text;
}

std::u32string MakeWideText() {
    return {TheText().begin(), TheText().end()};
}

void CountTokens(benchmark::State& state, CTextInput& input, bool skipBlanks) {
    COutputLogNull log;
    for (auto _ : state) {
        input.ResetPosition();
        CParseContext context(&input, &log);
        CParseToken token;
        unsigned int tokens = 0;
        do {
            if (skipBlanks)
                context.GetNextTokenSkipWS(token);
            else
                context.GetNextToken(token);
            ++tokens;
        } while (token.Type() != TokenEndOfFile);
        benchmark::DoNotOptimize(tokens);
        state.counters["tokens"] = tokens;
    }
    state.SetBytesProcessed(static_cast<long long>(state.iterations() * TheText().size()));
}

void Windowed(benchmark::State& state) {
    TextInputQVString input(TheText(), "settings");
    CountTokens(state, input, false);
}
BENCHMARK(Windowed);

void Single(benchmark::State& state) {
    const std::u32string text = MakeWideText();
    TextInputU32String input(text, "settings");
    CountTokens(state, input, false);
}
BENCHMARK(Single);

void SkipBlanks(benchmark::State& state) {
    TextInputQVString input(TheText(), "settings");
    CountTokens(state, input, true);
}
BENCHMARK(SkipBlanks);

void Stream(benchmark::State& state) {
    for (auto _ : state) {
        std::istringstream stream(TheText());
        std::string word;
        unsigned int words = 0;
        while (stream >> word)
            ++words;
        benchmark::DoNotOptimize(words);
        state.counters["tokens"] = words;
    }
    state.SetBytesProcessed(static_cast<long long>(state.iterations() * TheText().size()));
}
BENCHMARK(Stream);

} // namespace
