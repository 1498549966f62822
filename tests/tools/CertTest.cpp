#include "QvProgram.h"

#include <QVLib/Tls/CertificateAndKey.h>
#include <QVPlatform/NetworkInfo.h>
#include <QVPlatform/OutputLog.h>
#include <gmock/gmock.h>

using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

class QvCert : public QvProgram {
protected:
    // Runs a check that finds something.
    std::string Find(const std::string& arguments) {
        const Result result = Run("cert check . " + arguments);
        EXPECT_EQ(result.m_ExitCode, 1) << arguments << result.m_Error;
        EXPECT_EQ(result.m_Error, "");
        return result.m_Out;
    }
    void InFolder(const std::string& command) { EXPECT_EQ(Shell("cd Certificates && " + command), 0); }
};

} // namespace

TEST_F(QvCert, MakesShowsAndChecksTheCertificateOfAServer) {
    const std::string server = "cert init . srv --host srv.plant --alias srv --type server ";
    Result result = Run(server);
    EXPECT_EQ(result.m_ExitCode, 3);
    EXPECT_THAT(result.m_Error, HasSubstr("'authority' cannot sign; --type authority makes one"));
    EXPECT_THAT(Do("cert init . authority --type authority --organization Plant"),
                AllOf(HasSubstr("Create new private key...\n"), HasSubstr("authority: made, valid until ")));
    const std::string made = Do(server + "--days 40 --json");
    EXPECT_THAT(made,
                MatchesRegex("\\{\"name\":\"srv\",\"result\":\"made\",\"key\":\"./Certificates/srv.key\","
                             "\"certificate\":\"./Certificates/srv.cer\",\"not_after\":\"2.*Z\"\\}\n"));
    EXPECT_THAT(Do(server), HasSubstr("srv: kept, valid until "));

    const std::string host = "srv --host srv.plant --alias SRV ";
    EXPECT_THAT(Do("cert check . " + host),
                AllOf(HasSubstr("srv: valid until 2"), HasSubstr(", RSA 2048, for ")));
    EXPECT_THAT(Find(host + "--warn-days 41"), HasSubstr("srv: expires on 2"));
    EXPECT_EQ(Find("srv --host srv.plant --alias new"),
              "srv: holds the name 'srv', which this host has not\nsrv: lacks the name 'new' of this host\n");
    EXPECT_EQ(Find("srv --host b --alias srv --json --alias srv.plant"),
              "{\"name\":\"srv\",\"finding\":\"name\",\"text\":\"made for the host 'srv.plant', and this one "
              "is 'b'\"}\n{\"name\":\"srv\",\"finding\":\"name\",\"text\":\"lacks the name 'b' of this "
              "host\"}\n");
    InFolder("chmod 0640 srv.key");
    EXPECT_EQ(Find(host), "srv: its key's file is open to others than its owner, 0640; 0600 is right\n");
    InFolder("chmod 0600 srv.key");
    // An authority is for no host. A server need not have its key.
    EXPECT_THAT(Do("cert check . authority --json"), HasSubstr("\"finding\":\"none\""));
    InFolder("mv authority.key other.key");
    Do("cert check . " + host);
    InFolder("cp other.key srv.key && cp authority.cer other.cer");
    EXPECT_EQ(Find(host), "srv: the certificate is for another key than the one beside it\n");
    InFolder("mv srv.cer authority.cer");
    result = Run("cert check . srv");
    EXPECT_EQ(result.m_ExitCode, 3);
    EXPECT_THAT(result.m_Error, AllOf(HasSubstr("'srv' cannot be read"), HasSubstr("Certificate not found")));

    const std::string shown = Do("cert show Certificates/other.cer --json");
    EXPECT_THAT(shown, AllOf(HasSubstr("SCADA Server Root CA"), HasSubstr("RSA 2048")));
}

TEST_F(QvCert, FindsWhatIsWeakOldOrWronglySigned) {
    Do("cert init . good --type self --host a");
    const std::string request =
        " -subj /CN=a -addext subjectAltName=DNS:a -x509 -nodes -keyout t.key -out t.cer 2>/dev/null";
    InFolder("openssl req -newkey rsa:1024 -days 100" + request);
    EXPECT_THAT(Find("t --host a"), HasSubstr("t: its key is too weak; RSA keys have 2048 bits at least"));
    CQVTimestamp past;
    ASSERT_TRUE(past.FromText("2020-01-01"));
    CertificateAndKeyInFilePath old("old", m_Folder.GetFilePath());
    old.SetNotValidTimes(past, past);
    COutputLogNull log;
    ASSERT_TRUE(old.InitCertificateAndKey(CertificateAndKey::CertificateIssuer, nullptr, nullptr, nullptr,
                                          nullptr, QVNetworkInfo(), &log));
    EXPECT_EQ(Find("old"), "old: has expired on 2020-01-01T00:00:00Z\n");
    // The authority of a server has been made anew, with another key.
    Do("cert init . authority --type authority");
    Do("cert init . t --type server --host a");
    InFolder("cp good.key authority.key");
    Do("cert init . authority --type authority");
    EXPECT_EQ(Find("t --host a"), "t: its signature is not that of the authority 'authority'\n");

    const struct {
        const char* arguments;
        int code;
        const char* text;
    } rows[] = {
        {"cert init . a/b --type self", 2, "'a/b' is no name for a key"},
        {"cert init . a --type root", 2, "--type"},
        {"cert init . a --type self --days 0", 2, "--days"},
        {"cert init none a --type self", 3, "'none' is not there"},
        {"cert init . a --type self --host a1234567890123456789012345678901234567890123456789012345678901234",
         3, "Could not set CN"},
        {"cert check . a", 3, "Private key not found"},
        {"cert check . t --host a --authority none", 3, "'none' cannot be read; --authority names another"},
        {"cert show none.cer", 3, "No certificate in 'none.cer'"},
    };
    for (const auto& row : rows) {
        const Result result = Run(row.arguments);
        EXPECT_EQ(result.m_ExitCode, row.code) << row.arguments;
        EXPECT_THAT(result.m_Error + result.m_Out, HasSubstr(row.text));
    }
}
