#include "TlsTesting.h"

#include <QVLib/Resources/Messages.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <future>
#include <optional>
#include <sstream>

using testing::HasSubstr;
using testing::Not;
using Socket = OpenSSLClientSocket;

namespace {

const Identity& ServerIdentity() {
    static const Identity identity("plant.example", {.names = "DNS:plant.example"});
    return identity;
}

// Holds a server back until the client is where the test wants it, and hands over a number.
class Gate {
public:
    void Open(size_t number = 0) { m_Promise.set_value(number); }
    size_t Wait() {
        std::future<size_t> future = m_Promise.get_future();
        const bool bOpen = future.wait_for(std::chrono::milliseconds(kPatience)) == std::future_status::ready;
        EXPECT_TRUE(bOpen);
        return bOpen ? future.get() : 0;
    }

private:
    std::promise<size_t> m_Promise;
};

// What a log holds, in this order; a '*' stands for anything between.
void ExpectLines(const std::string& log, const std::string& lines) {
    std::istringstream parts(lines);
    std::size_t position = 0;
    for (std::string part; std::getline(parts, part, '*'); position += part.size()) {
        position = log.find(part, position);
        ASSERT_NE(position, std::string::npos) << part << " is missing, or not in this place, in\n" << log;
    }
}

void Echo(TlsPeer& peer, size_t count) {
    EXPECT_TRUE(peer.Write(peer.Read(count)));
}

OpenSSLContext* Tls() {
    static OpenSSLContext context(false);
    return &context;
}

} // namespace

TEST(ClientSocket, IsClosedAtFirstAndTellsWhatIsWrong) {
    EXPECT_STREQ(Socket::GetSocketCloseCauseText(Socket::ReadEvent), "ReadEvent");
    EXPECT_STREQ(Socket::GetSocketCloseCauseText(Socket::SSLClosure), "SSLClosure");
    EXPECT_STREQ(Socket::GetSocketCloseCauseText(Socket::SetupTransactionFail), "SetupTransactionFail");
    EXPECT_STREQ(Socket::GetSocketCloseCauseText(static_cast<Socket::SocketCloseCause>(9)), "** Unknown **");

    TestClient client(nullptr);
    const std::string prefix = "12345678901234567890123456789\xC3\xA9x"; // 32 bytes
    client.SetLogPrefix(prefix + "cut off");
    EXPECT_FALSE(client.StartConnect(nullptr, 0));
    EXPECT_EQ(client.GetLastError().m_Kind, 1u);
    EXPECT_EQ(client.GetLastError().m_Code, 116u);
    EXPECT_EQ(client.GetLog(), prefix + "StartConnect\n" + prefix +
                                   "LogError 116: Cannot connect without first creating a socket.\n");
    EXPECT_FALSE(client.IsSocketWriteInProgress(false));
    EXPECT_TRUE(client.IsSocketWriteInProgress(true));
    client.CloseSocket(Socket::FDClose);
    client.HardResetSocket();
    EXPECT_EQ(client.m_Events, "");

    EXPECT_EQ(client.CreateSocket(12345), EAFNOSUPPORT);
    EXPECT_EQ(client.GetLastError().m_Kind, 3u);
    EXPECT_EQ(client.GetLastError().m_Message,
              "Unable to create socket: Address family not supported by protocol");
    client.LogError(g_LibModule, QVMessage::ConnectionShutDown, std::string(2000, 'x').c_str());
    EXPECT_EQ(client.GetLastError().m_Message.size(), 1023u);
}

