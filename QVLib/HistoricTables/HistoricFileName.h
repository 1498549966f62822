// The names of a historic table's files: pure arithmetic on text and time, without any file.
#pragma once

#include <QVPlatform/String.h>
#include <QVPlatform/Timestamp.h>

// All files of a table's folder that could be its own.
inline constexpr char kHistoricFilePattern[] = "*.qvhis";

// Takes a file's name apart. False unless it has the length of one, its separators in their places, and two
// halves that are valid minutes. The characters are not checked to be digits, nor the extension at all.
bool qv_parse_historic_file_name(const char* name, unsigned int length, CQVTimestamp& start,
                                 CQVTimestamp& end);

// True when a span has a name that reads back: both ends within years 1 to 9999.
bool qv_historic_span_has_name(long long start, long long end);

// `timestamp` rounded to a multiple of the file period, towards 0. (Towards 0 also for times before the
// epoch: that is how the folders in the field were written.)
long long qv_floor_to_file_period(long long timestamp);
