#include <QVLib/Tls/OpenSSLClientSocket.h>

#include <QVLib/Resources/Messages.h>
#include <QVLib/Tls/OpenSSLContext.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/Error.h>
#include <QVPlatform/Format.h>
#include <QVPlatform/OutputLog.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>

namespace {

constexpr unsigned int kMaxMessage = 1024;

} // namespace

OpenSSLClientSocket::OpenSSLClientSocket(const qvstring& peerDescription, const CQVLocale& locale,
                                         OpenSSLContext* context, bool useTLS, bool logReadWrite,
                                         COutputLog* log)
    : m_PeerDescription(peerDescription), m_Locale(locale), m_pContext(context), m_bUseTLS(useTLS),
      m_bLogReadWrite(logReadWrite), m_pLog(log) {
    QV_ASSERT(context != nullptr || !useTLS);
}

OpenSSLClientSocket::~OpenSSLClientSocket() {
    FreeSSL();
    KeepPeerCertificate(nullptr);
}

void OpenSSLClientSocket::SetLogPrefix(const qvstring& prefix) {
    m_LogPrefixLength = qv_strcpy(m_LogPrefix, sizeof m_LogPrefix, prefix.c_str());
}

int OpenSSLClientSocket::CreateSocket(int addressFamily) {
    // Nothing of an earlier connection may reach the new one.
    FreeSSL();
    m_PendingOperation = NothingPending;
    m_ConnectionState = Closed;
    m_RemoteSocketName.clear();
    m_LocalSocketName.clear();
    if (m_Socket.CreateSocket(addressFamily, QVSocket::StreamType, QVSocket::TcpProtocol))
        return 0;
    const int error = m_Socket.GetLastError();
    LogSocketError(error, g_LibModule, QVMessage::UnableToCreateSocket);
    return error;
}

bool OpenSSLClientSocket::StartConnect(sockaddr* address, int length) {
    if (m_bLogReadWrite)
        Log("StartConnect");
    if (!m_Socket.IsOpen()) {
        LogError(g_LibModule, QVMessage::ConnectWithoutSocket);
        return false;
    }
    if (!m_Socket.SetNonBlocking()) {
        Log("fcntl() returns 0x%X", static_cast<unsigned int>(m_Socket.GetLastError()));
        return false;
    }
    m_pRemoteAddress = address;
    m_RemoteAddressLength = length;
    if (!m_Socket.ConnectSocket(address, static_cast<unsigned int>(std::max(length, 0)))) {
        const int error = m_Socket.GetLastError();
        if (error != EAGAIN && error != EINPROGRESS) {
            LogSocketError(error, g_LibModule, QVMessage::ConnectFailed);
            return false;
        }
    }
    m_ConnectionState = Connecting;
    return true;
}

bool OpenSSLClientSocket::ProcessWriteEvent() {
    if (m_bLogReadWrite)
        Log("ProcessWrite");
    if (m_ConnectionState == Connecting && m_PendingOperation == NothingPending) {
        Log("Socket connection complete");
        QVSocket::QVGetNameInfo(m_pRemoteAddress, static_cast<unsigned int>(m_RemoteAddressLength),
                                m_RemoteSocketName);
        Log("Remote socket name: %s", m_RemoteSocketName.c_str());
        return ProcessSocketConnected();
    }
    const int pending = m_PendingOperation;
    // A handshake that waits for the server is not to be forgotten for room to write.
    if (pending != ConnectWaitsToRead)
        m_PendingOperation = NothingPending;
    switch (pending) {
    case ConnectWaitsToWrite:
        return SSLConnect();
    case ReadWaitsToWrite:
        return ProcessReadEvent();
    case ShutdownWaitsToWrite:
        return SSLShutdown();
    default:
        return ProcessWriteData();
    }
}

bool OpenSSLClientSocket::ProcessReadEvent() {
    if (m_bLogReadWrite)
        Log("ProcessRead");
    if (m_ConnectionState == Connecting && !m_Socket.CheckSocketError()) {
        LogSocketError(m_Socket.GetLastError(), g_LibModule, QVMessage::ConnectFailed);
        return false;
    }
    if (m_ConnectionState == ShutdownSent) {
        CloseSocket(ReadEvent);
        return true;
    }
    const int pending = m_PendingOperation;
    // A handshake or a shutdown that waits for room is not to be forgotten for what the server sends.
    if (pending != ConnectWaitsToWrite && pending != ShutdownWaitsToWrite)
        m_PendingOperation = NothingPending;
    switch (pending) {
    case ConnectWaitsToRead:
        return SSLConnect();
    case WriteWaitsToRead:
        return ProcessWriteEvent();
    default:
        return ProcessReadData();
    }
}

