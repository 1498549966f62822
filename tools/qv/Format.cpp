#include "Format.h"

#include "CsvReader.h"
#include "Excerpt.h"
#include "Help.h"
#include "Output.h"
#include "TimeText.h"
#include "Tool.h"

#include <CLI/CLI.hpp>
#include <QVLib/Formatting/DateTimeFormat.h>
#include <QVLib/Formatting/DecimalFormat.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/Locale.h>
#include <QVPlatform/Process.h>
#include <QVPlatform/TextOutput.h>
#include <QVPlatform/TimeZone.h>
#include <QVPlatform/Timestamp.h>
#include <charconv>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace {

using ParseState = DecimalFormat::FormatParseState;

const char* MeaningOf(int error) {
    switch (error) {
    case 1:
        return "a '0' stands behind a '#' that stands behind a '0'";
    case 2:
        return "this is a second '.'";
    case 3:
        return "the exponent letter has no '0' behind it";
    case 4:
        return "this is a second exponent letter";
    case 6:
        return "behind this '.' a '#' stands before a '0'";
    case 7:
        return "between the '0' and this '.' stands a '#'";
    case 8:
        return "this ',' has no digit behind it before the '.' or the end";
    case 9:
        return "this quotation does not end";
    default:
        return "unknown";
    }
}

// Reads a pattern as DecimalFormat does, and keeps in mind where its parts stand.
class FaultFinder {
public:
    explicit FaultFinder(const std::string& pattern) : m_Input(pattern, "pattern") {}

    // The code of the first fault, and where it is; 0 when there is none.
    int Find(CQVTextLocation& place) {
        int error = FindInSubpattern(place);
        if (error == 0 && m_bMore)
            error = FindInSubpattern(place);
        return error;
    }

private:
    int FindInSubpattern(CQVTextLocation& place) {
        ParseState state;
        int c;
        CQVTextLocation location;
        while (state.GetState() != ParseState::FormatStateDone &&
               m_Input.ReadCodePointWithLocation(c, location)) {
            const Numbers before{state.GetState(), state.m_DecimalPos, state.m_GroupingCount};
            const int error = state.ProcessCodePoint(&m_Input, c);
            if (error != 0) {
                place = location;
                return error;
            }
            Note(before, state, location);
        }
        m_bMore = state.GetState() == ParseState::FormatStateDone;
        // Reads nothing more, but tells of the faults that only the whole shows.
        const int error = state.ParseFormat(&m_Input);
        place = error == 3 ? m_Exponent : error == 8 ? m_Comma : error == 9 ? m_Quote : m_Decimal;
        return error;
    }

    struct Numbers {
        int m_State;
        int m_DecimalPos;
        int m_GroupingCount;
    };

    void Note(const Numbers& before, const ParseState& now, const CQVTextLocation& location) {
        const int state = now.GetState();
        if (now.m_DecimalPos != before.m_DecimalPos)
            m_Decimal = location;
        if (now.m_GroupingCount == 0 && before.m_GroupingCount != 0)
            m_Comma = location;
        if (state != before.m_State && state == ParseState::FormatStateExponent)
            m_Exponent = location;
        if (state != before.m_State &&
            (state == ParseState::FormatStateQuotedPrefix || state == ParseState::FormatStateQuotedSuffix))
            m_Quote = location;
    }

    TextInputQVString m_Input;
    bool m_bMore = false;
    CQVTextLocation m_Decimal;
    CQVTextLocation m_Comma;
    CQVTextLocation m_Exponent;
    CQVTextLocation m_Quote;
};

std::string LineOf(const std::string& pattern, unsigned int number) {
    TextInputQVString input(pattern, "pattern");
    std::string line;
    bool bEnded = true;
    while (number-- > 0)
        input.ReadLine(line, bEnded);
    return line;
}

DecimalFormat ParsePattern(const std::string& pattern) {
    DecimalFormat format;
    TextInputQVString input(pattern, "pattern");
    const int error = format.ParseDecimalFormat(&input);
    if (error == 0)
        return format;
    CQVTextLocation place;
    FaultFinder(pattern).Find(place);
    std::string where = "character " + std::to_string(place.GetColumn());
    if (place.GetLine() > 1)
        where = "line " + std::to_string(place.GetLine()) + ", " + where;
    std::string text =
        "PATTERN: error " + std::to_string(error) + " at " + where + ": " + MeaningOf(error) + "\n";
    AppendExcerpt(text, LineOf(pattern, place.GetLine()),
                  {place.GetLine(), place.GetColumn(), place.GetColumn() + 1}, qv_terminal_width(2));
    text.pop_back(); // the line end, which every error has
    throw ToolError(ExitUsage, text);
}

template<class Number>
bool ReadNumber(std::string_view text, Number& number) {
    const char* const end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end;
}

// Formats a number as it is written; false when it is none. Integers that a double would not hold exactly stay
// integers as long as 64 bits do.
bool FormatNumber(const DecimalFormat& format, std::string_view text, CTextOutput& out) {
    constexpr long long ExactInDouble = 1LL << 53;
    if (text.size() > 1 && text[0] == '+' && text[1] != '-')
        text.remove_prefix(1);
    long long integer;
    unsigned long long large;
    double real;
    if (ReadNumber(text, integer) && (integer > ExactInDouble || integer < -ExactInDouble))
        format.FormatInt64(integer, out);
    else if (ReadNumber(text, large) && large > static_cast<unsigned long long>(ExactInDouble))
        format.FormatUInt64(large, out);
    else if (ReadNumber(text, real))
        format.FormatDouble(real, out);
    else
        return false;
    return true;
}

