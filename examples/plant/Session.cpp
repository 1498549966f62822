#include "Session.h"

#include <QVLib/Tls/OpenSSLContext.h>
#include <algorithm>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

Session::~Session() {
    if (m_pSSL != nullptr && m_bHandshakeDone)
        SSL_shutdown(m_pSSL);
    SSL_free(m_pSSL);
}

void Session::Begin(OpenSSLContext& context, const QVSocketAddress& peer) {
    m_Access.SetClientAddress(peer.ToText());
    m_Socket.SetNoDelay();
    m_pSSL = context.NewSSL();
    if (m_pSSL == nullptr || SSL_set_fd(m_pSSL, m_Socket.GetSocketHandle()) != 1)
        throw std::runtime_error("OpenSSL has no session left");
    SSL_set_mode(m_pSSL, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    SSL_set_options(m_pSSL, SSL_OP_CLEANSE_PLAINTEXT); // OpenSSL would keep a copy of the password
    SSL_set_accept_state(m_pSSL);
}

qvstring Session::GetName() const {
    return std::to_string(m_Number) + " (" + m_Access.m_ClientAddress +
           (m_Access.m_UserName.empty() ? "" : ", " + m_Access.m_UserName) + ")";
}

bool Session::HasCertificate() const {
    return m_bHandshakeDone && SSL_get0_peer_certificate(m_pSSL) != nullptr &&
           SSL_get_verify_result(m_pSSL) == X509_V_OK;
}

void Session::Receive() {
    if (m_State == Leaving || !Handshake())
        return;
    // No less than a record of TLS holds, so nothing stays behind in OpenSSL, where the event loop would not see it.
    unsigned char buffer[SSL3_RT_MAX_PLAIN_LENGTH];
    m_bWantsWrite = m_bWriteWaitsToRead = false;
    ERR_clear_error();
    const int count = SSL_read(m_pSSL, buffer, sizeof buffer);
    if (count > 0)
        m_Reader.Add(buffer, static_cast<unsigned int>(count));
    else if (!IsWaiting(count))
        Fail(count);
    OPENSSL_cleanse(buffer, static_cast<std::size_t>(count > 0 ? count : 0)); // there may be a password in it
}

bool Session::Handshake() {
    if (m_bHandshakeDone)
        return true;
    ERR_clear_error();
    const int result = SSL_do_handshake(m_pSSL);
    m_bHandshakeDone = result == 1;
    m_bWantsWrite = false;
    if (!m_bHandshakeDone && !IsWaiting(result))
        Fail(result);
    return m_bHandshakeDone;
}

void Session::BeginFrames(unsigned int maxLength) {
    if (!m_Reader.IsAtEnd())
        throw ProtocolError("something stands behind the logon");
    m_Reader.Clear();
    m_Reader.SetMaxLength(maxLength);
}

void Session::Send(Message& message) {
    if (GetUnsent() == 0)
        m_LastSent = Clock::now();
    // Who is slow may never have taken all, so what was taken goes as soon as it is the larger part.
    if (m_Sent > GetUnsent()) {
        m_ToSend.erase(m_ToSend.begin(), m_ToSend.begin() + static_cast<std::ptrdiff_t>(m_Sent));
        m_Sent = 0;
    }
    message.AppendTo(m_ToSend);
    if (GetUnsent() > MaxToSend)
        throw ProtocolError("it does not take what it is sent");
}

void Session::Flush() {
    while (m_bHandshakeDone && m_Sent != m_ToSend.size()) {
        ERR_clear_error();
        const std::size_t wanted = std::min<std::size_t>(m_ToSend.size() - m_Sent, 1u << 20);
        const int count = SSL_write(m_pSSL, m_ToSend.data() + m_Sent, static_cast<int>(wanted));
        if (count <= 0) {
            if (!IsWaiting(count))
                Fail(count);
            m_bWriteWaitsToRead = !m_bWantsWrite;
            return;
        }
        m_bWantsWrite = false;
        m_Sent += static_cast<std::size_t>(count);
        m_LastSent = Clock::now();
    }
    m_Sent = 0;
    m_ToSend.clear();
    if (!m_pRead)
        m_ToSend.shrink_to_fit();
}

std::chrono::milliseconds Session::GetStuckTime() const {
    return GetUnsent() == 0 && !m_pRead
               ? std::chrono::milliseconds(0)
               : std::chrono::floor<std::chrono::milliseconds>(Clock::now() - m_LastSent);
}

bool Session::IsWaiting(int result) {
    const int error = SSL_get_error(m_pSSL, result);
    m_bWantsWrite = error == SSL_ERROR_WANT_WRITE;
    return error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE;
}

void Session::Fail(int result) {
    const int error = SSL_get_error(m_pSSL, result);
    const unsigned long number = ERR_peek_error();
    const char* const text = ERR_reason_error_string(number);
    const bool bAbrupt =
        error == SSL_ERROR_SYSCALL || ERR_GET_REASON(number) == SSL_R_UNEXPECTED_EOF_WHILE_READING;
    if (error == SSL_ERROR_ZERO_RETURN || (bAbrupt && m_bHandshakeDone))
        throw SessionEnded(bAbrupt ? "the connection broke" : "it ended the connection");
    std::string reason = bAbrupt           ? "the connection broke in the handshake"
                         : text != nullptr ? text
                                           : "TLS failed";
    if (const long verified = SSL_get_verify_result(m_pSSL); verified != X509_V_OK)
        reason += std::string(": ") + X509_verify_cert_error_string(verified);
    m_bHandshakeDone = false; // no shutdown is sent after a failure
    throw ProtocolError(reason);
}
