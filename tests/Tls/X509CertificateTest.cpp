#include "CertificateTesting.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class X509CertificateTest : public CertificateTesting {
protected:
    X509CertificateTest() {
        // Small, since keys take long to make, and the checks are told what is enough.
        Shell("openssl genrsa -out a.key 1024");
        CertificateAndKeyInFilePath pair("a", m_Folder.GetFilePath());
        EXPECT_TRUE(pair.ReadPrivateKey(&m_Log));
        m_pKey = pair.GetPrivateKey();
        EVP_PKEY_up_ref(m_pKey);
    }
    ~X509CertificateTest() override { EVP_PKEY_free(m_pKey); }

    // Makes "t.cer".
    void Make(CQVTimestamp notBefore, CQVTimestamp notAfter) {
        X509Certificate made;
        EXPECT_TRUE(made.BeginNewCertificate(notBefore, notAfter, m_pKey, &m_Log));
        EXPECT_TRUE(
            made.SetupSelfSignedCertificate(nullptr, "", m_Network.GetCanonicalHostName().c_str(), &m_Log));
        EXPECT_TRUE(made.AddSubjectAlternativeName(nullptr, m_Network, &m_Log));
        EXPECT_TRUE(made.SignNewCertificate(m_pKey, &m_Log));
        EXPECT_TRUE(made.SaveCertificate(m_Folder.File("Certificates/t.cer"), &m_Log));
    }
    bool Read(X509Certificate& certificate, const std::string& name) {
        m_Log.Clear();
        return certificate.ReadCertificate(m_Folder.File("Certificates/" + name), &m_Log);
    }

    EVP_PKEY* m_pKey;
};

} // namespace

TEST_F(X509CertificateTest, DropsWhatFailsItsChecks) {
    Make(DaysFromNow(-20), DaysFromNow(-1));
    Shell("mv t.cer old.cer");
    Make(DaysFromNow(0), DaysFromNow(1));
    const struct {
        const char* file;
        EVP_PKEY* key;
        int bits, status;
    } rows[] = {{"t.cer", m_pKey, 1024, X509Certificate::Valid},
                {"t.cer", m_pKey, 1025, X509Certificate::WeakKey},
                {"t.cer", nullptr, 1024, X509Certificate::InvalidKeyPair},
                {"old.cer", m_pKey, 2048, X509Certificate::Expired}}; // and weak
    for (const auto& row : rows) {
        X509Certificate certificate;
        EXPECT_TRUE(Read(certificate, row.file));
        EXPECT_EQ(certificate.ValidateCertificate(row.bits, nullptr, row.key, &m_Log), row.status);
        EXPECT_EQ(certificate.GetX509() != nullptr, row.status == X509Certificate::Valid);
        // Without a certificate nothing is valid, and another one is judged anew.
        EXPECT_EQ(certificate.ValidateCertificate(512, nullptr, m_pKey, &m_Log),
                  row.status == X509Certificate::Valid ? X509Certificate::Valid
                                                       : X509Certificate::InvalidKeyPair);
        EXPECT_TRUE(Read(certificate, "t.cer"));
        EXPECT_EQ(certificate.GetValidationStatus(), X509Certificate::NotValidated);
    }
    EXPECT_EQ(ERR_peek_error(), 0u);
}

TEST_F(X509CertificateTest, WritesDatesAsReadersWantThem) {
    CQVTimestamp time;
    ASSERT_TRUE(time.FromText("2049-12-31T23:59:58.9Z"));
    char text[32];
    X509Certificate::TimestampToASN1TimeString(time, text);
    EXPECT_STREQ(text, "20491231235958Z");
    CQVTimestamp next = time;
    next.AddYears(1);
    Make(time, next);
    const std::string parsed = Shell("openssl asn1parse -in t.cer");
    EXPECT_THAT(parsed, HasSubstr("UTCTIME           :491231235958Z"));
    EXPECT_THAT(parsed, HasSubstr("GENERALIZEDTIME   :20501231235958Z"));
    EXPECT_THAT(Shell("openssl x509 -noout -subject -in t.cer"), HasSubstr("subject=CN = srv.plant"));
    // A random number of 64 bits whose top bit is set.
    const std::string serial = Shell("openssl x509 -noout -serial -in t.cer");
    EXPECT_EQ(serial.size(), 7 + 16 + 1u);
    EXPECT_GE(serial[7], '8');
    Make(time, next);
    EXPECT_NE(Shell("openssl x509 -noout -serial -in t.cer"), serial);
}

