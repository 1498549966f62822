// What OpenSSLClientSocket costs beside OpenSSL, or sockets, used directly in the same event loop against the
// same server in a thread. Processor time of both ends.
//
//   Handshake   connect, shake hands, drop the connection
//   Echo        1 MiB to the server and back over TLS
//   PlainEcho   the same without TLS
#include <QVLib/Tls/OpenSSLClientSocket.h>
#include <QVLib/Tls/OpenSSLContext.h>
#include <QVPlatform/BrokenPipeGuard.h>
#include <QVPlatform/OutputLog.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cerrno>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr unsigned int kEchoSize = 1U << 20;
constexpr unsigned int kBufferSize = 64U << 10;

void UseNewCertificate(SSL_CTX* context) {
    EVP_PKEY* const key = EVP_EC_gen("P-256");
    X509* const certificate = X509_new();
    X509_gmtime_adj(X509_getm_notBefore(certificate), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 86400);
    X509_set_pubkey(certificate, key);
    X509_sign(certificate, key, EVP_sha256());
    SSL_CTX_use_certificate(context, certificate);
    SSL_CTX_use_PrivateKey(context, key);
    X509_free(certificate);
    EVP_PKEY_free(key);
}

// Sends back what comes, one connection after the other.
class EchoServer {
public:
    explicit EchoServer(bool bTls) : m_bTls(bTls) {
        std::vector<QVSocketAddress> candidates;
        qvstring problem;
        QVSocketAddress::Resolve("127.0.0.1:0", true, candidates, problem);
        m_Listener.Listen(candidates.at(0));
        m_Listener.GetSocketName(m_Address);
        UseNewCertificate(m_pContext);
        m_Thread = std::thread([this] { Run(); });
    }
    ~EchoServer() {
        m_Stop.Set();
        m_Thread.join();
        SSL_CTX_free(m_pContext);
    }

    QVSocketAddress m_Address;

private:
    void Run() {
        while (m_Listener.WaitForConnection(-1, &m_Stop) == QVWaitResult::Ready) {
            QVSocket socket;
            QVSocketAddress peer;
            if (m_Listener.AcceptConnection(socket, peer))
                m_bTls ? ServeTls(socket) : ServePlain(socket);
        }
    }

    template<typename Call>
    int Retry(QVSocket& socket, SSL* ssl, Call call) {
        for (;;) {
            const QVBrokenPipeGuard guard;
            const int result = call();
            const int error = SSL_get_error(ssl, result);
            if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE)
                return result;
            const auto event = error == SSL_ERROR_WANT_READ ? QVSocket::Readable : QVSocket::Writable;
            if (socket.WaitFor(event, -1, &m_Stop) != QVWaitResult::Ready)
                return -1;
        }
    }

    void ServeTls(QVSocket& socket) {
        SSL* const ssl = SSL_new(m_pContext);
        SSL_set_fd(ssl, socket.GetSocketHandle());
        int count = Retry(socket, ssl, [&] { return SSL_accept(ssl); });
        while (count > 0) {
            count = Retry(socket, ssl, [&] { return SSL_read(ssl, m_Buffer.data(), kBufferSize); });
            if (count > 0)
                count = Retry(socket, ssl, [&] { return SSL_write(ssl, m_Buffer.data(), count); });
        }
        SSL_free(ssl);
    }

    void ServePlain(QVSocket& socket) {
        while (socket.WaitFor(QVSocket::Readable, -1, &m_Stop) == QVWaitResult::Ready) {
            const int count = socket.RecvData(m_Buffer.data(), kBufferSize);
            if (count <= 0)
                return;
            for (int sent = 0; sent < count;) {
                if (socket.WaitFor(QVSocket::Writable, -1, &m_Stop) != QVWaitResult::Ready)
                    return;
                sent +=
                    std::max(0, socket.SendData(m_Buffer.data() + sent, static_cast<unsigned>(count - sent)));
            }
        }
    }

    const bool m_bTls;
    SSL_CTX* const m_pContext = SSL_CTX_new(TLS_server_method());
    std::string m_Buffer = std::string(kBufferSize, '\0');
    QVSocketListener m_Listener;
    QVWakeEvent m_Stop;
    std::thread m_Thread;
};

// Ours.
class LibraryClient : public OpenSSLClientSocket {
public:
    explicit LibraryClient(bool bTls)
        : OpenSSLClientSocket("server", CQVLocale(), &m_Context, bTls, false, &m_Log) {}

    bool Connect(QVSocketAddress& address) {
        m_bComplete = false;
        bool bUsable = CreateSocket(address.GetFamily()) == 0 &&
                       StartConnect(address.GetSockAddr(), static_cast<int>(address.GetLength()));
        while (bUsable && !m_bComplete)
            bUsable = Step();
        return m_bComplete;
    }
    bool Echo() {
        m_ToSend = m_ToReceive = kEchoSize;
        bool bUsable = ProcessWriteData();
        while (bUsable && m_ToReceive > 0)
            bUsable = Step();
        return m_ToReceive == 0;
    }

