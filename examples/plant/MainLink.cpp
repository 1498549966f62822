#include "MainLink.h"

#include <QVPlatform/OutputLog.h>
#include <QVPlatform/SecureMemory.h>

using Clock = std::chrono::steady_clock;

namespace {

constexpr std::chrono::milliseconds PauseBetweenTries(500);
constexpr std::chrono::seconds PauseAfterTrouble(5);
constexpr std::chrono::seconds Patience(5); // the main says every second that it is alive
constexpr unsigned short Channel = 0;

// Passes on what went wrong, and not that ten times a second something went well.
class TroubleLog : public COutputLog {
public:
    explicit TroubleLog(COutputLog& log) : m_Log(log) {}
    void Clear() override {}
    bool AppendMessage(LogType type, int number, const char* text, unsigned int length) override {
        return type == Information || m_Log.AppendMessage(type, number, text, length);
    }

private:
    COutputLog& m_Log;
};

} // namespace

void MainLink::Tick() {
    if (IsActive() && Clock::now() > m_LastHeard + Patience) {
        Disconnect();
        OnEnded("the main is silent");
    }
    if (IsActive() || Clock::now() < m_NextTry)
        return;
    m_NextTry = Clock::now() + PauseBetweenTries;
    m_LastHeard = Clock::now();
    std::string problem;
    if (!Connect(m_Address, problem))
        SayProblem(problem);
}

Clock::duration MainLink::GetTimeWithoutMain() const {
    return m_bAccepted ? Clock::duration(0) : Clock::now() - m_LastSeen;
}

void MainLink::OnConnected() {
    Message logon(MessageLogon);
    logon << WireVersion << static_cast<unsigned char>(RoleStandby) << "" << CQVSecureWString();
    Send(logon);
}

void MainLink::OnMessage(unsigned char type, FrameInput& in) {
    m_LastHeard = Clock::now();
    if (type == MessageLogonReply) {
        unsigned char result = LogonRefused;
        qvstring text;
        in >> result;
        in.ReadWString(MaxNameLength, text);
        if (result != LogonAccepted)
            throw ProtocolError("this standby was refused: " + text);
        m_bAccepted = true;
        m_SaidProblem.clear();
        m_Log.Print("The main at %s is there", m_Address.c_str());
    } else if (type == MessageStandbyRequest && m_bAccepted) {
        ApplyRequest(in);
    } else if (type == MessageFarewell) {
        throw ProtocolError("the main says farewell");
    } else if (type != MessageAlive) {
        throw ProtocolError("a message of type " + std::to_string(type));
    }
    in.ExpectEnd();
}

void MainLink::ApplyRequest(FrameInput& in) {
    Message reply(MessageStandbyReply);
    TroubleLog log(m_Log);
    unsigned int added = 0;
    const qvstring errors = m_Store.GetErrorText();
    {
        const Store::Change change(m_Store); // it may delete and split files
        if (!m_Store.GetTable().StandbyProcessRequest(&log, Channel, in, reply, added))
            throw ProtocolError("a request that cannot be applied");
    }
    // Without a reply, and connected anew, the main finds out what is missing here.
    if (m_Store.GetErrorText() != errors) {
        m_NextTry = Clock::now() + PauseAfterTrouble;
        throw ProtocolError("the records cannot be written");
    }
    Send(reply);
}

void MainLink::OnEnded(const std::string& reason) {
    if (m_bAccepted)
        m_LastSeen = Clock::now();
    m_bAccepted = false;
    SayProblem(reason);
}

void MainLink::SayProblem(const std::string& problem) {
    if (problem != m_SaidProblem)
        m_Log.Print("No main at %s: %s", m_Address.c_str(), problem.c_str());
    m_SaidProblem = problem;
}