bool OpenSSLClientSocket::IsSocketWriteInProgress(bool dataWaiting) const {
    // A step of TLS decides even while connecting: a socket that is writable all the time would wake the loop
    // for nothing, and in the middle of a handshake that waits for the server.
    switch (m_PendingOperation) {
    case ConnectWaitsToWrite:
    case ReadWaitsToWrite:
    case WriteWaitsToWrite:
    case ShutdownWaitsToWrite:
        return true;
    case ConnectWaitsToRead:
    case ReadWaitsToRead:
    case WriteWaitsToRead:
        return false;
    default:
        break;
    }
    if (m_ConnectionState == Connecting)
        return true;
    return m_ConnectionState != ShutdownSent && dataWaiting;
}

bool OpenSSLClientSocket::ProcessSocketConnected() {
    QVSocketAddress address;
    if (!m_Socket.GetPeerName(address)) {
        const int error = m_Socket.GetLastError();
        LogSocketError(error, g_LibModule, QVMessage::GetPeerNameFailed);
        HardResetSocket();
        ConnectComplete(error);
        return false;
    }
    if (m_Socket.GetSocketName(address)) {
        QVSocket::QVGetNameInfo(address.GetSockAddr(), address.GetLength(), m_LocalSocketName);
        Log("Local socket name: %s", m_LocalSocketName.c_str());
    } else {
        Log("getsockname() returns 0x%X", static_cast<unsigned int>(m_Socket.GetLastError()));
    }
    if (m_bUseTLS)
        return StartTLS();
    if (!IsPlainServerAccepted())
        return false;
    m_ConnectionState = Connected;
    ConnectComplete(0);
    return true;
}

// What passed beside the session, before the server is accepted or in SocketClosing(), would be open to all.
bool OpenSSLClientSocket::IsTlsMissing() const {
    return m_bUseTLS && m_Socket.IsOpen() && (m_pSSL == nullptr || m_ConnectionState == Connecting);
}

SocketIoResult OpenSSLClientSocket::ReadData(void* buffer, unsigned int size, unsigned int& received) {
    received = 0;
    if (size == 0)
        return SocketIoDone; // 0 bytes from the system or OpenSSL would mean the end
    if (IsTlsMissing())
        return SocketIoWouldBlock;
    return m_pSSL != nullptr ? ReadSSLData(buffer, size, received) : ReadSocketData(buffer, size, received);
}

SocketIoResult OpenSSLClientSocket::WriteData(const void* data, unsigned int size, unsigned int& sent) {
    sent = 0;
    if (size == 0)
        return SocketIoDone;
    if (IsTlsMissing())
        return SocketIoWouldBlock;
    return m_pSSL != nullptr ? WriteSSLData(data, size, sent) : WriteSocketData(data, size, sent);
}

SocketIoResult OpenSSLClientSocket::ReadSocketData(void* buffer, unsigned int size, unsigned int& received) {
    m_LastError.Reset();
    const int count = m_Socket.RecvData(buffer, size);
    if (count > 0) {
        received = static_cast<unsigned int>(count);
        return SocketIoDone;
    }
    if (count == 0) {
        LogError(g_LibModule, QVMessage::ConnectionClosed, m_PeerDescription.c_str());
        CloseSocket(ReadReturnsSocketClosed);
        return SocketIoClosed;
    }
    const int error = m_Socket.GetLastError();
    if (error == EAGAIN)
        return SocketIoWouldBlock;
    LogSocketError(error, g_LibModule, QVMessage::ReadFailed);
    CloseSocket(ReadError);
    return SocketIoError;
}

