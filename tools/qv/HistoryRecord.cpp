// qv history record: samples this machine into a table until it is told to stop.

#include "History.h"
#include "HistoryFolder.h"
#include "MachineSampler.h"
#include "Output.h"
#include "TimeText.h"

#include <CLI/CLI.hpp>
#include <QVPlatform/Process.h>
#include <QVPlatform/Timestamp.h>
#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

namespace {

constexpr long long FlushPeriod = CQVTimeInterval::UnitsPerSecond;
constexpr long long HousekeepingPeriod = 10 * CQVTimeInterval::UnitsPerSecond;

struct RecordOptions {
    FolderOptions m_Folder;
    std::string m_Every = "200ms";
    std::string m_For;
    unsigned int m_Keep = 10'000'000;
    std::string m_MaxFile = "64M";
};

// Messages of the table must not land in the middle of the live line.
class LogAroundLiveLine : public MessageLog {
public:
    bool AppendMessage(LogType type, int number, const char* text, unsigned int length) override {
        if (qv_is_terminal(2))
            RewriteTerminalLine("");
        return MessageLog::AppendMessage(type, number, text, length);
    }
};

class Recorder {
public:
    Recorder(const RecordOptions& options, const ToolContext& context)
        : m_Format(context.m_Format), m_Every(ParseDurationOption("--every", options.m_Every)),
          m_For(options.m_For.empty() ? 0 : ParseDurationOption("--for", options.m_For)),
          m_Folder(options.m_Folder, HistoryFolder::Create), m_Keep(options.m_Keep),
          m_MaxFile(m_Folder.ParseFileBudget(options.m_MaxFile)),
          m_Time(m_Folder.GetLayout().Require("time", "recording")),
          m_Tag(m_Folder.GetLayout().Require("tag", "recording")),
          m_Value(m_Folder.GetLayout().Require("value", "recording")),
          m_Record(m_Folder.GetLayout().GetRecordSize()) {
        if (!m_Value.IsReal())
            throw ToolError(ExitUsage, "--layout: recording needs a value of type f32 or f64");
    }

    ExitCode Run() {
        qv_catch_stop_signals();
        m_Start = m_Now = m_LastFlush = m_LastHousekeeping = Now();
        try {
            SampleUntilStopped();
        } catch (const ToolError&) {
            Flush();
            throw;
        }
        Flush();
        KeepHouse();
        if (qv_is_terminal(2))
            RewriteTerminalLine("");
        PrintResult();
        const std::string errors = m_Folder.GetErrorSummary();
        if (errors.empty())
            return ExitDone;
        SayError("not everything could be recorded: " + errors);
        return ExitInputOutput;
    }

private:
    static long long Now() {
        CQVTimestamp now;
        now.SetUTC();
        return now.GetValue();
    }

    void SampleUntilStopped() {
        const long long end = m_For != 0 ? m_Start + m_For : std::numeric_limits<long long>::max();
        for (long long next = m_Start; WaitUntil(std::min(next, end)) && m_Now < end;
             next = GetNextTime(next)) {
            TakeSample();
            if (m_Now < m_LastFlush || m_Now - m_LastFlush >= FlushPeriod)
                Flush();
            if (m_Now < m_LastHousekeeping || m_Now - m_LastHousekeeping >= HousekeepingPeriod)
                KeepHouse();
            ShowLiveLine();
        }
    }

    // Samples stay on their grid; those that were missed are left out, and a clock that was set back starts a
    // new grid.
    long long GetNextTime(long long time) const {
        const long long next = time + m_Every;
        if (next <= m_Now)
            return next + ((m_Now - next) / m_Every + 1) * m_Every;
        return std::min(next, m_Now + m_Every);
    }

    // False when the recording should stop.
    bool WaitUntil(long long time) {
        const bool bGoOn = !qv_stop_requested() && qv_sleep_until(CQVTimestamp(time));
        m_Now = Now();
        return bGoOn;
    }

    void TakeSample() {
        m_Sampler.Sample(CQVTimestamp(m_Now), m_Readings);
        NumberNewTags();
        // Nobody samples a machine more finely, and shorter times read better.
        CQVTimestamp time(m_Now);
        time.RoundDown(CQVTimeInterval(CQVTimeInterval::UnitsPerMillisecond));
        m_Time.SetUnsigned(static_cast<unsigned long long>(time.GetValue()), m_Record.data());
        for (const MachineSampler::Reading& reading : m_Readings) {
            m_Tag.SetUnsigned(m_TagNumbers[reading.m_Tag], m_Record.data());
            m_Value.SetReal(reading.m_Value, m_Record.data());
            m_Folder.GetTable().WriteNewRecord(time.GetValue(), m_Record.data());
        }
        m_Sampled += m_Readings.size();
    }

