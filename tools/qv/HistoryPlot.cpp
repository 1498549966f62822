// qv history plot: the trend of one tag, as text or as a picture.

#include "Help.h"
#include "History.h"
#include "HistoryFolder.h"
#include "Output.h"
#include "Trend.h"

#include <CLI/CLI.hpp>
#include <QVPlatform/FileSystem.h>
#include <QVPlatform/Process.h>
#include <algorithm>
#include <cmath>
#include <memory>

namespace {

constexpr unsigned int RecordsPerProgress = 1u << 16;

struct PlotOptions {
    FolderOptions m_Folder;
    RangeOptions m_Range;
    std::string m_Tag;
    std::string m_SvgFile;
    unsigned int m_Width = 0; // 0: the terminal's
    unsigned int m_Height = 16;
    bool m_bAscii = false;
};

// Calls `take` with the time and value of each record of the tag that has a finite value.
template<typename Take>
void ForEachValue(const HistoryFolder& folder, const TimeRange& range, unsigned long long tagNumber,
                  Take take) {
    const SampleField& value = folder.GetLayout().Require("value", "plot");
    const SampleField& tag = folder.GetLayout().Require("tag", "plot");
    Progress progress("Reading:", "records", folder.GetRecordCount());
    folder.ForEachRecord(range, [&](const unsigned char* record, const CHistoricTable::ReadContext& context) {
        if (tag.GetUnsigned(record) == tagNumber && std::isfinite(value.GetReal(record)))
            take(SampleLayout::GetTime(record), value.GetReal(record));
        if (context.m_NumRecordsRead % RecordsPerProgress == 0)
            progress.Update(context.m_NumRecordsRead);
        return true;
    });
}

void WriteSvg(const std::string& path, const std::string& svg) {
    if (path == "-") {
        WriteStandardOutput(svg);
        return;
    }
    QVFileUnix file;
    if (!file.OpenFileForWrite(CQVFilePath(path)) ||
        !file.WriteBytes(svg.data(), static_cast<unsigned int>(svg.size())) || !file.CloseFile())
        throw ToolError(ExitInputOutput, path + " cannot be written: " + ErrorText(file.GetLastError()));
}

ExitCode Plot(const PlotOptions& options, OutputFormat format) {
    if (format != OutputFormat::Human)
        throw ToolError(ExitUsage,
                        "plot draws a picture; 'qv history stats' gives the numbers with --json or --csv");
    const HistoryFolder folder(options.m_Folder, HistoryFolder::Read);
    const unsigned long long tagNumber = folder.GetTagNumber(options.m_Tag);
    const TimeRange range = folder.GetRange(options.m_Range);

    // The times of the values that there are: columns that no value can fall into would only waste room.
    TimeRange found{range.m_To, range.m_From};
    ForEachValue(folder, range, tagNumber, [&](long long time, double) {
        found.m_From = std::min(found.m_From, time);
        found.m_To = std::max(found.m_To, time);
    });
    if (found.m_From > found.m_To) {
        SayWarning(folder.GetPath() + " has no values of " + Quoted(options.m_Tag) + " in this range");
        return ExitFindings;
    }

    TextPictureSize size;
    size.m_Width = options.m_Width != 0 ? options.m_Width : std::max(30u, qv_terminal_width(1));
    size.m_Height = options.m_Height;
    size.m_bAscii = options.m_bAscii;
    Trend trend(found.m_From, found.m_To,
                options.m_SvgFile.empty() ? size.GetTrendColumns() : SvgTrendColumns);
    ForEachValue(folder, found, tagNumber, [&](long long time, double value) { trend.Add(time, value); });

    TrendTitle title;
    folder.AppendTagName(tagNumber, title.m_Tag);
    if (const TagFile::Tag* const tag = folder.GetTags().FindNumber(tagNumber); tag != nullptr)
        title.m_Unit = tag->m_Unit;
    if (options.m_SvgFile.empty())
        WriteStandardOutput(DrawAsText(trend, title, size));
    else
        WriteSvg(options.m_SvgFile, DrawAsSvg(trend, title));
    return ExitDone;
}

} // namespace

void AddHistoryPlotCommand(CLI::App& history, ToolContext& context) {
    CLI::App* const command = history.add_subcommand("plot", "Draw the trend of a tag");
    const auto options = std::make_shared<PlotOptions>();
    options->m_Folder.AddTo(*command);
    options->m_Range.AddTo(*command);
    command->add_option("--tag", options->m_Tag, "the tag: its name or number")->required();
    command->add_option("--svg", options->m_SvgFile,
                        "write an SVG picture to this file or, with -, to the standard output");
    command->add_option("--width", options->m_Width, "columns of the text (default: the terminal's)")
        ->check(CLI::Range(30, 1000));
    command->add_option("--height", options->m_Height, "rows of the text (default: 16)")
        ->check(CLI::Range(4, 200));
    command->add_flag("--ascii", options->m_bAscii, "draw without Unicode characters");
    SetExample(*command, "qv history plot plant --tag load.1m --svg load.svg");
    command->callback([options, &context] { context.m_ExitCode = Plot(*options, context.m_Format); });
}
