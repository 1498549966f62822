#include "ReplicationLink.h"

#include "TimeText.h"
#include "Tool.h"

#include <CLI/CLI.hpp>
#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/Process.h>
#include <QVPlatform/Timestamp.h>
#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

// Bytes by which the buffer of a frame grows, so that a length alone claims no memory.
constexpr unsigned int GrowthStep = 64u << 10;

bool IsTableName(const std::string& name) {
    constexpr const char* Allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";
    return !name.empty() && name.size() <= ReplicationFrameReader::MaxNameLength &&
           name.find_first_not_of(Allowed) == std::string::npos;
}

[[noreturn]] void RaiseSystemError(int error) {
    throw ReplicationError(ErrorText(error));
}

bool WouldBlock(int error) {
    return error == EAGAIN || error == EWOULDBLOCK;
}

} // namespace

void ReplicationOptions::AddTo(CLI::App& command) {
    command.add_option("--table", m_Table,
                       "name of the table, the same on both sides (default: " + m_Table + ")");
    command.add_option("--timeout", m_Timeout,
                       "give up a connection that stands still within a message, or leaves one unanswered "
                       "(default: " +
                           m_Timeout + ")");
}

ReplicationSettings::ReplicationSettings(const ReplicationOptions& options, const char* addressOption)
    : m_Address(options.m_Address), m_Table(options.m_Table),
      m_Timeout(std::clamp<long long>(ParseDurationOption("--timeout", options.m_Timeout) /
                                          CQVTimeInterval::UnitsPerMillisecond,
                                      1, 3'600'000)) {
    qvstring problem;
    if (!QVSocketAddress::CheckText(m_Address, problem))
        throw ToolError(ExitUsage, std::string(addressOption) + ": " + Quoted(m_Address) + ": " + problem);
    if (!IsTableName(m_Table))
        throw ToolError(ExitUsage, "--table: a name has 1 to 64 letters, digits, '.', '_' and '-', unlike " +
                                       Quoted(m_Table));
}

void ReplicationSignals::Stop() {
    m_bStopped = true;
    m_Event.Set();
}

bool ReplicationSignals::IsStopped() const {
    return m_bStopped || (m_bStopSignals && qv_stop_requested());
}

void ReplicationSignals::TakeNudge() {
    m_Event.Reset();
    if (IsStopped())
        throw ReplicationStopped();
}

std::span<unsigned char> ReplicationFrameReader::GetSpace() {
    const unsigned int end = m_Used < LengthSize ? LengthSize : LengthSize + GetLength();
    const unsigned int limit = std::min(end, m_Used + GrowthStep);
    if (m_Buffer.size() < limit)
        m_Buffer.resize(limit);
    QV_ASSERT(m_Used < limit);
    return {m_Buffer.data() + m_Used, limit - m_Used};
}

bool ReplicationFrameReader::Take(unsigned int count) {
    m_Used += count;
    if (m_Used < LengthSize)
        return false;
    CheckLength();
    if (m_Used < LengthSize + GetLength())
        return false;
    ReadName();
    return true;
}

std::span<const unsigned char> ReplicationFrameReader::GetMessage() const {
    return {m_Buffer.data() + m_MessageStart, m_Used - m_MessageStart};
}

void ReplicationFrameReader::Clear() {
    m_Used = m_MessageStart = 0;
}

unsigned int ReplicationFrameReader::GetLength() const {
    unsigned int length = 0;
    BinaryInputFromReadOnlyData(BinaryStringLengthUTF8Character, m_Buffer.data(), LengthSize) >> length;
    return length;
}

void ReplicationFrameReader::CheckLength() const {
    const unsigned int length = GetLength();
    if (length > MaxLength)
        throw ReplicationError("a message of " + CountText(length, "byte") + " was announced; " +
                               CountText(MaxLength, "byte") + " are the most");
    if (length == 0)
        throw ReplicationError("an empty message was announced");
}

void ReplicationFrameReader::ReadName() {
    BinaryInputFromReadOnlyData in(BinaryStringLengthUTF8Character, m_Buffer.data(), m_Used);
    in.Seek(LengthSize);
    qvstring name;
    try {
        in.ReadWString(MaxNameLength, name);
    } catch (const std::exception&) {
        name.clear();
    }
    if (!IsTableName(name))
        throw ReplicationError("a message without the name of a table arrived");
    if (name != m_Table)
        throw ReplicationError("the other side has the table " + Quoted(name) + ", and this is " +
                               Quoted(m_Table) + "; --table tells the name");
    if (in.IsEOF())
        throw ReplicationError("an empty message arrived");
    m_MessageStart = in.Tell();
}

