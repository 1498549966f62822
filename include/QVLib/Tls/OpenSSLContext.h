// OpenSSLContext - what the TLS sessions of a program have in common, and OpenSSL's set-up for the process.
//
//     OpenSSLContext context(false); // for clients; one for all connections of a program
//     COutputLogToString problems;
//     if (!context.SetTrustFile(CQVFilePath("authority.cer"), &problems))
//         ...
//
// A context by itself verifies nothing: a client takes every server. Name what is to be trusted, and every
// client session of the context refuses servers whose certificate does not lead there, or is outside its
// dates. OpenSSLClientSocket.h has what is asked of a single server: its name, its key.
//
// A server's context needs SetCertificateAndKey(). Given something to trust, it asks its clients for certificates and
// refuses those whose certificate does not lead there or is outside its dates. A client may still show none:
// SSL_get_peer_certificate() of the session tells, for those who are to be known by theirs.
//
// Versions:  servers take TLS 1.0 and later, clients what OpenSSL takes by itself. The machine's security
//            level (openssl.cnf, CipherString) may still refuse old peers: at level 2, where Debian starts,
//            nothing before TLS 1.2 is left.
// Errors:    a context that OpenSSL could not make gives no sessions; NewSSL() is then null.
// Threads:   sessions of one context may be used by several threads. The first contexts must not be made by
//            two threads at once, nor a context be changed while another thread makes a session.
#pragma once

#include <mutex>

class COutputLog;
class CQVFilePath;
class CertificateAndKey;
typedef struct ssl_st SSL;
typedef struct ssl_ctx_st SSL_CTX;

class OpenSSLContext {
public:
    // For servers, or for clients. Sets up OpenSSL where that has not been done.
    explicit OpenSSLContext(bool server);
    ~OpenSSLContext();
    OpenSSLContext(const OpenSSLContext&) = delete;
    OpenSSLContext& operator=(const OpenSSLContext&) = delete;

    // A new session, the caller's to free (SSL_free); null when OpenSSL has none to give.
    SSL* NewSSL();

    // Turn verification on, and trust the certificates of a PEM file; those of a folder whose files are named
    // by their hashes (`openssl rehash`), looked up when they are needed; or those that the machine trusts.
    // Several add up. False, with OpenSSL's errors in `log`, when they could not be read; verification is on
    // all the same, so that no server is taken on a trust that is not there.
    bool SetTrustFile(const CQVFilePath& file, COutputLog* log);
    bool SetTrustFolder(const CQVFilePath& folder, COutputLog* log);
    bool SetSystemTrust(COutputLog* log);

    // What every later session shows of itself: a server to its clients, a client to a server that asks. Both
    // parts of the pair are there and belong together; the context keeps them. False, with OpenSSL's errors in
    // `log`, when they do not, or are too weak for the machine's security level.
    bool SetCertificateAndKey(const CertificateAndKey& pair, COutputLog* log);

    // Writes OpenSSL's line about the cipher of a session into `buffer`, at most `size` bytes with the
    // terminator. False, with "** No SSL **" or "** No cipher **" instead, for null and before the handshake.
    static bool GetCipherName(SSL* ssl, char* buffer, unsigned int size);

    // Sets OpenSSL up for the process; once is enough, and making a context does it.
    static void InitializeOpenSSL();
    // For a program that will not use TLS any more; no other thread may be using it.
    static void CleanupOpenSSL();
    // A locking callback for OpenSSL versions that want one: locks mutex `n` when bit CRYPTO_LOCK (1) of
    // `mode` is set, else unlocks it. OpenSSL has locked by itself since 1.1 and does not call it.
    static void Win32LockingCallback(int mode, int n, const char* file, int line);

private:
    static bool m_bOpenSSLInitialized;
    static int m_LockCount;
    static std::mutex* m_pLockMutex; // so many

    SSL_CTX* m_pContext;
};
