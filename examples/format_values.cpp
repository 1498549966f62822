// Shows readings as an operator wants to see them: numbers by a pattern, a time on the clocks of two places.
#include <QVLib/Formatting/DateTimeFormat.h>
#include <QVLib/Formatting/DecimalFormat.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/Locale.h>
#include <QVPlatform/TextOutput.h>
#include <cstdio>

static void ShowNumber(const char* pattern, double value) {
    TextInputQVString input(pattern, "pattern");
    DecimalFormat format;
    const int error = format.ParseDecimalFormat(&input);
    if (error != 0) {
        std::printf("%-14s is no pattern: error %d\n", pattern, error);
        return;
    }
    CTextOutputString text;
    format.FormatDouble(value, text);
    std::printf("%-14s %s\n", pattern, text.GetCStr());
}

static void ShowTime(const char* zoneName, const char* localeName, CQVTimestamp time) {
    CQVTimeZone zone;
    if (!zone.UseSpecifiedTimeZone(zoneName)) {
        std::printf("%s is not known here\n", zoneName);
        return;
    }
    CQVLocale locale;
    locale.SetFromLocaleName(localeName);
    DateTimeFormat format;
    format.ParseDateTimeFormat("EEEE d MMMM yyyy HH:mm:ss.SSS XXX");
    CTextOutputString text;
    format.FormatDateTime(locale, &zone, time, text);
    std::printf("%-14s %s\n", zoneName, text.GetCStr());
}

int main() {
    constexpr double flow = 12345.678;
    for (const char* pattern : {"#,##0.00", "0.###E0", "##0.##E0", "0 'l/min'", "0.0;(0.0)", "#.#0"})
        ShowNumber(pattern, flow);
    ShowNumber("0.0;(0.0)", -flow);

    CQVTimestamp time;
    time.FromText("2024-07-05T07:08:09.25Z");
    ShowTime("UTC", "en", time);
    ShowTime("Europe/Berlin", "de", time);
}
