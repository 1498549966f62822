// qv history read and qv history stats: the records of a time range, and what they come to per interval.

#include "Help.h"
#include "History.h"
#include "HistoryFolder.h"
#include "Output.h"
#include "TimeText.h"

#include <CLI/CLI.hpp>
#include <QVLib/Formatting/DataFormatSettings.h>
#include <QVPlatform/TextOutput.h>
#include <QVPlatform/Timestamp.h>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <unordered_map>

namespace {

constexpr unsigned int RecordsPerProgress = 1u << 16;
// With the offset, so that the hour that comes twice in autumn can be told apart.
constexpr const char* DefaultLocalFormat = "yyyy-MM-dd HH:mm:ss.SSS XXX";

struct ReadOptions {
    FolderOptions m_Folder;
    RangeOptions m_Range;
    std::string m_Tag;
    unsigned long long m_Limit = std::numeric_limits<unsigned long long>::max();
    bool m_bSorted = false;
    std::string m_Zone;
    std::string m_TimeFormat;
};

// How times are shown where the user asked for another way than ISO 8601 in UTC.
std::optional<CDataFormatSettings> ChooseTimeFormat(const ReadOptions& options, OutputFormat format) {
    if (options.m_Zone.empty() && options.m_TimeFormat.empty())
        return std::nullopt;
    if (format != OutputFormat::Human)
        throw ToolError(ExitUsage,
                        "--zone and --time-format are for people; --json and --csv have times in UTC");
    CDataFormatSettings settings;
    settings.m_Locale.SetFromCurrentUser();
    if (options.m_Zone == "local")
        settings.m_TimeZone.UseCurrentTimeZone();
    else if (!options.m_Zone.empty() && !settings.m_TimeZone.UseSpecifiedTimeZone(options.m_Zone))
        throw ToolError(ExitUsage, "--zone: " + Quoted(options.m_Zone) +
                                       " is no time zone known here; write Europe/Berlin, or local");
    settings.m_DateTimeFormat.ParseDateTimeFormat(options.m_TimeFormat.empty() ? DefaultLocalFormat
                                                                               : options.m_TimeFormat);
    return settings;
}

// Writes records as rows: time, tag, value, quality, then the layout's other fields. People also see the
// unit.
class RecordWriter {
public:
    RecordWriter(const HistoryFolder& folder, OutputFormat format,
                 std::optional<CDataFormatSettings> timeFormat)
        : m_Folder(folder), m_TimeFormat(std::move(timeFormat)),
          m_bUnits(format == OutputFormat::Human && folder.GetLayout().Find("tag") != nullptr),
          m_Writer(format, MakeColumns(folder.GetLayout(), m_bUnits)) {}

    void Write(const unsigned char* record) {
        const TagFile::Tag* tag = nullptr;
        for (const SampleField& field : m_Folder.GetLayout().GetFields()) {
            if (field.m_Name == "time") {
                WriteTime(SampleLayout::GetTime(record));
            } else if (field.m_Name == "tag") {
                tag = m_Folder.GetTags().FindNumber(field.GetUnsigned(record));
                WriteTag(field.GetUnsigned(record), tag);
            } else {
                WriteNumber(field, record);
                if (m_bUnits && field.m_Name == "value")
                    m_Writer.AddText(tag != nullptr ? tag->m_Unit : "");
            }
        }
        m_Writer.EndRow();
    }
    void Finish() { m_Writer.Finish(); }
    unsigned long long GetRows() const { return m_Writer.GetRows(); }

private:
    static std::vector<Column> MakeColumns(const SampleLayout& layout, bool bUnits) {
        std::vector<Column> columns;
        for (const SampleField& field : layout.GetFields()) {
            const bool bText = field.m_Name == "time" || field.m_Name == "tag";
            columns.push_back({field.m_Name, bText ? Column::Text : Column::Number});
            if (bUnits && field.m_Name == "value")
                columns.push_back({"unit", Column::Text});
        }
        return columns;
    }

