// ReplicationSender - brings a standby up to date with a table, and keeps it there: the main's side.
//
// It connects, asks the standby what it holds, sends what it lacks, and goes on with what the table gets. A
// connection that is lost is made anew, after a pause that grows from 0.1 to 5 seconds as long as nothing
// gets through; what the two sides may have lost sight of is settled by asking again.
//
// ReplicationThread - the same beside a program that writes the table: never waited for, never in the way.
#pragma once

#include "LiveLine.h"
#include "ReplicationLink.h"

#include <QVLib/HistoricTables/HistoricTable.h>
#include <atomic>
#include <functional>
#include <future>
#include <mutex>
#include <string>

// What the standby still lacks.
struct ReplicationLag {
    unsigned long long m_Records = 0;
    double m_Seconds = 0; // between the first record that it lacks and the last one of the table
};

class ReplicationSender {
public:
    using Clock = ReplicationSettings::Clock;

    enum class Outcome {
        Complete, // nothing is left to transfer
        Stopped,  // told to end
        Unreachable,
        Unreadable, // what is left cannot be read from the table's files
    };

    // Everything is borrowed. `onIdle` is called by the replicating thread several times a second.
    ReplicationSender(CHistoricTable& table, const ReplicationSettings& settings, ReplicationSignals& signals,
                      LiveLine& log, std::function<void()> onIdle = {});

    // Replicates until told to end. With `bOnce`, also until nothing is left, or until nothing has got
    // through for as long as the timeout of the settings.
    Outcome Run(bool bOnce);

    // From any thread.
    //
    // Has Run() end when nothing is left, or when there is no connection.
    void Finish();
    ReplicationLag GetLag() const;
    // One line for people: state, lag and rate.
    std::string GetStatusText() const;
    unsigned long long GetBytesSent() const { return m_BytesSent; }
    // Around housekeeping. What it does while a reply is awaited may go past the standby: it is then asked
    // again what it holds as soon as nothing is left to send.
    unsigned int BeginHousekeeping() const { return m_Exchanges; }
    void EndHousekeeping(unsigned int begun);

private:
    class AwaitedReply;

    void Exchange();
    bool ExchangeNext();
    void WaitForNews(std::chrono::milliseconds time);
    bool Pause();
    void NoteConnected();
    void NoteLost(const char* reason);
    void NoteProgress();
    void CountSent(unsigned int bytes);
    bool EndsWhenComplete() const { return m_bOnce || m_bFinish; }

    CHistoricTable& m_Table;
    const ReplicationSettings& m_Settings;
    ReplicationSignals& m_Signals;
    LiveLine& m_Log;
    const std::function<void()> m_OnIdle;
    ReplicationConnection m_Connection;
    bool m_bOnce = false;
    bool m_bUnreadable = false; // the last update had nothing in it, though something is left
    bool m_bSaidUnreadable = false;
    bool m_bSaidConnected = false;
    std::chrono::milliseconds m_NextPause;
    Clock::time_point m_LastProgress;
    std::atomic<bool> m_bFinish{false};
    std::atomic<bool> m_bAskAgain{false};
    std::atomic<unsigned int> m_Exchanges{0}; // begun and ended; odd while a reply is awaited
    std::atomic<unsigned long long> m_BytesSent{0};

    mutable std::mutex m_StatusMutex; // guards what follows
    bool m_bConnected = false;
    std::string m_Reason; // why not, as last said
    Clock::time_point m_RateStart;
    unsigned long long m_RateBytes = 0; // since then
    double m_BytesPerSecond = 0;
};

class ReplicationThread {
public:
    ReplicationThread(CHistoricTable& table, const ReplicationSettings& settings, LiveLine& log);
    // Ends the thread at once.
    ~ReplicationThread();
    ReplicationThread(const ReplicationThread&) = delete;
    ReplicationThread& operator=(const ReplicationThread&) = delete;

    // Tells that the table has new records in its files.
    void NoteNewRecords() { m_Signals.Nudge(); }
    // Ends the thread; while the standby is connected, it first gets up to `patience` for what is left.
    void Finish(std::chrono::milliseconds patience);
    ReplicationSender& GetSender() { return m_Sender; }

private:
    const ReplicationSettings m_Settings;
    ReplicationSignals m_Signals{QVWakeEvent::SetOnly};
    ReplicationSender m_Sender;
    std::future<void> m_Ended;
};
