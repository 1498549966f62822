// Clients that do not keep to the rules: they are dropped with a line in the log, and nobody else notices.
#include "PlantTesting.h"
#include "Sample.h"

#include <QVLib/HistoricTables/HistoricTable.h>
#include <QVLib/Tls/CertificateAndKey.h>
#include <QVPlatform/NetworkInfo.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/Socket.h>

#include <gmock/gmock.h>

#include <climits>

using testing::HasSubstr;

namespace {

// The certificate `name` of a server at localhost, in the folder's own "Certificates": signed by an authority of its own,
// or by that of the plant, and expired.
void MakeCertificate(const TemporaryFolder& folder, const std::string& name, bool bForeign) {
    COutputLogToString log;
    QVNetworkInfo network = QVNetworkInfo::OfThisMachine();
    network.AddHostName("localhost");
    CertificateAndKeyInFilePath authority("authority",
                                          bForeign ? folder.GetFilePath() : folder.File("config"));
    CertificateAndKeyInFilePath pair(name.c_str(), folder.GetFilePath());
    if (!bForeign) {
        CQVTimestamp end;
        end.SetUTC();
        end += CQVTimeInterval(-CQVTimeInterval::UnitsPerHour);
        CQVTimestamp start = end;
        start.AddYears(-1);
        pair.SetNotValidTimes(start, end);
    }
    ASSERT_TRUE(authority.InitCertificateAndKey(CertificateAndKey::CertificateIssuer, nullptr, "X", "",
                                                nullptr, network, &log) &&
                pair.InitCertificateAndKey(CertificateAndKey::CertificateEndEntity, &authority, "X", "",
                                           nullptr, network, &log))
        << log.GetString();
}

} // namespace

TEST_F(PlantTest, CertificatesOfOthersOpenNoDoor) {
    m_Main.Start();
    MakeCertificate(m_Folder, "foreign", true);
    MakeCertificate(m_Folder, "expired", false);
    int refused = 0;
    for (const char* name : {"foreign", "expired"}) {
        Intruder intruder(m_Folder, name);
        // With TLS 1.3 a client has connected before the server has looked at its certificate.
        intruder.Reach(m_Main);
        EXPECT_TRUE(intruder.Run([&] { return !intruder.IsActive(); }));
        EXPECT_TRUE(m_Main.Says("certificate verify failed", ++refused)) << m_Main.GetLog();
        EXPECT_TRUE(intruder.m_Types.empty());
    }
    // Without one, nobody is a standby.
    Intruder intruder(m_Folder);
    ASSERT_TRUE(intruder.Reach(m_Main));
    Message logon(MessageLogon);
    logon << WireVersion << static_cast<unsigned char>(RoleStandby) << ""
          << "";
    intruder.Send(logon);
    EXPECT_TRUE(intruder.Run([&] { return !intruder.IsActive(); }));
    EXPECT_TRUE(m_Main.Says("a standby shows a certificate of the plant"));
    // And a client believes no other server.
    const Result result = RunClient("maria", "m", "--timeout 1 alarms", "Certificates/authority.cer");
    EXPECT_EQ(result.m_ExitCode, 3);
    EXPECT_THAT(result.m_Error, HasSubstr("certificate"));
}

