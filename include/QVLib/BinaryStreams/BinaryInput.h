// CBinaryInput - reads back the values that CBinaryOutput wrote, from any medium.
//
//     BinaryInputFromReadOnlyData input(BinaryStringLengthUTF8Character, bytes, length);
//     unsigned int number = 0;
//     qvstring text;
//     input >> number >> text; // throws CBinaryInput::EOFException when the bytes end too early
//
// A concrete input supplies raw bytes through five virtual operations (memory: BinaryInputMemory.h, files:
// BinaryFile.h); how values, strings and lists are made of bytes is decided here, once for all media.
// BinaryOutput.h describes the encodings.
//
// Errors:    bytes that end too early give an EOFException, a count above its limit a std::length_error.
//            Apart from these every sequence of bytes decodes to something: content is never checked. After
//            an exception the target holds what had been decoded so far and the stream stands somewhere
//            within the value.
// Hostile data: no operation allocates more than its limit because of a number that it read. Lists without
//            a limit grow only as fast as elements arrive.
// Units:     lengths and positions are bytes, unsigned 32-bit; string limits are code points.
// Ownership: objects passed to an operation are borrowed for the call.
// Threads:   one thread at a time.
#pragma once

#include <QVLib/BinaryStreams/BinaryStringLength.h>
#include <QVPlatform/String.h>
#include <QVPlatform/Timestamp.h>
#include <bit>
#include <cstring>
#include <exception>
#include <limits>
#include <list>

class COutputLog;
class CQVSecureWString;
class QVDataSink;

static_assert(std::endian::native == std::endian::little, "values are stored as they lie in memory");
static_assert(std::numeric_limits<float>::is_iec559 && std::numeric_limits<double>::is_iec559);
static_assert(sizeof(short) == 2 && sizeof(int) == 4 && sizeof(long long) == 8);

class CBinaryInput {
public:
    // The input ended before a read was satisfied.
    class EOFException : public std::exception {
    public:
        // For `count` bytes that `input` could not deliver at its present position.
        EOFException(const CBinaryInput& input, unsigned int count)
            : m_Position(input.Tell()), m_Count(count) {}

        // "EOF Exception"
        const char* what() const noexcept override;
        // Where the input stood when the read failed.
        unsigned int GetPosition() const { return m_Position; }
        // How many bytes the read had asked for.
        unsigned int GetCount() const { return m_Count; }

    private:
        unsigned int m_Position;
        unsigned int m_Count;
    };

    // The longest string that operator>> accepts, in code points.
    static constexpr unsigned int MaxStringLength = 1'048'576;
    // The longest secret that operator>> accepts, in code points.
    static constexpr int MaxSecureStringLength = 256;

    explicit CBinaryInput(BinaryStringLength mode) : m_StringLengthMode(mode) {}
    CBinaryInput(const CBinaryInput&) = delete;
    CBinaryInput& operator=(const CBinaryInput&) = delete;

    // What a concrete input supplies.

    virtual ~CBinaryInput();
    // Bytes of the whole input, wherever it stands. This implementation reads all of it byte by byte and goes
    // back to where it was; override it wherever the answer is known.
    virtual unsigned int GetLength() const;
    // Copies exactly `count` bytes and moves past them, or throws EOFException.
    virtual void Read(void* buffer, unsigned int count) = 0;
    // True at or past the end.
    virtual bool IsEOF() const = 0;
    // Bytes from the start.
    virtual unsigned int Tell() const = 0;
    // Moves to `position`; false when it cannot be reached.
    virtual bool Seek(unsigned int position) = 0;

    // Values of fixed size: one Read() each. A bool is true for every byte but 0.

    CBinaryInput& operator>>(bool& value) {
        unsigned char byte;
        Read(&byte, 1);
        value = byte != 0;
        return *this;
    }
    CBinaryInput& operator>>(char& value) { return ReadValue(value); }
    CBinaryInput& operator>>(signed char& value) { return ReadValue(value); }
    CBinaryInput& operator>>(unsigned char& value) { return ReadValue(value); }
    CBinaryInput& operator>>(short& value) { return ReadValue(value); }
    CBinaryInput& operator>>(unsigned short& value) { return ReadValue(value); }
    CBinaryInput& operator>>(int& value) { return ReadValue(value); }
    CBinaryInput& operator>>(unsigned int& value) { return ReadValue(value); }
    CBinaryInput& operator>>(float& value) { return ReadValue(value); }
    CBinaryInput& operator>>(double& value) { return ReadValue(value); }
    long long ReadInt64() {
        long long value;
        ReadValue(value);
        return value;
    }
    CBinaryInput& operator>>(CQVTimestamp& value) {
        value = CQVTimestamp(ReadInt64());
        return *this;
    }
    CBinaryInput& operator>>(CQVTimeInterval& value) {
        value = CQVTimeInterval(ReadInt64());
        return *this;
    }