TEST(ClientSocket, ConnectsSpeaksAndEndsAndThenAgain) {
    const struct {
        bool bTls, bTrace;
        size_t segment; // of what a server with TLS sends
    } rows[] = {{false, false, 0}, {true, false, 65536}, {true, true, 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.segment);
        TestClient client(row.bTls ? Tls() : nullptr, row.bTrace);
        client.m_ToSend = "hello";
        for (int i = 0; i < 2; ++i) {
            Gate mayAnswer;
            TestServer server([&](QVSocket& socket) {
                mayAnswer.Wait();
                if (!row.bTls) {
                    Drain(socket, 5);
                    SendAll(socket, "hello");
                    EXPECT_TRUE(Drain(socket));
                    return;
                }
                TlsPeer peer(socket, ServerIdentity());
                peer.m_Segment = row.segment;
                EXPECT_TRUE(peer.Accept());
                Echo(peer, 5);
                peer.Read(1); // the client's close-notify
                EXPECT_EQ(SSL_get_shutdown(peer.GetSSL()) & SSL_RECEIVED_SHUTDOWN, SSL_RECEIVED_SHUTDOWN);
            });
            client.m_Sent = 0;
            client.m_Received.clear();
            client.m_Events.clear();
            ASSERT_TRUE(client.Connect(server.m_Address));
            EXPECT_EQ(client.GetConnectionState(), Socket::Connecting);
            EXPECT_TRUE(client.IsSocketWriteInProgress(false));
            EXPECT_EQ(client.m_Complete, -1); // only an event tells
            if (row.bTls) {
                ASSERT_TRUE(client.RunUntil([&] { return client.GetPendingOperation() != 0; }));
                EXPECT_EQ(client.GetPendingOperation(), Socket::ConnectWaitsToRead);
                EXPECT_EQ(client.GetConnectionState(), Socket::Connecting);
                EXPECT_FALSE(client.IsSocketWriteInProgress(true));
            }
            mayAnswer.Open();
            ASSERT_TRUE(client.RunUntil([&] { return client.m_Received == "hello"; }));
            EXPECT_EQ(client.m_Complete, 0);
            EXPECT_EQ(client.GetConnectionState(), Socket::Connected);
            EXPECT_FALSE(client.IsSocketWriteInProgress(false));
            EXPECT_EQ(client.GetRemoteSocketName(), server.m_Address.ToText());
            const std::string local = client.GetLocalSocketName();

            EXPECT_TRUE(client.StartShutdown());
            EXPECT_EQ(client.GetConnectionState(), Socket::ShutdownSent);
            EXPECT_FALSE(client.IsSocketWriteInProgress(true));
            EXPECT_TRUE(client.RunToEnd());
            EXPECT_EQ(client.m_Events, "closing 0 closed 0");
            EXPECT_EQ(client.GetRemoteSocketName() + client.GetLocalSocketName(), "");
            ExpectLines(
                client.GetLog(),
                "Socket connection complete\nRemote socket name: " + server.m_Address.ToText() +
                    "\nLocal socket name: " + local + "\n" +
                    (row.bTls
                         ? "SSLConnect...\n*SSLConnect complete\nCipher: TLS_AES_256_GCM_SHA384 *Mac=AEAD\n*"
                           "SSLShutdown...\n*"
                         : "") +
                    "Send socket shutdown to server\n*Socket closed\n");
        }
        if (row.bTrace)
            ExpectLines(
                client.GetLog(),
                "StartConnect\nProcessWrite\n*SSLConnect want read\nProcessRead\n*SSL_write( Length 5 )...\n*"
                "SSL_read( Length 4096 )...\n*SSLShutdown sent\n");
        else
            EXPECT_THAT(client.GetLog(),
                        Not(testing::ContainsRegex("Process|Length|want|sent|StartConnect|returns")));
    }
}

