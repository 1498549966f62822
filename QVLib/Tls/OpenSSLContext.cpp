#include <QVLib/Tls/OpenSSLContext.h>

#include <QVLib/Tls/CertificateAndKey.h>
#include <QVLib/Tls/OpenSSLBase.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/FilePath.h>
#include <QVPlatform/Format.h>
#include <QVPlatform/Unicode.h>

#include <cstring>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

bool OpenSSLContext::m_bOpenSSLInitialized = false;
int OpenSSLContext::m_LockCount = 0;
std::mutex* OpenSSLContext::m_pLockMutex = nullptr;

namespace {

constexpr unsigned char kSessionName[] = {'Q', 'V'};

// Turns verification on, then reports what became of naming a trust.
template<typename Load>
bool Trust(SSL_CTX* context, COutputLog* log, Load load) {
    ERR_clear_error();
    if (context != nullptr) {
        SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
        if (load() == 1)
            return true;
    }
    OpenSSLBase().LogSSLErrors(log);
    return false;
}

} // namespace

OpenSSLContext::OpenSSLContext(bool server) {
    InitializeOpenSSL();
    m_pContext = SSL_CTX_new(server ? TLS_server_method() : TLS_client_method());
    if (server && m_pContext != nullptr) {
        SSL_CTX_set_min_proto_version(m_pContext, TLS1_VERSION);
        // Without a name for them, sessions could not be resumed once certificates are asked for.
        SSL_CTX_set_session_id_context(m_pContext, kSessionName, sizeof kSessionName);
    }
}

OpenSSLContext::~OpenSSLContext() {
    SSL_CTX_free(m_pContext);
}

SSL* OpenSSLContext::NewSSL() {
    return SSL_new(m_pContext);
}

bool OpenSSLContext::SetTrustFile(const CQVFilePath& file, COutputLog* log) {
    return Trust(m_pContext, log,
                 [&] { return SSL_CTX_load_verify_locations(m_pContext, file.GetPathCStr(), nullptr); });
}

bool OpenSSLContext::SetTrustFolder(const CQVFilePath& folder, COutputLog* log) {
    return Trust(m_pContext, log, [&] {
        // OpenSSL does not look at the folder before it needs something of it.
        if (!folder.FileExists()) {
            ERR_put_error(ERR_LIB_SYS, 0, ENOENT, __FILE__, __LINE__);
            return 0;
        }
        return SSL_CTX_load_verify_locations(m_pContext, nullptr, folder.GetPathCStr());
    });
}

bool OpenSSLContext::SetSystemTrust(COutputLog* log) {
    return Trust(m_pContext, log, [&] { return SSL_CTX_set_default_verify_paths(m_pContext); });
}

bool OpenSSLContext::SetCertificateAndKey(const CertificateAndKey& pair, COutputLog* log) {
    ERR_clear_error();
    if (m_pContext != nullptr &&
        SSL_CTX_use_certificate(m_pContext, pair.GetPublicCertificate().GetX509()) == 1 &&
        SSL_CTX_use_PrivateKey(m_pContext, pair.GetPrivateKey()) == 1)
        return true;
    OpenSSLBase().LogSSLErrors(log);
    return false;
}

bool OpenSSLContext::GetCipherName(SSL* ssl, char* buffer, unsigned int size) {
    if (ssl == nullptr) {
        qv_strcpy(buffer, size, "** No SSL **");
        return false;
    }
    const SSL_CIPHER* const cipher = SSL_get_current_cipher(ssl);
    if (cipher == nullptr) {
        qv_strcpy(buffer, size, "** No cipher **");
        return false;
    }
    char description[256] = "";
    SSL_CIPHER_description(cipher, description, sizeof description);
    if (const size_t length = std::strlen(description); length > 0)
        description[length - 1] = '\0'; // its line feed
    qv_strcpy(buffer, size, description);
    return true;
}

void OpenSSLContext::InitializeOpenSSL() {
    if (m_bOpenSSLInitialized)
        return;
    m_bOpenSSLInitialized = true;
    OPENSSL_init_ssl(0, nullptr);
    OPENSSL_init_ssl(OPENSSL_INIT_LOAD_SSL_STRINGS | OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr);
    OPENSSL_init_crypto(OPENSSL_INIT_ADD_ALL_DIGESTS, nullptr);
    OPENSSL_init_crypto(OPENSSL_INIT_ADD_ALL_CIPHERS, nullptr);
    m_LockCount = 1;
    m_pLockMutex = new std::mutex[1];
}

void OpenSSLContext::CleanupOpenSSL() {
    if (!m_bOpenSSLInitialized)
        return;
    delete[] m_pLockMutex;
    m_pLockMutex = nullptr;
    m_LockCount = 0;
    m_bOpenSSLInitialized = false;
}

void OpenSSLContext::Win32LockingCallback(int mode, int n, const char* /*file*/, int /*line*/) {
    QV_ASSERT(n >= 0 && n < m_LockCount);
    constexpr int Lock = 1; // CRYPTO_LOCK, where OpenSSL still has it
    if ((mode & Lock) != 0)
        m_pLockMutex[n].lock();
    else
        m_pLockMutex[n].unlock();
}
