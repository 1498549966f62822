// How the main and the standby of a table talk: one stream connection that carries frames, a request of the
// main's table and the reply of the standby's in turn.
//
// Frame:     bytes  0 to 3    L, the number of bytes behind this field, little-endian
//            then             the name of the table: the number of its characters (one byte), and these
//            then             the message, up to the end of the frame
//            L is at most 1 MiB, a name has 1 to 64 letters, digits, '.', '_' and '-'. A frame that breaks a
//            rule, or names another table, ends the connection; so does a peer that leaves a frame or an
//            answer unfinished for too long. No memory is set aside before the bytes for it have arrived.
// Trust:     nothing is encrypted, and nobody proves who they are. The connection is for one machine, or for
//            a wire that only trusted machines are on.
// Errors:    what ends a connection is thrown as ReplicationError, the end of the work as ReplicationStopped.
#pragma once

#include <CLI/App.hpp>
#include <QVLib/BinaryStreams/BinaryOutputBuffer.h>
#include <QVPlatform/Socket.h>
#include <atomic>
#include <chrono>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

// What both sides are told by the user.
struct ReplicationOptions {
    std::string m_Address;
    std::string m_Table = "history";
    std::string m_Timeout = "30s";

    // The options but for the address, whose name is the command's own.
    void AddTo(CLI::App& command);
};

// The same, checked.
struct ReplicationSettings {
    using Clock = std::chrono::steady_clock;

    // Throws a ToolError that names `addressOption`.
    ReplicationSettings(const ReplicationOptions& options, const char* addressOption);

    std::string m_Address;
    std::string m_Table;
    std::chrono::milliseconds m_Timeout; // for a frame to be finished, and for its answer to begin
    // Of the standby: before it asks again for what it could not store, and before a silent main gives way to
    // another one.
    std::chrono::milliseconds m_TimeBeforeAskingAgain{60'000};
    std::chrono::milliseconds m_SilenceOfTheDead{10'000};
};

// Ends a connection; the text says why.
class ReplicationError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The other side closed the connection, between two frames.
class ReplicationClosed : public ReplicationError {
public:
    ReplicationClosed() : ReplicationError("the other side closed it") {}
};

// The work is to end now.
class ReplicationStopped {};

// How the thread that replicates is told that there is news, or that it must end. Any thread may tell.
class ReplicationSignals {
public:
    explicit ReplicationSignals(QVWakeEvent::Source source)
        : m_bStopSignals(source == QVWakeEvent::OrStopSignals), m_Event(source) {}

    void Nudge() { m_Event.Set(); }
    void Stop();
    bool IsStopped() const;

    const QVWakeEvent* GetEvent() const { return &m_Event; }
    // Of the replicating thread, woken by the event: forgets a nudge; throws ReplicationStopped when told to
    // end.
    void TakeNudge();

private:
    const bool m_bStopSignals;
    std::atomic<bool> m_bStopped{false};
    QVWakeEvent m_Event;
};

// Puts one frame together from the bytes that arrive.
class ReplicationFrameReader {
public:
    static constexpr unsigned int LengthSize = 4;
    static constexpr unsigned int MaxLength = 1u << 20; // of what follows the length
    static constexpr unsigned int MaxNameLength = 64;

    explicit ReplicationFrameReader(const std::string& table) : m_Table(table) {}

    // Where to put the next bytes: never more room than the frame has left, never none.
    std::span<unsigned char> GetSpace();
    // Takes the first `count` bytes of the space. True when the frame is complete; GetMessage() has its
    // message until Clear(), which must come before the next frame. Throws ReplicationError.
    bool Take(unsigned int count);
    std::span<const unsigned char> GetMessage() const;
    void Clear();

    // True when part of a frame has arrived.
    bool HasBegun() const { return m_Used != 0; }

private:
    unsigned int GetLength() const;
    void CheckLength() const;
    void ReadName();

    const std::string m_Table;
    std::vector<unsigned char> m_Buffer; // kept for the next frame
    unsigned int m_Used = 0;
    unsigned int m_MessageStart = 0; // once the frame is complete
};

// One end of a connection. Every operation that waits throws ReplicationError or ReplicationStopped.
class ReplicationConnection {
public:
    using Clock = ReplicationSettings::Clock;

    ReplicationConnection(const ReplicationSettings& settings, ReplicationSignals& signals)
        : m_Settings(settings), m_Signals(signals), m_Reader(settings.m_Table) {}

    // Connects to the address of the settings, trying all that it stands for.
    void Connect();
    // For a socket that was accepted into GetSocket().
    void Begin();
    void Close();
    QVSocket& GetSocket() { return m_Socket; }
    bool IsOpen() const { return m_Socket.IsOpen(); }

    // A frame is begun, its message is written into the output, and it is sent.
    BinaryOutputBuffer& BeginFrame();
    unsigned int GetMessageLength() const { return m_Out.GetTotalDataSize() - m_OutMessageStart; }
    void SendFrame();

    // Takes what has arrived, without waiting. True when a frame is complete.
    bool ReceivePart();
    // Waits for a frame, for the time of the settings.
    std::span<const unsigned char> ReceiveFrame();
    ReplicationFrameReader& GetReader() { return m_Reader; }

private:
    void ConnectTo(const QVSocketAddress& address);
    void WaitFor(unsigned int events, Clock::time_point deadline, const char* lateness);

    const ReplicationSettings& m_Settings;
    ReplicationSignals& m_Signals;
    QVSocket m_Socket;
    ReplicationFrameReader m_Reader;
    BinaryOutputBuffer m_Out{BinaryStringLengthUTF8Character};
    unsigned char* m_pOutLength = nullptr;
    unsigned int m_OutMessageStart = 0;
};

// Milliseconds until `deadline`, 0 when it has passed; never more than an hour, so that waits can take it.
int MillisecondsUntil(ReplicationSettings::Clock::time_point deadline);
