// Stream sockets: connections between processes, on one machine or across a network.
//
// QVSocketAddress   an address, made from text: "unix:PATH", "HOST:PORT" or "[V6ADDRESS]:PORT"
// QVSocket          one connection
// QVSocketListener  takes connections in
// QVWakeEvent       ends the waits of a thread from another thread, or when the process is told to stop
// qv_wait_for_sockets()  waits until something can be done, for so long at most; qv_wait_for_handles() does
// the
//                   same for serial lines and other descriptors
//
// A server with one client, and what the client does:
//
//     QVSocketListener listener;                        QVSocket socket;
//     listener.Listen(address);                         socket.CreateSocket(address);
//     listener.WaitForConnection(-1, &stop);            socket.ConnectSocket(address);
//     listener.AcceptConnection(socket, peer);
//
// Errors:   an operation that fails returns false (or -1) and leaves the system's errno in the object
//           (CQVError). 11 (would block) and 115 (in progress) are what non-blocking sockets answer when
//           there is nothing to do yet.
// Signals:  none is raised by writing to a connection that is gone, and none interrupts an operation: a wait
//           goes on behind a handled signal. To be woken by stop signals, wait with a QVWakeEvent for them.
// Children: no socket is inherited by a program that the process starts.
// Threads:  an object is for one thread at a time, a QVWakeEvent for any number.
#pragma once

#include <QVPlatform/Error.h>
#include <QVPlatform/FileLock.h>
#include <QVPlatform/String.h>
#include <atomic>
#include <cstddef>
#include <memory>
#include <span>
#include <vector>

struct sockaddr;
struct sockaddr_storage;

// The address of a socket: IPv4 or IPv6 with a port, or the path of a socket file. Begins with the system's
// own form of it, so that a pointer to either can be given to QVSocket::QVGetNameInfo().
class QVSocketAddress {
public:
    static constexpr unsigned int Capacity = 128;

    QVSocketAddress() = default;
    QVSocketAddress(const sockaddr* address, unsigned int length);

    // True when the text has one of the three forms; else `problem` says what is wrong with it. Asks nobody.
    static bool CheckText(const qvstring& text, qvstring& problem);
    // Gives the addresses that the text stands for, the best first: a host may have several. An empty HOST is
    // every address of this machine when listening, and this machine when connecting. False, with the reason
    // in `problem`, for a text that has none. Asks a name server where HOST is a name and may wait for it.
    static bool Resolve(const qvstring& text, bool bForListening, std::vector<QVSocketAddress>& candidates,
                        qvstring& problem);

    // The text that Resolve() takes: "unix:PATH", "127.0.0.1:5000", "[::1]:5000". An address without a name
    // (the client's end of a socket file) is "unix:".
    qvstring ToText() const;

    bool IsEmpty() const { return m_Length == 0; }
    // The system's number of the address family; 0 when empty.
    int GetFamily() const;
    // 0 for socket files.
    unsigned int GetPort() const;
    // Empty for other families.
    qvstring GetSocketFilePath() const;

    const sockaddr* GetSockAddr() const { return reinterpret_cast<const sockaddr*>(m_Storage); }
    sockaddr* GetSockAddr() { return reinterpret_cast<sockaddr*>(m_Storage); }
    unsigned int GetLength() const { return m_Length; }

    bool operator==(const QVSocketAddress& other) const;

private:
    alignas(8) std::byte m_Storage[Capacity]{};
    unsigned int m_Length = 0; // of what is used of it
};

// An event that stays set until it is reset. A thread that waits for sockets with it is woken by Set().
class QVWakeEvent {
public:
    enum Source {
        SetOnly,       // set by Set()
        OrStopSignals, // and by the signals of qv_catch_stop_signals(), which must have been called before
    };

    explicit QVWakeEvent(Source source = SetOnly);
    ~QVWakeEvent();
    QVWakeEvent(const QVWakeEvent&) = delete;
    QVWakeEvent& operator=(const QVWakeEvent&) = delete;

    void Set();
    // Takes Set() back; stop signals stay.
    void Reset();
    bool IsSet() const;

private:
    friend class QVSocketPoll;

    const bool m_bStopSignals;
    std::atomic<bool> m_bSetWithoutDescriptor{false}; // where the system had none left
    const int m_Descriptor;
};

enum class QVWaitResult {
    Ready,
    TimedOut,
    Woken,  // by the event; comes before Ready
    Failed, // the system could not wait; errno tells
};

class QVSocket : public CQVError {
public:
    enum Events : unsigned int {
        Readable = 1, // data, the end of the data, a connection to take in, or an error
        Writable = 2, // room to send, a connection that is made, or an error
    };

    // The system's numbers for CreateSocket().
    static constexpr int StreamType = 1;  // SOCK_STREAM
    static constexpr int TcpProtocol = 6; // IPPROTO_TCP

    QVSocket() = default;
    // Closes the socket.
    ~QVSocket();
    QVSocket(const QVSocket&) = delete;
    QVSocket& operator=(const QVSocket&) = delete;

