// Times, durations and sizes as the user writes them.
#pragma once

#include <string>
#include <string_view>

// A point in time: ISO 8601 ("2021-03-04T05:06:07.5Z", "2021-03-04 05:06", UTC without an offset) or raw
// ticks, the number of 100 ns since 1601-01-01 UTC. False for anything else.
bool ParseTimestamp(std::string_view text, long long& time);
// The same, and also "now" and a duration before or after now ("-10m", "+1h"). Throws a ToolError that names
// `option`.
long long ParseTimeOption(const char* option, std::string_view text);
// A duration above 0 in units of 100 ns: a number with an optional fraction and ms, s, m, h or d ("200ms",
// "1.5h"). Throws a ToolError that names `option`.
long long ParseDurationOption(const char* option, std::string_view text);
// A number of bytes, with K, M or G for powers of 1024 ("64M"). Throws a ToolError that names `option`.
unsigned long long ParseBytesOption(const char* option, std::string_view text);
