// The TLS half of OpenSSLClientSocket.
#include <QVLib/Tls/OpenSSLClientSocket.h>

#include <QVLib/Resources/Messages.h>
#include <QVLib/Tls/OpenSSLContext.h>
#include <QVPlatform/BrokenPipeGuard.h>
#include <QVPlatform/Format.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

// What differs between reading and writing.
struct OpenSSLClientSocket::Transfer {
    const char* m_pOperation;
    const char* m_pErrorText;
    unsigned int m_MessageId;
    PendingOperation m_WaitsToRead;
    PendingOperation m_WaitsToWrite;
};

namespace {

int AsInt(unsigned int size) {
    return static_cast<int>(std::min<unsigned int>(size, INT_MAX));
}

bool IsFatal(int error) {
    return error == SSL_ERROR_SSL || error == SSL_ERROR_SYSCALL;
}

} // namespace

// OpenSSL tells its errors through the thread's queue, so the queue must hold nothing of others.
template<typename Call>
OpenSSLClientSocket::Outcome OpenSSLClientSocket::CallSSL(Call call) {
    Outcome outcome{};
    ERR_clear_error();
    {
        const QVBrokenPipeGuard guard;
        errno = 0;
        outcome.m_Result = call();
        outcome.m_SystemError = errno;
    }
    if (outcome.m_Result <= 0) {
        outcome.m_Error = SSL_get_error(m_pSSL, outcome.m_Result);
        if (IsFatal(outcome.m_Error))
            m_FatalError = outcome.m_Error;
    }
    return outcome;
}

void OpenSSLClientSocket::FreeSSL() {
    SSL_free(m_pSSL);
    m_pSSL = nullptr;
    m_FatalError = 0;
}

