// What clients ask of a server, and what it tells them by itself.
#include "Server.h"

#include <climits>

namespace {

constexpr unsigned int RightRefresh = 0x001;
constexpr unsigned int RightAcknowledge = 0x008;
constexpr unsigned char AnyZone = 0xFF; // in which only rights for the world hold

constexpr std::size_t SamplesPerMessage = 4096;
// A client that has as much waiting for it gets no live records, and no more of a range, until it has taken some.
constexpr std::size_t EnoughToSend = 256u << 10;

// Who may see something somewhere may see the records, which are of no zone.
bool MayRefresh(const Session& session) {
    for (unsigned char zone = 0; zone < CSecuritySettingsAccessRights::ZoneCount; zone++) {
        if (session.m_Access.HasPrivilege(zone, RightRefresh))
            return true;
    }
    return session.m_Access.HasPrivilege(AnyZone, RightRefresh);
}

} // namespace

void Server::HandleFrame(Session& session, std::span<const unsigned char> frame) {
    FrameInput in(frame);
    const unsigned char type = frame[0];
    if (session.m_State == Session::Stranger && type == MessageLogon)
        HandleLogon(session, in);
    else if (session.m_State == Session::Standby && type == MessageStandbyReply)
        m_Replicator.TakeReply(in);
    else if (session.m_State == Session::Client && type == MessageRead)
        HandleRead(session, in);
    else if (session.m_State == Session::Client && type == MessageFollow)
        HandleFollow(session, in);
    else if (session.m_State == Session::Client && type == MessageAcknowledge)
        HandleAcknowledge(session, in);
    else
        throw ProtocolError("a message of type " + std::to_string(type) + " is out of place");
}

void Server::HandleLogon(Session& session, FrameInput& in) {
    unsigned short version = 0;
    unsigned char role = RoleClient;
    qvstring user;
    CQVSecureWString password;
    in >> version;
    if (version != WireVersion)
        return RefuseLogon(session, LogonRefused, "this server does not speak that version");
    in >> role;
    in.ReadWString(MaxNameLength, user);
    in >> password;
    in.ExpectEnd();
    session.BeginFrames(MaxClientFrame);
    if (role > RoleStandby || user.find('\0') != qvstring::npos)
        throw ProtocolError("a logon of no known role, or of a name that is none");
    if (role == RoleStandby)
        return AcceptStandby(session);
    session.m_Access.SetUserName(user.data(), static_cast<unsigned int>(user.size()));
    if (!m_bInCharge)
        return RefuseLogon(session, LogonNotInCharge, "the main is in charge");
    if (!m_pAuthenticator->Ask(session.m_Number, CQVSecureWString(user.c_str()), password))
        return RefuseLogon(session, LogonRefused, "too many log on at once");
    session.m_State = Session::LoggingOn;
    session.m_Since = Clock::now();
}

void Server::AcceptStandby(Session& session) {
    if (IsStandby())
        return RefuseLogon(session, LogonRefused, "this server is a standby itself");
    if (!session.HasCertificate())
        return RefuseLogon(session, LogonRefused, "a standby shows a certificate of the plant");
    if (m_Replicator.GetSession() != nullptr)
        Drop(*m_Replicator.GetSession(), COutputLog::Warning, "another standby takes its place");
    session.m_State = Session::Standby;
    session.BeginFrames(MaxFrame);
    m_Log.Print("Session %s is the standby", session.GetName().c_str());
    Message reply(MessageLogonReply);
    reply << static_cast<unsigned char>(LogonAccepted) << "";
    session.Send(reply);
    m_Replicator.Begin(session);
}

void Server::TakeAnswers() {
    for (Authenticator::Answer& answer : m_pAuthenticator->TakeAnswers()) {
        const auto found = m_Sessions.find(answer.m_Session);
        if (found == m_Sessions.end() || found->second->m_State != Session::LoggingOn)
            continue; // it has left meanwhile
        Session& session = *found->second;
        Guard(session, [&] {
            if (!answer.m_Problem.empty())
                m_Log.Print("Session %s: %s", session.GetName().c_str(), answer.m_Problem.c_str());
            if (!answer.m_bAccepted)
                RefuseLogon(session, LogonRefused, "wrong user or password");
            else if (!m_bInCharge)
                RefuseLogon(session, LogonNotInCharge, "the main is in charge");
            else
                AcceptClient(session, answer);
            session.Flush();
        });
    }
}

void Server::AcceptClient(Session& session, Authenticator::Answer& answer) {
    session.m_pToken = std::make_unique<CQVUserAccessToken>(std::move(answer.m_Token));
    m_Rights.GetAccessRightsForUser(session.m_pToken.get(), session.m_Access);
    if (!MayRefresh(session))
        return RefuseLogon(session, LogonRefused, "this user has no rights here");
    session.m_Access.SetDataFormatSettings(m_Configuration.GetFormats(session.m_Access.m_UserName));
    session.m_State = Session::Client;
    CTextOutputString rights;
    session.m_Access.PrintRights(rights);
    m_Log.Print("Session %s has logged on: %s", session.GetName().c_str(), rights.GetCStr());

    Message reply(MessageLogonReply);
    reply << static_cast<unsigned char>(LogonAccepted) << "" << m_Options.m_Name;
    session.m_Access.SaveAccessContext(AccessContextVersion, reply);
    reply << TagCount;
    for (unsigned int i = 0; i < TagCount; i++)
        reply << Tags[i].m_pName << Tags[i].m_pUnit << m_Configuration.m_NumberPatterns[i];
    session.Send(reply);
    if (IsStandby())
        return; // which judges no alarms, and must not call them cleared
    for (const Alarm& alarm : m_Alarms.GetAll())
        SendAlarm(session, alarm);
}

