#include <QVPlatform/Socket.h>

#include "StopEvent.h"
#include "SystemCalls.h"
#include <QVPlatform/Assert.h>
#include <QVPlatform/Process.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <climits>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

static_assert(sizeof(sockaddr_storage) <= QVSocketAddress::Capacity);
static_assert(QVSocket::StreamType == SOCK_STREAM && QVSocket::TcpProtocol == IPPROTO_TCP);

namespace {

constexpr unsigned int kMaxInterests = 16;
constexpr int kBacklog = 16;
constexpr char kUnixPrefix[] = "unix:";
constexpr size_t kPathOffset = offsetof(sockaddr_un, sun_path);
constexpr size_t kPathRoom = sizeof(sockaddr_un::sun_path) - 1; // beside its terminator

// An address as it is written.
struct AddressText {
    bool bUnix = false;
    qvstring path;
    qvstring host; // empty: none given
    qvstring port;
};

bool ParsePort(const qvstring& text) {
    unsigned int port = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, port);
    return !text.empty() && result.ec == std::errc() && result.ptr == end && port <= 65535;
}

bool ParseSocketFile(const qvstring& path, AddressText& parsed, qvstring& problem) {
    parsed.bUnix = true;
    parsed.path = path;
    if (path.empty() || path.find('\0') != qvstring::npos)
        problem = "\"unix:\" wants the path of a socket file behind it";
    else if (path.size() > kPathRoom)
        problem = "the path of a socket file has at most " + std::to_string(kPathRoom) + " bytes";
    return problem.empty();
}

bool ParseAddress(const qvstring& text, AddressText& parsed, qvstring& problem) {
    problem.clear();
    if (text.starts_with(kUnixPrefix))
        return ParseSocketFile(text.substr(sizeof kUnixPrefix - 1), parsed, problem);
    const size_t colon = text.rfind(':');
    const bool bBrackets = text.starts_with('[');
    const size_t bracket = text.find(']');
    if (colon == qvstring::npos || text.find('\0') != qvstring::npos ||
        (bBrackets && (bracket == qvstring::npos || bracket + 1 != colon || bracket == 1)) ||
        (!bBrackets && text.find(':') != colon)) {
        problem = "an address is unix:PATH, HOST:PORT or [V6ADDRESS]:PORT";
        return false;
    }
    parsed.host = bBrackets ? text.substr(1, bracket - 1) : text.substr(0, colon);
    parsed.port = text.substr(colon + 1);
    if (!ParsePort(parsed.port))
        problem = "a port is a number from 0 to 65535";
    return problem.empty();
}

QVSocketAddress MakeSocketFileAddress(const qvstring& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    return {reinterpret_cast<const sockaddr*>(&address),
            static_cast<unsigned int>(kPathOffset + path.size() + 1)};
}

// Shows what the system stored in a fresh object; unsupported families are all alike.
template<typename System>
System Load(const void* address, unsigned int length) {
    System result{};
    std::memcpy(&result, address, std::min<size_t>(length, sizeof result));
    return result;
}

int FamilyOf(const void* address, unsigned int length) {
    return length < sizeof(sa_family_t) ? AF_UNSPEC : Load<sockaddr>(address, sizeof(sa_family_t)).sa_family;
}

qvstring SocketFilePathOf(const void* address, unsigned int length) {
    const auto system = Load<sockaddr_un>(address, length);
    return length <= kPathOffset
               ? qvstring()
               : qvstring(system.sun_path,
                          strnlen(system.sun_path, std::min<size_t>(length - kPathOffset, kPathRoom + 1)));
}

