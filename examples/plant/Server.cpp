#include "Server.h"

#include <QVLib/Tls/CertificateAndKey.h>
#include <QVPlatform/FileLock.h>
#include <QVPlatform/NetworkInfo.h>
#include <QVPlatform/Process.h>
#include <algorithm>
#include <cerrno>
#include <sys/resource.h>
#include <thread>

namespace {

constexpr std::chrono::milliseconds TickTime(100);
constexpr std::chrono::seconds TimeToMakeCertificates(30);
constexpr std::chrono::seconds TimeToLogOn(10);
constexpr std::chrono::seconds TimeToLeave(2);
constexpr std::chrono::seconds TimeToFinish(5);
constexpr std::chrono::seconds TimeToTake(10); // something of what waits to be sent
constexpr std::chrono::seconds TimeBetweenAlive(1);
constexpr std::chrono::seconds TimeBetweenRightsChecks(2);
constexpr std::chrono::seconds TimeToTakeCharge(2);
constexpr std::chrono::seconds PauseInAccepting(1);
constexpr unsigned int MaxStrangers = 32;
constexpr unsigned int MaxSessions = 128;

// A socket and a file for each session, and enough for the recorder and the rest: no client takes a descriptor that a
// sample needs.
constexpr rlim_t DescriptorsNeeded = 2 * (MaxSessions + 1) + 64;

void ReserveDescriptors() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur >= DescriptorsNeeded)
        return;
    limit.rlim_cur = std::min(DescriptorsNeeded, limit.rlim_max);
    if (limit.rlim_cur < DescriptorsNeeded || setrlimit(RLIMIT_NOFILE, &limit) != 0)
        throw std::runtime_error(std::to_string(DescriptorsNeeded) +
                                 " descriptors are needed, and the system allows " +
                                 std::to_string(limit.rlim_max));
}

// Servers that share a folder start at the same time, and only one of them may make the authority.
void LockCertificates(const CQVFilePath& folder, CQVFileLock& lock) {
    CQVFilePath path = folder;
    path.AppendFileName(".certificates-lock");
    const auto deadline = std::chrono::steady_clock::now() + TimeToMakeCertificates;
    while (!lock.TryLock(path) && lock.IsHeldElsewhere()) {
        if (std::chrono::steady_clock::now() > deadline)
            throw std::runtime_error("another server has been making certificates for too long");
        std::this_thread::sleep_for(TickTime);
    }
}

CQVFilePath Below(const CQVFilePath& folder, const char* name) {
    CQVFilePath path = folder;
    path.AppendFileName(name);
    return path;
}

} // namespace

Server::Server(const ServerOptions& options, COutputLog& log)
    : m_Options(options), m_Log(log), m_Configuration(options.m_ConfigurationFolder, log),
      m_Store(options.m_DataFolder), m_Alarms(m_Configuration.m_Alarms, log), m_Replicator(m_Store, log) {
    ReserveDescriptors();
    m_Rights.InitialiseSecuritySettings(options.m_ConfigurationFolder, true, false, &log);
    SetUpCertificates();
    Listen();
    std::optional<std::map<qvstring, TestUser>> testUsers;
    if (options.m_bTestUsers)
        testUsers = ReadTestUsers(options.m_ConfigurationFolder, log);
    const auto wake = [this] { m_Loop.Wake(); };
    m_pAuthenticator = std::make_unique<Authenticator>(std::move(testUsers), options.m_PamService, wake);
    if (!options.m_Main.empty())
        m_pMainLink = std::make_unique<MainLink>(options.m_Main, m_ClientContext, m_Store, log);
    else
        m_pRecorder = std::make_unique<Recorder>(m_Store, options.m_Recorder, log, wake);
    m_bInCharge = !IsStandby();
}

Server::~Server() {
    m_Replicator.End();
}

// The authority of the plant signs the certificates of its servers. Clients know a server by it, and so does the main its
// standby.
void Server::SetUpCertificates() {
    QVNetworkInfo network = QVNetworkInfo::OfThisMachine();
    network.AddHostName("localhost"); // for plants on one machine
    CertificateAndKeyInFilePath authority("authority", m_Options.m_ConfigurationFolder);
    CertificateAndKeyInFilePath server(m_Options.m_Name.c_str(), m_Options.m_ConfigurationFolder);
    const char* const organization = "Plant";
    CQVFileLock lock; // which fails where nothing can be made anyway
    LockCertificates(m_Options.m_ConfigurationFolder, lock);
    // Where the authority's key is elsewhere, or not for this process, nothing is made: a new authority would be one
    // that nobody trusts.
    const bool bMake = !authority.GetCertificateFile().FileExists() || authority.ReadPrivateKey(&m_Log);
    if (!bMake && (!server.ReadPrivateKey(&m_Log) || !server.ReadCertificate(&m_Log)))
        throw std::runtime_error("the authority's key is needed to make this server's certificate");
    if (bMake && (!authority.InitCertificateAndKey(CertificateAndKey::CertificateIssuer, nullptr,
                                                   organization, "", nullptr, network, &m_Log) ||
                  !server.InitCertificateAndKey(CertificateAndKey::CertificateEndEntity, &authority,
                                                organization, "", nullptr, network, &m_Log)))
        throw std::runtime_error("there is no certificate for this server");
    const CQVFilePath trust = authority.GetCertificateFile();
    for (OpenSSLContext* const context : {&m_ServerContext, &m_ClientContext}) {
        if (!context->SetTrustFile(trust, &m_Log) || !context->SetCertificateAndKey(server, &m_Log))
            throw std::runtime_error("this server's certificate cannot be used");
    }
}

