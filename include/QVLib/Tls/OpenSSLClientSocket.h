// OpenSSLClientSocket - a client's connection to a server, plain TCP or TLS, that never waits: the program's
// event loop says when the socket is readable or writable, and a derived class does the protocol's work.
//
//     connection.CreateSocket(address.GetFamily());
//     connection.StartConnect(address.GetSockAddr(), static_cast<int>(address.GetLength()));
//     while (connection.GetSocket().IsOpen()) {
//         const bool bWrite = connection.IsSocketWriteInProgress(connection.HasDataToSend());
//         QVSocketInterest interest{&connection.GetSocket(),
//                                   bWrite ? QVSocket::Readable | QVSocket::Writable : QVSocket::Readable};
//         qv_wait_for_sockets({&interest, 1}, timeout);
//         bool bUsable = true;
//         if (interest.m_Ready & QVSocket::Readable)
//             bUsable = connection.ProcessReadEvent();
//         if (bUsable && (interest.m_Ready & QVSocket::Writable) && connection.GetSocket().IsOpen())
//             bUsable = connection.ProcessWriteEvent();
//         if (!bUsable)
//             connection.HardResetSocket();
//     }
//
// tools/qv/Tls.cpp is a whole one.
//
// Life:      closed -> connecting -> connected -> shutdown sent -> closed. ConnectComplete(0) says that the
//            connection is usable: with TLS, that the handshake is done and the server is the one asked for.
//            Every way to the end but HardResetSocket() calls SocketClosing() and SocketClosed(); after that,
//            the object can connect again.
// Loop:      the order above, reading first, tells a refused connection by its own error. Before
//            ConnectComplete(0), ProcessReadData() may be called and reads nothing.
// Waiting:   with TLS, what was tried last decides what is waited for, and a read that would block waits for
//            the server alone. So read until it would block, then write at once what is queued, and go on
//            with that from ProcessWriteData().
// Writing:   a write that would block is repeated with the same bytes at its beginning, and no fewer. They
//            may lie elsewhere. Fewer bytes than given may be sent.
// Virtuals:  SocketClosed() and ConnectComplete() are the last step of what calls them, so they may connect
//            again, or end the object. After SocketIoClosed the connection is closed already.
// Errors:    an operation that returns false has logged why, and the connection is of no use any more. What a
//            user should know is in GetLastError() too: kind 1 with the number of a message of the library,
//            or kind 3 with the system's errno.
// Signals:   none is raised by writing to a server that is gone.
// Tracing:   every line has the log prefix. Lines on single reads and writes appear only with `logReadWrite`.
// Ownership: the context, the log and the address are borrowed; the address until the connection is made.
// Threads:   one thread, that of the event loop.
#pragma once

#include <QVLib/Parsing/ErrorCodeAndMessage.h>
#include <QVPlatform/Locale.h>
#include <QVPlatform/Socket.h>
#include <QVPlatform/String.h>

class COutputLog;
class CQVModule;
class OpenSSLContext;
typedef struct ssl_st SSL;
typedef struct x509_st X509;
typedef struct x509_store_ctx_st X509_STORE_CTX;

enum SocketIoResult : int {
    SocketIoDone = 0,       // bytes were moved; fewer than asked for is no failure
    SocketIoWouldBlock = 1, // try again on the next event
    SocketIoClosed = 2,     // the connection was closed, and so is the socket now
    SocketIoError = 3,      // a failure, logged; a plain socket is closed now, one with TLS is not
};

class OpenSSLClientSocket {
public:
    enum SocketCloseCause : int {
        ReadEvent = 0,                 // the server answered the shutdown
        FDClose = 1,                   // for derived classes
        ReadError = 2,                 // plain
        ReadConnectionResetByPeer = 3, // for derived classes
        ReadReturnsSocketClosed = 4,   // plain
        WriteFail = 5,                 // plain
        WriteReturnsSocketClosed = 6,  // plain
        SSLClosure = 7,                // TLS, with or without a proper end
        SetupTransactionFail = 8,      // for derived classes
    };
    enum ConnectionState : int { Closed = 0, Connecting = 1, Connected = 2, ShutdownSent = 3 };
    // The step of TLS that waits, and for what the socket must become.
    enum PendingOperation : int {
        NothingPending = 0,
        ConnectWaitsToRead = 1,
        ConnectWaitsToWrite = 2,
        ReadWaitsToRead = 3,
        ReadWaitsToWrite = 4,
        WriteWaitsToRead = 5,
        WriteWaitsToWrite = 6,
        ShutdownWaitsToWrite = 7,
    };
    // The kinds of GetLastError().
    static constexpr unsigned int LibraryMessage = 1;
    static constexpr unsigned int SystemError = 3;

