// qv history record: samples this machine into a table until it is told to stop.

#include "Help.h"
#include "History.h"
#include "HistoryFolder.h"
#include "LiveLine.h"
#include "MachineSampler.h"
#include "Output.h"
#include "ReplicationSender.h"
#include "TimeText.h"

#include <CLI/CLI.hpp>
#include <QVPlatform/Process.h>
#include <QVPlatform/Timestamp.h>
#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <optional>

namespace {

constexpr long long FlushesPerHousekeeping = 10;
// What is left for the standby at the end may delay it so long.
constexpr std::chrono::seconds PatienceAtEnd(5);

struct RecordOptions {
    FolderOptions m_Folder;
    std::string m_Every = "200ms";
    std::string m_For;
    unsigned int m_Keep = 10'000'000;
    std::string m_MaxFile = "64M";
    std::string m_FlushEvery = "1s";
    ReplicationOptions m_Standby; // without an address: none
};

class Recorder {
public:
    Recorder(const RecordOptions& options, const ToolContext& context)
        : m_Format(context.m_Format), m_StandbySettings(GetStandbySettings(options)),
          m_Every(ParseDurationOption("--every", options.m_Every)),
          m_For(options.m_For.empty() ? 0 : ParseDurationOption("--for", options.m_For)),
          m_FlushEvery(ParseDurationOption("--flush-every", options.m_FlushEvery)),
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
        if (m_StandbySettings)
            m_Standby.emplace(m_Folder.GetTable(), *m_StandbySettings, m_Log);
        m_Start = m_Now = m_LastFlush = m_LastHousekeeping = Now();
        try {
            SampleUntilStopped();
        } catch (const ToolError&) {
            Flush();
            throw;
        }
        Flush();
        KeepHouse();
        if (m_Standby)
            m_Standby->Finish(PatienceAtEnd);
        m_Log.Remove();
        PrintResult();
        const std::string errors = m_Folder.GetErrorSummary();
        if (errors.empty())
            return ExitDone;
        SayError("not everything could be recorded: " + errors);
        return ExitInputOutput;
    }

private:
    static std::optional<ReplicationSettings> GetStandbySettings(const RecordOptions& options) {
        if (options.m_Standby.m_Address.empty())
            return std::nullopt;
        return ReplicationSettings(options.m_Standby, "--replicate-to");
    }

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
            if (m_Now < m_LastFlush || m_Now - m_LastFlush >= m_FlushEvery)
                Flush();
            if (m_Now < m_LastHousekeeping ||
                (m_Now - m_LastHousekeeping) / FlushesPerHousekeeping >= m_FlushEvery)
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
        if (m_Standby)
            m_Standby->NoteNewRecords();
    }

    void KeepHouse() {
        const unsigned int begun = m_Standby ? m_Standby->GetSender().BeginHousekeeping() : 0;
        m_Folder.GetTable().HouseKeepFiles(&m_Log, m_Keep, m_MaxFile);
        if (m_Standby)
            m_Standby->GetSender().EndHousekeeping(begun);
        m_LastHousekeeping = m_Now;
    }

    double SecondsRecorded() const {
        return static_cast<double>(m_Now - m_Start) / static_cast<double>(CQVTimeInterval::UnitsPerSecond);
    }

    void ShowLiveLine() {
        if (!m_Log.IsDue())
            return;
        // Of the first second no rate can be told.
        const double seconds = std::max(1.0, SecondsRecorded());
        const auto rate = static_cast<unsigned long long>(static_cast<double>(m_Sampled) / seconds);
        std::string line = "Recording " + std::to_string(m_TagNumbers.size()) +
                           " tags: " + WithSeparators(m_Sampled) + " records, " + WithSeparators(rate) +
                           "/s, " + CountText(m_Folder.GetFileCount(), "file");
        const std::string errors = m_Folder.GetErrorSummary();
        line += errors.empty() ? "; Ctrl+C stops" : "; " + errors;
        m_Log.Show(m_Standby ? line + "; " + m_Standby->GetSender().GetStatusText() : line);
    }

    void PrintResult() {
        std::vector<Column> columns = {{"records", Column::Number},
                                       {"tags", Column::Number},
                                       {"seconds", Column::Number},
                                       {"lost", Column::Number},
                                       {"files", Column::Number}};
        if (m_Standby)
            columns.push_back({"left", Column::Number}); // not on the standby
        TableWriter writer(m_Format, std::move(columns));
        writer.AddUnsigned(m_Written);
        writer.AddUnsigned(m_TagNumbers.size());
        writer.AddReal(std::round(SecondsRecorded() * 1000) / 1000);
        writer.AddUnsigned(m_Sampled - m_Written);
        writer.AddUnsigned(m_Folder.GetFileCount());
        if (m_Standby)
            writer.AddUnsigned(m_Standby->GetSender().GetLag().m_Records);
        writer.EndRow();
        writer.Finish();
    }

    const OutputFormat m_Format;
    const std::optional<ReplicationSettings> m_StandbySettings;
    const long long m_Every;
    const long long m_For; // 0: until told to stop
    const long long m_FlushEvery;
    HistoryFolder m_Folder;
    const unsigned int m_Keep;
    const unsigned int m_MaxFile; // bytes
    const SampleField& m_Time;
    const SampleField& m_Tag;
    const SampleField& m_Value;
    std::vector<unsigned char> m_Record;
    LiveLine m_Log;
    MachineSampler m_Sampler;
    std::vector<MachineSampler::Reading> m_Readings;
    std::vector<unsigned long long> m_TagNumbers; // by the sampler's index
    long long m_Start = 0;
    long long m_Now = 0;
    long long m_LastFlush = 0;
    long long m_LastHousekeeping = 0;
    unsigned long long m_Sampled = 0;           // records handed to the table
    unsigned long long m_Written = 0;           // of them, in files
    std::optional<ReplicationThread> m_Standby; // declared last: it ends before what it works on
};

} // namespace

void AddHistoryRecordCommand(CLI::App& history, ToolContext& context) {
    CLI::App* const command =
        history.add_subcommand("record", "Sample this machine into a table until Ctrl+C");
    const auto options = std::make_shared<RecordOptions>();
    options->m_Folder.AddTo(*command);
    command->add_option("--every", options->m_Every, "time between samples (default: 200ms)");
    command->add_option("--for", options->m_For, "stop after this time, such as 10s (default: when told to)");
    command->add_option("--keep", options->m_Keep, "records to keep; older files go (default: 10000000)")
        ->check(CLI::NonNegativeNumber);
    command->add_option("--max-file", options->m_MaxFile, "size from which files are split (default: 64M)");
    command->add_option("--flush-every", options->m_FlushEvery,
                        "time between writes to the files, at every tenth with housekeeping (default: 1s)");
    command->add_option("--replicate-to", options->m_Standby.m_Address,
                        "keep the standby at this address up to date: unix:PATH or HOST:PORT; a plain "
                        "connection, for one machine or a trusted wire");
    options->m_Standby.AddTo(*command);
    SetExample(*command, "qv history record plant --every 200ms --for 1s");
    command->callback([options, &context] { context.m_ExitCode = Recorder(*options, context).Run(); });
}
