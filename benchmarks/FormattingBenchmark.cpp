// Numbers into text, beside what a program would use instead.
//
//   Format    a double by a pattern       ICU's DecimalFormat with the same pattern, fmt's "{:.2f}"
//
// Values are spread over nine orders of magnitude, as readings of a plant are. Each text replaces the last one in
// a string that is kept.
#include <QVLib/Formatting/DecimalFormat.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/TextOutput.h>
#include <benchmark/benchmark.h>
#include <cmath>
#include <fmt/format.h>
#include <random>
#include <stdexcept>
#include <unicode/decimfmt.h>
#include <vector>

namespace {

std::vector<double> MakeValues() {
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> magnitude(-3, 6);
    std::vector<double> values(1024);
    for (double& value : values)
        value = std::pow(10, magnitude(random)) * (random() % 4 == 0 ? -1 : 1);
    return values;
}

void CountValues(benchmark::State& state, size_t values) {
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * values));
}

void Format_QVLib(benchmark::State& state, const char* pattern) {
    const std::vector<double> values = MakeValues();
    TextInputQVString input(pattern, "pattern");
    DecimalFormat format;
    if (format.ParseDecimalFormat(&input) != 0)
        throw std::runtime_error("a pattern was not understood");
    CTextOutputString text;
    for (auto _ : state) {
        for (const double value : values) {
            text.Clear();
            format.FormatDouble(value, text);
            benchmark::DoNotOptimize(text.GetCStr());
        }
    }
    CountValues(state, values.size());
}

void Format_ICU(benchmark::State& state, const char* pattern) {
    const std::vector<double> values = MakeValues();
    UErrorCode status = U_ZERO_ERROR;
    const icu::DecimalFormat format(pattern, new icu::DecimalFormatSymbols(icu::Locale::getUS(), status),
                                    status);
    if (U_FAILURE(status))
        throw std::runtime_error("ICU did not understand a pattern");
    icu::UnicodeString text;
    for (auto _ : state) {
        for (const double value : values) {
            text.remove();
            format.format(value, text);
            benchmark::DoNotOptimize(text.getBuffer());
        }
    }
    CountValues(state, values.size());
}

void Format_fmt(benchmark::State& state) {
    const std::vector<double> values = MakeValues();
    fmt::memory_buffer text;
    for (auto _ : state) {
        for (const double value : values) {
            text.clear();
            fmt::format_to(std::back_inserter(text), "{:.2f}", value);
            benchmark::DoNotOptimize(text.data());
        }
    }
    CountValues(state, values.size());
}

BENCHMARK_CAPTURE(Format_QVLib, grouped, "#,##0.00");
BENCHMARK_CAPTURE(Format_ICU, grouped, "#,##0.00");
BENCHMARK_CAPTURE(Format_QVLib, scientific, "0.###E0");
BENCHMARK_CAPTURE(Format_ICU, scientific, "0.###E0");
BENCHMARK_CAPTURE(Format_QVLib, engineering, "##0.##E0");
BENCHMARK_CAPTURE(Format_ICU, engineering, "##0.##E0");
BENCHMARK_CAPTURE(Format_QVLib, two_places, "0.00");
BENCHMARK(Format_fmt);

} // namespace
