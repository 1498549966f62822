#include "CertificateTesting.h"

#include <QVLib/Tls/OpenSSLContext.h>

#include "support/FaultSystemCalls.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using Pair = CertificateAndKeyInFilePath;

namespace {

class CertificateAndKeyTest : public CertificateTesting {
protected:
    // The public half of a key file, which tells whether two hold the same key.
    std::string PublicKey(const std::string& name) { return Shell("openssl pkey -pubout -in " + name); }
};

// Lets both sides of a handshake go on in turn until neither can; the results of both.
std::pair<int, int> Handshake(SSL* client, SSL* server) {
    BIO* ends[2] = {};
    BIO_new_bio_pair(&ends[0], 0, &ends[1], 0);
    SSL_set_bio(client, ends[0], ends[0]);
    SSL_set_bio(server, ends[1], ends[1]);
    SSL_set_connect_state(client);
    SSL_set_accept_state(server);
    std::pair<int, int> result;
    for (int i = 0; i < 10; ++i)
        result = {SSL_do_handshake(client), SSL_do_handshake(server)};
    return result;
}

} // namespace

TEST_F(CertificateAndKeyTest, MakesASelfSignedPairAndReadsItFromThenOn) {
    m_Network.AddHostName("srv-b");
    Pair pair("srv.plant", m_Folder.GetFilePath());
    ASSERT_TRUE(Init(pair, CertificateAndKey::CertificateSelfSigned));
    EXPECT_EQ(Lines(), "Read 'srv.plant' certificates...\n"
                       "Reading private key '/Certificates/srv.plant.key'...\n"
                       "...Private key not found\n"
                       "Create new private key...\n"
                       "Create new certificate...\n"
                       "Saving private key '/Certificates/srv.plant.key'...\n"
                       "Saving certificate '/Certificates/srv.plant.cer'...\n");
    EXPECT_THAT(m_Log.GetString(), HasSubstr("SSL error:"));
    EXPECT_EQ(pair.GetReadResult(), CertificateAndKey::NoPrivateKey);
    EXPECT_THAT(m_Folder.List("Certificates"), testing::ElementsAre("srv.plant.cer", "srv.plant.key"));
    EXPECT_EQ(Shell("stat -c %a srv.plant.key"), "600\n");
    EXPECT_THAT(Shell("openssl pkey -noout -text -in srv.plant.key"),
                AllOf(HasSubstr("(2048 bit"), HasSubstr("publicExponent: 65537")));

    const std::string text = Shell("openssl x509 -noout -text -in srv.plant.cer");
    for (const char* part :
         {"Version: 3", "sha256WithRSAEncryption", "Subject: O = Plant, OU = Control, CN = srv.plant",
          "Issuer: O = Plant, OU = Control, CN = srv.plant", "00:00:00", "CA:FALSE",
          "Digital Signature, Non Repudiation, Key Encipherment, Data Encipherment, Certificate Sign",
          "TLS Web Server Authentication, TLS Web Client Authentication",
          "URI:urn:plant:srv, DNS:srv.plant, DNS:srv, DNS:srv-b"})
        EXPECT_THAT(text, HasSubstr(part));
    EXPECT_THAT(text, Not(HasSubstr("critical")));
    // The key is named by its identifier, as the certificate's own key.
    const std::string identifiers =
        Shell("openssl x509 -noout -ext subjectKeyIdentifier,authorityKeyIdentifier -in srv.plant.cer");
    EXPECT_THAT(identifiers, Not(HasSubstr("DirName")));
    const std::string hash = identifiers.substr(identifiers.find("\n    ") + 5, 59);
    EXPECT_NE(identifiers.find(hash), identifiers.rfind(hash)) << identifiers;
    EXPECT_THAT(Shell("openssl verify -CAfile srv.plant.cer srv.plant.cer"), HasSubstr("OK"));
    EXPECT_THAT(Shell("openssl asn1parse -in srv.plant.cer"), Not(HasSubstr("GENERALIZEDTIME")));

    const std::string key = ReadFile("srv.plant.key");
    const std::string certificate = ReadFile("srv.plant.cer");
    Pair again("srv.plant", m_Folder.GetFilePath());
    EXPECT_TRUE(Init(again, CertificateAndKey::CertificateSelfSigned));
    EXPECT_EQ(again.GetReadResult(), CertificateAndKey::ReadValid);
    EXPECT_EQ(again.GetPublicCertificate().GetValidationStatus(), X509Certificate::Valid);
    EXPECT_EQ(Lines(), "Read 'srv.plant' certificates...\n"
                       "Reading private key '/Certificates/srv.plant.key'...\n"
                       "Reading certificate '/Certificates/srv.plant.cer'...\n");
    EXPECT_EQ(ReadFile("srv.plant.key"), key);
    EXPECT_EQ(ReadFile("srv.plant.cer"), certificate);
}

