// qv json: format, check, eval and print.
//
// A text is taken when the library understands it and nothing but blanks follows. What the library passes over in
// silence, a zero byte that ends the text early or a quote that is missing at the very end, is a finding here.

#include "Json.h"
#include "Diagnostics.h"
#include "Help.h"
#include "InputText.h"
#include "JsonFormat.h"
#include "Output.h"

#include <CLI/CLI.hpp>
#include <QVLib/Json/JSONValue.h>
#include <QVLib/Json/JSONata.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/TextOutput.h>
#include <QVPlatform/Unicode.h>
#include <cmath>
#include <memory>
#include <vector>

namespace {

constexpr std::size_t OutputBufferSize = 64u << 10;
constexpr const char* StandardInput = "-";
// What the parser calls the end of a text in its messages.
constexpr const char* EndOfText = "End of File";

struct ReleaseValue {
    void operator()(JSONValue* value) const { value->Release(); }
};
using ValuePointer = std::unique_ptr<JSONValue, ReleaseValue>;

// Text in memory whose first line has a number of its own.
class PlacedInput : public TextInputQVString {
public:
    PlacedInput(std::string_view text, const std::string& name, unsigned int line)
        : TextInputQVString(text.data(), static_cast<unsigned int>(text.size()), name) {
        CQVTextLocation location;
        GetNextLocation(location);
        location.SetLineAndColumn(line, 1);
        SetLocation(location);
    }
};

// True when nothing follows; otherwise says what does.
bool IsAtEnd(JSONParseContext& context) {
    CParseToken rest;
    if (context.GetNextJSONToken(rest) == TokenEndOfFile)
        return true;
    context.LogUnexpectedTokenError(rest, EndOfText);
    return false;
}

// A zero byte is the end for the tokens, wherever it stands.
bool HasZeroByte(std::string_view text, Diagnostics& diagnostics) {
    const std::size_t offset = text.find('\0');
    if (offset == std::string_view::npos)
        return false;
    diagnostics.AddMessage(COutputLog::Error, diagnostics.Locate(offset), "A zero byte ends the text here.");
    return true;
}

// Reads a token, but passes over names between accents: what is in them are no tokens.
bool ReadToken(JSONParseContext& context, CParseToken& token) {
    while (context.GetNextJSONToken(token) == '`') {
        context.SkipToBeforeToken('`');
        context.GetNextToken(token);
    }
    return token.Type() != TokenEndOfFile;
}

// A string may run to the end of the text, and is then taken as it is: says so.
bool HasOpenString(std::string_view text, unsigned int line, Diagnostics& diagnostics) {
    PlacedInput input(text, diagnostics.GetSource(), line);
    JSONParseContext context(&input, &diagnostics);
    CParseToken token;
    while (ReadToken(context, token)) {
        if (!token.IsTerminated()) {
            context.GetNextJSONToken(token);
            context.LogMissingTokenBeforeError(token, "\"");
            return true;
        }
    }
    return false;
}

// Bytes that are no UTF-8 are read as U+FFFD, which no user meant.
void WarnOfMalformedText(std::string_view text, Diagnostics& diagnostics) {
    unsigned int codePoints = 0;
    if (qv_is_valid_utf8(text.data(), static_cast<unsigned int>(text.size()), codePoints))
        return;
    const auto* const start = reinterpret_cast<const unsigned char*>(text.data());
    const unsigned char* const end = start + text.size();
    const unsigned char* current = start;
    const unsigned char* malformed = start;
    while (current != end && qv_decode_utf8(current, end) >= 0)
        malformed = current;
    diagnostics.AddMessage(COutputLog::Warning,
                           diagnostics.Locate(static_cast<std::size_t>(malformed - start)),
                           "Malformed UTF-8.");
}

// Parses a text that is one JSON value and nothing else. Null after a message.
ValuePointer ParseDocument(std::string_view text, unsigned int line, Diagnostics& diagnostics) {
    diagnostics.SetText(text, line);
    PlacedInput input(text, diagnostics.GetSource(), line);
    JSONParseContext context(&input, &diagnostics);
    ValuePointer value(JSONValue::ParseProperty(context));
    if (!value || !IsAtEnd(context) || HasZeroByte(text, diagnostics) ||
        (value->IsString() &&
         HasOpenString(text, line, diagnostics))) // within brackets, the missing bracket tells
        return nullptr;
    WarnOfMalformedText(text, diagnostics);
    return value;
}

// A number in the text of an expression.
struct Number {
    double m_Value;
    Place m_Place;
};

std::vector<Number> FindNumbers(const std::string& text) {
    TextInputQVString input(text, "");
    COutputLogNull log;
    JSONParseContext context(&input, &log);
    std::vector<Number> numbers;
    CParseToken token;
    while (ReadToken(context, token)) {
        if (token.Type() != JSONTokenNumber)
            continue;
        const CErrorLocationTextRange& range = token.Location();
        numbers.push_back(
            {JSONParseContext::NumberFromToken(token),
             {range.GetBegin().GetLine(), range.GetBegin().GetColumn(), range.GetEnd().GetColumn()}});
    }
    return numbers;
}

// The expression on the command line.
class Expression {
public:
    Expression(Report& report, std::string text)
        : m_Diagnostics(report, "expression"), m_Log(&m_Diagnostics), m_Text(std::move(text)) {
        m_Diagnostics.SetText(m_Text);
    }

