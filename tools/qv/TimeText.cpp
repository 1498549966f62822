#include "TimeText.h"

#include "Tool.h"

#include <QVPlatform/Timestamp.h>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace {

struct DurationUnit {
    const char* m_pName;
    long long m_Ticks;
};
constexpr DurationUnit DurationUnits[] = {{"ms", CQVTimeInterval::UnitsPerMillisecond},
                                          {"s", CQVTimeInterval::UnitsPerSecond},
                                          {"m", CQVTimeInterval::UnitsPerMinute},
                                          {"h", CQVTimeInterval::UnitsPerHour},
                                          {"d", CQVTimeInterval::UnitsPerDay}};

// Past this a sum with a time of today would not fit.
constexpr double MaxDuration = 4e18;

bool ParseDuration(std::string_view text, long long& ticks) {
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    const std::string_view unitName(result.ptr, static_cast<std::size_t>(end - result.ptr));
    const auto unit =
        std::find_if(std::begin(DurationUnits), std::end(DurationUnits),
                     [&](const DurationUnit& candidate) { return unitName == candidate.m_pName; });
    if (result.ec != std::errc() || unit == std::end(DurationUnits))
        return false;
    const double product = number * static_cast<double>(unit->m_Ticks);
    if (!(product >= 1 && product <= MaxDuration))
        return false;
    ticks = std::llround(product);
    return true;
}

[[noreturn]] void Refuse(const char* option, std::string_view text, const char* expected) {
    throw ToolError(ExitUsage, std::string(option) + ": " + Quoted(text) + " is no " + expected);
}

} // namespace

bool ParseTimestamp(std::string_view text, long long& time) {
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, time);
    if (result.ec == std::errc() && result.ptr == end)
        return true;
    CQVTimestamp timestamp;
    if (!timestamp.FromText(qvstring(text)))
        return false;
    time = timestamp.GetValue();
    return true;
}

long long ParseTimeOption(const char* option, std::string_view text) {
    CQVTimestamp now;
    now.SetUTC();
    if (text == "now")
        return now.GetValue();
    long long result = 0;
    if (!text.empty() && (text[0] == '-' || text[0] == '+') && ParseDuration(text.substr(1), result))
        return now.GetValue() + (text[0] == '-' ? -result : result);
    if (!ParseTimestamp(text, result))
        Refuse(option, text, "time; write 2021-03-04T05:06:07, now, or -10m for ten minutes ago");
    return result;
}

long long ParseDurationOption(const char* option, std::string_view text) {
    long long ticks = 0;
    if (!ParseDuration(text, ticks))
        Refuse(option, text, "duration; write 200ms, 10s, 5m, 2h or 1d");
    return ticks;
}

unsigned long long ParseBytesOption(const char* option, std::string_view text) {
    unsigned long long number = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    const std::string_view suffix(result.ptr, static_cast<std::size_t>(end - result.ptr));
    const unsigned int shift = suffix == "K" ? 10 : suffix == "M" ? 20 : suffix == "G" ? 30 : 0;
    if (result.ec != std::errc() || (shift == 0 && !suffix.empty()) ||
        number > std::numeric_limits<unsigned long long>::max() >> shift)
        Refuse(option, text, "size; write a number of bytes, or 512K, 64M, 1G");
    return number << shift;
}