void ReplicationConnection::Connect() {
    std::vector<QVSocketAddress> candidates;
    qvstring problem;
    if (!QVSocketAddress::Resolve(m_Settings.m_Address, false, candidates, problem))
        throw ReplicationError(problem);
    for (std::size_t index = 0; index < candidates.size(); ++index) {
        try {
            ConnectTo(candidates[index]);
            Begin();
            return;
        } catch (const ReplicationError&) {
            Close();
            if (index + 1 == candidates.size())
                throw;
        }
    }
}

void ReplicationConnection::ConnectTo(const QVSocketAddress& address) {
    if (!m_Socket.CreateSocket(address) || !m_Socket.SetNonBlocking())
        RaiseSystemError(m_Socket.GetLastError());
    if (!m_Socket.ConnectSocket(address)) {
        if (m_Socket.GetLastError() != EINPROGRESS)
            RaiseSystemError(m_Socket.GetLastError());
        WaitFor(QVSocket::Writable, Clock::now() + m_Settings.m_Timeout, "no connection was made");
        if (!m_Socket.CheckSocketError())
            RaiseSystemError(m_Socket.GetLastError());
    }
    // On one machine, a port that nobody listens on can be given to this very connection, which then answers
    // itself.
    QVSocketAddress own;
    QVSocketAddress peer;
    if (address.GetPort() != 0 && m_Socket.GetSocketName(own) && m_Socket.GetPeerName(peer) && own == peer)
        RaiseSystemError(ECONNREFUSED);
}

void ReplicationConnection::Begin() {
    m_Reader.Clear();
    m_Socket.SetNoDelay();
}

void ReplicationConnection::Close() {
    m_Socket.CloseSocket();
    m_Reader.Clear();
}

BinaryOutputBuffer& ReplicationConnection::BeginFrame() {
    m_pOutLength = m_Out.ClearAndReserveHeader(ReplicationFrameReader::LengthSize);
    m_Out << qvstring(m_Settings.m_Table);
    m_OutMessageStart = m_Out.GetTotalDataSize();
    return m_Out;
}

void ReplicationConnection::SendFrame() {
    const unsigned int length = m_Out.GetTotalDataSize() - ReplicationFrameReader::LengthSize;
    if (length > ReplicationFrameReader::MaxLength)
        throw ReplicationError("the table has too many files: a message about them would have " +
                               CountText(length, "byte"));
    std::memcpy(m_pOutLength, &length, sizeof length);
    const Clock::time_point deadline = Clock::now() + m_Settings.m_Timeout;
    const unsigned char* data = nullptr;
    unsigned int size = 0;
    m_Out.BeginRead();
    while (m_Out.ReadNoCopy(data, size)) {
        const int sent = m_Socket.SendData(data, size);
        if (sent >= 0)
            m_Out.ReadAdvance(static_cast<unsigned int>(sent));
        else if (WouldBlock(m_Socket.GetLastError()))
            WaitFor(QVSocket::Writable, deadline, "the other side took nothing more");
        else
            RaiseSystemError(m_Socket.GetLastError());
    }
}

bool ReplicationConnection::ReceivePart() {
    for (;;) {
        const std::span<unsigned char> space = m_Reader.GetSpace();
        const int got = m_Socket.RecvData(space.data(), static_cast<unsigned int>(space.size()));
        if (got == 0 && m_Reader.HasBegun())
            throw ReplicationError("the other side closed it within a message");
        if (got == 0)
            throw ReplicationClosed();
        if (got < 0 && !WouldBlock(m_Socket.GetLastError()))
            RaiseSystemError(m_Socket.GetLastError());
        if (got < 0)
            return false;
        if (m_Reader.Take(static_cast<unsigned int>(got)))
            return true;
    }
}

std::span<const unsigned char> ReplicationConnection::ReceiveFrame() {
    m_Reader.Clear();
    const Clock::time_point deadline = Clock::now() + m_Settings.m_Timeout;
    while (!ReceivePart())
        WaitFor(QVSocket::Readable, deadline, "no answer came");
    return m_Reader.GetMessage();
}

void ReplicationConnection::WaitFor(unsigned int events, Clock::time_point deadline, const char* lateness) {
    for (;;) {
        switch (m_Socket.WaitFor(events, MillisecondsUntil(deadline), m_Signals.GetEvent())) {
        case QVWaitResult::Ready:
            return;
        case QVWaitResult::TimedOut:
            throw ReplicationError(std::string(lateness) + " for " +
                                   std::to_string(m_Settings.m_Timeout.count()) + " ms");
        case QVWaitResult::Woken:
            m_Signals.TakeNudge();
            break;
        case QVWaitResult::Failed:
            RaiseSystemError(errno);
        }
    }
}

int MillisecondsUntil(ReplicationSettings::Clock::time_point deadline) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - ReplicationSettings::Clock::now());
    return static_cast<int>(std::clamp<long long>(left.count(), 0, 3'600'000));
}
