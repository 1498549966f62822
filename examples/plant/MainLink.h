// MainLink - a standby's connection to its main: it logs on with the standby's certificate, applies what the main sends
// into the store, and answers. A connection that is lost is made anew, again and again.
#pragma once

#include "Link.h"
#include "Store.h"

#include <chrono>

class MainLink final : public Link {
public:
    MainLink(const std::string& address, OpenSSLContext& context, Store& store, COutputLog& log)
        : Link(context), m_Address(address), m_Store(store), m_Log(log) {}

    // To be called several times a second: connects, and gives a main up that has been silent for too long.
    void Tick();
    // The main has accepted this standby and is there.
    bool IsMainThere() const { return m_bAccepted; }
    // How long it has not been.
    std::chrono::steady_clock::duration GetTimeWithoutMain() const;

private:
    void OnConnected() override;
    void OnMessage(unsigned char type, FrameInput& in) override;
    void OnEnded(const std::string& reason) override;

    void ApplyRequest(FrameInput& in);
    void SayProblem(const std::string& problem);

    const std::string m_Address;
    Store& m_Store;
    COutputLog& m_Log;
    std::chrono::steady_clock::time_point m_LastSeen = std::chrono::steady_clock::now(); // accepted
    std::chrono::steady_clock::time_point m_LastHeard;
    std::chrono::steady_clock::time_point m_NextTry;
    bool m_bAccepted = false;
    std::string m_SaidProblem;
};
