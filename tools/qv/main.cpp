// qv - the library's command-line tool.
//
// Every command lives in a group's own file and ends with an ExitCode; what ends it early is a ToolError.

#include "Commands.h"
#include "Tool.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

namespace {

// What is wrong with the command line. A word that should have been a command only shows in that none was found.
std::string ToText(const CLI::ParseError& error, const CLI::App& app) {
    const std::vector<std::string> rest = app.remaining(true);
    if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr && !rest.empty() &&
        !rest[0].starts_with('-'))
        return "there is no command " + Quoted(rest[0]);
    return error.what();
}

} // namespace

int main(int argc, char** argv) {
    ToolContext context;
    try {
        CLI::App app("command-line tool of QVLib", "qv");
        AddCommands(app, context);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            if (error.get_exit_code() == 0)
                return app.exit(error); // --help, --version
            SayError(ToText(error, app) + "; --help tells what can be asked");
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
