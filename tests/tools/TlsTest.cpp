#include "QvProgram.h"

#include "support/ChildProcess.h"

#include <gmock/gmock.h>

#include <chrono>
#include <memory>
#include <thread>

using testing::HasSubstr;

namespace {

// With OpenSSL's own server, which sends each line back reversed.
class QvTls : public QvProgram {
protected:
    void StartServer() {
        ASSERT_EQ(
            Shell("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout key.pem "
                  "-out server.pem -subj /CN=plant -days 30 "
                  "-addext subjectAltName=DNS:plant.example,IP:127.0.0.1 2>req.txt"),
            0);
        m_Address = FreeAddress();
        m_Server = std::make_unique<ChildProgram>(
            std::vector<std::string>{"/usr/bin/openssl", "s_server", "-accept", m_Address, "-rev", "-cert",
                                     m_Folder.GetPath() + "/server.pem", "-key",
                                     m_Folder.GetPath() + "/key.pem"},
            m_Folder.GetPath() + "/server.log");
        for (int i = 0; i < 100 && Connect("--insecure", "").m_ExitCode == 3; ++i) // until it listens
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    Result Connect(const std::string& options, const std::string& input) {
        return Run("tls connect " + m_Address + " " + options, "printf '" + input + "' |");
    }

    std::string m_Address;
    std::unique_ptr<ChildProgram> m_Server;
};

} // namespace

TEST_F(QvTls, ConnectsToTheServerThatWasAskedForOnly) {
    StartServer();
    const Result taken = Connect("--ca server.pem", "abc\\ndef\\n");
    EXPECT_EQ(taken.m_ExitCode, 0) << taken.m_Error;
    EXPECT_EQ(taken.m_Out, "cba\nfed\n");
    size_t position = 0;
    for (const char* line : {"State: connecting\n", "SSLConnect complete\n", "Cipher: TLS",
                             "State: connected\n", "subject 'CN = plant'", "name 'DNS:plant.example'",
                             "Verification: ok\n", "State: shutdown sent\n", "State: closed\n"}) {
        position = taken.m_Error.find(line, position);
        ASSERT_NE(position, std::string::npos) << line << " is missing in\n" << taken.m_Error;
    }
    const size_t pin = taken.m_Error.find("--pin ");
    ASSERT_NE(pin, std::string::npos);
    EXPECT_EQ(Connect(taken.m_Error.substr(pin, 6 + 64), "abc\\n").m_Out, "cba\n");
    EXPECT_EQ(Connect("--ca server.pem --name plant.example", "abc\\n").m_Out, "cba\n");

    const struct {
        const char* options;
        const char* reason;
    } refusals[] = {
        {"", "self-signed certificate"},
        {"--ca server.pem --name other.example", "hostname mismatch"},
        {"--pin 0000000000000000000000000000000000000000000000000000000000000000", "not the pinned one"},
    };
    for (const auto& row : refusals) {
        const Result refused = Connect(row.options, "secret\\n");
        EXPECT_EQ(refused.m_ExitCode, 1) << row.options;
        EXPECT_EQ(refused.m_Out, "");
        EXPECT_THAT(refused.m_Error, HasSubstr("The certificate of the server was refused: "));
        EXPECT_THAT(refused.m_Error, HasSubstr(row.reason));
    }

    const Result row = Connect("--insecure --json", "abc\\n");
    EXPECT_EQ(row.m_Error, "");
    EXPECT_THAT(row.m_Out, HasSubstr("\"connected\":\"yes\""));
    EXPECT_THAT(row.m_Out, HasSubstr("\"verified\":\"not verified\""));
    EXPECT_EQ(JsonNumber(row.m_Out, "received"), 4);
}

TEST_F(QvTls, TellsWhatCannotBe) {
    m_Address = FreeAddress();
    const Result refused = Connect("--insecure", "");
    EXPECT_EQ(refused.m_ExitCode, 3);
    EXPECT_THAT(refused.m_Error, HasSubstr("LogSocketError 111: Connection refused\n"));
    EXPECT_EQ(Connect("--ca none.pem", "").m_ExitCode, 3);
    EXPECT_EQ(Connect("--pin 12", "").m_ExitCode, 2);
    EXPECT_EQ(Connect("--insecure --name x", "").m_ExitCode, 2);
    EXPECT_EQ(Run("tls connect unix:/x").m_ExitCode, 2);
    EXPECT_EQ(Run("tls connect plant").m_ExitCode, 2);
}