    // What a derived class does. The results of the two in the middle are those of the event.

    // The connection is usable (0), or could not be set up because of errno `errorCode`.
    virtual void ConnectComplete(int errorCode) = 0;
    // There is something to read: call ReadData() until it would block. Before ConnectComplete(0), return
    // true.
    virtual bool ProcessReadData() = 0;
    // There is room to write: call WriteData() with what is queued, if anything is.
    virtual bool ProcessWriteData() = 0;
    // The socket is about to be closed; the TLS session is gone already. To close it in here does nothing.
    virtual void SocketClosing(SocketCloseCause cause) = 0;
    virtual void SocketClosed(SocketCloseCause cause) = 0;

    // `peerDescription` is what messages call the other side ("server"). `context` may be null without TLS.
    OpenSSLClientSocket(const qvstring& peerDescription, const CQVLocale& locale, OpenSSLContext* context,
                        bool useTLS, bool logReadWrite, COutputLog* log);
    OpenSSLClientSocket(const OpenSSLClientSocket&) = delete;
    OpenSSLClientSocket& operator=(const OpenSSLClientSocket&) = delete;

    // What stands before every log line; at most 32 bytes are kept.
    void SetLogPrefix(const qvstring& prefix);

    // Whom to accept. Nothing is verified until something is demanded here or the context is given something
    // to trust, and what is demanded must all hold, or the handshake ends with message 120 and without
    // ConnectComplete(); so does a connection without TLS, where something is demanded here. To be set before
    // StartConnect(); holds for every later connection.

    // The certificate must name this host, or this IP address, and lead to what the context trusts (with a
    // pinned key, only the name must match unless the context trusts somebody). The name, but no address, is
    // also told to the server (SNI). It is no pattern. Empty: no demand.
    void SetExpectedHostName(const qvstring& name) { m_ExpectedHostName = name; }
    // The server's public key must be the one with this SHA-256, 64 hexadecimal digits that ':' may separate;
    // `qv tls connect` prints it. Its certificate may then be self-signed or of an unknown issuer, unless the
    // context trusts somebody, but not expired. Empty: no demand. False for another text, which no server
    // will satisfy.
    bool SetPinnedKey(const qvstring& sha256);

    // Makes a TCP socket of a family (QVSocketAddress::GetFamily()); 0, or the errno that was logged.
    int CreateSocket(int addressFamily);
    // Starts to connect. The outcome, also one that is known at once, comes with a later event.
    bool StartConnect(sockaddr* address, int length);

    // For the event loop, when the socket is readable or writable.
    bool ProcessReadEvent();
    bool ProcessWriteEvent();
    // Whether the loop should also wait for the socket to become writable; `dataWaiting`: something is
    // queued.
    bool IsSocketWriteInProgress(bool dataWaiting) const;

    // Read what is there, and write what fits. 0 bytes are always done. With TLS, nothing passes beside the
    // session: before ConnectComplete(0), and in SocketClosing(), both would block.
    SocketIoResult ReadData(void* buffer, unsigned int size, unsigned int& received);
    SocketIoResult WriteData(const void* data, unsigned int size, unsigned int& sent);

    // Tells the server that no more will be sent. The socket is closed by the event of the server's answer.
    // With TLS, not while a write would block: finish that first, or the end fails with it, by a later event.
    bool StartShutdown();
    // Nothing happens, and nothing is called, without a socket.
    void CloseSocket(SocketCloseCause cause);
    // Drops the connection, so that the server sees a reset; calls no virtual operation.
    void HardResetSocket();

    // "ReadEvent" and so on, "** Unknown **" for other values.
    static const char* GetSocketCloseCauseText(SocketCloseCause cause);