TEST(ClientSocket, TellsHowTheServerEnds) {
    const auto end = [](QVSocket&, TlsPeer*) {};
    const auto reset = [](QVSocket& socket, TlsPeer*) { socket.HardResetAndCloseSocket(); };
    const auto notify = [](QVSocket&, TlsPeer* peer) { peer->SendCloseNotify(); };
    const auto garbage = [](QVSocket& socket, TlsPeer*) { SendAll(socket, "no record of TLS at all"); };
    const struct {
        bool bTls;
        std::function<void(QVSocket&, TlsPeer*)> work;
        std::string outcome; // of reading, and as an error: its kind and code
        const char* lines;
    } rows[] = {
        {false, end, "2: closing 4 closed 4: 1 117",
         "LogError 117: The connection to the server was closed unexpectedly.\nSocket closed\n"},
        {false, reset, "3: closing 2 closed 2: 3 104",
         "LogSocketError 104: Connection reset by peer\nSocket closed\n"},
        {true, notify, "2: closing 7 closed 7: 1 118",
         "SSL_read() returns 0, and SSL_get_error() returns 6\n*Connection shutdown cleanly\n*"
         "LogError 118: The server shutdown the connection.\nSocket closed\n"},
        {true, end, "2: closing 7 closed 7: 1 119",
         "SSL_read detected socket closure (error 1)\nSSL error:*unexpected eof*"
         "LogError 119: The connection to the server was closed unexpectedly.\nSocket closed\n"},
        {true, reset, "3: : 3 104",
         "SSL_get_error() returns 5\nLogSocketError 104: Connection reset by peer\n"},
        {true, garbage, "3: : 0 0", "SSL_get_error() returns 1\nSSL_read error\nSSL error:"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.lines);
        TestServer server([&](QVSocket& socket) {
            std::optional<TlsPeer> peer;
            EXPECT_TRUE(!row.bTls || peer.emplace(socket, ServerIdentity()).Accept());
            if (row.bTls)
                peer->Read(1); // what is sent before may meet a reset
            else
                Drain(socket, 1);
            row.work(socket, peer ? &*peer : nullptr);
        });
        TestClient client(row.bTls ? Tls() : nullptr);
        client.m_ToSend = "x";
        ASSERT_TRUE(client.Connect(server.m_Address));
        client.RunToEnd();
        const ErrorCodeAndMessage& error = client.GetLastError();
        EXPECT_EQ(std::to_string(client.m_LastRead) + ": " + client.m_Events + ": " +
                      std::to_string(error.m_Kind) + " " + std::to_string(error.m_Code),
                  row.outcome);
        ExpectLines(client.GetLog(), row.lines);
        EXPECT_EQ(client.GetSocket().IsOpen(), client.m_Events.empty());
        if (client.GetSocket().IsOpen()) {
            // A broken session is not asked for a close-notify.
            EXPECT_FALSE(client.StartShutdown());
            EXPECT_EQ(SSL_get_shutdown(client.GetSSL()) & SSL_SENT_SHUTDOWN, 0);
            EXPECT_THAT(client.GetLog(), HasSubstr("SSLShutdown...\nSSLShutdown error "));
            client.HardResetSocket();
            EXPECT_EQ(client.m_Events, "");
        }
    }
}

TEST(ClientSocket, TellsARefusedConnection) {
    TestClient client(nullptr);
    ASSERT_TRUE(client.Connect(NobodysAddress()));
    ASSERT_EQ(client.GetSocket().WaitFor(QVSocket::Readable, kPatience), QVWaitResult::Ready);
    EXPECT_FALSE(client.ProcessReadEvent());
    EXPECT_THAT(client.GetLog(), HasSubstr("LogSocketError 111: Connection refused\n"));
    EXPECT_EQ(client.GetLastError().m_Message, "Connection refused");

    // A loop that looks at writing first learns only that there is nobody at the other end.
    ASSERT_TRUE(client.Connect(NobodysAddress()));
    ASSERT_EQ(client.GetSocket().WaitFor(QVSocket::Writable, kPatience), QVWaitResult::Ready);
    EXPECT_FALSE(client.ProcessWriteEvent());
    EXPECT_EQ(client.m_Complete, ENOTCONN);
    EXPECT_EQ(client.GetConnectionState(), Socket::Closed);
    EXPECT_FALSE(client.GetSocket().IsOpen());
    EXPECT_EQ(client.m_Events, "");
    ExpectLines(client.GetLog(),
                "LogSocketError 107: getpeername() failed: Transport endpoint is not connected\n*"
                "Close socket with hard RST\n");
    EXPECT_EQ(client.CreateSocket(NobodysAddress().GetFamily()), 0);
    EXPECT_EQ(client.GetRemoteSocketName(), "");
    EXPECT_FALSE(client.StartShutdown());
    EXPECT_THAT(client.GetLog(), HasSubstr("Send socket shutdown to server\nshutdown() returns 0x6B\n"));
}