bool TextOfInternetAddress(const void* address, unsigned int length, bool bV6, qvstring& text) {
    const auto storage = Load<sockaddr_storage>(address, length);
    char host[NI_MAXHOST];
    char port[NI_MAXSERV];
    if (::getnameinfo(reinterpret_cast<const sockaddr*>(&storage), length, host, sizeof host, port,
                      sizeof port, NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        return false;
    text = bV6 ? "[" + qvstring(host) + "]:" : qvstring(host) + ":";
    text += port;
    return true;
}

bool TextOfAddress(const void* address, unsigned int length, qvstring& text) {
    const int family = FamilyOf(address, length);
    if (family == AF_INET || family == AF_INET6)
        return TextOfInternetAddress(address, length, family == AF_INET6, text);
    if (family != AF_UNIX)
        return false;
    text = kUnixPrefix + SocketFilePathOf(address, length);
    return true;
}

bool GetStatus(const qvstring& path, struct stat& status) {
    return ::lstat(path.c_str(), &status) == 0;
}

} // namespace

QVSocketAddress::QVSocketAddress(const sockaddr* address, unsigned int length) : m_Length(length) {
    QV_ASSERT(length <= Capacity);
    std::memcpy(m_Storage, address, length);
}

bool QVSocketAddress::CheckText(const qvstring& text, qvstring& problem) {
    AddressText parsed;
    return ParseAddress(text, parsed, problem);
}

bool QVSocketAddress::Resolve(const qvstring& text, bool bForListening,
                              std::vector<QVSocketAddress>& candidates, qvstring& problem) {
    candidates.clear();
    AddressText parsed;
    if (!ParseAddress(text, parsed, problem))
        return false;
    if (parsed.bUnix) {
        candidates.push_back(MakeSocketFileAddress(parsed.path));
        return true;
    }
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV | (bForListening ? AI_PASSIVE : 0);
    addrinfo* found = nullptr;
    const int error = ::getaddrinfo(parsed.host.empty() ? nullptr : parsed.host.c_str(), parsed.port.c_str(),
                                    &hints, &found);
    if (error != 0) {
        char buffer[128];
        if (error == EAI_SYSTEM)
            QVFormatMessage(errno, buffer, sizeof buffer);
        problem = error == EAI_SYSTEM ? buffer : ::gai_strerror(error);
        return false;
    }
    for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next)
        candidates.emplace_back(entry->ai_addr, entry->ai_addrlen);
    ::freeaddrinfo(found);
    // A socket for every IPv6 address takes IPv4 connections too, the other way round not.
    if (bForListening && parsed.host.empty())
        std::stable_partition(candidates.begin(), candidates.end(),
                              [](const QVSocketAddress& address) { return address.GetFamily() == AF_INET6; });
    return true;
}

qvstring QVSocketAddress::ToText() const {
    qvstring text;
    TextOfAddress(m_Storage, m_Length, text);
    return text;
}

int QVSocketAddress::GetFamily() const {
    return FamilyOf(m_Storage, m_Length);
}

unsigned int QVSocketAddress::GetPort() const {
    if (GetFamily() == AF_INET)
        return ntohs(Load<sockaddr_in>(m_Storage, m_Length).sin_port);
    if (GetFamily() == AF_INET6)
        return ntohs(Load<sockaddr_in6>(m_Storage, m_Length).sin6_port);
    return 0;
}

qvstring QVSocketAddress::GetSocketFilePath() const {
    return GetFamily() == AF_UNIX ? SocketFilePathOf(m_Storage, m_Length) : qvstring();
}

bool QVSocketAddress::operator==(const QVSocketAddress& other) const {
    return m_Length == other.m_Length && std::memcmp(m_Storage, other.m_Storage, m_Length) == 0;
}

QVWakeEvent::QVWakeEvent(Source source)
    : m_bStopSignals(source == OrStopSignals), m_Descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

QVWakeEvent::~QVWakeEvent() {
    if (m_Descriptor >= 0)
        ::close(m_Descriptor);
}

void QVWakeEvent::Set() {
    m_bSetWithoutDescriptor = m_Descriptor < 0;
    const unsigned long long one = 1;
    // A counter that is full is readable already.
    [[maybe_unused]] const ssize_t written = ::write(m_Descriptor, &one, sizeof one);
}

void QVWakeEvent::Reset() {
    m_bSetWithoutDescriptor = false;
    unsigned long long count = 0;
    [[maybe_unused]] const ssize_t got = ::read(m_Descriptor, &count, sizeof count);
}

bool QVWakeEvent::IsSet() const {
    pollfd watched{m_Descriptor, POLLIN, 0};
    return m_bSetWithoutDescriptor || (m_bStopSignals && qv_stop_requested()) ||
           (m_Descriptor >= 0 && ::poll(&watched, 1, 0) > 0);
}