SocketIoResult OpenSSLClientSocket::WriteSocketData(const void* data, unsigned int size, unsigned int& sent) {
    m_LastError.Reset();
    const int count = m_Socket.SendData(data, size);
    if (count > 0) {
        sent = static_cast<unsigned int>(count);
        return SocketIoDone;
    }
    if (count == 0) {
        LogError(g_LibModule, QVMessage::ConnectionClosed, m_PeerDescription.c_str());
        CloseSocket(WriteReturnsSocketClosed);
        return SocketIoClosed;
    }
    const int error = m_Socket.GetLastError();
    if (error == EAGAIN)
        return SocketIoWouldBlock;
    LogSocketError(error, g_LibModule, QVMessage::WriteFailed);
    CloseSocket(WriteFail);
    return SocketIoError;
}

bool OpenSSLClientSocket::StartShutdown() {
    return m_pSSL != nullptr ? SSLShutdown() : ShutdownSocket();
}

bool OpenSSLClientSocket::ShutdownSocket() {
    Log("Send socket shutdown to server");
    const bool bShutdown = m_Socket.ShutdownSend();
    m_ConnectionState = bShutdown ? ShutdownSent : Closed;
    if (!bShutdown)
        Log("shutdown() returns 0x%X", static_cast<unsigned int>(m_Socket.GetLastError()));
    return bShutdown;
}

void OpenSSLClientSocket::CloseSocket(SocketCloseCause cause) {
    FreeSSL();
    m_PendingOperation = NothingPending; // else a later connection would not be recognised as new
    if (!m_Socket.IsOpen() || m_bClosing)
        return;
    m_bClosing = true; // a failure to send a last word would close again
    SocketClosing(cause);
    m_bClosing = false;
    m_Socket.CloseSocket();
    m_RemoteSocketName.clear();
    m_LocalSocketName.clear();
    Log("Socket closed");
    m_ConnectionState = Closed;
    SocketClosed(cause);
}

void OpenSSLClientSocket::HardResetSocket() {
    FreeSSL();
    m_PendingOperation = NothingPending;
    if (!m_Socket.IsOpen())
        return;
    Log("Close socket with hard RST");
    m_Socket.HardResetAndCloseSocket();
    m_ConnectionState = Closed;
}

const char* OpenSSLClientSocket::GetSocketCloseCauseText(SocketCloseCause cause) {
    switch (cause) {
    case ReadEvent:
        return "ReadEvent";
    case FDClose:
        return "FDClose";
    case ReadError:
        return "ReadError";
    case ReadConnectionResetByPeer:
        return "ReadConnectionResetByPeer";
    case ReadReturnsSocketClosed:
        return "ReadReturnsSocketClosed";
    case WriteFail:
        return "WriteFail";
    case WriteReturnsSocketClosed:
        return "WriteReturnsSocketClosed";
    case SSLClosure:
        return "SSLClosure";
    case SetupTransactionFail:
        return "SetupTransactionFail";
    }
    return "** Unknown **";
}

void OpenSSLClientSocket::StoreError(unsigned int kind, unsigned int code, const char* text) {
    m_LastError.m_Kind = kind;
    m_LastError.m_Code = code;
    m_LastError.m_Message = text;
}

void OpenSSLClientSocket::LogError(const CQVModule& module, unsigned int messageId, ...) {
    char text[kMaxMessage];
    va_list arguments;
    va_start(arguments, messageId);
    module.FormatResourceStringVA(m_Locale, messageId, text, sizeof text, arguments);
    va_end(arguments);
    StoreError(LibraryMessage, messageId, text);
    Log("LogError %u: %s", messageId, text);
}

void OpenSSLClientSocket::LogSocketError(int errorCode, const CQVModule& module, unsigned int messageId,
                                         ...) {
    char text[kMaxMessage] = "";
    unsigned int length = 0;
    if (errorCode != ECONNRESET && errorCode != ECONNREFUSED) {
        va_list arguments;
        va_start(arguments, messageId);
        length = module.FormatResourceStringVA(m_Locale, messageId, text, sizeof text, arguments);
        va_end(arguments);
        length += qv_strcpy(text + length, static_cast<unsigned int>(sizeof text) - length, " ");
    }
    QVFormatMessage(errorCode, text + length, static_cast<unsigned int>(sizeof text) - length);
    StoreError(SystemError, static_cast<unsigned int>(errorCode), text);
    Log("LogSocketError %d: %s", errorCode, text);
}

void OpenSSLClientSocket::Log(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    m_pLog->PrefixedPrintInfoVA(m_LogPrefix, m_LogPrefixLength, format, arguments);
    va_end(arguments);
}