// A server that does not read keeps the handshake, a renegotiation and the shutdown waiting for room. Bytes
// sent past TLS fill the connection, and the server takes them away when it is told how many they are.
TEST(ClientSocket, WaitsForRoomInEveryStep) {
    Gate beforeHello, mayAsk, beforeNewHello, mayAnswer, mayTell, beforeNotify;
    TestServer server([&](QVSocket& socket) {
        TlsPeer peer(socket, ServerIdentity(), TLS1_2_VERSION);
        Drain(socket, beforeHello.Wait());
        EXPECT_TRUE(peer.Accept());
        Echo(peer, 1);
        mayAsk.Wait();
        peer.AskForRenegotiation();
        Drain(socket, beforeNewHello.Wait());
        mayAnswer.Wait();
        Echo(peer, 5);
        mayTell.Wait();
        EXPECT_TRUE(peer.Write("late"));
        Drain(socket, beforeNotify.Wait());
        EXPECT_EQ(peer.Read(1), "");
    });
    TestClient client(Tls());
    ASSERT_TRUE(client.Connect(server.m_Address));
    ASSERT_EQ(client.GetSocket().WaitFor(QVSocket::Writable, kPatience), QVWaitResult::Ready);
    size_t junk = client.FillRaw();
    EXPECT_TRUE(client.ProcessWriteEvent());
    EXPECT_EQ(client.GetPendingOperation(), Socket::ConnectWaitsToWrite);
    EXPECT_TRUE(client.IsSocketWriteInProgress(false));
    beforeHello.Open(junk);
    client.m_ToSend = "x";
    ASSERT_TRUE(client.RunUntil([&] { return client.m_Received == "x"; })) << client.GetLog();

    junk = client.FillRaw();
    mayAsk.Open();
    ASSERT_TRUE(client.RunUntil([&] { return client.GetPendingOperation() == Socket::ReadWaitsToWrite; }));
    EXPECT_TRUE(client.IsSocketWriteInProgress(false));
    beforeNewHello.Open(junk);
    ASSERT_TRUE(client.RunUntil([&] { return client.GetPendingOperation() == Socket::ReadWaitsToRead; }));
    EXPECT_FALSE(client.IsSocketWriteInProgress(true));
    client.m_ToSend += "hello";
    EXPECT_TRUE(client.ProcessWriteData());
    EXPECT_EQ(client.GetPendingOperation(), Socket::WriteWaitsToRead);
    EXPECT_FALSE(client.IsSocketWriteInProgress(true));
    mayAnswer.Open();
    ASSERT_TRUE(client.RunUntil([&] { return client.m_Received == "xhello"; })) << client.GetLog();

    junk = client.FillRaw();
    EXPECT_TRUE(client.StartShutdown());
    EXPECT_EQ(client.GetPendingOperation(), Socket::ShutdownWaitsToWrite);
    EXPECT_EQ(client.GetConnectionState(), Socket::Connected);
    mayTell.Open(); // what is read meanwhile does not make it forget
    ASSERT_TRUE(client.RunUntil([&] { return client.m_Received == "xhellolate"; })) << client.GetLog();
    EXPECT_EQ(client.GetPendingOperation(), Socket::ShutdownWaitsToWrite);
    EXPECT_TRUE(client.IsSocketWriteInProgress(false));
    beforeNotify.Open(junk);
    ASSERT_TRUE(client.RunUntil([&] { return client.GetConnectionState() == Socket::ShutdownSent; }));
    EXPECT_TRUE(client.RunToEnd());
    EXPECT_EQ(client.m_Events, "closing 0 closed 0");
}

