#include <QVPlatform/Socket.h>

#include <QVPlatform/BrokenPipeGuard.h>

#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <thread>

namespace {

constexpr int kPatience = 10'000; // ms; reached only when something is broken

QVSocketAddress AddressOf(const qvstring& text, bool bForListening = true) {
    std::vector<QVSocketAddress> candidates;
    qvstring problem;
    EXPECT_TRUE(QVSocketAddress::Resolve(text, bForListening, candidates, problem)) << text << problem;
    return candidates.empty() ? QVSocketAddress() : candidates.front();
}

// A listener, and both ends of one connection to it.
struct Connection {
    explicit Connection(const qvstring& text) {
        EXPECT_TRUE(listener.Listen(AddressOf(text))) << listener.GetLastError();
        EXPECT_TRUE(listener.GetSocketName(address));
        EXPECT_TRUE(client.CreateSocket(address));
        EXPECT_TRUE(client.ConnectSocket(address)) << client.GetLastError();
        EXPECT_EQ(listener.WaitForConnection(kPatience), QVWaitResult::Ready);
        EXPECT_TRUE(listener.AcceptConnection(server, clientAddress));
    }

    QVSocketListener listener;
    QVSocketAddress address;
    QVSocketAddress clientAddress;
    QVSocket client;
    QVSocket server; // non-blocking
};

qvstring Receive(QVSocket& socket, size_t count) {
    qvstring text(count, '\0');
    size_t got = 0;
    while (got < count && socket.WaitFor(QVSocket::Readable, kPatience) == QVWaitResult::Ready) {
        const int part = socket.RecvData(text.data() + got, static_cast<unsigned int>(count - got));
        if (part <= 0)
            break;
        got += static_cast<size_t>(part);
    }
    text.resize(got);
    return text;
}

} // namespace

TEST(SocketAddress, ComesFromTextAndGoesBack) {
    for (const char* text : {"unix:/tmp/some.socket", "127.0.0.1:5000", "[::1]:5000", "0.0.0.0:0"}) {
        const QVSocketAddress address = AddressOf(text);
        EXPECT_EQ(address.ToText(), text);
        qvstring info;
        EXPECT_TRUE(QVSocket::QVGetNameInfo(address.GetSockAddr(), address.GetLength(), info));
        EXPECT_EQ(info, text);
    }
    EXPECT_EQ(AddressOf("[::1]:5000").GetPort(), 5000u);
    EXPECT_EQ(AddressOf("unix:a b").GetSocketFilePath(), "a b");
    EXPECT_EQ(AddressOf("localhost:1").GetPort(), 1u);
    EXPECT_EQ(AddressOf("unix:" + qvstring(107, 'p')).GetSocketFilePath().size(), 107u);

    for (const qvstring& text :
         {qvstring(""), qvstring("host"), qvstring("host:"), qvstring("host:65536"), qvstring("host:-1"),
          qvstring("host:80x"), qvstring("::1:80"), qvstring("[]:80"), qvstring("[::1]80"),
          qvstring("[::1:80"), qvstring("unix:"), "unix:" + qvstring(108, 'p'), qvstring("a\0b:80", 6)}) {
        std::vector<QVSocketAddress> candidates;
        qvstring problem;
        EXPECT_FALSE(QVSocketAddress::CheckText(text, problem)) << text;
        EXPECT_FALSE(problem.empty()) << text;
        EXPECT_FALSE(QVSocketAddress::Resolve(text, false, candidates, problem)) << text;
    }
    qvstring info;
    EXPECT_FALSE(QVSocket::QVGetNameInfo(QVSocketAddress().GetSockAddr(), 0, info));
}

TEST(Socket, CarriesBytesBothWaysUntilEachSideEnds) {
    const TemporaryFolder folder;
    for (const qvstring& text : {qvstring("127.0.0.1:0"), "unix:" + folder.GetPath() + "/s"}) {
        SCOPED_TRACE(text);
        Connection connection(text);
        EXPECT_TRUE(connection.client.SetNoDelay());
        QVSocketAddress name;
        ASSERT_TRUE(connection.server.GetSocketName(name));
        EXPECT_EQ(name, connection.address);
        ASSERT_TRUE(connection.client.GetPeerName(name));
        EXPECT_EQ(name, connection.address);
        ASSERT_TRUE(connection.client.GetSocketName(name));
        EXPECT_EQ(name.ToText(), connection.clientAddress.ToText());

        char byte;
        EXPECT_EQ(connection.server.RecvData(&byte, 1), -1);
        EXPECT_EQ(connection.server.GetLastError(), EAGAIN);
        EXPECT_EQ(connection.client.SendData("hello", 5), 5);
        EXPECT_EQ(Receive(connection.server, 5), "hello");

        EXPECT_TRUE(connection.client.ShutdownSend());
        EXPECT_EQ(connection.server.WaitFor(QVSocket::Readable, kPatience), QVWaitResult::Ready);
        EXPECT_EQ(connection.server.RecvData(&byte, 1), 0);
        EXPECT_EQ(connection.server.SendData("bye", 3), 3);
        connection.server.CloseSocket();
        EXPECT_EQ(connection.server.GetSocketHandle(), -1);
        EXPECT_EQ(Receive(connection.client, 4), "bye");
    }
}