    void ConnectComplete(int errorCode) override { m_bComplete = errorCode == 0; }
    bool ProcessReadData() override {
        if (!m_bComplete)
            return true;
        unsigned int received;
        SocketIoResult result;
        while ((result = ReadData(m_Buffer.data(), kBufferSize, received)) == SocketIoDone)
            m_ToReceive -= received;
        return result == SocketIoWouldBlock && ProcessWriteData();
    }
    bool ProcessWriteData() override {
        unsigned int sent;
        while (m_ToSend > 0) {
            const SocketIoResult result = WriteData(m_Data.data(), std::min(m_ToSend, kBufferSize), sent);
            if (result != SocketIoDone)
                return result == SocketIoWouldBlock;
            m_ToSend -= sent;
        }
        return true;
    }
    void SocketClosing(SocketCloseCause) override {}
    void SocketClosed(SocketCloseCause) override {}

private:
    bool Step() {
        const unsigned int events = IsSocketWriteInProgress(m_ToSend > 0)
                                        ? QVSocket::Readable | QVSocket::Writable
                                        : QVSocket::Readable;
        QVSocketInterest interest{&GetSocket(), events};
        qv_wait_for_sockets({&interest, 1}, -1);
        return (!(interest.m_Ready & QVSocket::Readable) || ProcessReadEvent()) &&
               (!(interest.m_Ready & QVSocket::Writable) || ProcessWriteEvent());
    }

    OpenSSLContext m_Context{false};
    COutputLogNull m_Log;
    std::string m_Buffer = std::string(kBufferSize, '\0');
    std::string m_Data = std::string(kBufferSize, 'd');
    unsigned int m_ToSend = 0;
    unsigned int m_ToReceive = 0;
    bool m_bComplete = false;
};

// The same by hand. SIGPIPE is not looked after.
class DirectClient {
public:
    explicit DirectClient(bool bTls) : m_bTls(bTls) {}
    ~DirectClient() {
        HardResetSocket();
        SSL_CTX_free(m_pContext);
    }

    bool Connect(QVSocketAddress& address) {
        m_Socket.CreateSocket(address.GetFamily(), QVSocket::StreamType, QVSocket::TcpProtocol);
        m_Socket.SetNonBlocking();
        if (!m_Socket.ConnectSocket(address)) {
            Wait(QVSocket::Readable | QVSocket::Writable);
            if (!m_Socket.CheckSocketError())
                return false;
        }
        if (!m_bTls)
            return true;
        m_pSSL = SSL_new(m_pContext);
        SSL_set_fd(m_pSSL, m_Socket.GetSocketHandle());
        SSL_set_mode(m_pSSL, SSL_MODE_ENABLE_PARTIAL_WRITE);
        int result;
        while ((result = SSL_connect(m_pSSL)) <= 0) {
            const int error = SSL_get_error(m_pSSL, result);
            if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE)
                return false;
            Wait(error == SSL_ERROR_WANT_READ ? QVSocket::Readable : QVSocket::Writable);
        }
        return true;
    }
    bool Echo() {
        unsigned int toSend = kEchoSize;
        unsigned int toReceive = kEchoSize;
        for (;;) {
            int count;
            while (toSend > 0 && (count = Write(std::min(toSend, kBufferSize))) > 0)
                toSend -= static_cast<unsigned int>(count);
            while ((count = Read()) > 0)
                toReceive -= static_cast<unsigned int>(count);
            if (toReceive == 0 || !WouldBlock(count))
                return toReceive == 0;
            Wait(toSend > 0 ? QVSocket::Readable | QVSocket::Writable : QVSocket::Readable);
        }
    }
    void HardResetSocket() {
        SSL_free(m_pSSL);
        m_pSSL = nullptr;
        m_Socket.HardResetAndCloseSocket();
    }

private:
    int Read() {
        return m_bTls ? SSL_read(m_pSSL, m_Buffer.data(), kBufferSize)
                      : m_Socket.RecvData(m_Buffer.data(), kBufferSize);
    }
    int Write(unsigned int count) {
        return m_bTls ? SSL_write(m_pSSL, m_Data.data(), static_cast<int>(count))
                      : m_Socket.SendData(m_Data.data(), count);
    }
    bool WouldBlock(int count) {
        return m_bTls ? SSL_get_error(m_pSSL, count) == SSL_ERROR_WANT_READ
                      : m_Socket.GetLastError() == EAGAIN;
    }
    void Wait(unsigned int events) {
        QVSocketInterest interest{&m_Socket, events};
        qv_wait_for_sockets({&interest, 1}, -1);
    }

    const bool m_bTls;
    SSL_CTX* const m_pContext = SSL_CTX_new(TLS_client_method());
    SSL* m_pSSL = nullptr;
    QVSocket m_Socket;
    std::string m_Buffer = std::string(kBufferSize, '\0');
    std::string m_Data = std::string(kBufferSize, 'd');
};

template<typename Client>
void Handshake(benchmark::State& state) {
    EchoServer server(true);
    Client client(true);
    for (auto _ : state) {
        if (!client.Connect(server.m_Address))
            state.SkipWithError("not connected");
        client.HardResetSocket();
    }
}
BENCHMARK(Handshake<DirectClient>)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(Handshake<LibraryClient>)->MeasureProcessCPUTime()->UseRealTime();

template<typename Client>
void EchoOver(benchmark::State& state, bool bTls) {
    EchoServer server(bTls);
    Client client(bTls);
    if (!client.Connect(server.m_Address))
        state.SkipWithError("not connected");
    for (auto _ : state) {
        if (!client.Echo())
            state.SkipWithError("not echoed");
    }
    client.HardResetSocket();
}
template<typename Client>
void Echo(benchmark::State& state) {
    EchoOver<Client>(state, true);
}
BENCHMARK(Echo<DirectClient>)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(Echo<LibraryClient>)->MeasureProcessCPUTime()->UseRealTime();
template<typename Client>
void PlainEcho(benchmark::State& state) {
    EchoOver<Client>(state, false);
}
BENCHMARK(PlainEcho<DirectClient>)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(PlainEcho<LibraryClient>)->MeasureProcessCPUTime()->UseRealTime();

} // namespace
