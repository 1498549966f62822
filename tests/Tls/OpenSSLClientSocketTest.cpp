#include "TlsTesting.h"

#include <QVLib/Resources/Messages.h>

#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <future>

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

// Parts of a log, in this order.
void ExpectLines(const std::string& log, const std::vector<std::string>& lines) {
    size_t position = 0;
    for (const std::string& line : lines) {
        const size_t found = log.find(line, position);
        ASSERT_NE(found, std::string::npos) << line << " is missing behind place " << position << " of\n"
                                            << log;
        position = found + line.size();
    }
}

void Echo(TlsPeer& peer, size_t count) {
    EXPECT_TRUE(peer.Write(peer.Read(count)));
}

} // namespace

TEST(ClientSocket, IsClosedAtFirstAndTellsWhatIsWrong) {
    EXPECT_STREQ(Socket::GetSocketCloseCauseText(Socket::ReadEvent), "ReadEvent");
    EXPECT_STREQ(Socket::GetSocketCloseCauseText(Socket::SSLClosure), "SSLClosure");
    EXPECT_STREQ(Socket::GetSocketCloseCauseText(Socket::SetupTransactionFail), "SetupTransactionFail");
    EXPECT_STREQ(Socket::GetSocketCloseCauseText(static_cast<Socket::SocketCloseCause>(9)), "** Unknown **");

    TestClient client(nullptr);
    client.SetLogPrefix("12345678901234567890123456789\xC3\xA9"
                        "cut off");
    EXPECT_FALSE(client.StartConnect(nullptr, 0));
    EXPECT_EQ(client.GetLastError().m_Kind, 1u);
    EXPECT_EQ(client.GetLastError().m_Code, 116u);
    EXPECT_EQ(client.GetLog(), "12345678901234567890123456789\xC3\xA9"
                               "cStartConnect\n"
                               "12345678901234567890123456789\xC3\xA9"
                               "cLogError 116: Cannot connect without "
                               "first creating a socket.\n");
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

TEST(ClientSocket, ConnectsSpeaksAndEndsPlainlyAndThenAgain) {
    TestServer server(
        [](QVSocket& socket) {
            SendAll(socket, "hello");
            EXPECT_TRUE(DrainToEnd(socket));
        },
        2);
    TestClient client(nullptr, false);
    for (int i = 0; i < 2; ++i) {
        client.m_Received.clear();
        client.m_Events.clear();
        ASSERT_TRUE(client.Connect(server.m_Address));
        EXPECT_EQ(client.GetConnectionState(), Socket::Connecting);
        EXPECT_TRUE(client.IsSocketWriteInProgress(false));
        EXPECT_EQ(client.m_Complete, -1); // only an event tells
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
        ExpectLines(client.GetLog(),
                    {"Socket connection complete\nRemote socket name: " + server.m_Address.ToText() +
                     "\nLocal socket name: " + local + "\nSend socket shutdown to server\nSocket closed\n"});
    }
    EXPECT_THAT(client.GetLog(), Not(HasSubstr("Process")));
}

TEST(ClientSocket, TellsHowAPlainServerEnds) {
    struct Row {
        const char* what;
        std::function<void(QVSocket&)> work;
        SocketIoResult result;
        const char* events;
        unsigned int kind, code;
        const char* message;
    };
    const Row rows[] = {
        {"end", [](QVSocket&) {}, SocketIoClosed, "closing 4 closed 4", 1, 117,
         "The connection to the server was closed unexpectedly."},
        {"reset", [](QVSocket& socket) { socket.HardResetAndCloseSocket(); }, SocketIoError,
         "closing 2 closed 2", 3, ECONNRESET, "Connection reset by peer"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        Gate connected;
        TestServer server([&](QVSocket& socket) {
            connected.Wait();
            row.work(socket);
        });
        TestClient client(nullptr);
        ASSERT_TRUE(client.Connect(server.m_Address));
        ASSERT_TRUE(client.RunUntil([&] { return client.IsComplete(); }));
        connected.Open();
        EXPECT_TRUE(client.RunToEnd());
        EXPECT_EQ(client.m_LastRead, row.result);
        EXPECT_EQ(client.m_Events, row.events);
        EXPECT_EQ(client.GetLastError().m_Kind, row.kind);
        EXPECT_EQ(client.GetLastError().m_Code, row.code);
        EXPECT_EQ(client.GetLastError().m_Message, row.message);
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
                {"LogSocketError 107: getpeername() failed: Transport endpoint is not connected\n",
                 "Close socket with hard RST\n"});
    EXPECT_EQ(client.CreateSocket(NobodysAddress().GetFamily()), 0);
    EXPECT_EQ(client.GetRemoteSocketName(), "");
    EXPECT_FALSE(client.StartShutdown());
    EXPECT_THAT(client.GetLog(), HasSubstr("Send socket shutdown to server\nshutdown() returns 0x6B\n"));
}

TEST(ClientSocket, ShakesHandsAndSpeaksTls) {
    for (const size_t segment : {size_t{65536}, size_t{1}}) {
        SCOPED_TRACE(segment);
        Gate mayAnswer;
        TestServer server([&](QVSocket& socket) {
            TlsPeer peer(socket, ServerIdentity());
            peer.m_Segment = segment;
            mayAnswer.Wait();
            EXPECT_TRUE(peer.Accept());
            Echo(peer, 5);
            peer.Read(1); // the client's close-notify
            EXPECT_EQ(SSL_get_shutdown(peer.GetSSL()) & SSL_RECEIVED_SHUTDOWN, SSL_RECEIVED_SHUTDOWN);
        });
        OpenSSLContext context(false);
        TestClient client(&context, segment == 1);
        client.m_ToSend = "hello";
        ASSERT_TRUE(client.Connect(server.m_Address));
        ASSERT_TRUE(client.RunUntil([&] { return client.GetPendingOperation() != 0; }));
        EXPECT_EQ(client.GetPendingOperation(), Socket::ConnectWaitsToRead);
        EXPECT_EQ(client.GetConnectionState(), Socket::Connecting);
        EXPECT_FALSE(client.IsSocketWriteInProgress(true));
        mayAnswer.Open();
        ASSERT_TRUE(client.RunUntil([&] { return client.m_Received == "hello"; }));
        EXPECT_EQ(client.GetConnectionState(), Socket::Connected);
        EXPECT_TRUE(client.StartShutdown());
        EXPECT_EQ(client.GetConnectionState(), Socket::ShutdownSent);
        EXPECT_TRUE(client.RunToEnd());
        EXPECT_EQ(client.m_Events, "closing 0 closed 0");
        ExpectLines(client.GetLog(),
                    {"SSLConnect...\n", "SSLConnect complete\nCipher: TLS_AES_256_GCM_SHA384 ", "Mac=AEAD\n",
                     "SSLShutdown...\n", "Send socket shutdown to server\n"});
        if (segment == 1) {
            ExpectLines(client.GetLog(),
                        {"StartConnect\nProcessWrite\n", "SSLConnect want read\nProcessRead\n",
                         "SSL_write( Length 5 )...\n", "SSL_read( Length 4096 )...\n", "SSLShutdown sent\n"});
        } else {
            EXPECT_THAT(client.GetLog(),
                        Not(testing::ContainsRegex("Process|Length|want|sent|StartConnect|returns")));
        }
    }
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
    OpenSSLContext context(false);
    TestClient client(&context);
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
    OpenSSLContext context(false);
    TestClient client(&context);
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
            DrainToEnd(socket);
        });
        OpenSSLContext context(false);
        LateClient client(bTls ? &context : nullptr);
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
            if (bTls) {
                TlsPeer peer(socket, ServerIdentity());
                EXPECT_TRUE(peer.Accept());
                mayGo.Wait();
                // Sends all before it reads anything: the client must read while it cannot write.
                EXPECT_TRUE(peer.Write(data));
                bSame = peer.Read(data.size()) == data;
            } else {
                mayGo.Wait();
                SendAll(socket, data);
                Drain(socket, data.size());
                bSame = true;
            }
        });
        OpenSSLContext context(false);
        TestClient client(bTls ? &context : nullptr, false);
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

