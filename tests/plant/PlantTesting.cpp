#include "PlantTesting.h"

#include <QVLib/Tls/CertificateAndKey.h>
#include <QVPlatform/FilePath.h>
#include <QVPlatform/NetworkInfo.h>
#include <QVPlatform/OutputLog.h>

#include <thread>

using Clock = std::chrono::steady_clock;

bool ComesTrue(const std::function<bool()>& condition, std::chrono::seconds patience) {
    const auto deadline = Clock::now() + patience;
    while (!condition()) {
        if (Clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

PlantServer::PlantServer(const TemporaryFolder& folder, const std::string& name, const std::string& options,
                         const std::string& before)
    : m_Folder(folder), m_Name(name), m_Options(options), m_Before(before) {}

void PlantServer::Start() {
    m_Folder.Write(m_Name + ".out", "");
    const std::string command = "cd '" + m_Folder.GetPath() + "' && exec " + m_Before +
                                " '" PLANT_SERVER "' config " + m_Name + " --name " + m_Name + " --listen " +
                                m_Address + " " + m_Options + " >" + m_Name + ".out 2>>" + m_Name + ".log";
    m_pProgram =
        std::make_unique<ChildProgram>(std::vector<std::string>{"/bin/sh", "-c", command}, "/dev/null");
    const std::string said = "listening on ";
    ASSERT_TRUE(ComesTrue([&] { return m_Folder.Read(m_Name + ".out").ends_with('\n'); })) << GetLog();
    const std::string line = m_Folder.Read(m_Name + ".out");
    m_Address = line.substr(said.size(), line.size() - said.size() - 1);
}

bool PlantServer::Says(const std::string& text, int count) const {
    return ComesTrue([&] {
        const std::string log = GetLog();
        int found = 0;
        for (std::size_t at = 0; (at = log.find(text, at)) != std::string::npos; at++)
            found++;
        return found >= count;
    });
}

PlantTest::PlantTest()
    : m_Main(m_Folder, "main", "--test-users --every 5 --flush-every 50"),
      m_Standby(m_Folder, "standby", "--test-users --standby \"localhost:$(cat main.port)\"") {
    CQVFilePath folder = m_Folder.File("config");
    folder.MakeDirectory();
    m_Folder.Write(
        "config/plant.json",
        R"({"alarms": [{"name": "Always", "condition": "sequence > 0", "zone": "A", "colour": "Tomato"},
                                  {"name": "Never", "condition": "sequence < 0", "zone": "A"}],
                       "numbers": {"memory": "0.0 'of all'"},
                       "users": {"maria": {"zone": "Asia/Kolkata", "locale": "de", "date": "dd.MM.yyyy"}}})");
    m_Folder.Write("config/users.json",
                   R"({"maria": {"password": "m", "groups": ["operators"]}, "tom": {"password": "t"},
                       "eve": {"password": "e"}})");
    m_Folder.Write("config/user-rights.conf",
                   "@operators: World=Refresh, ZoneA=Acknowledge;\ntom: World=Refresh;\n");
}

PlantTest::Result PlantTest::RunClient(const std::string& user, const std::string& password,
                                       const std::string& arguments, const std::string& authority) const {
    std::string servers;
    for (const PlantServer* const server : {&m_Main, &m_Standby}) {
        const std::string& address = server->GetAddress();
        if (!address.ends_with(":0"))
            servers += " --server localhost" + address.substr(address.rfind(':'));
    }
    const std::string command = "cd '" + m_Folder.GetPath() + "' && echo '" + password +
                                "' | '" PLANT_CLIENT "' --ca " + authority + servers + " --user " + user +
                                " " + arguments + " >out.txt 2>err.txt";
    const int status = std::system(command.c_str());
    return {status % 256 == 0 ? status / 256 : -1, m_Folder.Read("out.txt"), m_Folder.Read("err.txt")};
}

long long PlantTest::NumberBehind(const std::string& text, const std::string& output) {
    const std::size_t at = output.rfind(text);
    return at == std::string::npos ? -1 : std::atoll(output.c_str() + at + text.size());
}

void PlantTest::ExpectSameTables() const {
    unsigned int compared = 0;
    for (const std::string& name : m_Folder.List("main")) {
        if (!name.ends_with(".qvhis"))
            continue;
        EXPECT_EQ(m_Folder.Read("main/" + name), m_Folder.Read("standby/" + name)) << name;
        compared++;
    }
    EXPECT_GE(compared, 1U);
}

std::unique_ptr<OpenSSLContext> Intruder::MakeContext(const TemporaryFolder& folder,
                                                      const std::string& name) {
    COutputLogNull log;
    auto pContext = std::make_unique<OpenSSLContext>(false);
    EXPECT_TRUE(pContext->SetTrustFile(folder.File("config/Certificates/authority.cer"), &log));
    if (!name.empty()) {
        CertificateAndKeyInFilePath pair(name.c_str(), folder.GetFilePath());
        EXPECT_TRUE(pair.ReadPrivateKey(&log) && pair.ReadCertificate(&log)) << name;
        EXPECT_TRUE(pContext->SetCertificateAndKey(pair, &log));
    }
    return pContext;
}

Intruder::Intruder(const TemporaryFolder& folder, const std::string& name)
    : Intruder(MakeContext(folder, name)) {}

Intruder::Intruder(std::unique_ptr<OpenSSLContext> pContext)
    : Link(*pContext), m_pContext(std::move(pContext)) {}

bool Intruder::Reach(const PlantServer& server) {
    std::string problem;
    EXPECT_TRUE(Connect("localhost" + server.GetAddress().substr(server.GetAddress().rfind(':')), problem))
        << problem;
    return Run([this] { return IsConnected() || !IsActive(); }) && IsConnected();
}

bool Intruder::Run(const std::function<bool()>& done) {
    return ComesTrue([&] {
        if (done())
            return true;
        QVSocketInterest interest{&GetSocket(), WantsToWrite() ? QVSocket::Readable | QVSocket::Writable
                                                               : QVSocket::Readable};
        if (IsActive() && qv_wait_for_sockets({&interest, 1}, 20) == QVWaitResult::Ready)
            HandleEvents((interest.m_Ready & QVSocket::Readable) != 0,
                         (interest.m_Ready & QVSocket::Writable) != 0);
        return done();
    });
}

bool Intruder::LogOn(const std::string& user, const std::string& password) {
    Message logon(MessageLogon);
    logon << WireVersion << static_cast<unsigned char>(RoleClient) << user << password;
    Send(logon);
    return Run([this] { return m_LogonResult >= 0 || !IsActive(); }) && m_LogonResult == LogonAccepted;
}

void Intruder::SendRaw(const std::string& bytes) {
    unsigned int sent = 0;
    WriteData(bytes.data(), static_cast<unsigned int>(bytes.size()), sent);
}

void Intruder::OnMessage(unsigned char type, FrameInput& in) {
    m_Types.push_back(type);
    if (type == MessageLogonReply) {
        unsigned char result = 0;
        in >> result;
        m_LogonResult = result;
    }
}
