#include "Link.h"

#include <QVPlatform/OutputLog.h>
#include <QVPlatform/SecureMemory.h>
#include <algorithm>

namespace {

// Who connects again and again says once why it fails, by GetLastError().
COutputLogNull g_Silence;

} // namespace

Link::Link(OpenSSLContext& context)
    : OpenSSLClientSocket("server", CQVLocale(), &context, true, false, &g_Silence), m_Reader(MaxFrame) {}

bool Link::Connect(const std::string& address, std::string& problem) {
    std::vector<QVSocketAddress> addresses;
    if (!QVSocketAddress::Resolve(address, false, addresses, problem))
        return false;
    Disconnect();
    std::string host = address.substr(0, address.rfind(':'));
    if (host.starts_with('[') && host.ends_with(']'))
        host = host.substr(1, host.size() - 2);
    SetExpectedHostName(host);
    std::reverse(addresses.begin(), addresses.end());
    m_Addresses = std::move(addresses);
    m_bActive = TryNextAddress();
    if (!m_bActive)
        problem = GetLastError().m_Message;
    return m_bActive;
}

bool Link::TryNextAddress() {
    while (!m_Addresses.empty()) {
        m_Address = m_Addresses.back();
        m_Addresses.pop_back();
        if (CreateSocket(m_Address.GetFamily()) == 0 &&
            StartConnect(m_Address.GetSockAddr(), static_cast<int>(m_Address.GetLength())))
            return true;
        HardResetSocket();
    }
    return false;
}

void Link::Disconnect() {
    HardResetSocket();
    m_Addresses.clear();
    m_Reader.Clear();
    Wipe(m_ToSend);
    m_Reason.clear();
    m_bActive = m_bConnected = false;
}

void Link::HandleEvents(bool bReadable, bool bWritable) {
    bool bUsable = true;
    if (bReadable)
        bUsable = ProcessReadEvent();
    if (bUsable && bWritable && GetSocket().IsOpen())
        bUsable = ProcessWriteEvent();
    if (bUsable && GetSocket().IsOpen())
        return;
    HardResetSocket();
    if (!m_bConnected && TryNextAddress())
        return;
    const std::string reason = !m_Reason.empty()                   ? m_Reason
                               : m_bConnected && bUsable           ? "the server ended the connection"
                               : !GetLastError().m_Message.empty() ? GetLastError().m_Message
                                                                   : "the connection broke";
    Disconnect();
    OnEnded(reason);
}

void Link::ConnectComplete(int errorCode) {
    if (errorCode != 0)
        return;
    m_bConnected = true;
    OnConnected();
}

bool Link::ProcessReadData() {
    if (!m_bConnected)
        return true;
    unsigned char buffer[16384];
    unsigned int received = 0;
    SocketIoResult result;
    while ((result = ReadData(buffer, sizeof buffer, received)) == SocketIoDone) {
        m_Reader.Add(buffer, received);
        if (!TakeFrames())
            return false;
    }
    // Only now, because what was tried last decides what is waited for.
    return result == SocketIoWouldBlock ? ProcessWriteData() : result != SocketIoError;
}

bool Link::TakeFrames() {
    try {
        for (std::span<const unsigned char> frame; m_Reader.Next(frame);) {
            FrameInput in(frame);
            OnMessage(frame[0], in);
        }
        return true;
    } catch (const ProtocolError& error) {
        m_Reason = error.what();
        return false;
    } catch (const std::exception& error) {
        m_Reason = std::string("the server sent what cannot be read: ") + error.what();
        return false;
    }
}

bool Link::ProcessWriteData() {
    while (m_bConnected && !m_ToSend.empty()) {
        unsigned int sent = 0;
        const auto count = static_cast<unsigned int>(m_ToSend.size());
        const SocketIoResult result = WriteData(m_ToSend.data(), count, sent);
        if (result != SocketIoDone)
            return result != SocketIoError;
        // There may have been a password in it.
        QVRandomGenerator::ClearMemory(m_ToSend.data(), sent);
        m_ToSend.erase(m_ToSend.begin(), m_ToSend.begin() + sent);
    }
    return true;
}