// A derived class that reads and writes whenever it is called moves nothing before the server is known.
TEST(ClientSocket, KeepsDataBackUntilTlsIsUp) {
    std::string inPlain;
    TestServer liar([&](QVSocket& socket) {
        SendAll(socket, "welcome\n");
        char c;
        while (socket.RecvData(&c, 1) == 1)
            inPlain += c;
    });
    TestClient client(Tls());
    client.m_ToSend = "secret";
    ASSERT_TRUE(client.Connect(liar.m_Address));
    client.m_Complete = 0; // it believes so
    ASSERT_EQ(client.GetSocket().WaitFor(QVSocket::Readable, kPatience), QVWaitResult::Ready);
    EXPECT_TRUE(client.ProcessReadEvent());
    EXPECT_FALSE(client.RunUntil([] { return false; }));
    EXPECT_TRUE(client.ProcessReadData()); // also after the failure
    client.HardResetSocket();
    liar.Join();
    EXPECT_EQ(client.m_Received, "");
    EXPECT_EQ(inPlain.find("secret"), std::string::npos);

    Gate mayAnswer;
    TestServer server([&](QVSocket& socket) {
        TlsPeer peer(socket, ServerIdentity());
        mayAnswer.Wait();
        EXPECT_TRUE(peer.Accept());
        Echo(peer, 6);
    });
    ASSERT_TRUE(client.Connect(server.m_Address));
    ASSERT_TRUE(client.RunUntil([&] { return client.GetPendingOperation() == Socket::ConnectWaitsToRead; }));
    client.m_Complete = 0;
    EXPECT_TRUE(client.ProcessWriteEvent()); // a loop that always waits for both
    EXPECT_EQ(client.GetPendingOperation(), Socket::ConnectWaitsToRead);
    mayAnswer.Open();
    client.m_Complete = -1;
    ASSERT_TRUE(client.RunUntil([&] { return client.m_Received == "secret"; })) << client.GetLog();
    client.HardResetSocket();
}

TEST(ClientSocket, ClosesOnceAlsoWhenClosingWritesAndCloses) {
    class LateClient : public TestClient {
    public:
        using TestClient::TestClient;
        void SocketClosing(SocketCloseCause cause) override {
            TestClient::SocketClosing(cause);
            WriteData("bye", 3, m_LateSent);
            CloseSocket(FDClose);
        }
        unsigned int m_LateSent = 0;
    };
    for (const bool bTls : {true, false}) {
        SCOPED_TRACE(bTls);
        TestServer server([&](QVSocket& socket) {
            EXPECT_TRUE(!bTls || TlsPeer(socket, ServerIdentity()).Accept());
            Drain(socket);
        });
        LateClient client(bTls ? Tls() : nullptr);
        ASSERT_TRUE(client.Connect(server.m_Address));
        ASSERT_TRUE(client.RunUntil([&] { return client.IsComplete(); }));
        client.CloseSocket(Socket::SetupTransactionFail);
        EXPECT_EQ(client.m_Events, "closing 8 closed 8");
        EXPECT_EQ(client.m_LateSent, bTls ? 0u : 3u); // never past TLS
    }
}

TEST(ClientSocket, CarriesMoreThanTheSystemHoldsBothWaysInSmallPieces) {
    std::string data;
    for (unsigned int i = 0; data.size() < 24'000'000; i = i * 1664525 + 1013904223)
        data.append(reinterpret_cast<const char*>(&i), sizeof i);
    for (const bool bTls : {true, false}) {
        SCOPED_TRACE(bTls);
        bool bSame = false;
        Gate mayGo;
        TestServer server([&](QVSocket& socket) {
            std::optional<TlsPeer> peer;
            EXPECT_TRUE(!bTls || peer.emplace(socket, ServerIdentity()).Accept());
            mayGo.Wait();
            // Sends all before it reads anything: the client must read while it cannot write.
            if (bTls) {
                EXPECT_TRUE(peer->Write(data));
                bSame = peer->Read(data.size()) == data;
            } else {
                SendAll(socket, data);
                Drain(socket, data.size());
                bSame = true;
            }
        });
        TestClient client(bTls ? Tls() : nullptr, false);
        client.m_ToSend = data;
        client.m_Piece = 1000;
        ASSERT_TRUE(client.Connect(server.m_Address));
        ASSERT_TRUE(client.RunUntil([&] { return client.m_LastWrite == SocketIoWouldBlock; }));
        EXPECT_EQ(client.GetPendingOperation(), bTls ? Socket::WriteWaitsToWrite : Socket::NothingPending);
        EXPECT_EQ(client.IsSocketWriteInProgress(false), bTls);
        EXPECT_TRUE(client.IsSocketWriteInProgress(true));
        mayGo.Open();
        ASSERT_TRUE(client.RunUntil([&] {
            return client.m_Received.size() == data.size() && client.m_Sent == data.size();
        })) << client.GetLog();
        server.Join();
        EXPECT_TRUE(client.m_Received == data);
        EXPECT_TRUE(bSame);
    }
}