TEST(ClientSocket, TellsHowATlsServerEnds) {
    struct Row {
        const char* what;
        std::function<void(QVSocket&, TlsPeer&)> work;
        SocketIoResult result;
        const char* events;
        unsigned int kind, code;
        std::vector<std::string> lines;
    };
    const Row rows[] = {
        {"close-notify",
         [](QVSocket&, TlsPeer& peer) { peer.SendCloseNotify(); },
         SocketIoClosed,
         "closing 7 closed 7",
         1,
         118,
         {"SSL_read() returns 0, and SSL_get_error() returns 6\n", "Connection shutdown cleanly\n",
          "LogError 118: The server shutdown the connection.\nSocket closed\n"}},
        {"end without close-notify",
         [](QVSocket&, TlsPeer&) {},
         SocketIoClosed,
         "closing 7 closed 7",
         1,
         119,
         {"SSL_read detected socket closure (error 1)\nSSL error:", "unexpected eof",
          "LogError 119: The connection to the server was closed unexpectedly.\nSocket closed\n"}},
        {"reset",
         [](QVSocket& socket, TlsPeer&) { socket.HardResetAndCloseSocket(); },
         SocketIoError,
         "",
         3,
         ECONNRESET,
         {"SSL_get_error() returns 5\nLogSocketError 104: Connection reset by peer\n"}},
        {"garbage",
         [](QVSocket& socket, TlsPeer&) { SendAll(socket, "no record of TLS at all"); },
         SocketIoError,
         "",
         0,
         0,
         {"SSL_get_error() returns 1\nSSL_read error\nSSL error:"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        TestServer server([&](QVSocket& socket) {
            TlsPeer peer(socket, ServerIdentity());
            EXPECT_TRUE(peer.Accept());
            EXPECT_EQ(peer.Read(1), "x"); // what is sent before may meet a reset
            row.work(socket, peer);
        });
        OpenSSLContext context(false);
        TestClient client(&context);
        client.m_ToSend = "x";
        ASSERT_TRUE(client.Connect(server.m_Address));
        client.RunToEnd();
        EXPECT_EQ(client.m_LastRead, row.result);
        EXPECT_EQ(client.m_Events, row.events);
        EXPECT_EQ(client.GetLastError().m_Kind, row.kind);
        EXPECT_EQ(client.GetLastError().m_Code, row.code);
        ExpectLines(client.GetLog(), row.lines);
        EXPECT_EQ(client.GetSocket().IsOpen(), row.result == SocketIoError);
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

TEST(ClientSocket, SurvivesBrokenHandshakes) {
    const struct {
        const char* what;
        std::function<void(QVSocket&)> work;
        const char* line;
    } rows[] = {
        {"garbage", [](QVSocket& socket) { SendAll(socket, "HTTP/1.1 400 Bad Request\r\n\r\n"); },
         "SSLConnect error 1\nSSL error:"},
        {"end", [](QVSocket&) {}, "SSLConnect error "},
        {"end in the middle",
         [](QVSocket& socket) {
             TlsPeer peer(socket, ServerIdentity());
             peer.m_Budget = 300;
             EXPECT_FALSE(peer.Accept());
         },
         "SSLConnect error "},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        TestServer server([&](QVSocket& socket) {
            row.work(socket);
            socket.ShutdownSend();
            DrainToEnd(socket);
        });
        OpenSSLContext context(false);
        TestClient client(&context, false);
        ASSERT_TRUE(client.Connect(server.m_Address));
        client.RunUntil([&] { return false; });
        EXPECT_TRUE(client.m_bFailed);
        EXPECT_EQ(client.m_Complete, -1);
        EXPECT_EQ(client.GetConnectionState(), Socket::Connecting);
        EXPECT_THAT(client.GetLog(), HasSubstr(row.line));
        client.HardResetSocket();
        EXPECT_EQ(client.GetConnectionState(), Socket::Closed);
    }
}

// A server that says nothing costs the client nothing but its patience; giving up resets the connection.
TEST(ClientSocket, CanGiveUpOnAServerThatStalls) {
    Gate mayLook;
    bool bEnded = true;
    TestServer server([&](QVSocket& socket) {
        TlsPeer peer(socket, ServerIdentity());
        peer.m_Budget = 10;
        EXPECT_FALSE(peer.Accept());
        mayLook.Wait();
        bEnded = DrainToEnd(socket);
    });
    OpenSSLContext context(false);
    TestClient client(&context);
    ASSERT_TRUE(client.Connect(server.m_Address));
    ASSERT_TRUE(client.RunUntil([&] { return client.GetPendingOperation() == Socket::ConnectWaitsToRead; }));
    while (client.GetSocket().WaitFor(QVSocket::Readable, 200) == QVWaitResult::Ready)
        ASSERT_TRUE(client.ProcessReadEvent());
    EXPECT_EQ(client.GetPendingOperation(), Socket::ConnectWaitsToRead);
    client.HardResetSocket();
    EXPECT_EQ(client.GetPendingOperation(), Socket::NothingPending);
    EXPECT_EQ(client.m_Events, "");
    mayLook.Open();
    server.Join();
    EXPECT_FALSE(bEnded);
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
        OpenSSLContext context(false);
        TestClient client(bTls ? &context : nullptr);
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

TEST(ClientSocket, SpeaksWithOpenSSLsOwnServer) {
    const TemporaryFolder folder;
    folder.Write("server.cer", ServerIdentity().GetCertificatePem());
    folder.Write("server.key", ServerIdentity().GetKeyPem());
    const QVSocketAddress address = NobodysAddress();
    ChildProgram program({"/usr/bin/openssl", "s_server", "-accept", address.ToText(), "-rev", "-cert",
                          folder.GetPath() + "/server.cer", "-key", folder.GetPath() + "/server.key"},
                         folder.GetPath() + "/server.log");
    OpenSSLContext context(false);
    TestClient client(&context);
    client.m_ToSend = "abc\n";
    for (int i = 0; i < 100 && !client.IsComplete(); ++i) { // until it listens
        ASSERT_TRUE(client.Connect(address));
        if (!client.RunUntil([&] { return client.IsComplete(); }))
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_TRUE(client.RunUntil([&] { return client.m_Received == "cba\n"; })) << client.GetLog();
    client.HardResetSocket();
}