void Server::RefuseLogon(Session& session, LogonResult result, const qvstring& text) {
    if (result == LogonRefused)
        m_Log.Print("Session %s is refused: %s", session.GetName().c_str(), text.c_str());
    Message reply(MessageLogonReply);
    reply << static_cast<unsigned char>(result) << text;
    session.Send(reply);
    session.m_State = Session::Leaving;
    session.m_Since = Clock::now();
}

void Server::HandleRead(Session& session, FrameInput& in) {
    unsigned int number = 0;
    in >> number;
    const long long from = in.ReadInt64();
    const long long to = in.ReadInt64();
    in.ExpectEnd();
    if (!MayRefresh(session))
        return Refuse(session, MessageRead, number, "the right Refresh is missing");
    if (session.m_pRead)
        return Refuse(session, MessageRead, number, "another range is still being read");
    session.m_ReadNumber = number;
    session.m_pRead = std::make_unique<Store::Reader>(m_Store, from, to);
}

void Server::HandleFollow(Session& session, FrameInput& in) {
    bool bFollows = false;
    in >> bFollows;
    in.ExpectEnd();
    if (bFollows && !MayRefresh(session))
        return Refuse(session, MessageFollow, 0, "the right Refresh is missing");
    if (bFollows && IsStandby())
        return Refuse(session, MessageFollow, 0, "a standby has no live values");
    session.m_bFollows = bFollows;
}

void Server::HandleAcknowledge(Session& session, FrameInput& in) {
    qvstring name;
    in.ReadWString(MaxNameLength, name);
    in.ExpectEnd();
    Alarm* const pAlarm = IsStandby() ? nullptr : m_Alarms.Find(name);
    if (pAlarm == nullptr)
        return Refuse(session, MessageAcknowledge, 0, "there is no such alarm");
    if (!session.m_Access.HasPrivilege(pAlarm->m_Configuration.m_Zone, RightAcknowledge))
        return Refuse(session, MessageAcknowledge, 0, "the right Acknowledge is missing in the alarm's zone");
    if (pAlarm->m_State != Alarm::Active)
        return Refuse(session, MessageAcknowledge, 0, "that alarm is not active");
    CQVTimestamp now;
    now.SetUTC();
    pAlarm->m_State = Alarm::Acknowledged;
    pAlarm->m_Time = now.GetValue();
    pAlarm->m_User = session.m_Access.m_UserName;
    m_Log.Print("Session %s acknowledges '%s'", session.GetName().c_str(), name.c_str());
    SendAlarmToAll(*pAlarm);
}

void Server::Refuse(Session& session, unsigned char type, unsigned int number, const qvstring& text) {
    m_Log.Print("Session %s: request %u is refused: %s", session.GetName().c_str(), type, text.c_str());
    Message refusal(MessageRefusal);
    refusal << type << number << text;
    session.Send(refusal);
}

// One message at a time, so that the others have their turn: the rest follows when there is room for it.
void Server::SendRecords(Session& session) {
    if (!session.m_pRead || session.GetUnsent() > EnoughToSend)
        return;
    std::vector<Sample> samples;
    const bool bMore = MayRefresh(session) && session.m_pRead->Read(SamplesPerMessage, samples);
    Message message(MessageRecords);
    message << session.m_ReadNumber << !bMore << static_cast<unsigned int>(samples.size());
    message.Write(samples.data(), static_cast<unsigned int>(samples.size() * sizeof(Sample)));
    session.Send(message);
    if (!bMore)
        session.m_pRead.reset();
    session.Flush();
}

void Server::TakePublished() {
    std::vector<Sample> samples;
    m_pRecorder->TakePublished(samples);
    for (const Sample& sample : samples)
        m_Alarms.Judge(sample, [this](const Alarm& alarm) { SendAlarmToAll(alarm); });
    if (Session* const pStandby = m_Replicator.GetSession()) {
        Guard(*pStandby, [&] {
            m_Replicator.TryExchange();
            pStandby->Flush();
        });
    }
    if (samples.empty())
        return;
    for (const auto& [number, pSession] : m_Sessions) {
        Session& session = *pSession;
        if (session.m_State != Session::Client || !session.m_bFollows || !MayRefresh(session))
            continue;
        if (session.GetUnsent() > EnoughToSend) {
            session.m_Skipped++;
            continue;
        }
        Guard(session, [&] {
            Message message(MessageLiveRecord);
            message << std::exchange(session.m_Skipped, 0U);
            message.Write(&samples.back(), sizeof(Sample));
            session.Send(message);
            session.Flush();
        });
    }
}

void Server::SendAlarm(Session& session, const Alarm& alarm) {
    const AlarmConfiguration& configuration = alarm.m_Configuration;
    if (!session.m_Access.HasPrivilege(configuration.m_Zone, RightRefresh))
        return;
    Message message(MessageAlarm);
    message << configuration.m_Name << configuration.m_Zone << configuration.m_Colour
            << static_cast<unsigned short>(alarm.m_State) << CQVTimestamp(alarm.m_Time) << alarm.m_User;
    session.Send(message);
}

void Server::SendAlarmToAll(const Alarm& alarm) {
    if (alarm.m_User.empty())
        m_Log.Print("Alarm '%s' is %s", alarm.m_Configuration.m_Name.c_str(),
                    alarm.m_State == Alarm::Active ? "active" : "cleared");
    for (const auto& [number, pSession] : m_Sessions) {
        if (pSession->m_State == Session::Client)
            Guard(*pSession, [&, pSession = pSession.get()] {
                SendAlarm(*pSession, alarm);
                pSession->Flush();
            });
    }
}