    // Names reach tags.txt before any record that uses their numbers can reach a file.
    void NumberNewTags() {
        const std::vector<MachineSampler::Tag>& tags = m_Sampler.GetTags();
        if (m_TagNumbers.size() == tags.size())
            return;
        for (std::size_t index = m_TagNumbers.size(); index < tags.size(); ++index) {
            m_TagNumbers.push_back(m_Folder.GetOrAddTag(tags[index].m_Name, tags[index].m_Unit));
            if (!m_Tag.SetUnsigned(m_TagNumbers.back(), m_Record.data()))
                throw ToolError(ExitInputOutput, "the layout's tag field cannot hold the number " +
                                                     std::to_string(m_TagNumbers.back()) + " of " +
                                                     tags[index].m_Name + "; use tag:u32");
        }
        m_Folder.GetTags().Save();
    }

    void Flush() {
        m_Written += m_Folder.GetTable().FlushRecords(&m_Log);
        m_LastFlush = m_Now;
    }

    void KeepHouse() {
        m_Folder.GetTable().HouseKeepFiles(&m_Log, m_Keep, m_MaxFile);
        m_LastHousekeeping = m_Now;
    }

    double SecondsRecorded() const {
        return static_cast<double>(m_Now - m_Start) / static_cast<double>(CQVTimeInterval::UnitsPerSecond);
    }

    void ShowLiveLine() {
        if (!qv_is_terminal(2))
            return;
        // Of the first second no rate can be told.
        const double seconds = std::max(1.0, SecondsRecorded());
        const auto rate = static_cast<unsigned long long>(static_cast<double>(m_Sampled) / seconds);
        std::string line = "Recording " + std::to_string(m_TagNumbers.size()) +
                           " tags: " + WithSeparators(m_Sampled) + " records, " + WithSeparators(rate) +
                           "/s, " + CountText(m_Folder.GetFileCount(), "file");
        const std::string errors = m_Folder.GetErrorSummary();
        line += errors.empty() ? "; Ctrl+C stops" : "; " + errors;
        RewriteTerminalLine(line);
    }

    void PrintResult() {
        TableWriter writer(m_Format, {{"records", Column::Number},
                                      {"tags", Column::Number},
                                      {"seconds", Column::Number},
                                      {"lost", Column::Number},
                                      {"files", Column::Number}});
        writer.AddUnsigned(m_Written);
        writer.AddUnsigned(m_TagNumbers.size());
        writer.AddReal(std::round(SecondsRecorded() * 1000) / 1000);
        writer.AddUnsigned(m_Sampled - m_Written);
        writer.AddUnsigned(m_Folder.GetFileCount());
        writer.EndRow();
        writer.Finish();
    }

    const OutputFormat m_Format;
    const long long m_Every;
    const long long m_For; // 0: until told to stop
    HistoryFolder m_Folder;
    const unsigned int m_Keep;
    const unsigned int m_MaxFile; // bytes
    const SampleField& m_Time;
    const SampleField& m_Tag;
    const SampleField& m_Value;
    std::vector<unsigned char> m_Record;
    LogAroundLiveLine m_Log;
    MachineSampler m_Sampler;
    std::vector<MachineSampler::Reading> m_Readings;
    std::vector<unsigned long long> m_TagNumbers; // by the sampler's index
    long long m_Start = 0;
    long long m_Now = 0;
    long long m_LastFlush = 0;
    long long m_LastHousekeeping = 0;
    unsigned long long m_Sampled = 0; // records handed to the table
    unsigned long long m_Written = 0; // of them, in files
};

} // namespace

void AddHistoryRecordCommand(CLI::App& history, ToolContext& context) {
    CLI::App* const command =
        history.add_subcommand("record", "Sample this machine into a table until Ctrl+C");
    const auto options = std::make_shared<RecordOptions>();
    options->m_Folder.AddTo(*command);
    command->add_option("--every", options->m_Every, "time between samples (default 200ms)");
    command->add_option("--for", options->m_For, "stop after this time (10s); default: when told to");
    command->add_option("--keep", options->m_Keep, "records to keep; older files go (default 10000000)")
        ->check(CLI::NonNegativeNumber);
    command->add_option("--max-file", options->m_MaxFile, "size from which files are split (default 64M)");
    command->callback([options, &context] { context.m_ExitCode = Recorder(*options, context).Run(); });
}
