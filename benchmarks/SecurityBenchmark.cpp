// User rights: what it costs to load them and to answer for one user, and how that grows.
//
//   LoadText    the text of so many users, from memory, with the room for them freed again
//   LoadBinary  the same from the binary form
//   SaveText    the text, into a string
//   Resolve     the rights of one user with three groups, in so many entries
//
// Times are per entry where the counter says so; a constant "entry" over all sizes is linear growth.
#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVLib/BinaryStreams/BinaryOutputBuffer.h>
#include <QVLib/Security/SecuritySettings.h>
#include <QVLib/Security/SecuritySettingsParseContext.h>
#include <QVLib/Security/UserAccessToken.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/TextOutput.h>
#include <benchmark/benchmark.h>

namespace {

void Fill(CSecuritySettings& settings, long long count) {
    qvstring text;
    for (long long i = 0; i < count; ++i)
        text +=
            (i % 10 == 0 ? "@group" : "user") + std::to_string(i) + ": World=Refresh, ZoneB=Write+Force;\n";
    TextInputQVString input(text, "rights");
    COutputLogNull log;
    CSecuritySettingsParseContext context(&input, &log);
    settings.ParseText(context);
}

void CountEntries(benchmark::State& state) {
    state.counters["entry"] =
        benchmark::Counter(static_cast<double>(state.range(0)),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void LoadText(benchmark::State& state) {
    CSecuritySettings settings;
    Fill(settings, state.range(0));
    CTextOutputString text;
    settings.SaveAsText(text);
    for (auto _ : state) {
        TextInputQVString input(text.GetString(), "rights");
        COutputLogNull log;
        CSecuritySettingsParseContext context(&input, &log);
        CSecuritySettings loaded;
        loaded.ParseText(context);
        if (!(loaded == settings))
            state.SkipWithError("not understood");
    }
    CountEntries(state);
}
BENCHMARK(LoadText)->RangeMultiplier(10)->Range(100, 100'000);

void LoadBinary(benchmark::State& state) {
    CSecuritySettings settings;
    Fill(settings, state.range(0));
    BinaryOutputBuffer bytes(BinaryStringLengthUTF8Character);
    settings.SaveBinary(bytes);
    for (auto _ : state) {
        CBinaryInputFromBinaryOutputBuffer input(&bytes);
        CSecuritySettings loaded;
        if (!loaded.LoadBinary(input))
            state.SkipWithError("not understood");
    }
    CountEntries(state);
}
BENCHMARK(LoadBinary)->RangeMultiplier(10)->Range(100, 100'000);

void SaveText(benchmark::State& state) {
    CSecuritySettings settings;
    Fill(settings, state.range(0));
    CTextOutputString text;
    for (auto _ : state) {
        text.Clear();
        settings.SaveAsText(text);
        benchmark::DoNotOptimize(text.GetCStr());
    }
    CountEntries(state);
}
BENCHMARK(SaveText)->RangeMultiplier(10)->Range(100, 100'000);

void Resolve(benchmark::State& state) {
    CSecuritySettings settings;
    Fill(settings, state.range(0));
    CQVUserAccessToken token;
    token.SetSpecifiedUser(CQVSecureWString("user77"));
    token.m_Groups = {"group20", "group40", "users"};
    CSecuritySettingsAccessRights rights;
    for (auto _ : state) {
        settings.GetAccessRightsForUser(&token, rights);
        benchmark::DoNotOptimize(rights);
    }
    CountEntries(state);
}
BENCHMARK(Resolve)->RangeMultiplier(10)->Range(100, 100'000);

} // namespace
