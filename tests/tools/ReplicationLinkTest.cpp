// Frames and connections, and what hostile peers try with them.

#include "ReplicationTesting.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

namespace {

constexpr int kPatience = 10'000; // ms; reached only when something is broken

std::string Frame(const std::string& content) {
    const auto length = static_cast<unsigned int>(content.size());
    std::string frame(sizeof length, '\0');
    std::memcpy(frame.data(), &length, sizeof length);
    return frame + content;
}

const std::string kQuery = Frame("\x07history\x01");

// Feeds bytes in pieces; returns the message, or the text of the error, or "..." when there is more to come.
std::string Feed(ReplicationFrameReader& reader, const std::string& bytes, std::size_t piece) {
    try {
        for (std::size_t position = 0; position < bytes.size();) {
            const auto space = reader.GetSpace();
            const std::size_t count = std::min({piece, space.size(), bytes.size() - position});
            std::memcpy(space.data(), bytes.data() + position, count);
            position += count;
            if (reader.Take(static_cast<unsigned int>(count)))
                return {reinterpret_cast<const char*>(reader.GetMessage().data()),
                        reader.GetMessage().size()};
        }
    } catch (const ReplicationError& error) {
        return error.what();
    }
    return "...";
}

QVSocketAddress AddressOf(const std::string& text) {
    std::vector<QVSocketAddress> candidates;
    qvstring problem;
    EXPECT_TRUE(QVSocketAddress::Resolve(text, false, candidates, problem)) << problem;
    return candidates.at(0);
}

// A main that says what it likes.
class RawMain {
public:
    explicit RawMain(const std::string& address) {
        EXPECT_TRUE(m_Socket.CreateSocket(AddressOf(address)));
        EXPECT_TRUE(m_Socket.ConnectSocket(AddressOf(address)));
    }
    void Send(const std::string& bytes) {
        EXPECT_EQ(m_Socket.SendData(bytes.data(), static_cast<unsigned int>(bytes.size())),
                  static_cast<int>(bytes.size()));
    }
    // What arrives next; empty when the standby closes the connection.
    std::string Receive() {
        char buffer[4096];
        EXPECT_EQ(m_Socket.WaitFor(QVSocket::Readable, kPatience), QVWaitResult::Ready);
        const int got = m_Socket.RecvData(buffer, sizeof buffer);
        return {buffer, static_cast<std::size_t>(std::max(got, 0))};
    }

private:
    QVSocket m_Socket;
};

} // namespace

