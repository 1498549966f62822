#include "TlsTesting.h"

#include <QVLib/Tls/CertificateSummary.h>

#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

std::string PinOf(const Identity& identity) {
    return CertificateSummary::Of(identity.m_Certificate.get()).m_KeySha256;
}

const Identity::Wishes kAuthority{.names = "", .authority = true};

enum Trusted { Nobody, File, Folder };

} // namespace

TEST(Verification, TakesTheServersThatWereAskedForAndNoOthers) {
    const Identity authority("Authority", kAuthority);
    const Identity foreign("Authority of others", kAuthority);
    const Identity good("plant", {.names = "DNS:plant.example,DNS:*.lab.example,IP:127.0.0.1"}, &authority);
    const Identity expired("plant", {.names = "DNS:plant.example", .daysLeft = -1}, &authority);
    const Identity others("plant", {.names = "DNS:plant.example"}, &foreign);
    const Identity alone("plant", {.names = "DNS:plant.example"});
    const Identity aloneExpired("plant", {.names = "DNS:plant.example", .daysLeft = -1});
    const TemporaryFolder folder;
    folder.Write("authority.pem", authority.GetCertificatePem());
    char hashName[32];
    std::snprintf(hashName, sizeof hashName, "%08lx.0",
                  X509_subject_name_hash(authority.m_Certificate.get()));
    folder.Write(hashName, authority.GetCertificatePem());

    std::string pin = PinOf(alone);
    std::string written; // as other programs show it
    for (size_t i = 0; i < pin.size(); ++i)
        written += std::string(i > 0 && i % 2 == 0 ? ":" : "") + static_cast<char>(std::toupper(pin[i]));

    const struct {
        const Identity& server;
        Trusted trust;
        std::string name;
        std::string pin;
        const char* refusal; // null: taken
    } rows[] = {
        {alone, Nobody, "", "", nullptr},
        {aloneExpired, Nobody, "", "", nullptr},
        {good, File, "", "", nullptr},
        {good, Folder, "", "", nullptr},
        {good, File, "plant.example", "", nullptr},
        {good, File, "a.lab.example", "", nullptr},
        {good, File, "127.0.0.1", "", nullptr},
        {good, File, "plant.example", PinOf(good), nullptr},
        {good, File, "other.example", "", "ostname mismatch"},
        {good, File, "a.b.lab.example", "", "ostname mismatch"},
        {good, File, "127.0.0.2", "", "address mismatch"},
        {good, File, "plant.example", PinOf(alone), "its key is not the pinned one"},
        {expired, File, "", "", "certificate has expired"},
        {others, File, "", "", "unable to get local issuer certificate"},
        {others, Folder, "", "", "unable to get local issuer certificate"},
        {alone, File, "", "", "self-signed certificate"},
        {alone, File, "", pin, "self-signed certificate"},
        {alone, Nobody, "plant.example", "", "self-signed certificate"},
        {good, Nobody, "plant.example", "", "unable to get local issuer certificate"},
        {alone, Nobody, "", pin, nullptr},
        {alone, Nobody, "plant.example", written, nullptr},
        {alone, Nobody, "other.example", pin, "ostname mismatch"},
        {alone, Nobody, "", PinOf(good), "its key is not the pinned one"},
        {others, Nobody, "", PinOf(others), nullptr},
        {aloneExpired, Nobody, "", PinOf(aloneExpired), "certificate has expired"},
        {alone, Nobody, "", pin.substr(1), "its key is not the pinned one"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(&row - rows));
        std::string toldName;
        TestServer server([&](QVSocket& socket) {
            TlsPeer peer(socket, row.server);
            if (peer.Accept() && peer.Write("x"))
                toldName = SSL_get_servername(peer.GetSSL(), TLSEXT_NAMETYPE_host_name)
                               ? SSL_get_servername(peer.GetSSL(), TLSEXT_NAMETYPE_host_name)
                               : "";
            Drain(socket);
        });
        OpenSSLContext context(false);
        COutputLogToString problems;
        EXPECT_TRUE(row.trust != File || context.SetTrustFile(folder.File("authority.pem"), &problems));
        EXPECT_TRUE(row.trust != Folder || context.SetTrustFolder(folder.GetFilePath(), &problems));
        TestClient client(&context, false);
        client.SetExpectedHostName(row.name);
        EXPECT_EQ(client.SetPinnedKey(row.pin), row.pin.size() != 63);
        ASSERT_TRUE(client.Connect(server.m_Address));
        client.RunUntil([&] { return client.m_Received == "x"; });
        const bool bVerified = row.trust != Nobody || !row.name.empty() || !row.pin.empty();
        ASSERT_NE(client.GetPeerCertificate(), nullptr);
        EXPECT_EQ(X509_cmp(client.GetPeerCertificate(), row.server.m_Certificate.get()), 0);
        if (row.refusal == nullptr) {
            EXPECT_EQ(client.m_Complete, 0) << client.GetLog();
            EXPECT_EQ(client.GetVerifyResult(), bVerified ? 0 : -1);
            EXPECT_THAT(client.GetLog(), Not(HasSubstr("LogError")));
        } else {
            EXPECT_EQ(client.m_Complete, -1);
            EXPECT_TRUE(client.m_bFailed);
            EXPECT_GT(client.GetVerifyResult(), 0);
            EXPECT_THAT(client.GetLog(), HasSubstr("SSLConnect error 1\nSSL error:"));
            EXPECT_EQ(client.GetLastError().m_Code, 120u);
            EXPECT_THAT(client.GetLastError().m_Message,
                        HasSubstr("The certificate of the server was refused: "));
            EXPECT_THAT(client.GetLastError().m_Message, HasSubstr(row.refusal));
        }
        client.HardResetSocket();
        server.Join();
        EXPECT_EQ(toldName, row.refusal != nullptr || row.name == "127.0.0.1" ? "" : row.name);
    }
}