void Server::Listen() {
    std::vector<QVSocketAddress> candidates;
    qvstring problem;
    if (!QVSocketAddress::Resolve(m_Options.m_Listen, true, candidates, problem))
        throw std::runtime_error(m_Options.m_Listen + ": " + problem);
    if (!m_Listener.Listen(candidates.front())) {
        char text[256];
        m_Listener.GetLastErrorString(text, sizeof text);
        throw std::runtime_error("cannot listen on " + m_Options.m_Listen + ": " + text);
    }
    m_Loop.Watch(m_Listener.GetSocket().GetSocketHandle(), true, false, [this](bool, bool) { Accept(); });
}

qvstring Server::GetAddress() {
    QVSocketAddress address;
    return m_Listener.GetSocketName(address) ? address.ToText() : m_Options.m_Listen;
}

void Server::Run() {
    Clock::time_point nextTick;
    while (!qv_stop_requested()) {
        m_Loop.RunOnce(static_cast<int>(TickTime.count()));
        TakeAnswers();
        if (m_pRecorder)
            TakePublished();
        if (Clock::now() >= nextTick) {
            Tick();
            nextTick = Clock::now() + TickTime;
        }
        RemoveDropped();
    }
    Finish();
}

// What has been sampled goes to the disk and, where it answers, to the standby.
void Server::Finish() {
    m_Log.Print("Stopping");
    m_pRecorder.reset();
    const Clock::time_point deadline = Clock::now() + TimeToFinish;
    while (!m_Replicator.IsComplete() && Clock::now() < deadline) {
        Tick();
        m_Loop.RunOnce(10);
        RemoveDropped();
    }
    for (const auto& [number, pSession] : m_Sessions)
        SayFarewell(*pSession, "the server stops");
}

void Server::Tick() {
    if (IsStandby()) {
        m_pMainLink->Tick();
        UpdateMainLink();
        CheckCharge();
    }
    if (Clock::now() >= m_NextAccept)
        m_Loop.Watch(m_Listener.GetSocket().GetSocketHandle(), true, false);
    CheckSessions();
    CheckRights();
    Session* const pStandby = m_Replicator.GetSession();
    if (pStandby == nullptr)
        return;
    Guard(*pStandby, [&] {
        if (m_Replicator.IsOverdue())
            throw ProtocolError("it does not answer");
        if (Clock::now() >= m_NextAlive) {
            Message alive(MessageAlive);
            pStandby->Send(alive);
            m_NextAlive = Clock::now() + TimeBetweenAlive;
        }
        m_Replicator.TryExchange();
        pStandby->Flush();
    });
}

void Server::CheckSessions() {
    for (const auto& [number, pSession] : m_Sessions) {
        Session& session = *pSession;
        const auto time = Clock::now() - session.m_Since;
        if (session.m_State == Session::Stranger && time > TimeToLogOn)
            Drop(session, COutputLog::Warning, "it has not logged on");
        else if (session.m_State == Session::Leaving && (session.GetUnsent() == 0 || time > TimeToLeave))
            m_Dropped.push_back(number);
        else if (session.GetStuckTime() > TimeToTake)
            Drop(session, COutputLog::Warning, "it does not take what it is sent");
    }
}

// Rights that are edited while the server runs hold for those who are connected, too.
void Server::CheckRights() {
    if (Clock::now() < m_NextRightsCheck)
        return;
    m_NextRightsCheck = Clock::now() + TimeBetweenRightsChecks;
    bool bChanged = false;
    COutputLogToRawList log;
    const bool bLoaded = m_Rights.LoadTextFile(
        Below(m_Options.m_ConfigurationFolder, CSecuritySettings::FileName), bChanged, &log);
    const bool bSaid = std::exchange(m_bSaidRightsProblem, !bLoaded);
    for (const COutputLogToRawList::LogEntry& entry : log.GetLogEntries()) {
        if (!bLoaded && !bSaid)
            m_Log.AppendMessage(entry.type, entry.number, entry.text.data(),
                                static_cast<unsigned int>(entry.text.size()));
    }
    if (!bChanged)
        return;
    m_Log.Print("The user rights have changed");
    for (const auto& [number, pSession] : m_Sessions) {
        if (pSession->m_State == Session::Client) {
            pSession->m_Access.Reset();
            m_Rights.GetAccessRightsForUser(pSession->m_pToken.get(), pSession->m_Access);
        }
    }
}