    // Strings. Characters above U+10FFFF become U+FFFD; single surrogates are kept, as three bytes each.

    // Reads the length of a string in the stream's mode. Negative when the data say so.
    int ReadStringLength();
    // Reads a string of at most `maxCharacters` code points (below 2^31). A count that is greater, or
    // negative, gives std::length_error "string too long" and an empty `text`.
    void ReadWString(unsigned int maxCharacters, qvstring& text);
    // ReadWString() with MaxStringLength.
    CBinaryInput& operator>>(qvstring& text);
    // Reads a secret of at most MaxSecureStringLength code points without leaving a copy elsewhere. Throws
    // std::length_error for more; a negative count gives the empty string.
    CBinaryInput& operator>>(CQVSecureWString& text);
    // Reads a byte string into `buffer` of `bufferSize` bytes: stores what fits (at most 65,535 bytes), says
    // in `length` how much that is, zeroes the rest of the buffer and reads past what did not fit. A negative
    // count in the data is an empty string.
    void ReadVMString(unsigned short& length, unsigned char* buffer, int bufferSize);
    // Reads a string of Java's DataOutput.writeUTF(). A surrogate without its other half becomes U+FFFD.
    void ReadJavaModifiedString(qvstring& text);

    // Lists: the target is cleared, then filled in stream order.

    CBinaryInput& operator>>(std::list<qvstring>& strings);
    CBinaryInput& operator>>(std::list<unsigned int>& values);
    // Reads at most `maxStrings` strings of at most `maxCharacters` code points each. A greater count gives
    // std::length_error "too many strings" with none of them read.
    void ReadWStringArray(unsigned int maxStrings, unsigned int maxCharacters, std::list<qvstring>& strings);
    // Reads the entries of a COutputLogToRawList and appends each to `log`.
    CBinaryInput& operator>>(COutputLog& log);

    // The codings beneath.

    // Reads one character of up to 31 bits, encoded as RFC 2279 has it: one Read() for the first byte, one
    // for all the others. The first byte alone tells the length; six bits are taken from each further byte,
    // whatever it is, and longer forms than needed are as good as the shortest.
    int ReadUTF8Character();
    // Reads an integer of seven bits per byte, low bits first, up to a byte with its top bit clear. Bits past
    // the 32nd are dropped.
    int Read7BitEncodedInt();

    // Moving through the input.

    // For data that may simply end: false where Read() would throw EOFException. Part of the buffer may have
    // been filled.
    bool TryRead(void* buffer, unsigned int count);
    // Moves forward by `count` bytes. False when that cannot be reached, or lies past the last position that
    // 32 bits can express; the input then stands where its Seek() leaves it, never before where it was.
    bool SkipBytes(unsigned int count);
    // Moves `count` bytes into `sink`, through a buffer on the stack.
    void ReadInputToDataSink(unsigned int count, QVDataSink* sink);

    BinaryStringLength GetStringLengthMode() const { return m_StringLengthMode; }
    // For concrete inputs whose bytes end: throws the EOFException of a read of `count` bytes made here.
    [[noreturn]] void RaiseEOFException(unsigned int count) const;

protected:
    // memcpy() for concrete inputs: twice as fast for the sizes of values, and `from` may be null for 0
    // bytes.
    static void CopyBytes(void* to, const void* from, unsigned int count) {
        switch (count) {
        case 0:
            return;
        case 1:
            std::memcpy(to, from, 1);
            return;
        case 2:
            std::memcpy(to, from, 2);
            return;
        case 4:
            std::memcpy(to, from, 4);
            return;
        case 8:
            std::memcpy(to, from, 8);
            return;
        default:
            std::memcpy(to, from, count);
        }
    }

    const BinaryStringLength m_StringLengthMode;

private:
    template<class T>
    CBinaryInput& ReadValue(T& value) {
        Read(&value, sizeof(T));
        return *this;
    }
    void ReadCharacters(int count, qvstring& text);
    int ReadRun(int count, qvstring& text);
};
