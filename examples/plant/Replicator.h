// Replicator - brings the standby up to date and keeps it there: the main's side, one exchange at a time.
#pragma once

#include "Session.h"

class Replicator {
public:
    Replicator(Store& store, COutputLog& log) : m_Store(store), m_Log(log) {}

    // The standby is at the other end of `session`, until End(). What it holds is asked anew.
    void Begin(Session& session);
    void End();
    Session* GetSession() const { return m_pSession; }

    // Sends the next request where one is due.
    void TryExchange();
    // Throws ProtocolError for what is no reply to the last request.
    void TakeReply(FrameInput& in);
    // There is no standby, or nothing is left to tell it.
    bool IsComplete() const;
    // A reply has been awaited for too long.
    bool IsOverdue() const;

private:
    static constexpr unsigned short Channel = 0; // of the only table

    Store& m_Store;
    COutputLog& m_Log;
    Session* m_pSession = nullptr;
    bool m_bAwaiting = false;
    bool m_bSaidComplete = false;
    Session::Clock::time_point m_Asked;
    Session::Clock::time_point m_NextRequest;
};
