// What tests of connections share: certificates made in the test, a server that does as badly as it is told, and a
// client in its event loop.
#pragma once

#include <QVLib/Tls/OpenSSLClientSocket.h>
#include <QVLib/Tls/OpenSSLContext.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/Socket.h>

#include <functional>
#include <memory>
#include <openssl/ssl.h>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

constexpr int kPatience = 10'000; // ms; reached only when something is broken

// A key with its certificate.
struct Identity {
    struct Wishes {
        std::string names; // as in "DNS:plant.example,IP:127.0.0.1"; none when empty
        int daysLeft = 30; // negative: expired
        bool authority = false;
    };
    // Signed by `issuer`, by itself without one.
    Identity(const char* commonName, const Wishes& wishes, const Identity* issuer = nullptr);

    std::string GetCertificatePem() const;

    std::shared_ptr<EVP_PKEY> m_Key;
    std::shared_ptr<X509> m_Certificate;
};

// The server's end of TLS. What it sends can be cut into pieces, or end early.
class TlsPeer {
public:
    TlsPeer(QVSocket& socket, const Identity& identity, int maxVersion = 0);
    ~TlsPeer();

    bool Accept();
    // Reads until `count` bytes have come, or the end.
    std::string Read(size_t count);
    bool Write(std::string_view data);
    void SendCloseNotify();
    // Asks the client for a new handshake.
    void AskForRenegotiation();

    SSL* GetSSL() const { return m_pSSL; }

    size_t m_Segment = 65536;     // bytes sent at once
    size_t m_Budget = ~size_t{0}; // bytes that may still be sent

private:
    int Run(const std::function<int()>& operation);
    bool Flush();
    bool Receive();

    QVSocket& m_Socket;
    SSL* m_pSSL;
};

void SendAll(QVSocket& socket, std::string_view data);
// Reads and drops so many bytes, or what comes until the other side ends; true for the end, false also when it was
// reset.
bool Drain(QVSocket& socket, size_t count = ~size_t{0});

// Takes connections in, one after the other, and gives each to `work` in a thread.
class TestServer {
public:
    explicit TestServer(std::function<void(QVSocket&)> work, int connections = 1);
    ~TestServer() { Join(); }

    void Join();
    QVSocketAddress m_Address;

private:
    QVSocketListener m_Listener;
    std::thread m_Thread;
};

// A port that nobody listens on.
QVSocketAddress NobodysAddress();

class TestClient : public OpenSSLClientSocket {
public:
    TestClient(OpenSSLContext* context, bool bTrace = true)
        : OpenSSLClientSocket("server", CQVLocale(), context, context != nullptr, bTrace, &m_Log) {}

    bool Connect(const QVSocketAddress& address);
    // Runs the event loop until `done`, the end of the connection, or an event that fails; true for the first.
    bool RunUntil(const std::function<bool()>& done);
    bool RunToEnd();
    // Waits for events and handles them once.
    bool Step();
    bool IsComplete() const { return m_Complete == 0; }
    // Sends bytes past TLS until no more fit; how many.
    size_t FillRaw();
    QVSocket& GetRawSocket() { return const_cast<QVSocket&>(GetSocket()); }
    const std::string& GetLog() const { return m_Log.GetString(); }

    void ConnectComplete(int errorCode) override;
    bool ProcessReadData() override;
    bool ProcessWriteData() override;
    void SocketClosing(SocketCloseCause cause) override;
    void SocketClosed(SocketCloseCause cause) override;

    int m_Complete = -1;
    std::string m_Received;
    std::string m_ToSend;
    size_t m_Sent = 0;           // of it
    unsigned int m_Piece = 4096; // of each read and write
    SocketIoResult m_LastRead = SocketIoDone;
    SocketIoResult m_LastWrite = SocketIoDone;
    std::string m_Events; // "closing 4, closed 4"
    bool m_bFailed = false;

private:
    QVSocketAddress m_Address;
    COutputLogToString m_Log;
};
