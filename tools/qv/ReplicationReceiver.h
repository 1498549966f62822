// ReplicationReceiver - takes what the main of a table sends and answers it: the standby's side.
//
// One main is served at a time. Another one that connects is turned away, unless the first has said nothing
// for ten seconds: then it is taken for dead. A connection that breaks a rule is dropped, and the next one is
// waited for. Records that could not be stored, on a full disk say, are asked for again after a minute, by
// ending the connection: the main then compares what the two sides hold, and sends the difference.
// Threads:  one.
#pragma once

#include "LiveLine.h"
#include "ReplicationLink.h"

#include <QVLib/HistoricTables/HistoricTable.h>
#include <optional>
#include <string>

class ReplicationReceiver {
public:
    using Clock = ReplicationSettings::Clock;

    // Everything is borrowed; `errors` is the table's.
    ReplicationReceiver(CHistoricTable& table, const HistoricTableErrorSummary& errors,
                        const ReplicationSettings& settings, ReplicationSignals& signals, LiveLine& log);

    // Returns the address, with the port known. Throws a ToolError when nobody can be listened to there.
    std::string Listen();
    // Serves mains until told to end.
    void Run();

    unsigned long long GetRecords() const { return m_Records; }
    unsigned long long GetRequests() const { return m_Requests; }
    unsigned long long GetConnections() const { return m_Connections; }

private:
    void RunUntilStopped();
    void Accept();
    void TakeRequest();
    void ApplyRequest();
    void NoteTroubleWithFiles();
    void CheckTime();
    Clock::time_point GetNextTime() const;
    void Drop(const std::string& reason, COutputLog::LogType type = COutputLog::Warning);
    void Say(COutputLog::LogType type, const std::string& text);
    void ShowLiveLine();

    CHistoricTable& m_Table;
    const HistoricTableErrorSummary& m_Errors;
    const ReplicationSettings& m_Settings;
    ReplicationSignals& m_Signals;
    LiveLine& m_Log;
    QVSocketListener m_Listener;
    ReplicationConnection m_Connection;
    std::string m_Main;                          // who is connected
    Clock::time_point m_LastHeard;               // a whole request, or the connection itself
    std::optional<Clock::time_point> m_Deadline; // for a request to be complete
    std::optional<Clock::time_point> m_AskAgain; // for what could not be stored
    bool m_bSaidTurnedAway = false;
    std::string m_KnownErrors;
    unsigned long long m_Records = 0;
    unsigned long long m_Requests = 0;
    unsigned long long m_Connections = 0;
};