void Server::CheckCharge() {
    if (m_bInCharge && m_pMainLink->IsMainThere()) {
        m_bInCharge = false;
        m_Log.Print("The main is in charge again");
        for (const auto& [number, pSession] : m_Sessions) {
            if (pSession->m_State == Session::Client)
                SayFarewell(*pSession, "the main is back");
        }
    } else if (!m_bInCharge && m_pMainLink->GetTimeWithoutMain() > TimeToTakeCharge) {
        m_bInCharge = true;
        m_Log.Print("In charge: the main is gone");
    }
}

// The link may have another socket after anything that it did.
void Server::UpdateMainLink() {
    if (m_WatchedLink >= 0)
        m_Loop.Forget(m_WatchedLink);
    m_WatchedLink = m_pMainLink->GetSocket().GetSocketHandle();
    if (m_WatchedLink >= 0)
        m_Loop.Watch(m_WatchedLink, true, m_pMainLink->WantsToWrite(),
                     [this](bool bReadable, bool bWritable) {
                         m_pMainLink->HandleEvents(bReadable, bWritable);
                         UpdateMainLink();
                     });
}

void Server::Accept() {
    auto pSession = std::make_unique<Session>(++m_LastSession);
    Session& session = *pSession;
    QVSocketAddress peer;
    if (!m_Listener.AcceptConnection(session.GetSocket(), peer)) {
        const int error = m_Listener.GetLastError();
        if (error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM) {
            char text[256];
            m_Listener.GetLastErrorString(text, sizeof text);
            m_Log.PrintError("A client cannot be taken in: %s", text);
            // The client goes on waiting; the loop must not be called for it all the time.
            m_Loop.Watch(m_Listener.GetSocket().GetSocketHandle(), false, false);
            m_NextAccept = Clock::now() + PauseInAccepting;
        }
        return;
    }
    // The oldest stranger goes, not the new one: who is honest logs on at once.
    const auto bStranger = [](const auto& entry) { return entry.second->m_State == Session::Stranger; };
    if (std::count_if(m_Sessions.begin(), m_Sessions.end(), bStranger) >= MaxStrangers)
        Drop(*std::find_if(m_Sessions.begin(), m_Sessions.end(), bStranger)->second, COutputLog::Warning,
             "too many have not logged on");
    else if (m_Sessions.size() >= MaxSessions) {
        m_Log.Print("A client at %s is turned away: there are too many", peer.ToText().c_str());
        return;
    }
    m_Sessions[session.m_Number] = std::move(pSession);
    Guard(session, [&] {
        session.Begin(m_ServerContext, peer);
        m_Loop.Watch(session.GetSocket().GetSocketHandle(), true, false,
                     [this, &session](bool, bool) { HandleEvents(session); });
    });
}

// What a session does wrong ends it.
void Server::Guard(Session& session, const std::function<void()>& action) {
    try {
        action();
        m_Loop.Watch(session.GetSocket().GetSocketHandle(), session.WantsToRead(), session.WantsToWrite());
    } catch (const SessionEnded& end) {
        Drop(session, COutputLog::Information, end.what());
    } catch (const std::exception& error) {
        Drop(session, COutputLog::Warning, error.what());
    }
}

void Server::HandleEvents(Session& session) {
    Guard(session, [&] {
        session.Receive();
        for (std::span<const unsigned char> frame;
             session.m_State != Session::Leaving && session.NextFrame(frame);)
            HandleFrame(session, frame);
        session.Flush();
        SendRecords(session);
    });
}

void Server::Drop(Session& session, COutputLog::LogType type, const std::string& reason) {
    if (std::count(m_Dropped.begin(), m_Dropped.end(), session.m_Number) != 0)
        return;
    const qvstring line = "Session " + session.GetName() + " has ended: " + reason;
    m_Log.AppendMessage(type, 0, line.data(), static_cast<unsigned int>(line.size()));
    session.m_State = Session::Leaving;
    m_Dropped.push_back(session.m_Number);
}

void Server::SayFarewell(Session& session, const char* reason) {
    Guard(session, [&] {
        if (session.m_State == Session::Client || session.m_State == Session::Standby) {
            Message farewell(MessageFarewell);
            farewell << reason;
            session.Send(farewell);
            session.Flush();
        }
        session.m_State = Session::Leaving;
        session.m_Since = Clock::now();
        session.m_pRead.reset();
    });
}

void Server::RemoveDropped() {
    for (const unsigned int number : std::exchange(m_Dropped, {})) {
        const auto found = m_Sessions.find(number);
        if (found == m_Sessions.end())
            continue;
        if (m_Replicator.GetSession() == found->second.get())
            m_Replicator.End();
        m_Loop.Forget(found->second->GetSocket().GetSocketHandle());
        m_Sessions.erase(found);
    }
}