    // False after a message.
    bool Parse() {
        TextInputQVString input(m_Text, m_Diagnostics.GetSource());
        JSONParseContext context(&input, &m_Diagnostics);
        if (!m_Expr.ParseJSONataExpr(context) || !IsAtEnd(context) || HasOpenString(m_Text, 1, m_Diagnostics))
            return false;
        WarnOfMalformedText(m_Text, m_Diagnostics);
        return true;
    }

    std::string Print() const {
        CTextOutputString out;
        m_Expr.FormatJSONataExpr(out);
        return EscapeSurrogates(out.GetString());
    }

    // The printed form has six digits of each number: tells where it is another number for that. An infinite one
    // is no number there any more.
    void WarnOfLostDigits(const std::string& printed) {
        const std::vector<Number> after = FindNumbers(printed);
        std::size_t index = 0;
        for (const Number& number : FindNumbers(m_Text)) {
            const bool bThere = std::isfinite(number.m_Value) && index < after.size();
            if (!bThere || number.m_Value != after[index].m_Value)
                m_Diagnostics.AddMessage(COutputLog::Warning, number.m_Place,
                                         "The canonical form has six digits of this number.");
            index += bThere ? 1 : 0;
        }
    }

    // The value against `document`; null when there is none. `name` says in messages which document it is.
    ValuePointer Evaluate(JSONValue& document, std::string name) {
        m_Diagnostics.SetInput(std::move(name));
        return ValuePointer(m_Expr.Evaluate(&document, m_Log));
    }

private:
    Diagnostics m_Diagnostics;
    CErrorLog m_Log;
    const std::string m_Text;
    JSONataExpr m_Expr;
};

// A command's exit code; the last findings are written.
ExitCode Finish(Report& report, bool bFindings) {
    bFindings = bFindings || report.GetCount() != 0;
    report.Write();
    return bFindings ? ExitFindings : ExitDone;
}

// Reports a file that cannot be read in the form that was asked for.
void SayFileError(const InputFileError& error, Report& report, OutputFormat format) {
    if (format == OutputFormat::Human)
        SayError(error.what());
    else
        report.Add({COutputLog::Error, 0, {}, error.GetProblem(), error.GetFile(), {}}, {});
    report.Write();
}

struct FormatOptions {
    std::string m_File = StandardInput;
    bool m_bCompact = false;
    bool m_bPretty = false;
};

ExitCode Format(const FormatOptions& options, Report& report) {
    InputFile file(options.m_File);
    const std::string text = file.ReadAll();
    Diagnostics diagnostics(report, file.GetName());
    const ValuePointer value = ParseDocument(text, 1, diagnostics);
    if (value) {
        std::string out;
        AppendJson(out, *value, !options.m_bCompact);
        WriteStandardOutput(out + "\n");
    }
    return Finish(report, !value);
}

// Checks the files one after the other, whatever is wrong with one of them.
class Checker {
public:
    Checker(Report& report, OutputFormat format)
        : m_Report(report), m_Format(format),
          m_Table(format, {{"file", Column::Text}, {"findings", Column::Number}}) {}