TEST_F(X509CertificateTest, TellsTheNamesThatItIsFor) {
    const std::string request = "openssl req -x509 -key a.key -utf8 -out t.cer ";
    Shell(request + "-subj '/O=Plant/CN=M\xC3\xBCller' -addext "
                    "'subjectAltName=IP:10.0.0.1,DNS:b,URI:urn:x,email:a@b,DNS:a,DNS:*.plant'");
    X509Certificate certificate;
    ASSERT_TRUE(Read(certificate, "t.cer"));
    QVNetworkInfo network;
    certificate.GetNetworkInfo(network);
    EXPECT_EQ(network.GetCanonicalHostName(), "M\xC3\xBCller");
    EXPECT_THAT(network.GetHostNames(), ElementsAre("b", "a", "*.plant"));
    EXPECT_TRUE(certificate.IsForPrivateKey(m_pKey));

    // What holds no names names no host; and what says twice which names it has is not believed.
    Shell(request + "-subj /O=Plant");
    ASSERT_TRUE(Read(certificate, "t.cer"));
    QVNetworkInfo none;
    certificate.GetNetworkInfo(none);
    EXPECT_TRUE(none.IsSameNetworkInfoAs(QVNetworkInfo()));
    X509Certificate twice;
    EXPECT_TRUE(twice.BeginNewCertificate(DaysFromNow(0), DaysFromNow(1), m_pKey, &m_Log));
    EXPECT_TRUE(twice.AddSubjectAlternativeName(nullptr, m_Network, &m_Log));
    EXPECT_TRUE(twice.AddSubjectAlternativeName(nullptr, m_Network, &m_Log));
    twice.GetNetworkInfo(none);
    EXPECT_TRUE(none.GetHostNames().empty());

    m_Log.Clear();
    EXPECT_FALSE(twice.AddExtension(NID_key_usage, "noSuchUsage", &m_Log));
    EXPECT_THAT(m_Log.GetString(), HasSubstr("SSL error:"));
    EXPECT_FALSE(twice.SignNewCertificate(nullptr, &m_Log));
    EXPECT_EQ(twice.GetX509(), nullptr);
}

TEST_F(X509CertificateTest, RefusesHostileFilesWithoutAskingAnybody) {
    Make(DaysFromNow(0), DaysFromNow(1));
    const std::string good = ReadFile("t.cer");
    const std::string key = ReadFile("a.key");
    const std::string begin = "-----BEGIN CERTIFICATE-----\n";
    const std::string end = "-----END CERTIFICATE-----\n";
    const std::string files[] = {
        "",
        begin,
        begin + end,
        begin + "MIIB\n" + end,
        begin + "MIT/////AAAA\n" + end,                     // a length of 4 GB
        begin + "MIAwgDCAMIAwgDCAMIAwgDCAMIAwgA==\n" + end, // endless lengths, nested
        begin + "Proc-Type: 4,ENCRYPTED\nDEK-Info: AES-128-CBC,00112233445566778899AABBCCDDEEFF\n\nAAAA\n" +
            end,
        std::string(100000, '-'),
        begin + std::string(100000, 'A') + end,
        std::string(3, '\0') + good.substr(28),
        good.substr(0, good.size() - 30),
        key,
    };
    X509Certificate certificate;
    for (const std::string& file : files) {
        WriteFile("h.cer", file);
        ASSERT_TRUE(Read(certificate, "t.cer"));
        EXPECT_FALSE(Read(certificate, "h.cer")) << file.substr(0, 100);
        EXPECT_EQ(Lines(), "Reading certificate '/Certificates/h.cer'...\n...Error in certificate file\n");
        EXPECT_EQ(certificate.GetX509(), nullptr);
        EXPECT_EQ(ERR_peek_error(), 0u);
    }
    // Text around a certificate does no harm.
    WriteFile("h.cer", "server\n" + key + "\n" + good + good.substr(50));
    EXPECT_TRUE(Read(certificate, "h.cer"));
}
