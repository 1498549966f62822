#include "Identifiers.h"

#include "Help.h"
#include "Output.h"

#include <CLI/CLI.hpp>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVLib/Utilities/Guid.h>
#include <QVLib/Utilities/UniformResourceLocator.h>
#include <QVPlatform/TextOutput.h>
#include <memory>
#include <string>
#include <vector>

namespace {

const char* MeaningOf(int result) {
    switch (result) {
    case QVGuid::ParseNoFirstNumber:
        return "the first group has not 8 hexadecimal digits";
    case QVGuid::ParseNoSecondNumber:
        return "the second group has not 4 hexadecimal digits";
    case QVGuid::ParseNoThirdNumber:
        return "the third group has not 4 hexadecimal digits";
    case QVGuid::ParseNoByte:
        return "the fourth or fifth group has too few hexadecimal digits";
    case QVGuid::ParseNoFourthHyphen:
        return "the fourth group of 4 digits has no '-' behind it";
    default:
        return "a '-' is missing between the first groups";
    }
}

void PrintGuid(const QVGuid& guid, LineWriter& writer) {
    CTextOutputString text;
    guid.PrintGuid(text);
    writer.Add(text.GetString());
}

void MakeGuids(unsigned int count, OutputFormat format) {
    LineWriter writer(format, {{"guid", Column::Text}});
    for (unsigned int i = 0; i < count; i++) {
        QVGuid guid;
        if (!guid.SetRandom())
            throw ToolError(ExitInputOutput, "the system delivers no random numbers");
        PrintGuid(guid, writer);
    }
    writer.Finish();
}

ExitCode CheckGuids(const std::vector<std::string>& texts, OutputFormat format) {
    LineWriter writer(format, {{"guid", Column::Text}});
    ExitCode exitCode = ExitDone;
    for (const std::string& text : texts) {
        TextInputQVString input(text, "");
        QVGuid guid;
        const int result = guid.ParseGuid(&input);
        int rest;
        if (result == QVGuid::ParseDone && !input.ReadCodePoint(rest)) {
            PrintGuid(guid, writer);
            continue;
        }
        SayError(Quoted(text) + " is no GUID: " +
                 (result == QVGuid::ParseDone ? "there is more behind it" : MeaningOf(result)));
        exitCode = ExitFindings;
    }
    writer.Finish();
    return exitCode;
}

ExitCode SplitUrls(const std::vector<std::string>& texts, OutputFormat format) {
    TableWriter table(format, {{"scheme", Column::Text},
                               {"authority", Column::Text},
                               {"user", Column::Text},
                               {"host", Column::Text},
                               {"port", Column::Text},
                               {"path", Column::Text}});
    ExitCode exitCode = ExitDone;
    for (const std::string& text : texts) {
        UniformResourceLocator url;
        if (url.ParseURL(text) != UniformResourceLocator::ParseDone) {
            SayError(text.empty() ? "an empty text is no URL"
                                  : Quoted(text) + " has no ':' and so no scheme");
            exitCode = ExitFindings;
            continue;
        }
        table.AddText(url.GetScheme());
        table.AddText(url.GetAuthority());
        table.AddText(url.GetUserInformation());
        table.AddText(url.GetHost());
        table.AddText(url.GetPort());
        table.AddText(url.GetPath());
        table.EndRow();
    }
    table.Finish();
    return exitCode;
}

} // namespace

void AddIdentifierCommands(CLI::App& app, ToolContext& context) {
    CLI::App* const guid = app.add_subcommand("guid", "Make GUIDs, or check the given ones");
    const auto guids = std::make_shared<std::vector<std::string>>();
    const auto count = std::make_shared<unsigned int>(1);
    CLI::Option* const given =
        guid->add_option("GUID", *guids, "GUIDs to check and print in their canonical form");
    guid->add_option("--count", *count, "how many to make (default: 1)")
        ->check(CLI::Range(1, 1'000'000))
        ->excludes(given);
    SetExample(*guid, "qv guid --count 3");
    guid->callback([guids, count, &context] {
        if (guids->empty())
            MakeGuids(*count, context.m_Format);
        else
            context.m_ExitCode = CheckGuids(*guids, context.m_Format);
    });

    CLI::App* const url = app.add_subcommand("url", "Print the parts of URLs");
    const auto urls = std::make_shared<std::vector<std::string>>();
    url->add_option("URL", *urls, "such as opc.tcp://user@host:4840/path")->required();
    SetExample(*url, "qv url opc.tcp://user@host:4840/path");
    url->callback([urls, &context] { context.m_ExitCode = SplitUrls(*urls, context.m_Format); });
}
