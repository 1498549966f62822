#include "ManualPage.h"

#include <CLI/CLI.hpp>
#include <string_view>

namespace {

// Text as man shows it to the letter: a '-' that can be copied, no '\' that means something.
std::string Escaped(std::string_view text) {
    std::string result;
    for (const char character : text) {
        if (character == '\\')
            result += "\\e";
        else if (character == '-')
            result += "\\-";
        else
            result += character;
    }
    return result;
}

std::string Bold(std::string_view text) {
    return "\\fB" + Escaped(text) + "\\fR";
}

std::string Italic(std::string_view text) {
    return "\\fI" + Escaped(text) + "\\fR";
}

// Lines to be kept as they are. None may begin as a request of man's does.
std::string Lines(const std::string& text) {
    std::string result = ".nf\n\\&";
    for (const char character : Escaped(text))
        result.append(1, character).append(character == '\n' ? "\\&" : "");
    return result + "\n.fi\n";
}

bool IsFlag(const CLI::Option& option) {
    return option.get_items_expected_max() == 0;
}

// What stands for an option's value: the values that it may have, or the kind.
std::string ValueOf(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    const std::size_t choices = type.find('{');
    return choices != std::string::npos ? Escaped(type.substr(choices))
                                        : Italic(type.substr(0, type.find(':')));
}

std::string PositionalOf(const CLI::Option& option) {
    const bool bMany = option.get_expected_max() > 1;
    const std::string name = Italic(option.get_name(true)) + (bMany ? "..." : "");
    return option.get_required() ? name : "[" + name + "]";
}

std::string SynopsisOf(const CLI::App& command, const std::string& name) {
    std::string text = Bold(name);
    bool bOptions = false;
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_positional())
            text += " " + PositionalOf(*option);
        else if (option->get_required())
            text += " " + Bold(option->get_name(false, true)) + " " + ValueOf(*option);
        else
            bOptions = bOptions || option != command.get_help_ptr();
    }
    return text + (bOptions ? " [" + Italic("OPTION") + "]..." : "") + "\n";
}

void AddOptions(std::string& page, const CLI::App& command) {
    for (const CLI::Option* option : command.get_options()) {
        // Every command has --help; it is told once, with the options that all have.
        if (option == command.get_help_ptr() && command.get_parent() != nullptr)
            continue;
        page += ".TP\n";
        if (option->get_positional())
            page += Italic(option->get_name(true));
        else
            page += Bold(option->get_name(false, true)) + (IsFlag(*option) ? "" : " " + ValueOf(*option));
        page += "\n" + Escaped(option->get_description()) + "\n";
    }
}

void AddCommand(std::string& page, const CLI::App& command, const std::string& name) {
    const std::vector<const CLI::App*> parts = command.get_subcommands([](const CLI::App*) { return true; });
    if (parts.empty()) {
        page += ".SS " + Escaped(name) + "\n" + SynopsisOf(command, name) + ".PP\n" +
                Escaped(command.get_description()) + ".\n";
        AddOptions(page, command);
        page += ".PP\n" + Lines(command.get_footer());
    }
    for (const CLI::App* part : parts)
        AddCommand(page, *part, name + " " + part->get_name());
}

} // namespace

std::string ManualPage(const CLI::App& app) {
    const std::string& name = app.get_name();
    std::string page = ".TH QV 1 \"\" \"" + app.version() + "\" \"User Commands\"\n";
    page += ".SH NAME\n" + name + " \\- " + Escaped(app.get_description()) + "\n";
    page += ".SH SYNOPSIS\n" + Bold(name) + " " + Italic("COMMAND") + " [" + Italic("ARGUMENT") + "]... [" +
            Italic("OPTION") + "]...\n";
    page += ".SH OPTIONS\nThese may stand in front of a command and behind it.\n";
    AddOptions(page, app);
    page += ".SH COMMANDS\n";
    AddCommand(page, app, name);
    page += ".SH NOTES\n" + Lines(app.get_footer());
    return page;
}