    ExitCode Run(const std::vector<std::string>& files) {
        for (const std::string& file : files)
            Check(file);
        if (m_Format != OutputFormat::Human)
            m_Table.Finish();
        else if (m_Report.GetCount() != 0)
            WriteStandardOutput(CountText(m_Report.GetCount(), "finding") + " in " +
                                CountText(m_Checked, "file") + "\n");
        else if (m_Checked != 0)
            WriteStandardOutput("No findings in " + CountText(m_Checked, "file") + "\n");
        return m_bUnreadable ? ExitInputOutput : Finish(m_Report, false);
    }

private:
    void Check(const std::string& path) {
        m_Table.AddText(path);
        try {
            InputFile file(path);
            const std::string text = file.ReadAll();
            Diagnostics diagnostics(m_Report, file.GetName());
            const unsigned long long before = m_Report.GetCount();
            ParseDocument(text, 1, diagnostics);
            m_Report.Write();
            m_Table.AddUnsigned(m_Report.GetCount() - before);
            ++m_Checked;
        } catch (const InputFileError& error) {
            SayFileError(error, m_Report, m_Format);
            m_Table.AddNothing();
            m_bUnreadable = true;
        }
        m_Table.EndRow();
    }

    Report& m_Report;
    const OutputFormat m_Format;
    TableWriter m_Table;
    unsigned long long m_Checked = 0;
    bool m_bUnreadable = false;
};

struct EvalOptions {
    std::string m_Expression;
    std::string m_File = StandardInput;
    bool m_bLines = false;
};

class Evaluator {
public:
    Evaluator(const EvalOptions& options, Report& report)
        : m_Report(report), m_Expression(report, options.m_Expression), m_File(options.m_File),
          m_Diagnostics(report, m_File.GetName()) {}

    ExitCode Run(bool bLines) {
        if (!m_Expression.Parse())
            return Finish(m_Report, true);
        if (bLines)
            EvaluateLines();
        else
            Evaluate(m_File.ReadAll(), 1, m_File.GetName());
        Flush();
        return Finish(m_Report, m_bNoValue);
    }

private:
    // Results go out before the program waits for another line, and before the messages about later ones.
    void EvaluateLines() {
        InputLines lines(m_File);
        for (;;) {
            if (!lines.IsLineBuffered() || m_Out.size() >= OutputBufferSize)
                Flush();
            std::string_view line;
            bool bTooLong = false;
            if (!lines.Next(line, bTooLong))
                return;
            const unsigned int number = lines.GetLineNumber();
            if (bTooLong)
                ReportLongLine(number);
            else if (line.find_first_not_of(" \t\r") != std::string_view::npos)
                Evaluate(line, number, m_File.GetName() + ", line " + std::to_string(number));
        }
    }

    void Evaluate(std::string_view text, unsigned int line, std::string name) {
        const ValuePointer document = ParseDocument(text, line, m_Diagnostics);
        const ValuePointer value =
            document ? m_Expression.Evaluate(*document, std::move(name)) : ValuePointer();
        m_bNoValue = m_bNoValue || !value;
        if (m_Report.IsPending()) {
            Flush();
            m_Report.Write();
        }
        if (value) {
            AppendJson(m_Out, *value, false);
            m_Out += '\n';
        }
    }

    void ReportLongLine(unsigned int line) {
        m_Diagnostics.SetText({}, line);
        m_Diagnostics.AddMessage(COutputLog::Error, {line, 1, 1}, "The line is longer than 64 MiB.");
        Flush();
        m_Report.Write();
    }

    void Flush() {
        if (!m_Out.empty())
            WriteStandardOutput(m_Out);
        m_Out.clear();
    }

