// The messages between the programs of the plant: frames on a TLS connection. docs/plant.md has their bytes.
//
// Message       makes one: a binary output whose first bytes are the frame's length and type
// FrameReader   takes one apart again, from bytes that arrive in any pieces
//
// Hostile data: a length is believed only up to the reader's limit, and memory grows with what arrives, not with what
// is announced. What is in a frame is read with CBinaryInput, whose exceptions end the connection.
#pragma once

#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVLib/BinaryStreams/BinaryOutputBuffer.h>
#include <span>
#include <stdexcept>
#include <vector>

constexpr unsigned short WireVersion = 1;
// The version in which users' rights and formats are sent: the first that has all of their formats.
constexpr unsigned short AccessContextVersion = 44;

enum MessageType : unsigned char {
    // to the server
    MessageLogon = 1,
    MessageRead = 2,
    MessageFollow = 3,
    MessageAcknowledge = 4,
    MessageStandbyReply = 5,
    // from the server
    MessageLogonReply = 129,
    MessageRecords = 130,
    MessageLiveRecord = 131,
    MessageAlarm = 132,
    MessageRefusal = 133,
    MessageStandbyRequest = 134,
    MessageAlive = 135,
    MessageFarewell = 136,
};

enum LogonRole : unsigned char { RoleClient = 0, RoleStandby = 1 };
enum LogonResult : unsigned char { LogonAccepted = 0, LogonRefused = 1, LogonNotInCharge = 2 };

// Of what follows the length: what a server takes from a client, and what it takes from a standby or sends itself.
constexpr unsigned int MaxClientFrame = 4096;
constexpr unsigned int MaxFrame = 1u << 20;
constexpr unsigned int MaxNameLength = 256; // of users, alarms and texts, in characters

// The other side does not keep to the rules; the text says how.
class ProtocolError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Empties it and leaves nothing in memory: there may have been a password in it.
void Wipe(std::vector<unsigned char>& bytes);

class Message : public BinaryOutputBuffer {
public:
    explicit Message(MessageType type) : BinaryOutputBuffer(BinaryStringLengthUTF8Character) {
        m_pLength = ClearAndReserveHeader(sizeof(unsigned int));
        *this << static_cast<unsigned char>(type);
    }

    // Appends the finished frame to what waits to be sent.
    void AppendTo(std::vector<unsigned char>& bytes);

private:
    unsigned char* m_pLength;
};

class FrameReader {
public:
    explicit FrameReader(unsigned int maxLength) : m_MaxLength(maxLength) {}
    ~FrameReader() { Clear(); }
    FrameReader(const FrameReader&) = delete;
    FrameReader& operator=(const FrameReader&) = delete;

    void SetMaxLength(unsigned int maxLength) { m_MaxLength = maxLength; }
    void Add(const unsigned char* data, unsigned int count);
    // Takes out the next frame, without its length; good until Add(). False when none is complete. Throws
    // ProtocolError for one that is empty or too long.
    bool Next(std::span<const unsigned char>& frame);
    // Nothing stands behind the frame that was taken out last.
    bool IsAtEnd() const { return m_Used == m_Bytes.size(); }
    // Forgets everything, and wipes it.
    void Clear();

private:
    unsigned int m_MaxLength;
    std::vector<unsigned char> m_Bytes;
    std::size_t m_Used = 0; // of them, taken out
};

// Reads what is in a frame, behind its type.
class FrameInput : public BinaryInputFromReadOnlyData {
public:
    explicit FrameInput(std::span<const unsigned char> frame)
        : BinaryInputFromReadOnlyData(BinaryStringLengthUTF8Character, frame.data() + 1,
                                      static_cast<unsigned int>(frame.size() - 1)) {}

    // Throws unless everything has been read.
    void ExpectEnd() const {
        if (!IsEOF())
            throw ProtocolError("a message is longer than its type");
    }
};