class NumberFormatter {
public:
    NumberFormatter(const std::string& pattern, OutputFormat format)
        : m_Format(ParsePattern(pattern)),
          m_Writer(format, {{"value", Column::Text}, {"text", Column::Text}}) {}

    void Add(std::string_view value, const std::string& location) {
        m_Text.Clear();
        if (!FormatNumber(m_Format, value, m_Text)) {
            Complain(location + Quoted(value) + " is no number, or none that can be held");
        } else if (m_Writer.IsForPeople()) {
            m_Writer.AddLine(m_Text.GetString());
        } else {
            m_Writer.GetTable().AddText(value);
            m_Writer.GetTable().AddText(m_Text.GetString());
            m_Writer.GetTable().EndRow();
        }
    }
    // Results go out before the program waits for another line.
    void AddStandardInput() {
        CsvReader reader("-");
        reader.CallBeforeReading([this] { m_Writer.Flush(); });
        std::vector<std::string_view> fields;
        std::string problem;
        while (reader.NextLine(fields, problem)) {
            if (!problem.empty()) {
                Complain(reader.GetLocation() + problem);
                continue;
            }
            for (const std::string_view field : fields)
                Add(field, reader.GetLocation());
        }
    }
    ExitCode Finish() {
        m_Writer.Finish();
        return m_bFindings ? ExitFindings : ExitDone;
    }

private:
    void Complain(const std::string& text) {
        m_Writer.Flush(); // what was well before this stands before it
        SayError(text);
        m_bFindings = true;
    }

    const DecimalFormat m_Format;
    LineWriter m_Writer;
    CTextOutputString m_Text;
    bool m_bFindings = false;
};

struct NumberOptions {
    std::string m_Pattern;
    std::vector<std::string> m_Values;
};

ExitCode FormatNumbers(const NumberOptions& options, OutputFormat format) {
    NumberFormatter formatter(options.m_Pattern, format);
    for (const std::string& value : options.m_Values) {
        if (value == "-")
            formatter.AddStandardInput();
        else
            formatter.Add(value, "");
    }
    return formatter.Finish();
}

struct TimeOptions {
    std::string m_Pattern;
    std::string m_Time = "now";
    std::string m_Zone;
    std::string m_Locale;
};

CQVTimeZone GetZone(const std::string& name) {
    CQVTimeZone zone;
    if (name.empty() && !zone.UseCurrentTimeZone())
        SayWarning("the time zone of this machine is not known; this is UTC");
    if (!name.empty() && !zone.UseSpecifiedTimeZone(name))
        throw ToolError(ExitUsage,
                        "--zone: " + Quoted(name) + " is no zone of the tz database, like Europe/Berlin");
    return zone;
}

CQVLocale GetLocale(const std::string& name) {
    CQVLocale locale;
    if (name.empty())
        locale.SetFromCurrentUser();
    else if (!locale.SetFromLocaleName(name))
        throw ToolError(ExitUsage, "--locale: " + Quoted(name) + " is no name of a locale, like de-AT");
    return locale;
}

ExitCode FormatTime(const TimeOptions& options, OutputFormat format) {
    const long long time = ParseTimeOption("TIME", options.m_Time);
    const CQVTimeZone zone = GetZone(options.m_Zone);
    const CQVLocale locale = GetLocale(options.m_Locale);
    DateTimeFormat pattern;
    pattern.ParseDateTimeFormat(options.m_Pattern);
    CTextOutputString text;
    pattern.FormatDateTime(locale, &zone, time, text);

    LineWriter writer(
        format,
        {{"time", Column::Text}, {"zone", Column::Text}, {"locale", Column::Text}, {"text", Column::Text}});
    if (writer.IsForPeople()) {
        writer.AddLine(text.GetString());
    } else {
        writer.GetTable().AddTime(time);
        writer.GetTable().AddText(zone.GetIANATimeZoneName());
        writer.GetTable().AddText(locale.GetLocaleName());
        writer.GetTable().AddText(text.GetString());
        writer.GetTable().EndRow();
    }
    writer.Finish();
    return ExitDone;
}

} // namespace

void AddFormatCommands(CLI::App& app, ToolContext& context) {
    CLI::App* const format = app.add_subcommand("format", "Show what patterns make of numbers and times");
    SetExample(*format, "qv format number '#,##0.00' 1234.567");
    format->require_subcommand(1);

    CLI::App* const number = format->add_subcommand("number", "Write numbers by a pattern like '#,##0.00'");
    const auto numberOptions = std::make_shared<NumberOptions>();
    number->add_option("PATTERN", numberOptions->m_Pattern, "the pattern")->required();
    number->add_option("VALUE", numberOptions->m_Values, "numbers, or - for those of the standard input")
        ->required();
    SetExample(*number, "qv format number '#,##0.00' 1234.567 -0.5");
    number->callback(
        [numberOptions, &context] { context.m_ExitCode = FormatNumbers(*numberOptions, context.m_Format); });

    CLI::App* const time =
        format->add_subcommand("time", "Write a time by a pattern like 'yyyy-MM-dd HH:mm:ss'");
    const auto timeOptions = std::make_shared<TimeOptions>();
    time->add_option("PATTERN", timeOptions->m_Pattern, "the pattern")->required();
    time->add_option("TIME", timeOptions->m_Time, "the time (default: now)");
    time->add_option("--zone", timeOptions->m_Zone, "on the clocks of this zone (default: this machine's)");
    time->add_option("--locale", timeOptions->m_Locale,
                     "in the language of this locale (default: the user's)");
    SetExample(*time, "qv format time 'EEEE d MMMM yyyy HH:mm XXX' now --zone Europe/Berlin --locale de");
    time->callback(
        [timeOptions, &context] { context.m_ExitCode = FormatTime(*timeOptions, context.m_Format); });
}
