#include "Help.h"

#include "ManualPage.h"
#include "Output.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <vector>

namespace {

struct HelpOptions {
    std::vector<std::string> m_Command;
    bool m_bManual = false;
};

// The help of the command that the words name, as --help behind them prints it.
std::string HelpOf(const CLI::App& app, const std::vector<std::string>& words) {
    const CLI::App* command = &app;
    std::string name = app.get_name();
    for (const std::string& word : words) {
        const std::vector<const CLI::App*> found =
            command->get_subcommands([&](const CLI::App* part) { return part->get_name() == word; });
        if (found.empty())
            throw ToolError(ExitUsage,
                            "there is no command " + Quoted(name + " " + word) + "; 'qv help' lists them");
        command = found.front();
        name += " " + word;
    }
    return app.get_formatter()->make_help(command, name, CLI::AppFormatMode::Normal);
}

} // namespace

void SetExample(CLI::App& command, const std::string& example, const std::string& notes) {
    command.footer("Example:\n  " + example + (notes.empty() ? "" : "\n\n" + notes));
}

void AddHelpCommand(CLI::App& app, ToolContext& context) {
    CLI::App* const help = app.add_subcommand("help", "Print the help of a command, or the manual");
    const auto options = std::make_shared<HelpOptions>();
    help->add_option("COMMAND", options->m_Command, "words of the command (default: all commands)");
    help->add_flag("--man", options->m_bManual, "the manual page of all commands, for man");
    SetExample(*help, "qv help history read");
    help->callback([options, &app, &context] {
        WriteStandardOutput(options->m_bManual ? ManualPage(app) : HelpOf(app, options->m_Command));
        context.m_ExitCode = ExitDone;
    });
}
