#include "ReplicationReceiver.h"

#include "Tool.h"

#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVPlatform/TextOutput.h>
#include <algorithm>
#include <cerrno>
#include <vector>

namespace {

constexpr std::chrono::milliseconds TimeBetweenLooks(200); // at the live line and at deadlines
constexpr std::chrono::milliseconds PauseWithoutSockets(200);

} // namespace

ReplicationReceiver::ReplicationReceiver(CHistoricTable& table, const HistoricTableErrorSummary& errors,
                                         const ReplicationSettings& settings, ReplicationSignals& signals,
                                         LiveLine& log)
    : m_Table(table), m_Errors(errors), m_Settings(settings), m_Signals(signals), m_Log(log),
      m_Connection(settings, signals) {}

std::string ReplicationReceiver::Listen() {
    std::vector<QVSocketAddress> candidates;
    qvstring problem;
    QVSocketAddress::Resolve(m_Settings.m_Address, true, candidates, problem);
    for (const QVSocketAddress& candidate : candidates) {
        QVSocketAddress address;
        if (m_Listener.Listen(candidate) && m_Listener.GetSocketName(address))
            return address.ToText();
        problem = ErrorText(m_Listener.GetLastError());
        if (m_Listener.GetLastError() == EADDRINUSE)
            problem += "; another program listens there, or a file that is no socket has the name";
    }
    throw ToolError(ExitInputOutput, "cannot listen on " + Quoted(m_Settings.m_Address) + ": " + problem);
}

void ReplicationReceiver::Run() {
    try {
        RunUntilStopped();
    } catch (const ReplicationStopped&) {
        m_Connection.Close();
    }
}

void ReplicationReceiver::RunUntilStopped() {
    for (;;) {
        // The listener first: were the connection looked at before it, a main that restarted between the two
        // looks would seem to be a second one.
        QVSocketInterest interests[] = {{&m_Listener.GetSocket(), QVSocket::Readable},
                                        {&m_Connection.GetSocket(), QVSocket::Readable}};
        const std::size_t count = m_Connection.IsOpen() ? 2 : 1;
        const QVWaitResult result =
            qv_wait_for_sockets({interests, count}, MillisecondsUntil(GetNextTime()), m_Signals.GetEvent());
        if (result == QVWaitResult::Woken)
            m_Signals.TakeNudge();
        else if (interests[1].m_Ready != 0)
            TakeRequest();
        else if (interests[0].m_Ready != 0)
            Accept();
        CheckTime();
        if (m_Log.IsDue())
            ShowLiveLine();
    }
}

ReplicationReceiver::Clock::time_point ReplicationReceiver::GetNextTime() const {
    return Clock::now() +
           (m_Deadline || m_AskAgain || m_Log.IsWatched() ? TimeBetweenLooks : std::chrono::minutes(1));
}

void ReplicationReceiver::Accept() {
    QVSocket refused;
    QVSocketAddress peer;
    const bool bBusy = m_Connection.IsOpen() && Clock::now() < m_LastHeard + m_Settings.m_SilenceOfTheDead;
    QVSocket& target = bBusy ? refused : m_Connection.GetSocket();
    if (!bBusy && m_Connection.IsOpen())
        Drop("it has been silent, and another main has come");
    if (!m_Listener.AcceptConnection(target, peer)) {
        // Out of descriptors, say: the one that waits stays ready, and must not keep us running in circles.
        if (m_Listener.GetLastError() != EAGAIN)
            qv_wait_for_sockets({}, static_cast<int>(PauseWithoutSockets.count()), m_Signals.GetEvent());
        return;
    }
    if (bBusy) {
        if (!m_bSaidTurnedAway)
            Say(COutputLog::Warning,
                "a second main at " + peer.ToText() + " was turned away while " + m_Main + " is served");
        m_bSaidTurnedAway = true;
        return;
    }
    // The main's end of a socket file has no name.
    m_Main = peer.GetSocketFilePath().empty() && peer.GetPort() == 0 ? m_Settings.m_Address : peer.ToText();
    m_bSaidTurnedAway = false;
    m_LastHeard = Clock::now();
    m_Deadline = m_LastHeard + m_Settings.m_Timeout;
    m_Connection.Begin();
    ++m_Connections;
}

void ReplicationReceiver::TakeRequest() {
    try {
        if (m_Connection.ReceivePart())
            ApplyRequest();
        else if (!m_Deadline && m_Connection.GetReader().HasBegun())
            m_Deadline = Clock::now() + m_Settings.m_Timeout;
    } catch (const ReplicationClosed& closed) {
        Drop(closed.what(), COutputLog::Information);
    } catch (const std::exception& error) {
        Drop(error.what());
    }
}

void ReplicationReceiver::ApplyRequest() {
    m_LastHeard = Clock::now();
    m_Deadline.reset();
    const std::span<const unsigned char> request = m_Connection.GetReader().GetMessage();
    BinaryInputFromReadOnlyData in(BinaryStringLengthUTF8Character, request.data(),
                                   static_cast<unsigned int>(request.size()));
    unsigned int added = 0;
    const bool bApplied = m_Table.StandbyProcessRequest(&m_Log, 0, in, m_Connection.BeginFrame(), added);
    m_Records += added;
    ++m_Requests;
    NoteTroubleWithFiles();
    if (!bApplied || !in.IsEOF())
        throw ReplicationError("it sent a request that cannot be");
    m_Connection.GetReader().Clear();
    m_Connection.SendFrame();
}

// The summary only ever grows, so another text means that something was not stored, or not erased.
void ReplicationReceiver::NoteTroubleWithFiles() {
    if (!m_Errors.HasError())
        return;
    CTextOutputString text;
    m_Errors.GetHistoricTableErrorSummary(text);
    if (text.GetString() == m_KnownErrors)
        return;
    m_KnownErrors = text.GetString();
    if (!m_AskAgain)
        m_AskAgain = Clock::now() + m_Settings.m_TimeBeforeAskingAgain;
}

void ReplicationReceiver::CheckTime() {
    const Clock::time_point now = Clock::now();
    if (m_Connection.IsOpen() && m_Deadline && now >= *m_Deadline)
        Drop("no whole request came for " + std::to_string(m_Settings.m_Timeout.count()) + " ms");
    if (!m_AskAgain || now < *m_AskAgain)
        return;
    m_AskAgain.reset();
    if (m_Connection.IsOpen())
        Drop("it is to send again what could not be stored");
}

void ReplicationReceiver::Drop(const std::string& reason, COutputLog::LogType type) {
    m_Connection.Close();
    m_Deadline.reset();
    Say(type, "the connection of the main at " + m_Main + " ended: " + reason);
}

void ReplicationReceiver::Say(COutputLog::LogType type, const std::string& text) {
    m_Log.AppendMessage(type, 0, text.data(), static_cast<unsigned int>(text.size()));
}

void ReplicationReceiver::ShowLiveLine() {
    m_Log.Show((m_Connection.IsOpen() ? "Serving " + m_Main : "Waiting for the main") + ": " +
               CountText(m_Records, "record") + " in " + CountText(m_Requests, "request") + "; Ctrl+C stops");
}
