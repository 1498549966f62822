#include "ReplicationSender.h"

#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVPlatform/Timestamp.h>
#include <algorithm>
#include <cstdio>
#include <optional>
#include <vector>

namespace {

using std::chrono::milliseconds;

constexpr milliseconds FirstPause(100);
constexpr milliseconds LongestPause(5000);
constexpr milliseconds RateTime(1000);
constexpr milliseconds TimeBetweenLooks(200); // at the live line
constexpr milliseconds PauseWhenUnreadable(5000);
// An update without deletions, splits and records.
constexpr unsigned int EmptyUpdateLength = 21;

// The time of a record; none when it is not there (any more).
std::optional<long long> GetRecordTime(const CHistoricTable& table, const CHistoricTable::HistoricFile& file,
                                       unsigned int index) {
    char name[CHistoricTable::FileNameBufferSize];
    const int length = file.GetFileName(name);
    CHistoricTable::ReadContext context;
    std::optional<long long> time;
    table.LockRead();
    if (table.BeginReadRecord(name, static_cast<unsigned int>(length), index, context))
        time = qv_record_timestamp(context.m_pRecord);
    table.EndRead(context);
    table.UnLockRead();
    return time;
}

} // namespace

// Counts an exchange as begun and, at the end of the scope, as ended.
class ReplicationSender::AwaitedReply {
public:
    explicit AwaitedReply(ReplicationSender& sender) : m_Sender(sender) { ++m_Sender.m_Exchanges; }
    ~AwaitedReply() { ++m_Sender.m_Exchanges; }
    AwaitedReply(const AwaitedReply&) = delete;
    AwaitedReply& operator=(const AwaitedReply&) = delete;

private:
    ReplicationSender& m_Sender;
};

ReplicationSender::ReplicationSender(CHistoricTable& table, const ReplicationSettings& settings,
                                     ReplicationSignals& signals, LiveLine& log, std::function<void()> onIdle)
    : m_Table(table), m_Settings(settings), m_Signals(signals), m_Log(log), m_OnIdle(std::move(onIdle)),
      m_Connection(settings, signals), m_NextPause(FirstPause), m_RateStart(Clock::now()) {}

ReplicationSender::Outcome ReplicationSender::Run(bool bOnce) {
    m_bOnce = bOnce;
    m_LastProgress = Clock::now();
    try {
        for (;;) {
            try {
                m_Connection.Connect();
                NoteConnected();
                Exchange();
                m_Connection.Close();
                return m_bUnreadable ? Outcome::Unreadable : Outcome::Complete;
            } catch (const std::exception& error) {
                m_Connection.Close();
                NoteLost(error.what());
            }
            if (!Pause())
                return Outcome::Unreachable;
        }
    } catch (const ReplicationStopped&) {
        m_Connection.Close();
        return Outcome::Stopped;
    }
}

// Returns when nothing is left and that is the end.
void ReplicationSender::Exchange() {
    m_Table.MainResetTransferState();
    for (;;) {
        while (ExchangeNext() && !m_bUnreadable) {
        }
        if (!m_bUnreadable)
            NoteProgress();
        if (EndsWhenComplete())
            return;
        if (m_bUnreadable && !m_bSaidUnreadable)
            m_Log.PrintError("%s", "part of the table cannot be read and does not reach the standby; "
                                   "'qv history validate' names the files");
        m_bSaidUnreadable = m_bUnreadable;
        WaitForNews(m_bUnreadable ? PauseWhenUnreadable : milliseconds(3'600'000));
    }
}

// One request and its reply; false when nothing is due.
bool ReplicationSender::ExchangeNext() {
    if (m_bAskAgain && !m_Table.MainHasDataToTransfer()) {
        m_bAskAgain = false;
        m_Table.MainResetTransferState();
    }
    const AwaitedReply awaited(*this);
    BinaryOutputBuffer& request = m_Connection.BeginFrame();
    if (!m_Table.MainGetNextStandbyRequest(0, request))
        return m_bUnreadable = false;
    const bool bUpdate = m_Table.GetTransferState() == CHistoricTable::TransferStateActiveTransferIncrement;
    const unsigned int length = m_Connection.GetMessageLength();
    m_Connection.SendFrame();
    const std::span<const unsigned char> reply = m_Connection.ReceiveFrame();
    BinaryInputFromReadOnlyData in(BinaryStringLengthUTF8Character, reply.data(),
                                   static_cast<unsigned int>(reply.size()));
    if (!m_Table.MainProcessStandbyReply(&m_Log, 0, in) || !in.IsEOF())
        throw ReplicationError("the standby's answer makes no sense");
    m_bUnreadable = bUpdate && length <= EmptyUpdateLength;
    if (bUpdate && !m_bUnreadable)
        NoteProgress();
    CountSent(length);
    if (m_OnIdle)
        m_OnIdle();
    return true;
}

// Waits for a nudge, for the end of the connection, or for a time.
void ReplicationSender::WaitForNews(milliseconds time) {
    const Clock::time_point end = Clock::now() + time;
    while (Clock::now() < end) {
        const Clock::time_point next = m_OnIdle ? std::min(end, Clock::now() + TimeBetweenLooks) : end;
        const QVWaitResult result = m_Connection.GetSocket().WaitFor(
            QVSocket::Readable, MillisecondsUntil(next), m_Signals.GetEvent());
        if (result == QVWaitResult::Woken) {
            m_Signals.TakeNudge();
            return;
        }
        if (result != QVWaitResult::TimedOut) {
            m_Connection.ReceiveFrame(); // throws when the standby has gone
            throw ReplicationError("the standby spoke without being asked");
        }
        if (m_OnIdle)
            m_OnIdle();
    }
}