    void WriteTime(long long time) {
        if (!m_TimeFormat) {
            m_Writer.AddTime(time);
            return;
        }
        m_TimeText.Clear();
        m_TimeFormat->FormatDateAndTime(time, m_TimeText);
        m_Writer.AddText(m_TimeText.GetString());
    }

    void WriteTag(unsigned long long number, const TagFile::Tag* tag) {
        if (tag != nullptr) {
            m_Writer.AddText(tag->m_Name);
            return;
        }
        m_Text.clear();
        AppendNumber(m_Text, number);
        m_Writer.AddText(m_Text);
    }

    void WriteNumber(const SampleField& field, const unsigned char* record) {
        if (field.IsReal())
            m_Writer.AddReal(field.GetReal(record), field.m_Type == SampleField::F32);
        else if (field.IsSigned())
            m_Writer.AddInteger(field.GetInteger(record));
        else
            m_Writer.AddUnsigned(field.GetUnsigned(record));
    }

    const HistoryFolder& m_Folder;
    const std::optional<CDataFormatSettings> m_TimeFormat;
    const bool m_bUnits;
    TableWriter m_Writer;
    std::string m_Text;
    CTextOutputString m_TimeText;
};

// Tells whether a record is of the tag that was asked for; without one every record is.
class TagFilter {
public:
    TagFilter(const HistoryFolder& folder, const std::string& tag) {
        if (tag.empty())
            return;
        m_pField = &folder.GetLayout().Require("tag", "--tag");
        m_Number = folder.GetTagNumber(tag);
    }
    bool Takes(const unsigned char* record) const {
        return m_pField == nullptr || m_pField->GetUnsigned(record) == m_Number;
    }

private:
    const SampleField* m_pField = nullptr;
    unsigned long long m_Number = 0;
};

void NoteNothingFound(const HistoryFolder& folder, OutputFormat format) {
    if (format == OutputFormat::Human)
        std::fprintf(stderr, "qv: no such records in %s (%s in all)\n", folder.GetPath().c_str(),
                     WithSeparators(folder.GetRecordCount()).c_str());
}

// All records that are asked for, in the order of their times; equal times keep the order of the table.
void WriteSorted(const HistoryFolder& folder, const TimeRange& range, const TagFilter& filter,
                 unsigned long long limit, RecordWriter& writer) {
    const std::size_t recordSize = folder.GetLayout().GetRecordSize();
    std::vector<unsigned char> records;
    struct Key {
        long long m_Time;
        std::size_t m_Offset;
    };
    std::vector<Key> keys;
    Progress progress("Sorting:", "records", folder.GetRecordCount());
    folder.ForEachRecord(range, [&](const unsigned char* record, const CHistoricTable::ReadContext& context) {
        if (filter.Takes(record)) {
            keys.push_back({SampleLayout::GetTime(record), records.size()});
            records.insert(records.end(), record, record + recordSize);
        }
        if (context.m_NumRecordsRead % RecordsPerProgress == 0)
            progress.Update(context.m_NumRecordsRead);
        return true;
    });
    std::stable_sort(keys.begin(), keys.end(),
                     [](const Key& a, const Key& b) { return a.m_Time < b.m_Time; });
    progress.Clear();
    for (std::size_t index = 0; index < keys.size() && index < limit; ++index)
        writer.Write(records.data() + keys[index].m_Offset);
}

ExitCode Read(const ReadOptions& options, OutputFormat format) {
    std::optional<CDataFormatSettings> timeFormat = ChooseTimeFormat(options, format);
    const HistoryFolder folder(options.m_Folder, HistoryFolder::Read);
    const TagFilter filter(folder, options.m_Tag);
    const TimeRange range = folder.GetRange(options.m_Range);
    RecordWriter writer(folder, format, std::move(timeFormat));
    if (options.m_bSorted) {
        WriteSorted(folder, range, filter, options.m_Limit, writer);
    } else if (options.m_Limit != 0) {
        folder.ForEachRecord(range, [&](const unsigned char* record, const auto&) {
            if (filter.Takes(record))
                writer.Write(record);
            return writer.GetRows() < options.m_Limit;
        });
    }
    writer.Finish();
    if (writer.GetRows() == 0)
        NoteNothingFound(folder, format);
    return ExitDone;
}

struct StatsOptions {
    FolderOptions m_Folder;
    RangeOptions m_Range;
    std::string m_Tag;
    std::string m_Every;
};

struct Aggregate {
    void Add(double value) {
        ++m_Count;
        m_Sum += value;
        m_Min = std::min(m_Min, value);
        m_Max = std::max(m_Max, value);
    }