    const QVSocket& GetSocket() const { return m_Socket; }
    ConnectionState GetConnectionState() const { return static_cast<ConnectionState>(m_ConnectionState); }
    PendingOperation GetPendingOperation() const { return static_cast<PendingOperation>(m_PendingOperation); }
    // As "127.0.0.1:443"; empty before, and after CloseSocket(). HardResetSocket() leaves them, to tell of
    // what failed.
    const qvstring& GetRemoteSocketName() const { return m_RemoteSocketName; }
    const qvstring& GetLocalSocketName() const { return m_LocalSocketName; }
    const ErrorCodeAndMessage& GetLastError() const { return m_LastError; }
    // The session, for OpenSSL's own questions; null without TLS, and after a connection's end.
    SSL* GetSSL() const { return m_pSSL; }

    // What came of verifying the last server: OpenSSL's number, 0 when it was accepted and -1 when nothing
    // has been verified (yet); and as text.
    int GetVerifyResult() const { return m_VerifyResult; }
    const char* GetVerifyResultText() const;
    // The certificate of the last server that showed one, also of a refused one; null before. Stays the
    // socket's, until the next handshake.
    X509* GetPeerCertificate() const { return m_pPeerCertificate; }

    // Log a failure and keep it as the last error: message `messageId` of `module` with its arguments; or the
    // same with the system's text of `errorCode` behind it. For 104 and 111 (connection reset, refused) the
    // system's text says all there is. At most 1,024 bytes.
    void LogError(const CQVModule& module, unsigned int messageId, ...);
    void LogSocketError(int errorCode, const CQVModule& module, unsigned int messageId, ...);

protected:
    // Closes the socket without a word; a derived class is destroyed as what it is.
    ~OpenSSLClientSocket();

    SocketIoResult ReadSocketData(void* buffer, unsigned int size, unsigned int& received);
    SocketIoResult WriteSocketData(const void* data, unsigned int size, unsigned int& sent);
    SocketIoResult ReadSSLData(void* buffer, unsigned int size, unsigned int& received);
    SocketIoResult WriteSSLData(const void* data, unsigned int size, unsigned int& sent);

    // Logs a line of at most 256 bytes, then every error of OpenSSL's queue.
    void LogSSLErrors(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void Log(const char* format, ...) __attribute__((format(printf, 2, 3)));

private:
    // What an operation of OpenSSL came to.
    struct Outcome {
        int m_Result;
        int m_Error;       // of SSL_get_error()
        int m_SystemError; // errno
    };
    struct Transfer;

    bool ProcessSocketConnected();
    bool IsTlsMissing() const;
    bool ShutdownSocket();
    void StoreError(unsigned int kind, unsigned int code, const char* text);

    bool StartTLS();
    bool SSLConnect();
    bool CompleteSSLConnect();
    bool FailSSLConnect(const char* format, int error);
    bool SSLShutdown();
    SocketIoResult FinishSSLTransfer(const Transfer& transfer, const Outcome& outcome, unsigned int& moved);
    void HandleSSLSocketClosure(const char* operation);
    void FreeSSL();
    template<typename Call>
    Outcome CallSSL(Call call);

    bool PrepareVerification();
    bool IsVerifying() const;
    bool IsServerAccepted();
    bool IsPlainServerAccepted();
    static int VerifyCallback(int bAccepted, X509_STORE_CTX* store);
    bool Verify(bool bAccepted, X509_STORE_CTX* store);
    void KeepPeerCertificate(X509* certificate);

    qvstring m_PeerDescription;
    CQVLocale m_Locale;
    OpenSSLContext* m_pContext;
    bool m_bUseTLS;
    bool m_bLogReadWrite;
    COutputLog* m_pLog;
    char m_LogPrefix[32 + 1] = "";
    unsigned int m_LogPrefixLength = 0;
    QVSocket m_Socket;
    int m_ConnectionState = Closed;
    sockaddr* m_pRemoteAddress = nullptr;
    int m_RemoteAddressLength = 0;
    qvstring m_RemoteSocketName;
    qvstring m_LocalSocketName;
    SSL* m_pSSL = nullptr;
    int m_PendingOperation = NothingPending;
    ErrorCodeAndMessage m_LastError;

    bool m_bClosing = false; // in SocketClosing()
    int m_FatalError = 0;    // what ended the session, after which OpenSSL must not be asked to shut it down
    qvstring m_ExpectedHostName;
    qvstring m_PinnedKey; // the hash itself; empty without a demand
    bool m_bChainDemanded = false;
    int m_VerifyResult = -1;
    X509* m_pPeerCertificate = nullptr;
};
