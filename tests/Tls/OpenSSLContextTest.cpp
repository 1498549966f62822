#include <QVLib/Tls/OpenSSLContext.h>

#include <QVLib/Tls/CertificateAndKey.h>
#include <QVLib/Tls/OpenSSLBase.h>
#include <QVPlatform/FilePath.h>
#include <QVPlatform/NetworkInfo.h>
#include <QVPlatform/OutputLog.h>

#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <openssl/err.h>
#include <openssl/ssl.h>

using testing::HasSubstr;
using testing::StartsWith;

TEST(OpenSSLContext, MakesSessionsOfItsKind) {
    SSL_CTX* const plain = SSL_CTX_new(TLS_client_method());
    for (const bool bServer : {true, false}) {
        OpenSSLContext context(bServer);
        SSL* const ssl = context.NewSSL();
        ASSERT_NE(ssl, nullptr);
        EXPECT_EQ(SSL_is_server(ssl), bServer ? 1 : 0);
        EXPECT_EQ(SSL_get_min_proto_version(ssl), bServer ? 0x0301 : SSL_CTX_get_min_proto_version(plain));
        EXPECT_EQ(SSL_get_verify_mode(ssl), SSL_VERIFY_NONE);
        EXPECT_EQ(SSL_get_options(ssl) & SSL_OP_IGNORE_UNEXPECTED_EOF, 0u);

        char name[256] = "";
        EXPECT_FALSE(OpenSSLContext::GetCipherName(nullptr, name, sizeof name));
        EXPECT_STREQ(name, "** No SSL **");
        EXPECT_FALSE(OpenSSLContext::GetCipherName(ssl, name, 10));
        EXPECT_STREQ(name, "** No cip");
        SSL_free(ssl);
    }
    SSL_CTX_free(plain);
}

TEST(OpenSSLContext, CanBeSetUpAgainAfterItsEnd) {
    OpenSSLContext::CleanupOpenSSL();
    OpenSSLContext::InitializeOpenSSL();
    OpenSSLContext::InitializeOpenSSL();
    OpenSSLContext::Win32LockingCallback(1 | 4, 0, "", 0);
    OpenSSLContext::Win32LockingCallback(2 | 4, 0, "", 0);
    OpenSSLContext::Win32LockingCallback(1 | 8, 0, "", 0);
    OpenSSLContext::Win32LockingCallback(2 | 8, 0, "", 0);
    OpenSSLContext context(false);
    SSL* const ssl = context.NewSSL();
    EXPECT_NE(ssl, nullptr);
    SSL_free(ssl);
}

// A trust that is not there must not leave a client that takes everybody.
TEST(OpenSSLContext, VerifiesAlsoWhenItsTrustCouldNotBeRead) {
    const TemporaryFolder folder;
    folder.Write("no.cer", "no certificate");
    for (const char* name : {"no.cer", "none.cer"}) {
        OpenSSLContext context(false);
        COutputLogToString log;
        EXPECT_FALSE(context.SetTrustFile(folder.File(name), &log));
        EXPECT_THAT(log.GetString(), StartsWith("SSL error:"));
        SSL* const ssl = context.NewSSL();
        EXPECT_EQ(SSL_get_verify_mode(ssl), SSL_VERIFY_PEER);
        SSL_free(ssl);
    }
    OpenSSLContext context(false);
    COutputLogToString log;
    EXPECT_FALSE(context.SetTrustFolder(folder.File("none"), &log));
    EXPECT_THAT(log.GetString(), HasSubstr("No such file"));
    EXPECT_TRUE(context.SetTrustFolder(folder.GetFilePath(), &log));
    EXPECT_TRUE(context.SetSystemTrust(&log));
}

TEST(OpenSSLBase, OpensFilesTellsErrorsAndReadsTexts) {
    const TemporaryFolder folder;
    folder.Write("\xC3\xA4.txt", "text");
    ERR_clear_error();
    BIO* const bio = OpenSSLBase::BIONewFileFromFilePath(folder.File("\xC3\xA4.txt"), "r");
    ASSERT_NE(bio, nullptr);
    char buffer[8] = "";
    EXPECT_EQ(BIO_read(bio, buffer, sizeof buffer), 4);
    BIO_free(bio);

    COutputLogToString log;
    EXPECT_EQ(OpenSSLBase::BIONewFileFromFilePath(folder.File("none"), "r"), nullptr);
    OpenSSLBase().LogSSLErrors(&log);
    EXPECT_THAT(log.GetString(), StartsWith("SSL error:"));
    EXPECT_EQ(ERR_peek_error(), 0u);
    // Cut to fit, this would be another file, and one that can be made.
    EXPECT_EQ(OpenSSLBase::BIONewFileFromFilePath(
                  CQVFilePath(folder.GetPath() + qvstring(2000, '/') + "a/" + qvstring(100, 'b')), "w"),
              nullptr);
    log.Clear();
    OpenSSLBase().LogSSLErrors(&log);
    EXPECT_THAT(log.GetString(), HasSubstr("File name too long"));

    qvstring text = "before";
    OpenSSLBase::QVStringFromIA5String(reinterpret_cast<const unsigned char*>("\xC3\xA4\0b"), 4, text);
    EXPECT_EQ(text, qvstring("\xC3\xA4\0b", 4));
    OpenSSLBase::QVStringFromIA5String(nullptr, 0, text);
    EXPECT_EQ(text, "");
}

// A pair that does not belong together, or is not there, is refused before a client sees it.
TEST(OpenSSLContext, TakesOnlyACertificateWithItsKey) {
    const TemporaryFolder folder;
    COutputLogToString log;
    CertificateAndKeyInFilePath pair("server", folder.GetFilePath());
    OpenSSLContext context(true);
    EXPECT_FALSE(context.SetCertificateAndKey(pair, &log));
    const QVNetworkInfo network = QVNetworkInfo::OfThisMachine();
    ASSERT_TRUE(pair.InitCertificateAndKey(CertificateAndKey::CertificateSelfSigned, nullptr, "X", "",
                                           nullptr, network, &log));
    EXPECT_TRUE(context.SetCertificateAndKey(pair, &log)) << log.GetString();

    CertificateAndKeyInFilePath other("other", folder.GetFilePath());
    ASSERT_TRUE(other.InitCertificateAndKey(CertificateAndKey::CertificateSelfSigned, nullptr, "X", "",
                                            nullptr, network, &log));
    ASSERT_TRUE(pair.GetCertificateFile().ReplaceFileWith(other.GetCertificateFile()));
    ASSERT_TRUE(pair.ReadCertificate(&log));
    log.Clear();
    EXPECT_FALSE(context.SetCertificateAndKey(pair, &log));
    EXPECT_THAT(log.GetString(), HasSubstr("key values mismatch"));
}