TEST_F(CertificateAndKeyTest, AnAuthorityVouchesForAServer) {
    Pair authority("authority", m_Folder.GetFilePath());
    Pair server("server", m_Folder.GetFilePath());
    EXPECT_FALSE(Init(server, CertificateAndKey::CertificateEndEntity, &authority));
    EXPECT_THAT(Lines(), HasSubstr("There is no certificate of the issuer\n"));
    EXPECT_EQ(server.GetPublicCertificate().GetX509(), nullptr);
    EXPECT_FALSE(m_Folder.Exists("Certificates/server.cer"));

    ASSERT_TRUE(Init(authority, CertificateAndKey::CertificateIssuer));
    ASSERT_TRUE(Init(server, CertificateAndKey::CertificateEndEntity, &authority));
    EXPECT_THAT(Shell("openssl verify -CAfile authority.cer -verify_hostname srv server.cer"),
                HasSubstr("OK"));
    EXPECT_THAT(Shell("openssl verify -x509_strict -partial_chain -trusted server.cer server.cer"),
                HasSubstr("OK"));
    EXPECT_THAT(Shell("openssl x509 -noout -text -in authority.cer"),
                AllOf(HasSubstr("Subject: O = Plant, OU = Control, CN = SCADA Server Root CA"),
                      HasSubstr("CA:TRUE"), HasSubstr("Certificate Sign"),
                      Not(HasSubstr("Extended Key Usage"))));
    EXPECT_THAT(Shell("openssl x509 -noout -text -in server.cer"),
                AllOf(HasSubstr("Issuer: O = Plant, OU = Control, CN = SCADA Server Root CA"),
                      HasSubstr("Subject: O = Plant, OU = Control, CN = srv.plant"), HasSubstr("CA:FALSE"),
                      Not(HasSubstr("Certificate Sign")),
                      HasSubstr("TLS Web Server Authentication, TLS Web Client Authentication")));

    // A client that trusts the authority takes the server under its names, and under no other.
    OpenSSLContext serving(true);
    OpenSSLContext connecting(false);
    ASSERT_TRUE(connecting.SetTrustFile(authority.GetCertificateFile(), &m_Log));
    for (const char* name : {"srv.plant", "SRV", "other"}) {
        SSL* const own = serving.NewSSL();
        SSL* const peer = connecting.NewSSL();
        EXPECT_EQ(SSL_use_certificate(own, server.GetPublicCertificate().GetX509()), 1);
        EXPECT_EQ(SSL_use_PrivateKey(own, server.GetPrivateKey()), 1);
        SSL_set1_host(peer, name);
        const bool bKnown = std::string(name) != "other";
        EXPECT_EQ(Handshake(peer, own) == std::pair(1, 1), bKnown) << name;
        EXPECT_EQ(SSL_get_verify_result(peer), bKnown ? X509_V_OK : X509_V_ERR_HOSTNAME_MISMATCH);
        SSL_free(peer);
        SSL_free(own);
    }

    // The files of the pairs are read again as they are, and an authority is for no host.
    m_Network = MakeHost("elsewhere", {});
    Pair readAuthority("authority", m_Folder.GetFilePath());
    EXPECT_EQ(readAuthority.ReadExisting(CertificateAndKey::CertificateIssuer, nullptr, m_Network, &m_Log),
              CertificateAndKey::ReadValid);
    m_Network = MakeHost("SRV.plant", {"srv", "srv.plant"});
    Pair readServer("server", m_Folder.GetFilePath());
    const auto read = [&](CertificateAndKey* issuer) {
        return readServer.ReadExisting(CertificateAndKey::CertificateEndEntity, issuer, m_Network, &m_Log);
    };
    EXPECT_EQ(read(&readAuthority), CertificateAndKey::ReadValid);
    // A certificate that is well signed, but for another key than the one beside it, is of no use.
    Shell("cp authority.key server.key");
    EXPECT_EQ(read(&readAuthority), CertificateAndKey::NotValid);
    EXPECT_EQ(readServer.GetPublicCertificate().GetValidationStatus(), X509Certificate::InvalidKeyPair);
    EXPECT_EQ(readServer.GetPublicCertificate().GetX509(), nullptr);
    EXPECT_EQ(read(nullptr), CertificateAndKey::NotValid);
}

