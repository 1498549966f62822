// Session - the server's end of one TLS connection, with whoever is at the other end.
//
// It receives frames and sends them, without waiting. The server asks it for frames, hands it messages, and ends it when
// one of these throws: what a client does wrong, and the end of its connection, are exceptions.
//
// Hostile clients: what waits to be sent is limited, as is the length of a frame; one read at a time takes one record of
// TLS, so that a client that sends without end has its turn like all others.
#pragma once

#include "Store.h"
#include "Wire.h"

#include <QVLib/Security/ClientAccessContext.h>
#include <QVLib/Security/UserAccessToken.h>
#include <QVPlatform/Socket.h>
#include <chrono>
#include <memory>
#include <optional>

class OpenSSLContext;
typedef struct ssl_st SSL;

// The other side has left; no fault of anybody.
class SessionEnded : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Session {
public:
    using Clock = std::chrono::steady_clock;

    enum State {
        Stranger,  // handshake or logon is still to come
        LoggingOn, // the password is being checked
        Client,
        Standby,
        Leaving, // gets what waits to be sent, and is read no more
    };
    static constexpr std::size_t MaxToSend = MaxFrame + (64u << 10);

    explicit Session(unsigned int number) : m_Number(number) {}
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // The socket was accepted into GetSocket().
    void Begin(OpenSSLContext& context, const QVSocketAddress& peer);
    QVSocket& GetSocket() { return m_Socket; }
    // "7 (127.0.0.1:40112, maria)", for the log.
    qvstring GetName() const;
    // The other side has shown a certificate that the context trusts.
    bool HasCertificate() const;

    bool WantsToRead() const { return m_State != Leaving && GetUnsent() < MaxToSend / 2; }
    bool WantsToWrite() const {
        return m_bWantsWrite || (!m_bWriteWaitsToRead && (GetUnsent() != 0 || m_pRead));
    }
    // Takes in what has arrived, at most one record of TLS.
    void Receive();
    bool NextFrame(std::span<const unsigned char>& frame) { return m_Reader.Next(frame); }
    // What has been received was a logon, which is wiped; frames of another length are taken from now on. Throws
    // ProtocolError when something stands behind it.
    void BeginFrames(unsigned int maxLength);
    void Send(Message& message);
    // Sends what fits.
    void Flush();
    std::size_t GetUnsent() const { return m_ToSend.size() - m_Sent; }
    // How long the other side has taken nothing of what waits for it, or of the range that it has asked for.
    std::chrono::milliseconds GetStuckTime() const;

    const unsigned int m_Number;
    State m_State = Stranger;
    Clock::time_point m_Since = Clock::now(); // in this state
    CClientAccessContext m_Access{qvstring()};
    std::unique_ptr<CQVUserAccessToken> m_pToken;
    bool m_bFollows = false;
    // The range that is being sent.
    std::unique_ptr<Store::Reader> m_pRead;
    unsigned int m_ReadNumber = 0;
    unsigned int m_Skipped = 0; // live records, because the client takes too few

private:
    bool Handshake();
    [[noreturn]] void Fail(int result);
    bool IsWaiting(int result);

    QVSocket m_Socket;
    SSL* m_pSSL = nullptr;
    FrameReader m_Reader{MaxClientFrame};
    std::vector<unsigned char> m_ToSend;
    std::size_t m_Sent = 0; // of it
    Clock::time_point m_LastSent = Clock::now();
    bool m_bHandshakeDone = false;
    bool m_bWantsWrite = false; // a step of TLS waits for room
    bool m_bWriteWaitsToRead = false;
};