    unsigned long long m_Count = 0;
    long double m_Sum = 0;
    double m_Min = std::numeric_limits<double>::infinity();
    double m_Max = -std::numeric_limits<double>::infinity();
};

// Gathers values by interval and tag. Intervals that no later record can fall into are written and forgotten,
// so memory holds those of one file.
class Statistics {
public:
    Statistics(const HistoryFolder& folder, OutputFormat format, long long every)
        : m_Folder(folder), m_Every(every), m_bHuman(format == OutputFormat::Human),
          m_Writer(format, MakeColumns(m_bHuman)) {}

    void Add(long long time, unsigned long long tag, double value) {
        if (std::isnan(value))
            return;
        // A time before the interval wraps to a large difference.
        const auto offset =
            static_cast<unsigned long long>(time) - static_cast<unsigned long long>(m_IntervalStart);
        if (m_pInterval == nullptr || offset >= static_cast<unsigned long long>(m_Every)) {
            CQVTimestamp start(time);
            start.RoundDown(CQVTimeInterval(m_Every));
            m_IntervalStart = start.GetValue();
            m_pInterval = &m_Intervals[m_IntervalStart];
        }
        (*m_pInterval)[tag].Add(value);
    }

    // Writes the intervals that end at or before `time`.
    void WriteUntil(long long time) {
        while (!m_Intervals.empty() && m_Intervals.begin()->first <= time - m_Every) {
            WriteInterval(m_Intervals.begin()->first, m_Intervals.begin()->second);
            m_Intervals.erase(m_Intervals.begin());
            m_pInterval = nullptr;
        }
    }
    void Finish() {
        for (const auto& [start, tags] : m_Intervals)
            WriteInterval(start, tags);
        m_Writer.Finish();
    }
    unsigned long long GetRows() const { return m_Writer.GetRows(); }

private:
    using TagAggregates = std::unordered_map<unsigned long long, Aggregate>;

    static std::vector<Column> MakeColumns(bool bHuman) {
        std::vector<Column> columns = {{"time", Column::Text},    {"tag", Column::Text},
                                       {"count", Column::Number}, {"min", Column::Number},
                                       {"mean", Column::Number},  {"max", Column::Number}};
        if (bHuman)
            columns.push_back({"unit", Column::Text});
        return columns;
    }

    void WriteInterval(long long start, const TagAggregates& tags) {
        m_SortedTags.clear();
        for (const auto& [number, aggregate] : tags)
            m_SortedTags.emplace_back(number, &aggregate);
        std::sort(m_SortedTags.begin(), m_SortedTags.end());
        for (const auto& [number, aggregate] : m_SortedTags) {
            m_Text.clear();
            m_Folder.AppendTagName(number, m_Text);
            m_Writer.AddTime(start);
            m_Writer.AddText(m_Text);
            m_Writer.AddUnsigned(aggregate->m_Count);
            AddReal(aggregate->m_Min);
            AddReal(static_cast<double>(aggregate->m_Sum / static_cast<long double>(aggregate->m_Count)));
            AddReal(aggregate->m_Max);
            if (m_bHuman) {
                const TagFile::Tag* const tag = m_Folder.GetTags().FindNumber(number);
                m_Writer.AddText(tag != nullptr ? tag->m_Unit : "");
            }
            m_Writer.EndRow();
        }
    }

