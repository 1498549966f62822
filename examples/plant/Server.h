// Server - serves the clients of the plant, and as the main also its standby, in one event loop.
//
// As the main it records (Recorder), judges alarms and replicates (Replicator). As a standby it follows its main
// (MainLink), and is in charge of reads while the main is gone: it then takes clients in, and sends them away when the
// main is back.
//
// Hostile clients: who has not logged on within a few seconds is dropped, and of those only so many may wait; who takes
// nothing of what waits for it is dropped; who breaks the rules is dropped. Each gets a line in the log. What a client
// can make the server keep in memory is bounded (Session, Authenticator).
#pragma once

#include "Alarms.h"
#include "Authenticator.h"
#include "EventLoop.h"
#include "MainLink.h"
#include "Recorder.h"
#include "Replicator.h"

#include <QVLib/Security/SecuritySettings.h>
#include <QVLib/Tls/OpenSSLContext.h>
#include <QVPlatform/FilePath.h>
#include <map>

struct ServerOptions {
    CQVFilePath m_ConfigurationFolder;
    CQVFilePath m_DataFolder;
    std::string m_Name = "main";
    std::string m_Listen = "127.0.0.1:0";
    std::string m_Main; // its address; empty for the main itself
    bool m_bTestUsers = false;
    std::string m_PamService = "qvlib";
    Recorder::Settings m_Recorder;
};

class Server {
public:
    // Reads what is configured, makes the certificates that are missing, opens the store and listens. Throws
    // std::runtime_error when something of it fails.
    Server(const ServerOptions& options, COutputLog& log);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // HOST:PORT, with the port known.
    qvstring GetAddress();
    // Until qv_stop_requested().
    void Run();

private:
    using Clock = Session::Clock;

    void SetUpCertificates();
    void Listen();
    bool IsStandby() const { return m_pMainLink != nullptr; }

    void Finish();
    void Tick();
    void CheckSessions();
    void CheckRights();
    void CheckCharge();
    void UpdateMainLink();

    void Accept();
    void Watch(Session& session);
    void HandleEvents(Session& session);
    void Guard(Session& session, const std::function<void()>& action);
    void Drop(Session& session, COutputLog::LogType type, const std::string& reason);
    void SayFarewell(Session& session, const char* reason);
    void RemoveDropped();

    void HandleFrame(Session& session, std::span<const unsigned char> frame);
    void HandleLogon(Session& session, FrameInput& in);
    void AcceptStandby(Session& session);
    void TakeAnswers();
    void AcceptClient(Session& session, Authenticator::Answer& answer);
    void RefuseLogon(Session& session, LogonResult result, const qvstring& text);
    void HandleRead(Session& session, FrameInput& in);
    void HandleFollow(Session& session, FrameInput& in);
    void HandleAcknowledge(Session& session, FrameInput& in);
    void Refuse(Session& session, unsigned char type, unsigned int number, const qvstring& text);

    void SendRecords(Session& session);
    void TakePublished();
    void SendAlarm(Session& session, const Alarm& alarm);
    void SendAlarmToAll(const Alarm& alarm);

    const ServerOptions m_Options;
    COutputLog& m_Log;
    const Configuration m_Configuration;
    CSecuritySettings m_Rights;
    Store m_Store;
    Alarms m_Alarms;
    OpenSSLContext m_ServerContext{true};
    OpenSSLContext m_ClientContext{false};
    EventLoop m_Loop;
    QVSocketListener m_Listener;
    std::map<unsigned int, std::unique_ptr<Session>> m_Sessions; // by number
    std::vector<unsigned int> m_Dropped;                         // removed when no event of theirs is left
    unsigned int m_LastSession = 0;
    Replicator m_Replicator;
    std::unique_ptr<MainLink> m_pMainLink; // of a standby
    int m_WatchedLink = -1;                // its socket
    bool m_bInCharge = false;
    Clock::time_point m_NextAccept;
    Clock::time_point m_NextAlive;
    Clock::time_point m_NextRightsCheck;
    bool m_bSaidRightsProblem = false;
    // Last, so that their threads end first.
    std::unique_ptr<Authenticator> m_pAuthenticator;
    std::unique_ptr<Recorder> m_pRecorder; // of the main
};