bool OpenSSLClientSocket::StartTLS() {
    if (m_pSSL != nullptr)
        return true;
    ERR_clear_error();
    m_pSSL = m_pContext->NewSSL();
    BIO* const bio = m_pSSL == nullptr ? nullptr : BIO_new_socket(m_Socket.GetSocketHandle(), BIO_NOCLOSE);
    if (bio == nullptr) {
        LogSSLErrors("Unable to create TLS session");
        FreeSSL();
        return false;
    }
    SSL_set_bio(m_pSSL, bio, bio);
    SSL_set_connect_state(m_pSSL);
    // What would block is written again by the derived class, whose queue may have moved meanwhile.
    SSL_set_mode(m_pSSL, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    if (PrepareVerification() && SSLConnect())
        return true;
    FreeSSL();
    return false;
}

bool OpenSSLClientSocket::SSLConnect() {
    Log("SSLConnect...");
    const Outcome outcome = CallSSL([this] { return SSL_connect(m_pSSL); });
    if (outcome.m_Result == 1)
        return CompleteSSLConnect();
    if (outcome.m_Result == 0)
        return FailSSLConnect("SSLConnect not successful, error %d", outcome.m_Error);
    switch (outcome.m_Error) {
    case SSL_ERROR_WANT_READ:
        if (m_bLogReadWrite)
            Log("SSLConnect want read");
        m_PendingOperation = ConnectWaitsToRead;
        return true;
    case SSL_ERROR_WANT_WRITE:
        if (m_bLogReadWrite)
            Log("SSLConnect want write");
        m_PendingOperation = ConnectWaitsToWrite;
        return true;
    default:
        return FailSSLConnect("SSLConnect error %d", outcome.m_Error);
    }
}

bool OpenSSLClientSocket::FailSSLConnect(const char* format, int error) {
    char text[64];
    qv_sprintf(text, sizeof text, format, error);
    LogSSLErrors("%s", text);
    if (m_VerifyResult > 0)
        LogError(g_LibModule, QVMessage::PeerCertificateRefused, m_PeerDescription.c_str(),
                 GetVerifyResultText());
    return false;
}

bool OpenSSLClientSocket::SSLShutdown() {
    Log("SSLShutdown...");
    if (m_FatalError != 0) {
        // The session is broken, and OpenSSL must not be asked to end it.
        LogSSLErrors("SSLShutdown error %d", m_FatalError);
        return false;
    }
    const Outcome outcome = CallSSL([this] { return SSL_shutdown(m_pSSL); });
    if (outcome.m_Result >= 0) {
        if (outcome.m_Result == 1)
            Log("SSLShutdown complete");
        else if (m_bLogReadWrite)
            Log("SSLShutdown sent");
        return ShutdownSocket();
    }
    if (outcome.m_Error == SSL_ERROR_WANT_WRITE) {
        m_PendingOperation = ShutdownWaitsToWrite;
        return true;
    }
    LogSSLErrors("SSLShutdown error %d", outcome.m_Error);
    return false;
}

SocketIoResult OpenSSLClientSocket::ReadSSLData(void* buffer, unsigned int size, unsigned int& received) {
    if (m_bLogReadWrite)
        Log("SSL_read( Length %d )...", AsInt(size));
    static constexpr Transfer reading{"SSL_read", "SSL_read error", QVMessage::ReadFailed, ReadWaitsToRead,
                                      ReadWaitsToWrite};
    return FinishSSLTransfer(reading, CallSSL([&] { return SSL_read(m_pSSL, buffer, AsInt(size)); }),
                             received);
}

SocketIoResult OpenSSLClientSocket::WriteSSLData(const void* data, unsigned int size, unsigned int& sent) {
    if (m_bLogReadWrite)
        Log("SSL_write( Length %d )...", AsInt(size));
    static constexpr Transfer writing{"SSL_write", "SSL_write", QVMessage::WriteFailed, WriteWaitsToRead,
                                      WriteWaitsToWrite};
    return FinishSSLTransfer(writing, CallSSL([&] { return SSL_write(m_pSSL, data, AsInt(size)); }), sent);
}

SocketIoResult OpenSSLClientSocket::FinishSSLTransfer(const Transfer& transfer, const Outcome& outcome,
                                                      unsigned int& moved) {
    if (outcome.m_Result >= 1) {
        moved = static_cast<unsigned int>(outcome.m_Result);
        return SocketIoDone;
    }
    if (outcome.m_Error == SSL_ERROR_WANT_READ || outcome.m_Error == SSL_ERROR_WANT_WRITE) {
        if (m_PendingOperation != ShutdownWaitsToWrite)
            m_PendingOperation =
                outcome.m_Error == SSL_ERROR_WANT_READ ? transfer.m_WaitsToRead : transfer.m_WaitsToWrite;
        return SocketIoWouldBlock;
    }
    if (m_bLogReadWrite)
        Log("%s() returns %d, and SSL_get_error() returns %d", transfer.m_pOperation, outcome.m_Result,
            outcome.m_Error);
    if (outcome.m_Error == SSL_ERROR_ZERO_RETURN || outcome.m_Result == 0) {
        HandleSSLSocketClosure(transfer.m_pOperation);
        return SocketIoClosed;
    }
    if (outcome.m_Error == SSL_ERROR_SYSCALL)
        LogSocketError(outcome.m_SystemError, g_LibModule, transfer.m_MessageId);
    else
        LogSSLErrors("%s", transfer.m_pErrorText);
    return SocketIoError;
}

void OpenSSLClientSocket::HandleSSLSocketClosure(const char* operation) {
    const int error = SSL_get_error(m_pSSL, 0);
    if (error == SSL_ERROR_ZERO_RETURN) {
        Log("Connection shutdown cleanly");
        LogError(g_LibModule, QVMessage::ConnectionShutDown, m_PeerDescription.c_str());
    } else {
        LogSSLErrors("%s detected socket closure (error %d)", operation, error);
        LogError(g_LibModule, QVMessage::SecureConnectionClosed, m_PeerDescription.c_str());
    }
    CloseSocket(SSLClosure);
}

void OpenSSLClientSocket::LogSSLErrors(const char* format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    qv_vsprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    Log("%s", text);
    while (const unsigned long error = ERR_get_error()) {
        ERR_error_string_n(error, text, sizeof text);
        Log("SSL %s", text);
    }
}

bool OpenSSLClientSocket::CompleteSSLConnect() {
    KeepPeerCertificate(SSL_get_peer_certificate(m_pSSL));
    if (!IsServerAccepted()) {
        m_FatalError = SSL_ERROR_SSL;
        return FailSSLConnect("SSLConnect error %d", SSL_ERROR_SSL);
    }
    Log("SSLConnect complete");
    m_ConnectionState = Connected;
    char cipher[256];
    OpenSSLContext::GetCipherName(m_pSSL, cipher, sizeof cipher);
    Log("Cipher: %s", cipher);
    ConnectComplete(0);
    return true;
}
