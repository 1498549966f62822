#include "Colour.h"

#include "Help.h"
#include "Output.h"

#include <CLI/CLI.hpp>
#include <QVLib/Parsing/ParseContext.h>
#include <QVLib/Presentation/ColourValue.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/Format.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/TextOutput.h>
#include <memory>
#include <string>
#include <vector>

namespace {

std::string Hexadecimal(QVColourRGB colour) {
    char text[16];
    qv_sprintf(text, sizeof text, "#%02x%02x%02x", colour.GetRed(), colour.GetGreen(), colour.GetBlue());
    return text;
}

const char* GetGroupName(const CColourValue& value) {
    return value.GetNamedColour() != nullptr
               ? CColourValue::GetColourGroupName(value.GetNamedColour()->m_Group)
               : "";
}

// The colour's own text on the colour, for terminals that show all colours.
std::string Swatch(const CColourValue& value) {
    const QVColourRGB colour = value.GetColour();
    const QVColourRGB text = colour.GetContrastColour();
    char sequence[64];
    qv_sprintf(sequence, sizeof sequence, "\x1b[48;2;%u;%u;%um\x1b[38;2;%u;%u;%um", colour.GetRed(),
               colour.GetGreen(), colour.GetBlue(), text.GetRed(), text.GetGreen(), text.GetBlue());
    return sequence + (" " + Hexadecimal(colour) + " ") + "\x1b[0m ";
}

class ColourPrinter {
public:
    explicit ColourPrinter(OutputFormat format)
        : m_bSwatches(format == OutputFormat::Human && MayUseColour(1)),
          m_Table(format, {{"colour", Column::Text},
                           {"value", Column::Text},
                           {"red", Column::Number},
                           {"green", Column::Number},
                           {"blue", Column::Number},
                           {"luminance", Column::Number},
                           {"contrast", Column::Text},
                           {"group", Column::Text}}) {}

    void Add(const CColourValue& value) {
        CTextOutputString text;
        value.PrintColourValue(text);
        const QVColourRGB colour = value.GetColour();
        const bool bBlackOnIt = colour.GetContrastColour() == QVColourRGB::Black;
        if (m_bSwatches) {
            WriteStandardOutput(Swatch(value) + text.GetString() + "  " + GetGroupName(value) + "\n");
            return;
        }
        m_Table.AddText(text.GetString());
        m_Table.AddText(Hexadecimal(colour));
        m_Table.AddUnsigned(colour.GetRed());
        m_Table.AddUnsigned(colour.GetGreen());
        m_Table.AddUnsigned(colour.GetBlue());
        m_Table.AddUnsigned(colour.GetLuminance());
        m_Table.AddText(bBlackOnIt ? "Black" : "White");
        m_Table.AddText(GetGroupName(value));
        m_Table.EndRow();
    }
    void Finish() {
        if (!m_bSwatches)
            m_Table.Finish();
    }

private:
    const bool m_bSwatches;
    TableWriter m_Table;
};

// All of a text must be the colour; the closing parenthesis of "rgb(...)" belongs to it.
bool ParseWhole(const std::string& text, CColourValue& value, COutputLog& log) {
    TextInputQVString input(text, "colour");
    CParseContext context(&input, &log);
    if (!value.Parse(context))
        return false;
    CParseToken rest;
    if (context.GetNextTokenSkipWS(rest) == ')' && text.find('(') != std::string::npos)
        context.GetNextTokenSkipWS(rest);
    if (rest.Type() == TokenEndOfFile)
        return true;
    context.LogUnexpectedExtraTokenError(rest);
    return false;
}

ExitCode ShowColours(const std::vector<std::string>& values, OutputFormat format) {
    ColourPrinter printer(format);
    ExitCode result = ExitDone;
    for (const std::string& text : values) {
        CColourValue value;
        COutputLogToString log;
        if (ParseWhole(text, value, log)) {
            printer.Add(value);
        } else {
            std::string problem = log.GetString();
            problem.pop_back(); // the line feed
            SayError(problem);
            result = ExitFindings;
        }
    }
    printer.Finish();
    return result;
}

ExitCode ListColours(OutputFormat format) {
    ColourPrinter printer(format);
    for (int group = ColourGroupGreyBlack; group <= ColourGroupWhites; group++) {
        for (int i = 0; i < CColourValue::GetNamedColourCount(); i++) {
            const NamedColour* const colour = CColourValue::GetNamedColourFromIndex(i);
            if (colour->m_Group != group)
                continue;
            CColourValue value;
            value.SetNamedColour(colour);
            printer.Add(value);
        }
    }
    printer.Finish();
    return ExitDone;
}

} // namespace

void AddColourCommand(CLI::App& app, ToolContext& context) {
    CLI::App* const colour =
        app.add_subcommand("colour", "Show what colours mean; without any, all that have a name");
    const auto values = std::make_shared<std::vector<std::string>>();
    colour->add_option("VALUE", *values, "such as Tomato, '#f80', 'rgb(255, 50%, 0)'");
    SetExample(*colour, "qv colour Tomato '#f80' 'rgb(255, 50%, 0)'");
    colour->callback([values, &context] {
        context.m_ExitCode =
            values->empty() ? ListColours(context.m_Format) : ShowColours(*values, context.m_Format);
    });
}
