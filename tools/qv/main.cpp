// qv - the library's command-line tool.
//
// Every command lives in a group's own file and ends with an ExitCode; what ends it early is a ToolError.

#include "Annotate.h"
#include "Bytes.h"
#include "Colour.h"
#include "Format.h"
#include "History.h"
#include "Identifiers.h"
#include "Json.h"
#include "Rights.h"
#include "Serial.h"
#include "Tag.h"
#include "Tool.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

namespace {

void AddGlobalOptions(CLI::App& app, ToolContext& context) {
    CLI::Option* const json = app.add_flag_callback(
        "--json", [&context] { context.m_Format = OutputFormat::Json; }, "Print one JSON object a line");
    app.add_flag_callback(
           "--csv", [&context] { context.m_Format = OutputFormat::Csv; }, "Print comma-separated values")
        ->excludes(json);
    app.fallthrough(); // global options may also stand behind the command
    app.require_subcommand(1);
    app.footer("Exit codes: 0 done, 1 findings, 2 usage, 3 input or output.");
}

} // namespace

int main(int argc, char** argv) {
    ToolContext context;
    try {
        CLI::App app("Command-line tool of QVLib", "qv");
        AddGlobalOptions(app, context);
        AddFormatCommands(app, context);
        AddHistoryCommands(app, context);
        AddJsonCommands(app, context);
        AddRightsCommands(app, context);
        AddSerialCommands(app, context);
        AddTagCommands(app, context);
        AddColourCommand(app, context);
        AddBytesCommands(app, context);
        AddIdentifierCommands(app, context);
        AddAnnotateCommand(app, context);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            if (error.get_exit_code() == 0)
                return app.exit(error); // --help
            SayError(std::string(error.what()) + "; --help tells what can be asked");
            return ExitUsage;
        }
    } catch (const ToolError& error) {
        SayError(error.what());
        return error.GetCode();
    } catch (const std::exception& error) {
        SayError(error.what());
        return ExitInputOutput;
    }
    return context.m_ExitCode;
}