// Whatever a server does instead of shaking hands, silence too: giving up resets the connection.
TEST(ClientSocket, SurvivesBrokenHandshakes) {
    const auto accept = [](QVSocket& socket, size_t budget) {
        TlsPeer peer(socket, ServerIdentity());
        peer.m_Budget = budget;
        EXPECT_FALSE(peer.Accept());
    };
    const struct {
        std::function<void(QVSocket&)> work;
        const char* line; // null: the server stalls
    } rows[] = {{[](QVSocket& socket) { SendAll(socket, "HTTP/1.1 400 Bad Request\r\n\r\n"); },
                 "SSLConnect error 1\nSSL error:"},
                {[](QVSocket&) {}, "SSLConnect error "},
                {[&](QVSocket& socket) { accept(socket, 300); }, "SSLConnect error "},
                {[&](QVSocket& socket) { accept(socket, 10); }, nullptr}};
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        TestServer server([&](QVSocket& socket) {
            row.work(socket);
            if (row.line != nullptr)
                socket.ShutdownSend();
            EXPECT_FALSE(Drain(socket));
        });
        TestClient client(Tls(), false);
        ASSERT_TRUE(client.Connect(server.m_Address));
        if (row.line != nullptr) {
            client.RunToEnd();
            EXPECT_THAT(client.GetLog(), HasSubstr(row.line));
        } else {
            const auto isWaiting = [&] { return client.GetPendingOperation() == Socket::ConnectWaitsToRead; };
            ASSERT_TRUE(client.RunUntil(isWaiting));
            while (client.GetSocket().WaitFor(QVSocket::Readable, 200) == QVWaitResult::Ready)
                ASSERT_TRUE(client.ProcessReadEvent());
            EXPECT_TRUE(isWaiting());
        }
        EXPECT_EQ(client.m_bFailed, row.line != nullptr);
        EXPECT_EQ(client.m_Complete, -1);
        EXPECT_EQ(client.GetConnectionState(), Socket::Connecting);
        client.HardResetSocket();
        EXPECT_EQ(client.GetConnectionState(), Socket::Closed);
        EXPECT_EQ(client.GetPendingOperation(), Socket::NothingPending);
        EXPECT_EQ(client.m_Events, "");
    }
}

// SIGPIPE would end the test.
TEST(ClientSocket, WritesToAServerThatIsGoneWithoutASignal) {
    for (const bool bTls : {true, false}) {
        SCOPED_TRACE(bTls);
        TestServer server([&](QVSocket& socket) {
            if (!bTls)
                return;
            TlsPeer peer(socket, ServerIdentity());
            EXPECT_TRUE(peer.Accept());
        });
        TestClient client(bTls ? Tls() : nullptr);
        ASSERT_TRUE(client.Connect(server.m_Address));
        ASSERT_TRUE(client.RunUntil([&] { return client.IsComplete(); }));
        server.Join();
        client.m_ToSend.assign(1'000'000, 'x');
        client.m_LastWrite = SocketIoDone;
        while (client.m_Sent < client.m_ToSend.size() && client.ProcessWriteData() &&
               client.m_LastWrite == SocketIoDone) {
        }
        EXPECT_EQ(client.m_LastWrite, SocketIoError);
        EXPECT_EQ(client.GetLastError().m_Kind, 3u);
        EXPECT_EQ(client.m_Events, bTls ? "" : "closing 5 closed 5");
        EXPECT_EQ(client.GetLastError().m_Message, client.GetLastError().m_Code == EPIPE
                                                       ? "Write failed: Broken pipe"
                                                       : "Connection reset by peer");
    }
}
