#include "Tag.h"

#include "Help.h"
#include "InputText.h"
#include "Output.h"

#include <CLI/CLI.hpp>
#include <QVLib/Tags/MatchPattern.h>
#include <QVLib/Tags/NaturalSort.h>
#include <QVLib/Tags/TagName.h>
#include <algorithm>
#include <memory>
#include <vector>

namespace {

using Names = std::vector<std::string>;

// Does something with each name of the command line or, when there is none, with each line of the standard input. What was
// written goes out before a line has to be waited for.
template<class Function>
void ForEachName(const Names& names, LineWriter& writer, Function function) {
    for (const std::string& name : names)
        function(name);
    if (!names.empty())
        return;
    InputFile file("-");
    InputLines lines(file);
    std::string_view line;
    bool bTooLong;
    for (;;) {
        if (!lines.IsLineBuffered())
            writer.Flush();
        if (!lines.Next(line, bTooLong))
            return;
        if (bTooLong)
            SayWarning("line " + std::to_string(lines.GetLineNumber()) + " is too long for a name");
        else if (!line.empty())
            function(std::string(line));
    }
}

void AddNames(CLI::App& command, Names& names) {
    command.add_option("NAME", names, "names (default: the lines of the standard input)");
}

struct MatchOptions {
    std::string m_Pattern;
    Names m_Names;
    bool m_bCaseSensitive = false;
};

ExitCode MatchNames(const MatchOptions& options, OutputFormat format) {
    LineWriter writer(format, {{"name", Column::Text}});
    bool bMalformed = false;
    bool bFound = false;
    ForEachName(options.m_Names, writer, [&](const std::string& name) {
        const int result = OPCMatchPattern(name, options.m_Pattern, options.m_bCaseSensitive);
        bMalformed |= result == OPCMatchMalformed;
        if (result != OPCMatchYes)
            return;
        bFound = true;
        writer.Add(name);
    });
    writer.Finish();
    if (bMalformed)
        throw ToolError(ExitUsage, "PATTERN: " + Quoted(options.m_Pattern) + " has a '[' that no ']' closes");
    return bFound ? ExitDone : ExitFindings;
}

struct SortOptions {
    Names m_Names;
    bool m_bReverse = false;
};

ExitCode SortNames(const SortOptions& options, OutputFormat format) {
    LineWriter writer(format, {{"name", Column::Text}});
    Names names;
    ForEachName(options.m_Names, writer, [&](const std::string& name) { names.push_back(name); });
    std::stable_sort(names.begin(), names.end(), [&](const std::string& a, const std::string& b) {
        return (options.m_bReverse ? QVNatrualSort(b, a) : QVNatrualSort(a, b)) < 0;
    });
    for (const std::string& name : names)
        writer.Add(name);
    writer.Finish();
    return ExitDone;
}

// Prints what becomes of each name; `rewrite` says whether it became anything else.
template<class Rewrite>
void RewriteNames(const Names& names, OutputFormat format, Rewrite rewrite) {
    LineWriter writer(format, {{"name", Column::Text}, {"result", Column::Text}});
    ForEachName(names, writer, [&](const std::string& text) {
        CTagName name(text);
        rewrite(name);
        if (writer.IsForPeople()) {
            writer.AddLine(name.TagName());
        } else {
            writer.GetTable().AddText(text);
            writer.GetTable().AddText(name.TagName());
            writer.GetTable().EndRow();
        }
    });
    writer.Finish();
}

struct BaseOptions {
    std::string m_Base;
    Names m_Names;
};

struct RenameOptions {
    std::string m_OldName;
    std::string m_NewName;
    std::string m_Base;
    std::string m_NewBase;
    Names m_Names;
};

void AddBaseCommand(CLI::App& tag, ToolContext& context, const char* name, const char* description,
                    const char* example, CTagName& (CTagName::*rewrite)(const qvstring&)) {
    CLI::App* const command = tag.add_subcommand(name, description);
    const auto options = std::make_shared<BaseOptions>();
    command->add_option("BASE", options->m_Base, "the name of the tag that refers to the others")->required();
    AddNames(*command, options->m_Names);
    SetExample(*command, example);
    command->callback([options, &context, rewrite] {
        RewriteNames(options->m_Names, context.m_Format,
                     [&](CTagName& tagName) { (tagName.*rewrite)(options->m_Base); });
    });
}

void AddRenameCommand(CLI::App& tag, ToolContext& context) {
    CLI::App* const command =
        tag.add_subcommand("rename", "Rewrite names after OLD, or a tag above them, was renamed NEW");
    const auto options = std::make_shared<RenameOptions>();
    command->add_option("OLD", options->m_OldName, "the tag's name before")->required();
    command->add_option("NEW", options->m_NewName, "its name now")->required();
    AddNames(*command, options->m_Names);
    CLI::Option* const base = command->add_option("--base", options->m_Base,
                                                  "the tag whose references these are, for relative names");
    command->add_option("--new-base", options->m_NewBase, "what that tag is called now (default: the same)")
        ->needs(base);
    SetExample(*command, "qv tag rename Plant.Line1 Plant.LineA Plant.Line1.Pump");
    command->callback([options, &context] {
        const std::string& newBase = options->m_NewBase.empty() ? options->m_Base : options->m_NewBase;
        RewriteNames(options->m_Names, context.m_Format, [&](CTagName& name) {
            name.RefactorTagName(options->m_Base, CTagName(options->m_OldName), newBase, options->m_NewName);
        });
    });
}

} // namespace

void AddTagCommands(CLI::App& app, ToolContext& context) {
    CLI::App* const tag = app.add_subcommand("tag", "Match, sort and rewrite names of tags");
    SetExample(*tag, "qv tag sort Pump10 Pump2");
    tag->require_subcommand(1);

    CLI::App* const match = tag->add_subcommand("match", "Print the names that a wildcard pattern matches");
    const auto matchOptions = std::make_shared<MatchOptions>();
    match->add_option("PATTERN", matchOptions->m_Pattern, "such as 'Plant.Pump#*' or 'Tank[!1-3]'")
        ->required();
    AddNames(*match, matchOptions->m_Names);
    match->add_flag("--case", matchOptions->m_bCaseSensitive, "tell capital letters from small ones");
    SetExample(*match, "qv tag match 'Plant.Pump#*' Plant.Pump1 Plant.Valve2");
    match->callback(
        [matchOptions, &context] { context.m_ExitCode = MatchNames(*matchOptions, context.m_Format); });

    CLI::App* const sort = tag->add_subcommand("sort", "Print names in natural order: Pump2 before Pump10");
    const auto sortOptions = std::make_shared<SortOptions>();
    AddNames(*sort, sortOptions->m_Names);
    sort->add_flag("--reverse", sortOptions->m_bReverse, "the last one first");
    SetExample(*sort, "qv tag sort --reverse Pump2 Pump10");
    sort->callback(
        [sortOptions, &context] { context.m_ExitCode = SortNames(*sortOptions, context.m_Format); });

    AddBaseCommand(*tag, context, "relative", "Print names as the tag BASE refers to them",
                   "qv tag relative Plant.Line1.Mixer Plant.Line1.Pump", &CTagName::ToRelative);
    AddBaseCommand(*tag, context, "absolute", "Print the names that the tag BASE refers to",
                   "qv tag absolute Plant.Line1.Mixer .Pump", &CTagName::ToAbsolute);
    AddRenameCommand(*tag, context);
}