    // People get six digits, programs all of them.
    void AddReal(double value) {
        if (!m_bHuman) {
            m_Writer.AddReal(value);
            return;
        }
        char text[32];
        const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 6).ptr;
        m_Writer.AddText({text, end});
    }

    const HistoryFolder& m_Folder;
    const long long m_Every;
    const bool m_bHuman;
    TableWriter m_Writer;
    std::map<long long, TagAggregates> m_Intervals; // by start
    TagAggregates* m_pInterval = nullptr;           // of the last record
    long long m_IntervalStart = 0;
    std::vector<std::pair<unsigned long long, const Aggregate*>> m_SortedTags;
    std::string m_Text;
};

ExitCode Stats(const StatsOptions& options, OutputFormat format) {
    const HistoryFolder folder(options.m_Folder, HistoryFolder::Read);
    const TagFilter filter(folder, options.m_Tag);
    const SampleField& value = folder.GetLayout().Require("value", "stats");
    const SampleField& tag = folder.GetLayout().Require("tag", "stats");
    const TimeRange range = folder.GetRange(options.m_Range);
    Statistics statistics(folder, format, ParseDurationOption("--every", options.m_Every));
    Progress progress("Reading:", "records", folder.GetRecordCount());
    std::optional<long long> fileStart;
    folder.ForEachRecord(range, [&](const unsigned char* record, const CHistoricTable::ReadContext& context) {
        if (const long long start = context.m_FileIterator->second.m_Start; fileStart != start) {
            // Spans of files do not overlap and come in order.
            fileStart = start;
            progress.Clear();
            statistics.WriteUntil(start);
        }
        if (filter.Takes(record))
            statistics.Add(SampleLayout::GetTime(record), tag.GetUnsigned(record), value.GetReal(record));
        if (context.m_NumRecordsRead % RecordsPerProgress == 0)
            progress.Update(context.m_NumRecordsRead);
        return true;
    });
    progress.Clear();
    statistics.Finish();
    if (statistics.GetRows() == 0)
        NoteNothingFound(folder, format);
    return ExitDone;
}

} // namespace

void AddHistoryReadCommands(CLI::App& history, ToolContext& context) {
    CLI::App* const read = history.add_subcommand("read", "Print the records of a time range");
    const auto readOptions = std::make_shared<ReadOptions>();
    readOptions->m_Folder.AddTo(*read);
    readOptions->m_Range.AddTo(*read);
    read->add_option("--tag", readOptions->m_Tag, "only this tag: its name or number");
    read->add_option("--limit", readOptions->m_Limit, "at most so many records")
        ->check(CLI::NonNegativeNumber);
    read->add_flag("--sorted", readOptions->m_bSorted,
                   "order by time (in memory); without it, the order of arrival within each file");
    read->add_option(
        "--zone", readOptions->m_Zone,
        "show times in this time zone, such as Europe/Berlin, or in the machine's own with local");
    read->add_option("--time-format", readOptions->m_TimeFormat,
                     "show times by this pattern, such as 'EEE d MMM HH:mm:ss.SSS'");
    SetExample(*read, "qv history read plant --tag load.1m --last 10m --sorted");
    read->callback([readOptions, &context] { context.m_ExitCode = Read(*readOptions, context.m_Format); });

    CLI::App* const stats =
        history.add_subcommand("stats", "Count, minimum, mean and maximum per tag and interval");
    const auto statsOptions = std::make_shared<StatsOptions>();
    statsOptions->m_Folder.AddTo(*stats);
    statsOptions->m_Range.AddTo(*stats);
    stats->add_option("--tag", statsOptions->m_Tag, "only this tag: its name or number");
    stats->add_option("--every", statsOptions->m_Every, "length of an interval, such as 1m")->required();
    SetExample(*stats, "qv history stats plant --every 1m --last 1h");
    stats->callback(
        [statsOptions, &context] { context.m_ExitCode = Stats(*statsOptions, context.m_Format); });
}