TEST(ReplicationFrame, IsTakenApartHoweverItArrives) {
    const std::string message(200'000, 'm');
    for (const std::size_t piece : {1u, 3u, 4096u, 1u << 20}) {
        ReplicationFrameReader reader("history");
        for (int round = 0; round < 2; ++round) { // the reader serves again
            EXPECT_EQ(Feed(reader, Frame("\x07history" + message), piece), message);
            reader.Clear();
        }
        EXPECT_EQ(Feed(reader, kQuery.substr(0, 6), piece), "...");
        EXPECT_TRUE(reader.HasBegun());
    }
}

TEST(ReplicationFrame, IsRefusedWhenItBreaksARule) {
    const std::string longest = "\x07history" + std::string((1 << 20) - 8, 'm');
    const struct {
        std::string bytes;
        std::string expected;
    } cases[] = {
        {Frame(longest), longest.substr(8)},
        {Frame(longest + "m").substr(0, 4),
         "a message of 1,048,577 bytes was announced; 1,048,576 bytes are the most"},
        {"\xff\xff\xff\xff", "a message of 4,294,967,295 bytes was announced; 1,048,576 bytes are the most"},
        {Frame(""), "an empty message was announced"},
        {Frame("\x07history"), "an empty message arrived"},
        {Frame("\x07other.1\x01"),
         "the other side has the table 'other.1', and this is 'history'; --table tells the name"},
        {Frame("\x07hist/ry\x01"), "a message without the name of a table arrived"},
        {Frame(std::string("\x00\x01\x01", 3)), "a message without the name of a table arrived"},
        {Frame("\x08history"), "a message without the name of a table arrived"},
        {Frame("\x41" + std::string(65, 'n')), "a message without the name of a table arrived"},
        {Frame("\xff\xff\xff\xff\xff\xff"), "a message without the name of a table arrived"},
    };
    for (const auto& [bytes, expected] : cases) {
        ReplicationFrameReader reader("history");
        EXPECT_EQ(Feed(reader, bytes, 7), expected);
    }
}

// Memory follows the bytes that arrive, not the length that they announce.
TEST(ReplicationFrame, SetsNoMemoryAsideForAnAnnouncement) {
    ReplicationFrameReader reader("history");
    EXPECT_EQ(Feed(reader, Frame(std::string(1 << 20, 'm')).substr(0, 4), 4), "...");
    EXPECT_LE(reader.GetSpace().size(), 64u << 10);
}

TEST(ReplicationFrame, SurvivesRandomDamage) {
    std::minstd_rand random(7);
    const std::string good = Frame("\x07history" + std::string(40, 'm'));
    for (int round = 0; round < 20'000; ++round) {
        std::string bytes = good;
        for (int flips = 1 + static_cast<int>(random() % 3); flips > 0; --flips)
            bytes[random() % bytes.size()] ^= static_cast<char>(1 + random() % 255);
        ReplicationFrameReader reader("history");
        const std::string result = Feed(reader, bytes, 1 + random() % 60);
        ASSERT_FALSE(result.empty());
    }
}

TEST(ReplicationSettings, AreChecked) {
    EXPECT_NO_THROW(SettingsFor("unix:/tmp/s"));
    EXPECT_THROW(SettingsFor("nowhere"), ToolError);
    EXPECT_THROW(SettingsFor("unix:/tmp/s", "soon"), ToolError);
    ReplicationOptions options;
    options.m_Address = ":1";
    for (const std::string& name : {std::string(), std::string("a b"), std::string(65, 'n')}) {
        options.m_Table = name;
        EXPECT_THROW(ReplicationSettings(options, "--to"), ToolError) << name;
    }
}

// After each attack the standby still serves a main.
TEST(Standby, DropsHostileMains) {
    TemporaryFolder folder;
    TestTable table(folder.GetFilePath());
    RunningStandby standby(table, SettingsFor("127.0.0.1:0", "200ms"));
    const std::string attacks[] = {
        "\xff\xff\xff\xff",
        "GET / HTTP/1.1\r\n\r\n",
        Frame("\x07history\x09"),                 // no request
        Frame("\x07history\x01\x01"),             // more behind the request
        Frame("\x07history\x02\xff\xff\xff\xff"), // an update that ends in its middle
        Frame(std::string("\x07history\x02\0\0\0\0\0\0\0\0\x07\0\0\0", 21)), // another record size
        kQuery.substr(0, 5),                                                 // and then nothing
        "",
    };
    for (const std::string& attack : attacks) {
        RawMain hostile(standby.GetAddress());
        hostile.Send(attack);
        EXPECT_EQ(hostile.Receive(), "");
        RawMain main(standby.GetAddress());
        main.Send(kQuery);
        EXPECT_EQ(main.Receive(), Frame(std::string("\x07history\x01\0\0\0\0", 13)));
    }
    // Silence behind a request is not an attack.
    RawMain main(standby.GetAddress());
    for (int i = 0; i < 2; ++i) {
        main.Send(kQuery);
        EXPECT_NE(main.Receive(), "");
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
    }
}

TEST(Standby, ServesOneMainAtATimeButNotADeadOne) {
    TemporaryFolder folder;
    TestTable table(folder.GetFilePath());
    ReplicationSettings settings = SettingsFor("127.0.0.1:0");
    settings.m_SilenceOfTheDead = std::chrono::milliseconds(500);
    RunningStandby standby(table, settings);
    RawMain first(standby.GetAddress());
    first.Send(kQuery);
    EXPECT_NE(first.Receive(), "");
    RawMain second(standby.GetAddress());
    EXPECT_EQ(second.Receive(), "");
    first.Send(kQuery);
    EXPECT_NE(first.Receive(), "");

    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    RawMain third(standby.GetAddress());
    EXPECT_EQ(first.Receive(), "");
    third.Send(kQuery);
    EXPECT_NE(third.Receive(), "");
}

// A standby that answers with anything but a reply, or not at all, costs the main nothing but time.
TEST(Sender, GivesUpHostileStandbys) {
    TemporaryFolder folder;
    TestTable table(folder.GetFilePath());
    table.Put(1, 1);
    table.Flush();
    for (const std::string& answer : {std::string(), kQuery.substr(0, 6), std::string("\xff\xff\xff\xff"),
                                      Frame("\x07history\x09"), Frame("\x07history\x01\xff\xff\xff\xff"),
                                      Frame(std::string("\x07history\x01\0\0\0\0\0", 14)), kQuery + "x"}) {
        QVSocketListener listener;
        ASSERT_TRUE(listener.Listen(AddressOf("127.0.0.1:0")));
        QVSocketAddress address;
        ASSERT_TRUE(listener.GetSocketName(address));
        QVWakeEvent end;
        std::thread standby([&] {
            QVSocketAddress peer;
            QVSocket socket;
            while (listener.WaitForConnection(-1, &end) == QVWaitResult::Ready) {
                if (listener.AcceptConnection(socket, peer))
                    socket.SendData(answer.data(), static_cast<unsigned int>(answer.size()));
            }
        });
        EXPECT_EQ(ReplicateOnce(table.m_Table, SettingsFor(address.ToText(), "150ms")),
                  ReplicationSender::Outcome::Unreachable);
        end.Set();
        standby.join();
    }
}