    Report& m_Report;
    Expression m_Expression;
    InputFile m_File;
    Diagnostics m_Diagnostics;
    std::string m_Out;
    bool m_bNoValue = false;
};

ExitCode Print(const std::string& text, Report& report) {
    Expression expression(report, text);
    if (!expression.Parse())
        return Finish(report, true);
    const std::string printed = expression.Print();
    WriteStandardOutput(printed + "\n");
    expression.WarnOfLostDigits(printed);
    return Finish(report, false);
}

// Has `run` called for a command, with a report that it shall write.
template<class Run>
void SetCallback(CLI::App& command, ToolContext& context, const Run& run) {
    command.callback([&context, run] {
        Report report(context.m_Format);
        try {
            context.m_ExitCode = run(report);
        } catch (const InputFileError& error) {
            SayFileError(error, report, context.m_Format);
            context.m_ExitCode = error.GetCode();
        }
    });
}

void AddFormatCommand(CLI::App& json, ToolContext& context) {
    CLI::App* const command = json.add_subcommand("format", "Print a JSON document in one form");
    const auto options = std::make_shared<FormatOptions>();
    command->add_option("FILE", options->m_File, "JSON file, or - for the standard input (default)");
    CLI::Option* const compact =
        command->add_flag("--compact", options->m_bCompact, "on one line, without a blank");
    command->add_flag("--pretty", options->m_bPretty, "a line for each element (default)")->excludes(compact);
    SetExample(*command, "qv json format config.json --compact",
               "Members are sorted by name. Numbers have the fewest digits that read back as the same\n"
               "double: the library's own form of JSON has six significant digits (1234567 is\n"
               "1.23457e+06 there) and does not escape member names. Otherwise the forms are the same.");
    SetCallback(*command, context, [options](Report& report) { return Format(*options, report); });
}

void AddCheckCommand(CLI::App& json, ToolContext& context) {
    CLI::App* const command = json.add_subcommand("check", "Tell what is wrong with JSON files");
    const auto files = std::make_shared<std::vector<std::string>>();
    command->add_option("FILE", *files, "JSON files, or - for the standard input")->required();
    SetExample(*command, "qv json check config.json");
    SetCallback(*command, context,
                [files, &context](Report& report) { return Checker(report, context.m_Format).Run(*files); });
}

void AddEvalCommand(CLI::App& json, ToolContext& context) {
    CLI::App* const command = json.add_subcommand("eval", "Print the value of a JSONata expression");
    const auto options = std::make_shared<EvalOptions>();
    command->add_option("EXPRESSION", options->m_Expression, "the expression, such as 'limits.high * 2'")
        ->required();
    command->add_option("FILE", options->m_File, "JSON file, or - for the standard input (default)");
    command->add_flag("--lines", options->m_bLines, "a document on each line, a result for each");
    SetExample(*command, "qv json eval 'limits.high * 2' config.json",
               "The value is printed as compact JSON. No value prints nothing and ends with exit code 1.\n"
               "Numbers have the fewest digits that read back as the same double; only within a string\n"
               "that '&' joins they have six, as in the library.\n"
               "An expression that starts with '-' stands behind '--': qv json eval -- -a FILE");
    SetCallback(*command, context,
                [options](Report& report) { return Evaluator(*options, report).Run(options->m_bLines); });
}

void AddPrintCommand(CLI::App& json, ToolContext& context) {
    CLI::App* const command =
        json.add_subcommand("print", "Print a JSONata expression in its canonical form");
    const auto expression = std::make_shared<std::string>();
    command->add_option("EXPRESSION", *expression, "the expression, such as 'limits.high * 2'")->required();
    SetExample(*command, "qv json print 'limits.high-limits.low'",
               "This is the form in which the library prints expressions, with six significant digits of\n"
               "each number. Where that makes another number, a warning says so and the exit code is 1.");
    SetCallback(*command, context, [expression](Report& report) { return Print(*expression, report); });
}

} // namespace

void AddJsonCommands(CLI::App& app, ToolContext& context) {
    CLI::App* const json = app.add_subcommand("json", "Format, check and query JSON");
    SetExample(*json, "qv json eval 'limits.high * 2' config.json");
    json->require_subcommand(1);
    AddFormatCommand(*json, context);
    AddCheckCommand(*json, context);
    AddEvalCommand(*json, context);
    AddPrintCommand(*json, context);
}