TEST_F(CertificateAndKeyTest, RepairsWhatItFindsAndKeepsAGoodKey) {
    Pair good("good", m_Folder.GetFilePath());
    ASSERT_TRUE(Init(good, CertificateAndKey::CertificateSelfSigned));
    Pair expired("expired", m_Folder.GetFilePath());
    expired.SetNotValidTimes(DaysFromNow(-20), DaysFromNow(-10));
    WriteFile("expired.key", ReadFile("good.key"));
    ASSERT_TRUE(Init(expired, CertificateAndKey::CertificateSelfSigned));
    const std::string subject = " -subj /CN=srv.plant -addext subjectAltName=DNS:srv.plant,DNS:srv -x509 ";
    Shell("openssl req -nodes -newkey rsa:1024 -keyout weak.key -out weak.cer" + subject + "&&" +
          "openssl req -nodes -newkey ec -pkeyopt ec_paramgen_curve:P-256 -keyout ec.key -out ec.cer" +
          subject + "&& openssl pkey -in weak.key -aes128 -passout pass:secret -out locked.key");
    const std::string key = ReadFile("good.key");
    const std::string certificate = ReadFile("good.cer");

    const struct {
        const char* what;
        std::string key;
        std::string certificate;
        const char* host;
        int result;
        int status;
        const char* line;
        bool bKeyKept;
    } rows[] = {
        {"certificate missing", key, "", "srv", 4, 0, "...Certificate not found\n", true},
        {"certificate cut", key, certificate.substr(0, certificate.size() / 2), "srv", 4, 0,
         "...Error in certificate file\n", true},
        {"key in the place of a certificate", key, key, "srv", 4, 0, "...Error in certificate file\n", true},
        {"key cut", key.substr(0, key.size() / 2), certificate, "srv", 3, 0, "...Error in private key file\n",
         false},
        {"key encrypted", ReadFile("locked.key"), certificate, "srv", 3, 0, "...Error in private key file\n",
         false},
        {"another key", ReadFile("weak.key"), certificate, "srv", 5, 2, "Not a valid key pair\n", true},
        {"another host", key, certificate, "new", 5, 5, "Certificate subject does not match the host\n",
         true},
        {"expired, another host", key, ReadFile("expired.cer"), "new", 5, 4, "Public key has expired\n",
         false},
        {"expired, another key and host", ReadFile("weak.key"), ReadFile("expired.cer"), "new", 5, 2,
         "Not a valid key pair\n", true},
        {"weak, another host", ReadFile("weak.key"), ReadFile("weak.cer"), "new", 5, 3,
         "Public key is too weak\n", false},
        {"no RSA", ReadFile("ec.key"), ReadFile("ec.cer"), "srv", 5, 3, "Public key is too weak\n", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        WriteFile("t.key", row.key);
        WriteFile("t.cer", row.certificate);
        if (row.certificate.empty())
            m_Folder.Remove("Certificates/t.cer");
        Shell("chmod 644 t.key");
        const std::string before = row.bKeyKept ? PublicKey("t.key") : "";
        m_Network = MakeHost("srv.plant", {"srv.plant", row.host});
        Pair pair("t", m_Folder.GetFilePath());
        EXPECT_TRUE(Init(pair, CertificateAndKey::CertificateSelfSigned));
        EXPECT_EQ(pair.GetReadResult(), row.result);
        EXPECT_EQ(pair.GetPublicCertificate().GetValidationStatus(), row.status);
        EXPECT_THAT(Lines(), HasSubstr(row.line));
        EXPECT_EQ(Lines().find("Create new private key...") == std::string::npos, row.bKeyKept);
        EXPECT_TRUE(!row.bKeyKept || PublicKey("t.key") == before);
        EXPECT_EQ(Shell("stat -c %a t.key"), "600\n");
        EXPECT_EQ(Shell("openssl x509 -noout -pubkey -in t.cer"), PublicKey("t.key"));
        EXPECT_THAT(Shell("openssl x509 -noout -ext subjectAltName -in t.cer"), HasSubstr(row.host));
    }
}

TEST_F(CertificateAndKeyTest, FailsAloudAndKeepsTheFormerFiles) {
    // Where the folder should be is a file.
    m_Folder.Write("Certificates", "");
    Pair pair("t", m_Folder.GetFilePath());
    EXPECT_FALSE(Init(pair, CertificateAndKey::CertificateSelfSigned));
    EXPECT_EQ(pair.GetReadResult(), CertificateAndKey::NoFolder);
    EXPECT_EQ(Lines(), "Read 't' certificates...\n"
                       "Could not create certificates folder '/Certificates'\n"
                       "Error File exists\n");
    EXPECT_EQ(pair.GetPrivateKey(), nullptr);
    m_Folder.Remove("Certificates");

    // No place for the new key's file; the pair is good all the same, for this time.
    Shell("mkdir t.keyTemp");
    EXPECT_TRUE(Init(pair, CertificateAndKey::CertificateSelfSigned));
    EXPECT_THAT(Lines(), HasSubstr("...Error writing private key\n"));
    m_Folder.Remove("Certificates/t.keyTemp");
    EXPECT_TRUE(pair.SaveCertificateAndKey(&m_Log));

    // A key that is stored already needs no place: the certificate for the new host name goes with it.
    Shell("mkdir t.keyTemp");
    m_Network.AddHostName("new");
    EXPECT_TRUE(Init(pair, CertificateAndKey::CertificateSelfSigned));
    EXPECT_THAT(Lines(), HasSubstr("...Error writing private key\nSaving certificate '/Certificates/t.cer'"));
    EXPECT_EQ(pair.ReadExisting(CertificateAndKey::CertificateSelfSigned, nullptr, m_Network, &m_Log),
              CertificateAndKey::ReadValid);
    m_Folder.Remove("Certificates/t.keyTemp");

    // A disk that fills up, and one that lies about it until the end.
    const std::string key = ReadFile("t.key");
    for (const unsigned int call : {SystemCall::Write | SystemCall::Writev, SystemCall::SyncData,
                                    SystemCall::Sync, SystemCall::Close, SystemCall::Rename}) {
        m_Log.Clear();
        FaultSystemCalls system;
        system.FailAt(call, 1, ENOSPC);
        EXPECT_FALSE(pair.SaveCertificateAndKey(&m_Log));
        EXPECT_THAT(m_Log.GetString(), HasSubstr("...Error writing private key file\nSSL error:"));
        EXPECT_THAT(m_Log.GetString(), HasSubstr("No space left on device"));
        EXPECT_EQ(ReadFile("t.key"), key);
        EXPECT_THAT(m_Folder.List("Certificates"), testing::ElementsAre("t.cer", "t.key"));
    }
    FaultSystemCalls system;
    system.FailFrom(SystemCall::OpenToChange, 2, EROFS);
    EXPECT_FALSE(pair.SaveCertificateAndKey(&m_Log));
    EXPECT_THAT(Lines(), HasSubstr("...Error opening certificate file for writing\n"));
    system.Heal();

    // Names that a certificate cannot hold, and dates.
    m_Network = MakeHost("a23456789.b23456789.c23456789.d23456789.e23456789.f23456789.g2345", {});
    EXPECT_FALSE(Init(pair, CertificateAndKey::CertificateSelfSigned));
    EXPECT_THAT(m_Log.GetString(), HasSubstr("Could not set CN of the certificate to 'a23456789.b"));
    EXPECT_EQ(pair.GetPublicCertificate().GetX509(), nullptr);
    CQVTimestamp farAway = DaysFromNow(0);
    farAway.AddYears(9000);
    pair.SetNotValidTimes(DaysFromNow(0), farAway);
    EXPECT_FALSE(Init(pair, CertificateAndKey::CertificateSelfSigned));
    EXPECT_THAT(Lines(), HasSubstr("... FAILED to create certificate\n"));
    EXPECT_EQ(ReadFile("t.key"), key);
}