TEST(Socket, ReportsAPeerThatIsGoneWithoutASignal) {
    Connection connection("127.0.0.1:0");
    connection.server.HardResetAndCloseSocket();
    ASSERT_EQ(connection.client.WaitFor(QVSocket::Readable, kPatience), QVWaitResult::Ready);
    EXPECT_FALSE(connection.client.CheckSocketError());
    EXPECT_EQ(connection.client.GetLastError(), ECONNRESET);
    EXPECT_EQ(connection.client.SendData("x", 1), -1); // SIGPIPE would end the test here
    EXPECT_EQ(connection.client.GetLastError(), EPIPE);
}

TEST(BrokenPipeGuard, TakesTheSignalOfItsScopeOnly) {
    {
        const QVBrokenPipeGuard guard;
        std::raise(SIGPIPE); // would end the test
        errno = EXDEV;
    }
    EXPECT_EQ(errno, EXDEV);
    const QVBrokenPipeGuard outer;
    std::raise(SIGPIPE);
    { const QVBrokenPipeGuard inner; }
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 1);
}

TEST(Socket, TellsARefusedConnectionWhenTheOutcomeIsKnown) {
    QVSocketAddress address;
    {
        Connection connection("127.0.0.1:0");
        address = connection.address;
    }
    QVSocket socket;
    ASSERT_TRUE(socket.CreateSocket(address));
    ASSERT_TRUE(socket.SetNonBlocking());
    EXPECT_FALSE(socket.ConnectSocket(address));
    if (socket.GetLastError() == EINPROGRESS) {
        ASSERT_EQ(socket.WaitFor(QVSocket::Writable, kPatience), QVWaitResult::Ready);
        EXPECT_FALSE(socket.CheckSocketError());
    }
    EXPECT_EQ(socket.GetLastError(), ECONNREFUSED);
    EXPECT_FALSE(socket.GetPeerName(address));
    EXPECT_EQ(socket.GetLastError(), ENOTCONN);
}

TEST(SocketWait, EndsByReadinessByTimeAndByWaking) {
    Connection connection("127.0.0.1:0");
    QVWakeEvent wake;
    QVSocketInterest interests[] = {{&connection.server, QVSocket::Readable},
                                    {&connection.client, QVSocket::Readable | QVSocket::Writable}};
    EXPECT_EQ(qv_wait_for_sockets(interests, kPatience, &wake), QVWaitResult::Ready);
    EXPECT_EQ(interests[0].m_Ready, 0u);
    EXPECT_EQ(interests[1].m_Ready, QVSocket::Writable);
    EXPECT_EQ(connection.server.WaitFor(QVSocket::Readable, 0, &wake), QVWaitResult::TimedOut);
    EXPECT_EQ(connection.server.WaitFor(QVSocket::Readable, 20, &wake), QVWaitResult::TimedOut);

    std::thread waker([&] { wake.Set(); });
    EXPECT_EQ(connection.server.WaitFor(QVSocket::Readable, -1, &wake), QVWaitResult::Woken);
    waker.join();
    EXPECT_TRUE(wake.IsSet());
    wake.Reset();
    EXPECT_FALSE(wake.IsSet());
    EXPECT_EQ(connection.server.WaitFor(QVSocket::Readable, 0, &wake), QVWaitResult::TimedOut);

    std::thread sender([&] { connection.client.SendData("x", 1); });
    EXPECT_EQ(connection.server.WaitFor(QVSocket::Readable, -1, &wake), QVWaitResult::Ready);
    sender.join();
}

TEST(SocketListener, HasNothingToAcceptUntilSomebodyConnects) {
    QVSocketListener listener;
    ASSERT_TRUE(listener.Listen(AddressOf("127.0.0.1:0")));
    QVSocketAddress address;
    ASSERT_TRUE(listener.GetSocketName(address));
    EXPECT_NE(address.GetPort(), 0u);
    QVSocket connection;
    EXPECT_FALSE(listener.AcceptConnection(connection, address));
    EXPECT_EQ(listener.GetLastError(), EAGAIN);

    QVSocketListener second;
    ASSERT_TRUE(listener.GetSocketName(address));
    EXPECT_FALSE(second.Listen(address));
    EXPECT_EQ(second.GetLastError(), EADDRINUSE);
    listener.Close();
    EXPECT_TRUE(second.Listen(address));
}

// Only a socket file that nobody answers on may go.
TEST(SocketListener, ReplacesStaleSocketFilesOnly) {
    const TemporaryFolder folder;
    const QVSocketAddress address = AddressOf("unix:" + folder.GetPath() + "/s");
    QVSocketListener listener;
    ASSERT_TRUE(listener.Listen(address));
    QVSocketListener second;
    EXPECT_FALSE(second.Listen(address));
    EXPECT_EQ(second.GetLastError(), EADDRINUSE);
    EXPECT_TRUE(folder.Exists("s"));

    // Also one that listens without having asked for the lock.
    folder.Remove("s.lock");
    EXPECT_FALSE(second.Listen(address));
    EXPECT_EQ(second.GetLastError(), EADDRINUSE);
    QVSocket client;
    ASSERT_TRUE(client.CreateSocket(address));
    EXPECT_TRUE(client.ConnectSocket(address));

    // A crash leaves a file like this one, that another name of it survives the closing as.
    std::filesystem::create_hard_link(folder.GetPath() + "/s", folder.GetPath() + "/left");
    listener.Close();
    EXPECT_FALSE(folder.Exists("s"));
    EXPECT_TRUE(second.Listen(AddressOf("unix:" + folder.GetPath() + "/left")));
    second.Close();
    EXPECT_FALSE(folder.Exists("left"));

    folder.Write("s", "precious");
    EXPECT_FALSE(second.Listen(address));
    EXPECT_EQ(second.GetLastError(), EADDRINUSE);
    EXPECT_EQ(folder.Read("s"), "precious");
}