    // Makes a socket from the system's numbers (of family, type, protocol), or a stream socket for an
    // address. An object that has one closes it first.
    bool CreateSocket(int family, int type, int protocol);
    bool CreateSocket(const QVSocketAddress& address);
    bool SetNonBlocking();
    // Has small pieces sent at once instead of gathered. True for socket files, which always do.
    bool SetNoDelay();

    // A non-blocking socket answers false with 115 (socket files: 11), then becomes writable when the outcome
    // is known, and CheckSocketError() tells it.
    bool ConnectSocket(const sockaddr* address, unsigned int length);
    bool ConnectSocket(const QVSocketAddress& address);
    // Fetches the error that the system holds for the socket. True when there is none.
    bool CheckSocketError();

    // `length` is the room in `address` before and the used part afterwards.
    bool GetPeerName(sockaddr_storage& address, unsigned int& length);
    bool GetSocketName(sockaddr_storage& address, unsigned int& length);
    bool GetPeerName(QVSocketAddress& address);
    bool GetSocketName(QVSocketAddress& address);
    // The printable form of the `length` bytes of an address, as QVSocketAddress::ToText() gives it; numbers,
    // no names, so nobody is asked. False when it is of no known family.
    static bool QVGetNameInfo(const QVSocketAddress* address, unsigned int length, qvstring& text);
    static bool QVGetNameInfo(const sockaddr* address, unsigned int length, qvstring& text);

    // Return the number of bytes moved, which may be fewer than asked for; -1 on an error. RecvData() gives 0
    // when the other side will send no more.
    int RecvData(void* buffer, unsigned int size);
    int SendData(const void* data, unsigned int size);

    // Waits until one of `events` holds. `milliseconds` -1 is for ever; `wake` may be null.
    QVWaitResult WaitFor(unsigned int events, int milliseconds, const QVWakeEvent* wake = nullptr) const;

    // Tells the other side that no more will be sent; receiving goes on.
    bool ShutdownSend();
    // Nothing happens without a socket. What was sent is still delivered.
    void CloseSocket();
    // Drops what is not yet delivered; the other side sees a reset connection.
    void HardResetAndCloseSocket();

    // The system's handle, -1 when there is none. It stays the object's.
    int GetSocketHandle() const { return m_Handle; }
    bool IsOpen() const { return m_Handle >= 0; }

private:
    friend class QVSocketListener;

    bool Succeeded(int result);

    int m_Handle = -1;
};

// What a wait is about: a socket that is open, and the QVSocket::Events wanted of it.
struct QVSocketInterest {
    const QVSocket* m_pSocket;
    unsigned int m_Events;
    unsigned int m_Ready = 0; // set by the wait
};

// Waits until something wanted of one of the sockets holds, `wake` (may be null) is set, or `milliseconds`
// have passed (-1: for ever). At most 16 sockets.
QVWaitResult qv_wait_for_sockets(std::span<QVSocketInterest> interests, int milliseconds,
                                 const QVWakeEvent* wake = nullptr);

// The same for anything that has a descriptor: a serial line, the standard input. A file is always readable.
struct QVHandleInterest {
    int m_Handle;
    unsigned int m_Events;
    unsigned int m_Ready = 0;
};
QVWaitResult qv_wait_for_handles(std::span<QVHandleInterest> interests, int milliseconds,
                                 const QVWakeEvent* wake = nullptr);

// Takes connections in.
//
// A socket file that a crashed process left behind is removed when nobody answers on it any more; one that is
// answered on, and a file of another kind, stay and make Listen() fail (98, address in use). An empty file
// "PATH.lock" beside the socket file keeps two starting processes from removing each other's; it stays.
class QVSocketListener : public CQVError {
public:
    QVSocketListener() = default;
    ~QVSocketListener();
    QVSocketListener(const QVSocketListener&) = delete;
    QVSocketListener& operator=(const QVSocketListener&) = delete;

    // Starts to listen, on a port that the system chooses where the address has port 0.
    bool Listen(const QVSocketAddress& address);
    // Where it listens, the port known.
    bool GetSocketName(QVSocketAddress& address) { return m_Socket.GetSocketName(address); }

    QVWaitResult WaitForConnection(int milliseconds, const QVWakeEvent* wake = nullptr) const {
        return m_Socket.WaitFor(QVSocket::Readable, milliseconds, wake);
    }
    // Takes in a connection; its socket is non-blocking. False with 11 when there is none, which may be so
    // also after a wait, when the other side has given up meanwhile.
    bool AcceptConnection(QVSocket& connection, QVSocketAddress& peer);

    // Stops listening and removes the socket file.
    void Close();

    // For qv_wait_for_sockets().
    const QVSocket& GetSocket() const { return m_Socket; }

private:
    bool BindSocketFile(const QVSocketAddress& address);
    bool RemoveStaleSocketFile(const QVSocketAddress& address);
    bool Fail(int error);

    QVSocket m_Socket;
    CQVFileLock m_FileLock;
    qvstring m_SocketFile; // made by this object; empty when there is none
    unsigned long long m_SocketFileDevice = 0;
    unsigned long long m_SocketFileNumber = 0;
};