// One wait: what the system is asked to watch, and until when.
class QVSocketPoll {
public:
    QVSocketPoll(std::span<QVHandleInterest> interests, const QVWakeEvent* wake)
        : m_Interests(interests), m_pWake(wake) {
        QV_ASSERT(interests.size() <= kMaxInterests);
        for (const QVHandleInterest& interest : interests) {
            QV_ASSERT(interest.m_Handle >= 0 && interest.m_Events != 0);
            const bool bRead = (interest.m_Events & QVSocket::Readable) != 0;
            const bool bWrite = (interest.m_Events & QVSocket::Writable) != 0;
            Watch(interest.m_Handle, static_cast<short>((bRead ? POLLIN : 0) | (bWrite ? POLLOUT : 0)));
        }
        if (wake == nullptr)
            return;
        WatchEvent(wake->m_Descriptor);
        if (wake->m_bStopSignals)
            WatchEvent(qv_stop_event_descriptor());
    }

    QVWaitResult Wait(int milliseconds) {
        const auto start = Clock::now();
        for (;;) {
            const int slice = static_cast<int>(std::min<long long>(
                milliseconds < 0 ? INT_MAX : LeftOf(milliseconds, start), m_LongestSlice));
            const int found = ::poll(m_Watched, m_Count, slice);
            if (found < 0 && errno != EINTR)
                return QVWaitResult::Failed;
            if (m_pWake != nullptr && m_pWake->IsSet())
                return QVWaitResult::Woken;
            if (found > 0 && TakeEvents())
                return QVWaitResult::Ready;
            if (milliseconds >= 0 && found == 0 && LeftOf(milliseconds, start) == 0)
                return QVWaitResult::TimedOut;
        }
    }

private:
    using Clock = std::chrono::steady_clock;

    static long long LeftOf(int milliseconds, Clock::time_point start) {
        const auto passed = std::chrono::floor<std::chrono::milliseconds>(Clock::now() - start);
        return std::max<long long>(milliseconds - passed.count(), 0);
    }

    void Watch(int descriptor, short events) { m_Watched[m_Count++] = {descriptor, events, 0}; }

    // Where the system had no descriptor for an event left, its flag is looked at now and then.
    void WatchEvent(int descriptor) {
        if (descriptor >= 0)
            Watch(descriptor, POLLIN);
        else
            m_LongestSlice = 200;
    }

    bool TakeEvents() {
        bool bAny = false;
        for (size_t i = 0; i < m_Interests.size(); ++i) {
            const short got = m_Watched[i].revents;
            const bool bBroken = (got & (POLLERR | POLLHUP | POLLNVAL)) != 0;
            unsigned int ready = 0;
            if (bBroken || (got & POLLIN) != 0)
                ready |= QVSocket::Readable;
            if (bBroken || (got & POLLOUT) != 0)
                ready |= QVSocket::Writable;
            m_Interests[i].m_Ready = ready & m_Interests[i].m_Events;
            bAny = bAny || m_Interests[i].m_Ready != 0;
        }
        return bAny;
    }

    const std::span<QVHandleInterest> m_Interests;
    const QVWakeEvent* const m_pWake;
    pollfd m_Watched[kMaxInterests + 2];
    nfds_t m_Count = 0;
    int m_LongestSlice = INT_MAX;
};

QVWaitResult qv_wait_for_sockets(std::span<QVSocketInterest> interests, int milliseconds,
                                 const QVWakeEvent* wake) {
    QV_ASSERT(interests.size() <= kMaxInterests);
    QVHandleInterest handles[kMaxInterests];
    for (size_t i = 0; i < interests.size(); ++i)
        handles[i] = {interests[i].m_pSocket->GetSocketHandle(), interests[i].m_Events};
    const QVWaitResult result = qv_wait_for_handles({handles, interests.size()}, milliseconds, wake);
    for (size_t i = 0; i < interests.size(); ++i)
        interests[i].m_Ready = handles[i].m_Ready;
    return result;
}

QVWaitResult qv_wait_for_handles(std::span<QVHandleInterest> interests, int milliseconds,
                                 const QVWakeEvent* wake) {
    for (QVHandleInterest& interest : interests)
        interest.m_Ready = 0;
    return QVSocketPoll(interests, wake).Wait(milliseconds);
}