// Waits before the next attempt; false when there should be none.
bool ReplicationSender::Pause() {
    const Clock::time_point end = Clock::now() + m_NextPause;
    m_NextPause = std::min(2 * m_NextPause, LongestPause);
    for (;;) {
        const bool bGiveUp = m_bOnce && Clock::now() >= m_LastProgress + m_Settings.m_Timeout;
        if (m_bFinish || bGiveUp)
            return false;
        if (Clock::now() >= end)
            return true;
        const Clock::time_point next = std::min(end, Clock::now() + TimeBetweenLooks);
        if (qv_wait_for_sockets({}, MillisecondsUntil(next), m_Signals.GetEvent()) == QVWaitResult::Woken)
            m_Signals.TakeNudge();
        if (m_OnIdle)
            m_OnIdle();
    }
}

void ReplicationSender::NoteConnected() {
    m_bUnreadable = m_bSaidUnreadable = false;
    const std::lock_guard lock(m_StatusMutex);
    m_bConnected = true;
    m_RateStart = Clock::now();
    m_RateBytes = 0;
    m_BytesPerSecond = 0;
}

// Said when it is news, and not at every attempt.
void ReplicationSender::NoteLost(const char* reason) {
    {
        const std::lock_guard lock(m_StatusMutex);
        m_bConnected = false;
        if (m_Reason == reason)
            return;
        m_Reason = reason;
    }
    m_bSaidConnected = false;
    const std::string text =
        "the standby at " + m_Settings.m_Address + " is not connected: " + reason + "; trying again";
    m_Log.AppendMessage(COutputLog::Warning, 0, text.data(), static_cast<unsigned int>(text.size()));
}

void ReplicationSender::NoteProgress() {
    m_NextPause = FirstPause;
    m_LastProgress = Clock::now();
    if (m_bSaidConnected)
        return;
    m_bSaidConnected = true;
    {
        const std::lock_guard lock(m_StatusMutex);
        m_Reason.clear();
    }
    m_Log.Print("the standby at %s is connected", m_Settings.m_Address.c_str());
}

void ReplicationSender::CountSent(unsigned int bytes) {
    m_BytesSent += bytes;
    const std::lock_guard lock(m_StatusMutex);
    m_RateBytes += bytes;
    const std::chrono::duration<double> passed = Clock::now() - m_RateStart;
    if (passed < RateTime)
        return;
    m_BytesPerSecond = static_cast<double>(m_RateBytes) / passed.count();
    m_RateBytes = 0;
    m_RateStart = Clock::now();
}

void ReplicationSender::Finish() {
    m_bFinish = true;
    m_Signals.Nudge();
}

void ReplicationSender::EndHousekeeping(unsigned int begun) {
    if (begun % 2 != 0 || m_Exchanges != begun)
        m_bAskAgain = true;
    m_Signals.Nudge();
}

ReplicationLag ReplicationSender::GetLag() const {
    std::vector<CHistoricTable::HistoricFile> files;
    m_Table.GetFiles(files);
    ReplicationLag lag;
    const CHistoricTable::HistoricFile* first = nullptr;
    const CHistoricTable::HistoricFile* last = nullptr;
    for (const CHistoricTable::HistoricFile& file : files) {
        if (file.m_NumRecords != 0)
            last = &file;
        if (file.m_NumRecordsTransferred >= file.m_NumRecords)
            continue;
        lag.m_Records += file.m_NumRecords - file.m_NumRecordsTransferred;
        if (first == nullptr)
            first = &file;
    }
    if (first == nullptr)
        return lag;
    const std::optional<long long> from = GetRecordTime(m_Table, *first, first->m_NumRecordsTransferred);
    const std::optional<long long> to = GetRecordTime(m_Table, *last, last->m_NumRecords - 1);
    if (from && to)
        lag.m_Seconds = std::max(0.0, (static_cast<double>(*to) - static_cast<double>(*from)) /
                                          static_cast<double>(CQVTimeInterval::UnitsPerSecond));
    return lag;
}

std::string ReplicationSender::GetStatusText() const {
    double bytesPerSecond = 0;
    {
        const std::lock_guard lock(m_StatusMutex);
        if (!m_bConnected)
            return m_Reason.empty() ? "standby: connecting" : "standby: not connected (" + m_Reason + ")";
        // An old rate is none.
        if (Clock::now() < m_RateStart + 2 * RateTime)
            bytesPerSecond = m_BytesPerSecond;
    }
    std::string text =
        std::string("standby: ") + CHistoricTable::GetTransferStateText(m_Table.GetTransferState());
    if (!m_Table.IsStandbyTransferActive())
        return text;
    const ReplicationLag lag = GetLag();
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.1f s", lag.m_Seconds);
    const auto rate = static_cast<unsigned long long>(bytesPerSecond / m_Table.GetRecordSize());
    return text + ", " + CountText(lag.m_Records, "record") + " and " + seconds + " behind, " +
           WithSeparators(rate) + " records/s";
}

ReplicationThread::ReplicationThread(CHistoricTable& table, const ReplicationSettings& settings,
                                     LiveLine& log)
    : m_Settings(settings), m_Sender(table, m_Settings, m_Signals, log),
      m_Ended(std::async(std::launch::async, [this] { m_Sender.Run(false); })) {}

ReplicationThread::~ReplicationThread() {
    m_Signals.Stop();
    m_Ended.wait();
}

void ReplicationThread::Finish(milliseconds patience) {
    m_Sender.Finish();
    if (m_Ended.wait_for(patience) == std::future_status::timeout)
        m_Signals.Stop();
    m_Ended.wait();
}
