// How OpenSSLClientSocket verifies a server, where somebody asked for it.
#include <QVLib/Tls/OpenSSLClientSocket.h>

#include <QVLib/Resources/Messages.h>
#include <QVLib/Tls/CertificateSummary.h>

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

namespace {

constexpr size_t kHashSize = 32;

// Where a session keeps the socket that it belongs to.
int SocketIndex() {
    static const int index = SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
    return index;
}

int HexDigit(char c) {
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                  : -1;
}

// What is wrong with the issuer alone, which a pinned key makes up for.
bool IsAboutIssuer(int error) {
    switch (error) {
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_CERT_UNTRUSTED:
        return true;
    default:
        return false;
    }
}

bool HasKey(X509* certificate, const qvstring& pinnedKey) {
    qvstring hash;
    return certificate != nullptr && CertificateSummary::HashPublicKey(certificate, hash) &&
           hash == pinnedKey;
}

// Demands a name, or an address; false for a text that can be neither.
bool ExpectHost(SSL* ssl, const qvstring& name) {
    X509_VERIFY_PARAM* const parameters = SSL_get0_param(ssl);
    // Behind a leading dot, OpenSSL would take every name.
    if (name.find('\0') != qvstring::npos || name.front() == '.')
        return false;
    if (X509_VERIFY_PARAM_set1_ip_asc(parameters, name.c_str()) == 1)
        return true;
    ERR_clear_error();
    X509_VERIFY_PARAM_set_hostflags(parameters, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    return X509_VERIFY_PARAM_set1_host(parameters, name.data(), name.size()) == 1 &&
           SSL_set_tlsext_host_name(ssl, name.c_str()) == 1;
}

} // namespace

bool OpenSSLClientSocket::SetPinnedKey(const qvstring& sha256) {
    m_PinnedKey.clear();
    if (sha256.empty())
        return true;
    qvstring hash;
    int high = -1; // the first half of a byte
    for (const char c : sha256) {
        const int digit = HexDigit(c);
        if (digit < 0 ? c != ':' || high >= 0 : hash.size() == kHashSize) {
            hash.clear();
            break;
        }
        if (digit >= 0 && high >= 0)
            hash += static_cast<char>(high * 16 + digit);
        if (digit >= 0)
            high = high >= 0 ? -1 : digit;
    }
    const bool bValid = hash.size() == kHashSize && high < 0;
    m_PinnedKey = bValid ? hash : qvstring("none"); // which no key has for its hash
    return bValid;
}

bool OpenSSLClientSocket::IsVerifying() const {
    return (SSL_get_verify_mode(m_pSSL) & SSL_VERIFY_PEER) != 0;
}

bool OpenSSLClientSocket::PrepareVerification() {
    m_VerifyResult = -1;
    KeepPeerCertificate(nullptr);
    const bool bTrust = IsVerifying();
    if (!bTrust && m_ExpectedHostName.empty() && m_PinnedKey.empty())
        return true;
    m_bChainDemanded = bTrust || m_PinnedKey.empty();
    SSL_set_verify(m_pSSL, SSL_VERIFY_PEER, VerifyCallback);
    if (SSL_set_ex_data(m_pSSL, SocketIndex(), this) == 1 &&
        (m_ExpectedHostName.empty() || ExpectHost(m_pSSL, m_ExpectedHostName)))
        return true;
    m_VerifyResult = X509_V_ERR_HOSTNAME_MISMATCH;
    return FailSSLConnect("SSLConnect error %d", SSL_ERROR_SSL);
}

int OpenSSLClientSocket::VerifyCallback(int bAccepted, X509_STORE_CTX* store) {
    const auto* const ssl =
        static_cast<const SSL*>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
    auto* const socket = static_cast<OpenSSLClientSocket*>(SSL_get_ex_data(ssl, SocketIndex()));
    try {
        return socket->Verify(bAccepted != 0, store) ? 1 : 0;
    } catch (...) { // no memory
        X509_STORE_CTX_set_error(store, X509_V_ERR_OUT_OF_MEM);
        return 0;
    }
}

// Called for each certificate that is accepted, and each fault that is found; the server's own has depth 0.
bool OpenSSLClientSocket::Verify(bool bAccepted, X509_STORE_CTX* store) {
    const int depth = X509_STORE_CTX_get_error_depth(store);
    if (X509* const own = X509_STORE_CTX_get0_cert(store); own != nullptr && own != m_pPeerCertificate) {
        X509_up_ref(own);
        KeepPeerCertificate(own); // OpenSSL keeps no refused one
    }
    if (!bAccepted && !m_bChainDemanded && (depth > 0 || IsAboutIssuer(X509_STORE_CTX_get_error(store)))) {
        X509_STORE_CTX_set_error(store, X509_V_OK);
        bAccepted = true;
    }
    if (bAccepted && depth == 0 && !m_PinnedKey.empty() && !HasKey(m_pPeerCertificate, m_PinnedKey)) {
        X509_STORE_CTX_set_error(store, X509_V_ERR_APPLICATION_VERIFICATION);
        bAccepted = false;
    }
    if (!bAccepted)
        m_VerifyResult = X509_STORE_CTX_get_error(store);
    return bAccepted;
}

// After the handshake: also a server that showed no certificate at all is refused.
bool OpenSSLClientSocket::IsServerAccepted() {
    if (!IsVerifying())
        return true;
    m_VerifyResult = static_cast<int>(SSL_get_verify_result(m_pSSL));
    if (m_VerifyResult == X509_V_OK && m_pPeerCertificate == nullptr)
        m_VerifyResult = X509_V_ERR_UNSPECIFIED;
    if (m_VerifyResult == X509_V_OK && !m_PinnedKey.empty() && !HasKey(m_pPeerCertificate, m_PinnedKey))
        m_VerifyResult = X509_V_ERR_APPLICATION_VERIFICATION;
    return m_VerifyResult == X509_V_OK;
}

// Without TLS no server can show who it is.
bool OpenSSLClientSocket::IsPlainServerAccepted() {
    m_VerifyResult = -1;
    if (m_ExpectedHostName.empty() && m_PinnedKey.empty())
        return true;
    m_VerifyResult = X509_V_ERR_UNSPECIFIED;
    LogError(g_LibModule, QVMessage::PeerCertificateRefused, m_PeerDescription.c_str(),
             GetVerifyResultText());
    return false;
}

const char* OpenSSLClientSocket::GetVerifyResultText() const {
    switch (m_VerifyResult) {
    case -1:
        return "not verified";
    case X509_V_ERR_APPLICATION_VERIFICATION:
        return "its key is not the pinned one";
    default:
        return X509_verify_cert_error_string(m_VerifyResult);
    }
}

void OpenSSLClientSocket::KeepPeerCertificate(X509* certificate) {
    X509_free(m_pPeerCertificate);
    m_pPeerCertificate = certificate;
}
