// How fast are a list of tags searched and sorted? The same names and patterns for fnmatch() of the C library and for
// RE2, whose expressions are compiled beforehand; and comparing neighbours, against strverscmp(). Each run checks that
// all find the same. items_per_second counts names.

#include <QVLib/Tags/MatchPattern.h>
#include <QVLib/Tags/NaturalSort.h>
#include <benchmark/benchmark.h>
#include <cstring>
#include <fnmatch.h>
#include <re2/re2.h>
#include <string>
#include <vector>

namespace {

const std::vector<std::string>& Names() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> made;
        for (int i = 0; i < 10'000; i++)
            made.push_back("Plant.Area" + std::to_string(i / 100) + ".Pump" + std::to_string(i % 100) +
                           (i % 3 == 0 ? ".Speed" : ".Running"));
        return made;
    }();
    return names;
}

struct Pattern {
    const char* wildcard;
    const char* shell;
    const char* expression;
};
constexpr Pattern Patterns[] = {
    {"Plant.Area1#.Pump?.*", "Plant.Area1[0-9].Pump?.*", "Plant\\.Area1[0-9]\\.Pump.\\..*"},
    {"*.Speed", "*.Speed", ".*\\.Speed"},
    {"*Area[3-5]*Pump*ing", "*Area[3-5]*Pump*ing", ".*Area[3-5].*Pump.*ing"},
};

template<class Match>
void CountMatches(benchmark::State& state, Match match) {
    const Pattern& pattern = Patterns[state.range(0)];
    long long found = 0;
    for (auto _ : state) {
        found = 0;
        for (const std::string& name : Names())
            found += match(name) ? 1 : 0;
        benchmark::DoNotOptimize(found);
    }
    long long expected = 0;
    for (const std::string& name : Names())
        expected += fnmatch(pattern.shell, name.c_str(), 0) == 0 ? 1 : 0;
    if (found != expected || found == 0)
        state.SkipWithError("other names were found");
    state.SetItemsProcessed(static_cast<long long>(state.iterations() * Names().size()));
    state.SetLabel(pattern.wildcard);
}

void Match_Library(benchmark::State& state) {
    CountMatches(state, [&](const std::string& name) {
        return OPCMatchPattern(name, Patterns[state.range(0)].wildcard, true) == OPCMatchYes;
    });
}
void Match_Fnmatch(benchmark::State& state) {
    CountMatches(state, [&](const std::string& name) {
        return fnmatch(Patterns[state.range(0)].shell, name.c_str(), 0) == 0;
    });
}
void Match_RE2(benchmark::State& state) {
    const re2::RE2 expression(Patterns[state.range(0)].expression);
    CountMatches(state, [&](const std::string& name) { return re2::RE2::FullMatch(name, expression); });
}
BENCHMARK(Match_Library)->DenseRange(0, 2);
BENCHMARK(Match_Fnmatch)->DenseRange(0, 2);
BENCHMARK(Match_RE2)->DenseRange(0, 2);

template<class Compare>
void CompareNeighbours(benchmark::State& state, Compare compare) {
    const std::vector<std::string>& names = Names();
    for (auto _ : state) {
        int before = 0;
        for (std::size_t i = 1; i < names.size(); i++)
            before += compare(names[i - 1], names[i]) < 0 ? 1 : 0;
        if (before != static_cast<int>(names.size()) - 1)
            state.SkipWithError("the names are not in order");
    }
    state.SetItemsProcessed(static_cast<long long>(state.iterations() * names.size()));
}

void Compare_Library(benchmark::State& state) {
    CompareNeighbours(state, [](const std::string& a, const std::string& b) { return QVNatrualSort(a, b); });
}
void Compare_Strverscmp(benchmark::State& state) {
    CompareNeighbours(
        state, [](const std::string& a, const std::string& b) { return strverscmp(a.c_str(), b.c_str()); });
}
BENCHMARK(Compare_Library);
BENCHMARK(Compare_Strverscmp);

} // namespace
