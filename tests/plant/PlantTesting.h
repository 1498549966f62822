// The plant's programs as their users start them, in a folder of the test's own; and a client that keeps to no rules.
#pragma once

#include "Link.h"
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"
#include <QVLib/Tls/OpenSSLContext.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

constexpr std::chrono::seconds Patience(60); // reached only when something is broken

// Looks several times a second whether something has come true.
bool ComesTrue(const std::function<bool()>& condition, std::chrono::seconds patience = Patience);

// A server of the plant, main or standby.
class PlantServer {
public:
    // Its folder and its log are called `name`. `before` stands in front of the program.
    PlantServer(const TemporaryFolder& folder, const std::string& name, const std::string& options,
                const std::string& before = "");

    // Starts it, again at the same address, and waits until it listens.
    void Start();
    bool Kill() { return std::exchange(m_pProgram, nullptr)->Kill(); }
    int Stop() { return std::exchange(m_pProgram, nullptr)->Stop(); }

    const std::string& GetAddress() const { return m_Address; }
    std::string GetLog() const { return m_Folder.Read(m_Name + ".log"); }
    // Waits for a line of the log that holds `text`, the `count`th at least.
    bool Says(const std::string& text, int count = 1) const;

private:
    const TemporaryFolder& m_Folder;
    const std::string m_Name;
    const std::string m_Options;
    const std::string m_Before;
    std::string m_Address = "127.0.0.1:0";
    std::unique_ptr<ChildProgram> m_pProgram;
};

class PlantTest : public testing::Test {
protected:
    struct Result {
        int m_ExitCode;
        std::string m_Out;
        std::string m_Error;
    };

    PlantTest();
    // Runs plant_client against the servers that there are. With another `authority`, it trusts that.
    Result RunClient(const std::string& user, const std::string& password, const std::string& arguments,
                     const std::string& authority = "config/Certificates/authority.cer") const;
    // The number behind `text` in what a client has said; -1 without one.
    static long long NumberBehind(const std::string& text, const std::string& output);

    // What main and standby have recorded, byte by byte.
    void ExpectSameTables() const;

    TemporaryFolder m_Folder;
    PlantServer m_Main;
    PlantServer m_Standby;
};

// Speaks TLS with a server of the plant and then does what it is told.
class Intruder : public Link {
public:
    // With the certificate `name` in `folder`, or with none.
    explicit Intruder(const TemporaryFolder& folder, const std::string& name = "");
    ~Intruder() { Disconnect(); }

    // Connects, and waits until that is done.
    bool Reach(const PlantServer& server);
    // Handles what comes; false when `done` has not come true in time.
    bool Run(const std::function<bool()>& done);
    // As a client; true when the server has accepted it.
    bool LogOn(const std::string& user, const std::string& password);
    void SendRaw(const std::string& bytes);

    std::vector<int> m_Types; // of the messages that came
    std::string m_Ended;      // why

private:
    explicit Intruder(std::unique_ptr<OpenSSLContext> pContext);
    void OnConnected() override {}
    void OnMessage(unsigned char type, FrameInput& in) override;
    void OnEnded(const std::string& reason) override { m_Ended = reason; }

    static std::unique_ptr<OpenSSLContext> MakeContext(const TemporaryFolder& folder,
                                                       const std::string& name);

    std::unique_ptr<OpenSSLContext> m_pContext;
    int m_LogonResult = -1;
};