TEST(Verification, RefusesANameThatCannotBe) {
    const Identity alone("plant", {.names = "DNS:plant.example"});
    for (const std::string& name :
         {std::string("plant.example\0.evil.example", 27), std::string(".example")}) {
        TestServer server([&](QVSocket& socket) {
            EXPECT_FALSE(TlsPeer(socket, alone).Accept());
            Drain(socket);
        });
        OpenSSLContext context(false);
        TestClient client(&context, false);
        client.SetExpectedHostName(name);
        EXPECT_TRUE(client.SetPinnedKey(PinOf(alone)));
        ASSERT_TRUE(client.Connect(server.m_Address));
        EXPECT_FALSE(client.RunUntil([&] { return client.IsComplete(); })) << name;
        EXPECT_EQ(client.GetLastError().m_Code, 120u);
        client.HardResetSocket();
    }
}

TEST(Verification, TakesNoPlainServerForTheOneAskedFor) {
    TestServer server([](QVSocket& socket) { Drain(socket); }, 2);
    for (const bool bName : {true, false}) {
        TestClient client(nullptr, false);
        if (bName)
            client.SetExpectedHostName("plant.example");
        else
            EXPECT_FALSE(client.SetPinnedKey("not a key"));
        ASSERT_TRUE(client.Connect(server.m_Address));
        EXPECT_FALSE(client.RunUntil([&] { return client.IsComplete(); }));
        EXPECT_EQ(client.GetLastError().m_Code, 120u);
        EXPECT_GT(client.GetVerifyResult(), 0);
        client.HardResetSocket();
    }
}

TEST(CertificateSummary, SaysWhatACertificateSays) {
    const Identity authority("Authority", kAuthority);
    const Identity identity("W\xC3\xA4rme\n1",
                            {.names = "DNS:plant.example,URI:urn:plant,IP:10.1.2.3,IP:::1"}, &authority);
    const CertificateSummary summary = CertificateSummary::Of(identity.m_Certificate.get());
    EXPECT_EQ(summary.m_Subject, "CN = W\xC3\xA4rme\\0A1");
    EXPECT_EQ(summary.m_Issuer, "CN = Authority");
    EXPECT_THAT(summary.m_Names, ElementsAre("DNS:plant.example", "URI:urn:plant", "IP:10.1.2.3",
                                             "IP:0000:0000:0000:0000:0000:0000:0000:0001"));
    EXPECT_EQ(summary.m_Key, "EC 256");
    EXPECT_EQ((summary.m_NotAfter - summary.m_NotBefore).GetValue(), 90 * CQVTimeInterval::UnitsPerDay);
    EXPECT_EQ(summary.m_KeySha256.size(), 64u);
    EXPECT_EQ(summary.m_Sha256.size(), 64u);

    X509_gmtime_adj(X509_getm_notBefore(identity.m_Certificate.get()), 0);
    ASN1_TIME_set_string(X509_getm_notBefore(identity.m_Certificate.get()), "19700101000000Z");
    EXPECT_EQ(CertificateSummary::Of(identity.m_Certificate.get()).m_NotBefore.GetValue(),
              116'444'736'000'000'000);
}
