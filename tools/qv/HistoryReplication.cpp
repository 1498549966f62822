// qv history standby and replicate: a table's copy on another machine.

#include "Help.h"
#include "History.h"
#include "HistoryFolder.h"
#include "LiveLine.h"
#include "Output.h"
#include "ReplicationReceiver.h"
#include "ReplicationSender.h"

#include <CLI/CLI.hpp>
#include <QVPlatform/Process.h>
#include <memory>

namespace {

constexpr const char* TrustNote =
    "The connection is plain: nothing is encrypted, and nobody proves who they are.\n"
    "Use it on one machine, or on a wire that only trusted machines are on.";

struct StandbyOptions {
    FolderOptions m_Folder;
    ReplicationOptions m_Link;
    bool m_bQuiet = false;
};

ExitCode EndWithFileErrors(const HistoryFolder& folder, const char* what) {
    const std::string errors = folder.GetErrorSummary();
    if (errors.empty())
        return ExitDone;
    SayError(what + errors);
    return ExitInputOutput;
}

ExitCode Standby(const StandbyOptions& options, OutputFormat format) {
    const ReplicationSettings settings(options.m_Link, "--listen");
    HistoryFolder folder(options.m_Folder, HistoryFolder::Create);
    qv_catch_stop_signals();
    ReplicationSignals signals(QVWakeEvent::OrStopSignals);
    LiveLine log(options.m_bQuiet ? LiveLine::NoInformation : LiveLine::Everything);
    ReplicationReceiver receiver(folder.GetTable(), folder.GetErrors(), settings, signals, log);
    // Said also when quiet: the port may have been the system's choice.
    MessageLog().Print("the standby of table '%s' in '%s' listens on %s", settings.m_Table.c_str(),
                       folder.GetPath().c_str(), receiver.Listen().c_str());
    receiver.Run();
    log.Remove();

    TableWriter writer(format, {{"received", Column::Number},
                                {"requests", Column::Number},
                                {"connections", Column::Number},
                                {"records", Column::Number},
                                {"files", Column::Number}});
    writer.AddUnsigned(receiver.GetRecords());
    writer.AddUnsigned(receiver.GetRequests());
    writer.AddUnsigned(receiver.GetConnections());
    writer.AddUnsigned(folder.GetRecordCount());
    writer.AddUnsigned(folder.GetFileCount());
    writer.EndRow();
    writer.Finish();
    return EndWithFileErrors(folder, "not everything could be stored: ");
}

struct ReplicateOptions {
    FolderOptions m_Folder;
    ReplicationOptions m_Link;
    bool m_bOnce = false;
    bool m_bQuiet = false;
};

void PrintTransfer(const ReplicationSender& sender, const HistoryFolder& folder, OutputFormat format) {
    TableWriter writer(
        format, {{"records", Column::Number}, {"left", Column::Number}, {"bytes_sent", Column::Number}});
    writer.AddUnsigned(folder.GetRecordCount());
    writer.AddUnsigned(sender.GetLag().m_Records);
    writer.AddUnsigned(sender.GetBytesSent());
    writer.EndRow();
    writer.Finish();
}

ExitCode Replicate(const ReplicateOptions& options, OutputFormat format) {
    const ReplicationSettings settings(options.m_Link, "--to");
    HistoryFolder folder(options.m_Folder, HistoryFolder::Change);
    qv_catch_stop_signals();
    ReplicationSignals signals(QVWakeEvent::OrStopSignals);
    LiveLine log(options.m_bQuiet ? LiveLine::NoInformation : LiveLine::Everything);
    folder.GetTable().FlushRecords(&log);
    const ReplicationSender* shown = nullptr;
    ReplicationSender sender(folder.GetTable(), settings, signals, log, [&] {
        if (log.IsDue())
            log.Show(shown->GetStatusText() + "; Ctrl+C stops");
    });
    shown = &sender;
    const ReplicationSender::Outcome outcome = sender.Run(options.m_bOnce);
    log.Remove();
    PrintTransfer(sender, folder, format);
    switch (outcome) {
    case ReplicationSender::Outcome::Complete:
        return ExitDone;
    case ReplicationSender::Outcome::Stopped:
        if (options.m_bOnce)
            throw ToolError(ExitInputOutput, "stopped before everything was transferred");
        return ExitDone;
    case ReplicationSender::Outcome::Unreachable:
        throw ToolError(ExitInputOutput,
                        "the standby at " + Quoted(settings.m_Address) +
                            " took nothing; see that 'qv history standby' runs there, and what it says");
    case ReplicationSender::Outcome::Unreadable:
        throw ToolError(ExitInputOutput, "part of the table cannot be read and was not transferred; "
                                         "'qv history validate' names the files");
    }
    return ExitInputOutput;
}

} // namespace

void AddHistoryReplicationCommands(CLI::App& history, ToolContext& context) {
    CLI::App* const standby =
        history.add_subcommand("standby", "Hold a copy of the table of a main that connects");
    const auto standbyOptions = std::make_shared<StandbyOptions>();
    standbyOptions->m_Folder.AddTo(*standby);
    standby->add_option("--listen", standbyOptions->m_Link.m_Address, "where: unix:PATH, HOST:PORT or :PORT")
        ->required();
    standbyOptions->m_Link.AddTo(*standby);
    standby->add_flag("--quiet", standbyOptions->m_bQuiet, "print only warnings and errors");
    SetExample(*standby, "qv history standby copy --listen unix:standby.sock", TrustNote);
    standby->callback(
        [standbyOptions, &context] { context.m_ExitCode = Standby(*standbyOptions, context.m_Format); });

    CLI::App* const replicate = history.add_subcommand(
        "replicate", "Bring a standby up to date with a table that nobody records into");
    const auto replicateOptions = std::make_shared<ReplicateOptions>();
    replicateOptions->m_Folder.AddTo(*replicate);
    replicate->add_option("--to", replicateOptions->m_Link.m_Address, "the standby: unix:PATH or HOST:PORT")
        ->required();
    replicateOptions->m_Link.AddTo(*replicate);
    replicate->add_flag("--once", replicateOptions->m_bOnce,
                        "end when nothing is left to transfer, or nothing got through for the --timeout");
    replicate->add_flag("--quiet", replicateOptions->m_bQuiet, "print only warnings and errors");
    SetExample(*replicate, "qv history replicate plant --to unix:standby.sock --once",
               std::string(TrustNote) +
                   "\nTo record and replicate at once: qv history record DIR --replicate-to ADDRESS.");
    replicate->callback([replicateOptions, &context] {
        context.m_ExitCode = Replicate(*replicateOptions, context.m_Format);
    });
}