QVSocket::~QVSocket() {
    CloseSocket();
}

bool QVSocket::Succeeded(int result) {
    if (result < 0)
        SetLastError(errno);
    return result >= 0;
}

bool QVSocket::CreateSocket(int family, int type, int protocol) {
    CloseSocket();
    m_Handle = ::socket(family, type | SOCK_CLOEXEC, protocol);
    return Succeeded(m_Handle);
}

bool QVSocket::CreateSocket(const QVSocketAddress& address) {
    return CreateSocket(address.GetFamily(), SOCK_STREAM, 0);
}

bool QVSocket::SetNonBlocking() {
    const int flags = ::fcntl(m_Handle, F_GETFL);
    return Succeeded(flags) && Succeeded(::fcntl(m_Handle, F_SETFL, flags | O_NONBLOCK));
}

bool QVSocket::SetNoDelay() {
    const int on = 1;
    const int result = ::setsockopt(m_Handle, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return (result < 0 && errno == EOPNOTSUPP) || Succeeded(result);
}

bool QVSocket::ConnectSocket(const sockaddr* address, unsigned int length) {
    if (::connect(m_Handle, address, length) == 0)
        return true;
    if (errno != EINTR)
        return Succeeded(-1);
    // The system goes on connecting behind a signal; connecting again would be an error.
    return WaitFor(Writable, -1) == QVWaitResult::Ready && CheckSocketError();
}

bool QVSocket::ConnectSocket(const QVSocketAddress& address) {
    return ConnectSocket(address.GetSockAddr(), address.GetLength());
}

bool QVSocket::CheckSocketError() {
    int error = 0;
    socklen_t length = sizeof error;
    if (!Succeeded(::getsockopt(m_Handle, SOL_SOCKET, SO_ERROR, &error, &length)))
        return false;
    if (error != 0)
        SetLastError(error);
    return error == 0;
}

bool QVSocket::GetPeerName(sockaddr_storage& address, unsigned int& length) {
    return Succeeded(::getpeername(m_Handle, reinterpret_cast<sockaddr*>(&address), &length));
}

bool QVSocket::GetSocketName(sockaddr_storage& address, unsigned int& length) {
    return Succeeded(::getsockname(m_Handle, reinterpret_cast<sockaddr*>(&address), &length));
}

bool QVSocket::GetPeerName(QVSocketAddress& address) {
    sockaddr_storage storage{};
    unsigned int length = sizeof storage;
    if (!GetPeerName(storage, length))
        return false;
    address = QVSocketAddress(reinterpret_cast<const sockaddr*>(&storage), length);
    return true;
}

bool QVSocket::GetSocketName(QVSocketAddress& address) {
    sockaddr_storage storage{};
    unsigned int length = sizeof storage;
    if (!GetSocketName(storage, length))
        return false;
    address = QVSocketAddress(reinterpret_cast<const sockaddr*>(&storage), length);
    return true;
}

bool QVSocket::QVGetNameInfo(const QVSocketAddress* address, unsigned int length, qvstring& text) {
    return TextOfAddress(address, length, text);
}

bool QVSocket::QVGetNameInfo(const sockaddr* address, unsigned int length, qvstring& text) {
    return TextOfAddress(address, length, text);
}

int QVSocket::RecvData(void* buffer, unsigned int size) {
    const ssize_t got = qv_retry_interrupted(
        [&] { return ::recv(m_Handle, buffer, std::min<unsigned int>(size, INT_MAX), 0); });
    return Succeeded(static_cast<int>(got)) ? static_cast<int>(got) : -1;
}

int QVSocket::SendData(const void* data, unsigned int size) {
    const ssize_t sent = qv_retry_interrupted(
        [&] { return ::send(m_Handle, data, std::min<unsigned int>(size, INT_MAX), MSG_NOSIGNAL); });
    return Succeeded(static_cast<int>(sent)) ? static_cast<int>(sent) : -1;
}

QVWaitResult QVSocket::WaitFor(unsigned int events, int milliseconds, const QVWakeEvent* wake) const {
    QVSocketInterest interest{this, events};
    return qv_wait_for_sockets({&interest, 1}, milliseconds, wake);
}

bool QVSocket::ShutdownSend() {
    return Succeeded(::shutdown(m_Handle, SHUT_WR));
}

void QVSocket::CloseSocket() {
    if (m_Handle >= 0)
        ::close(m_Handle);
    m_Handle = -1;
}

void QVSocket::HardResetAndCloseSocket() {
    const linger atOnce{.l_onoff = 1, .l_linger = 0};
    if (m_Handle >= 0)
        ::setsockopt(m_Handle, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    CloseSocket();
}

QVSocketListener::~QVSocketListener() {
    Close();
}

bool QVSocketListener::Fail(int error) {
    Close();
    SetLastError(error);
    return false;
}

bool QVSocketListener::Listen(const QVSocketAddress& address) {
    Close();
    if (!m_Socket.CreateSocket(address) || !m_Socket.SetNonBlocking())
        return Fail(m_Socket.GetLastError());
    if (address.GetFamily() == AF_UNIX) {
        if (!BindSocketFile(address))
            return false;
    } else {
        // The port can be taken again at once after a restart.
        const int on = 1;
        ::setsockopt(m_Socket.m_Handle, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        const int off = 0;
        if (address.GetFamily() == AF_INET6)
            ::setsockopt(m_Socket.m_Handle, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
        if (::bind(m_Socket.m_Handle, address.GetSockAddr(), address.GetLength()) != 0)
            return Fail(errno);
    }
    return ::listen(m_Socket.m_Handle, kBacklog) == 0 || Fail(errno);
}

bool QVSocketListener::BindSocketFile(const QVSocketAddress& address) {
    const qvstring path = address.GetSocketFilePath();
    if (!m_FileLock.TryLock(CQVFilePath(path + ".lock")))
        return Fail(m_FileLock.IsHeldElsewhere() ? EADDRINUSE : m_FileLock.GetLastError());
    int result = ::bind(m_Socket.m_Handle, address.GetSockAddr(), address.GetLength());
    if (result != 0 && errno == EADDRINUSE && RemoveStaleSocketFile(address))
        result = ::bind(m_Socket.m_Handle, address.GetSockAddr(), address.GetLength());
    if (result != 0)
        return Fail(errno);
    struct stat status {};
    if (!GetStatus(path, status))
        return Fail(errno);
    m_SocketFile = path;
    m_SocketFileDevice = status.st_dev;
    m_SocketFileNumber = status.st_ino;
    return true;
}

// True when a socket file stood in the way that nobody answers on, and is gone. Else errno is that of an
// address in use. Others may answer without knowing of the lock.
bool QVSocketListener::RemoveStaleSocketFile(const QVSocketAddress& address) {
    const qvstring path = address.GetSocketFilePath();
    struct stat status {};
    QVSocket probe;
    const bool bStale = GetStatus(path, status) && S_ISSOCK(status.st_mode) && probe.CreateSocket(address) &&
                        probe.SetNonBlocking() && !probe.ConnectSocket(address) &&
                        probe.GetLastError() == ECONNREFUSED && ::unlink(path.c_str()) == 0;
    if (!bStale)
        errno = EADDRINUSE;
    return bStale;
}

bool QVSocketListener::AcceptConnection(QVSocket& connection, QVSocketAddress& peer) {
    connection.CloseSocket();
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    const int handle = qv_retry_interrupted([&] {
        length = sizeof address;
        return ::accept4(m_Socket.m_Handle, reinterpret_cast<sockaddr*>(&address), &length,
                         SOCK_CLOEXEC | SOCK_NONBLOCK);
    });
    if (handle < 0) {
        SetLastError(errno == ECONNABORTED ? EAGAIN : errno);
        return false;
    }
    connection.m_Handle = handle;
    peer = QVSocketAddress(reinterpret_cast<const sockaddr*>(&address), length);
    return true;
}

void QVSocketListener::Close() {
    m_Socket.CloseSocket();
    struct stat status {};
    if (!m_SocketFile.empty() && GetStatus(m_SocketFile, status) && status.st_dev == m_SocketFileDevice &&
        status.st_ino == m_SocketFileNumber)
        ::unlink(m_SocketFile.c_str());
    m_SocketFile.clear();
    m_FileLock.Unlock();
}