TEST_F(PlantTest, MessagesThatBreakTheRulesEndOnlyTheirConnection) {
    m_Main.Start();
    struct Case {
        bool bLogOn;
        std::string bytes;
        const char* text;
    };
    using namespace std::string_literals;
    int number = 0;
    for (const Case& hostile : {
             Case{false, "\0\0\0\0"s, "a message of 0 bytes"},
             Case{false, "\xFF\xFF\xFF\xFF\x01"s, "a message of 4294967295 bytes"},
             Case{false, "\x01\x10\0\0"s, "a message of 4097 bytes"},
             Case{false, "\x01\0\0\0\x02"s, "type 2 is out of place"},
             Case{false, "\x02\0\0\0\x01\x01"s, "EOF Exception"},
             Case{false, "\x08\0\0\0\x01\x01\0\0\0\0\0\0"s, "a message is longer than its type"},
             Case{false, "\x06\0\0\0\x01\x01\0\x02\0\0"s, "a logon of no known role"},
             Case{false, "\x07\0\0\0\x01\x01\0\0\x01\0\0"s, "or of a name that is none"},
             Case{false, "\x06\0\0\0\x01\x01\0\0\0\0\x01"s, "something stands behind the logon"},
             Case{false, "\x0A\0\0\0\x01\x01\0\0\xFD\xBF\xBF\xBF\xBF\xBF"s, "string too long"},
             Case{true, "\x05\0\0\0\x02\x01\x02\x03\x04"s, "EOF Exception"},
             Case{true, "\x01\0\0\0\xFF"s, "type 255 is out of place"},
             Case{true, "\x02\0\0\0\x05\x01"s, "type 5 is out of place"},
         }) {
        Intruder intruder(m_Folder);
        ASSERT_TRUE(intruder.Reach(m_Main));
        ASSERT_TRUE(!hostile.bLogOn || intruder.LogOn("tom", "t"));
        intruder.SendRaw(hostile.bytes);
        EXPECT_TRUE(intruder.Run([&] { return !intruder.IsActive(); })) << number;
        EXPECT_TRUE(m_Main.Says(hostile.text)) << number << m_Main.GetLog();
        number++;
    }
    {
        Intruder intruder(m_Folder); // a frame that never comes whole
        ASSERT_TRUE(intruder.Reach(m_Main));
        intruder.SendRaw("\xFF\x0F\0\0\x01"s + std::string(1000, 'x'));
    }
    std::vector<QVSocketAddress> addresses;
    qvstring problem;
    ASSERT_TRUE(QVSocketAddress::Resolve(m_Main.GetAddress(), false, addresses, problem));
    QVSocket plain;
    ASSERT_TRUE(plain.CreateSocket(addresses[0]) && plain.ConnectSocket(addresses[0]));
    plain.SendData("GET / HTTP/1.0\r\n\r\n", 18);
    EXPECT_TRUE(m_Main.Says("http request"));
    EXPECT_EQ(RunClient("maria", "m", "read").m_ExitCode, 0);
    EXPECT_EQ(m_Main.Stop(), 0);
}

TEST_F(PlantTest, SilentAndStuckClientsAreDroppedAndOthersServed) {
    // A table that no socket's buffer holds.
    constexpr unsigned int count = 300'000;
    {
        CQVFilePath folder = m_Folder.File("main");
        folder.MakeDirectory();
        HistoricTableErrorSummary errors;
        CHistoricTable table(QVFileSystem::GetInstance(), sizeof(Sample), &errors);
        table.InitialiseFromPath(folder);
        CQVTimestamp time;
        time.SetUTC();
        Sample sample{};
        sample.m_Time = time.GetValue() - CQVTimeInterval::UnitsPerHour;
        for (sample.m_Sequence = 1; sample.m_Sequence <= count; sample.m_Sequence++) {
            sample.m_Time++;
            table.WriteNewRecord(sample.m_Time, &sample);
        }
        COutputLogNull log;
        ASSERT_EQ(table.FlushRecords(&log), count);
    }
    m_Main.Start();
    Intruder stuck(m_Folder);
    ASSERT_TRUE(stuck.Reach(m_Main) && stuck.LogOn("tom", "t"));
    Message request(MessageRead);
    request << 1U;
    request.WriteInt64(0);
    request.WriteInt64(LLONG_MAX);
    stuck.Send(request);
    stuck.HandleEvents(false, true); // and reads nothing of it

    std::vector<QVSocketAddress> addresses;
    qvstring problem;
    ASSERT_TRUE(QVSocketAddress::Resolve(m_Main.GetAddress(), false, addresses, problem));
    QVSocket silent[100];
    for (QVSocket& socket : silent)
        ASSERT_TRUE(socket.CreateSocket(addresses[0]) && socket.ConnectSocket(addresses[0]));
    EXPECT_TRUE(m_Main.Says("too many have not logged on", 60)) << m_Main.GetLog();
    const Result read = RunClient("maria", "m", "--limit 0 --timeout 60 read --last 7200");
    EXPECT_EQ(read.m_ExitCode, 0) << read.m_Error;
    EXPECT_EQ(NumberBehind("sequence ", read.m_Out), 1);
    EXPECT_GT(NumberBehind(" to ", read.m_Out), count);

    EXPECT_TRUE(m_Main.Says("it has not logged on", 30));
    EXPECT_TRUE(m_Main.Says("tom) has ended: it does not take what it is sent")) << m_Main.GetLog();
    EXPECT_EQ(m_Main.Stop(), 0);
}
