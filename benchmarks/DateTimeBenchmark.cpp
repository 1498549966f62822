// How fast is a time stamp written as local time? Beside the C library and ICU, in the same zone
// (Europe/Berlin) and with the same text. Times one after the other, as a history is read, and times
// scattered over fifty years, where no two share an interval between two changes of the clocks.

#include <QVLib/Formatting/DateTimeFormat.h>
#include <QVPlatform/Locale.h>
#include <QVPlatform/TextOutput.h>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <ctime>
#include <random>
#include <unicode/smpdtfmt.h>
#include <vector>

namespace {

constexpr const char* ZoneName = "Europe/Berlin";
constexpr long long UnixEpoch = 11'644'473'600; // seconds
constexpr long long Start = 1'700'000'000;      // 2023
constexpr std::size_t Count = 4096;

enum Order { InOrder, Scattered };

// The same moments for everybody, in seconds since 1970.
std::vector<long long> Times(Order order) {
    std::mt19937_64 random(1);
    std::vector<long long> times;
    for (std::size_t i = 0; i < Count; i++)
        times.push_back(order == InOrder ? Start + static_cast<long long>(i)
                                         : static_cast<long long>(random() % Start));
    return times;
}

void Ours(benchmark::State& state, const char* pattern, Order order) {
    const CQVLocale locale;
    CQVTimeZone zone;
    DateTimeFormat format;
    format.ParseDateTimeFormat(pattern);
    std::vector<CQVTimestamp> times;
    for (const long long time : Times(order))
        times.emplace_back((time + UnixEpoch) * CQVTimeInterval::UnitsPerSecond);
    if (!zone.UseSpecifiedTimeZone(ZoneName))
        state.SkipWithError("no tz database");
    CTextOutputString out;
    std::size_t next = 0;
    for (auto _ : state) {
        out.Clear();
        format.FormatDateTime(locale, &zone, times[next++ % Count], out);
        benchmark::DoNotOptimize(out.GetCStr());
    }
}

void CLibrary(benchmark::State& state, const char* pattern, Order order) {
    setenv("TZ", ZoneName, 1);
    tzset();
    const std::vector<long long> times = Times(order);
    char text[100];
    std::size_t next = 0;
    for (auto _ : state) {
        const auto time = static_cast<std::time_t>(times[next++ % Count]);
        std::tm fields{};
        localtime_r(&time, &fields);
        benchmark::DoNotOptimize(std::strftime(text, sizeof text, pattern, &fields));
        benchmark::ClobberMemory();
    }
}

void Icu(benchmark::State& state, const char* pattern, Order order) {
    UErrorCode error = U_ZERO_ERROR;
    icu::SimpleDateFormat format(icu::UnicodeString(pattern), icu::Locale("en", "US"), error);
    format.adoptTimeZone(icu::TimeZone::createTimeZone(ZoneName));
    const std::vector<long long> times = Times(order);
    icu::UnicodeString text;
    std::size_t next = 0;
    for (auto _ : state) {
        text.remove();
        format.format(static_cast<UDate>(times[next++ % Count]) * 1000, text);
        benchmark::DoNotOptimize(text.getBuffer());
    }
}

BENCHMARK_CAPTURE(Ours, Numbers, "yyyy-MM-dd HH:mm:ss", InOrder);
BENCHMARK_CAPTURE(CLibrary, Numbers, "%Y-%m-%d %H:%M:%S", InOrder);
BENCHMARK_CAPTURE(Icu, Numbers, "yyyy-MM-dd HH:mm:ss", InOrder);
BENCHMARK_CAPTURE(Ours, Scattered, "yyyy-MM-dd HH:mm:ss", Scattered);
BENCHMARK_CAPTURE(CLibrary, Scattered, "%Y-%m-%d %H:%M:%S", Scattered);
BENCHMARK_CAPTURE(Icu, Scattered, "yyyy-MM-dd HH:mm:ss", Scattered);
BENCHMARK_CAPTURE(Ours, Names, "EEEE dd MMMM yyyy hh:mm a", InOrder);
BENCHMARK_CAPTURE(CLibrary, Names, "%A %d %B %Y %I:%M %p", InOrder);
BENCHMARK_CAPTURE(Icu, Names, "EEEE dd MMMM yyyy hh:mm a", InOrder);
// What operators see; the C library knows no fractions.
BENCHMARK_CAPTURE(Ours, Default, "yyyy-MM-dd HH:mm:ss.SSS", InOrder);
BENCHMARK_CAPTURE(Icu, Default, "yyyy-MM-dd HH:mm:ss.SSS", InOrder);

} // namespace
