// Link - a client's end of a connection to a server of the plant, for the event loop of its program.
//
// It connects to HOST:PORT, accepts only a server whose certificate names HOST and leads to what the context trusts,
// and then sends and receives messages. Nothing in it waits, but for the name service that Connect() asks.
#pragma once

#include "Wire.h"

#include <QVLib/Tls/OpenSSLClientSocket.h>
#include <string>

class Link : public OpenSSLClientSocket {
public:
    explicit Link(OpenSSLContext& context);

    // Starts to connect; OnConnected() or OnEnded() follows from HandleEvents(). False, with the reason in `problem`,
    // when there is nothing to try.
    bool Connect(const std::string& address, std::string& problem);
    // Ends the connection without a call of OnEnded().
    void Disconnect();
    bool IsActive() const { return m_bActive; }
    bool IsConnected() const { return m_bConnected; }
    void Send(Message& message) { message.AppendTo(m_ToSend); }

    // For the event loop: the socket is waited for until it can be read and, where this says so, written.
    bool WantsToWrite() const { return IsSocketWriteInProgress(!m_ToSend.empty()); }
    void HandleEvents(bool bReadable, bool bWritable);

protected:
    ~Link() = default;

    virtual void OnConnected() = 0;
    // May throw what CBinaryInput throws, and ProtocolError: that ends the connection.
    virtual void OnMessage(unsigned char type, FrameInput& in) = 0;
    // There is no connection any more, or none came about. Connect() may be called again.
    virtual void OnEnded(const std::string& reason) = 0;

private:
    bool TryNextAddress();
    bool TakeFrames();

    void ConnectComplete(int errorCode) override;
    bool ProcessReadData() override;
    bool ProcessWriteData() override;
    void SocketClosing(SocketCloseCause) override {}
    void SocketClosed(SocketCloseCause) override {}

    std::vector<QVSocketAddress> m_Addresses; // those that are left to be tried
    QVSocketAddress m_Address;
    FrameReader m_Reader;
    std::vector<unsigned char> m_ToSend;
    std::string m_Reason;
    bool m_bActive = false;
    bool m_bConnected = false;
};
