// CBinaryOutput - writes values as bytes to any medium.
//
//     BinaryOutputBuffer output(BinaryStringLengthUTF8Character);
//     output << 42u << timestamp << "text";
//
// A concrete output supplies Write() (memory: BinaryOutputBuffer.h, files: BinaryFile.h); how values, strings
// and lists are made of bytes is decided here, once for all media, and read back by CBinaryInput.
//
// Encoding:  values lie one after the other without tags or padding.
//              bool, 8-bit        1 byte; bool is 0 or 1
//              16-, 32-, 64-bit   2, 4, 8 bytes, little-endian, two's complement
//              float, double      4, 8 bytes, IEEE 754, little-endian
//              time stamp, time interval   their 64-bit value
//              string             the number of code points in the stream's BinaryStringLength mode, then
//                                 each code point as UTF-8
//              list               the number of elements as unsigned int, then the elements
//            Only the types listed below can be written: characters, pointers, enumerations, long and long
//            long do not compile, because their size or meaning would differ between programs. Say what you
//            mean with a cast, or with WriteInt64().
// Errors:    operations that return bool are false when the medium failed. operator<< returns the stream and
//            ignores failures; the medium remembers them (a file tells at its close or commit).
// Units:     lengths are bytes, unsigned 32-bit, except where they say code points.
// Ownership: objects passed to an operation are borrowed for the call.
// Threads:   one thread at a time.
#pragma once

#include <QVLib/BinaryStreams/BinaryStringLength.h>
#include <QVPlatform/String.h>
#include <QVPlatform/Timestamp.h>
#include <bit>
#include <cstddef>
#include <limits>
#include <list>
#include <type_traits>

class CBinaryInput;
class COutputLogToRawList;
class CQVSecureWString;
class CTextInput;

static_assert(std::endian::native == std::endian::little, "values are stored as they lie in memory");
static_assert(std::numeric_limits<float>::is_iec559 && std::numeric_limits<double>::is_iec559);
static_assert(sizeof(short) == 2 && sizeof(int) == 4 && sizeof(long long) == 8);

// The scalar types that CBinaryOutput::operator<< takes.
template<class T>
inline constexpr bool QVIsBinaryOutputScalar =
    std::is_same_v<T, bool> || std::is_same_v<T, signed char> || std::is_same_v<T, unsigned char> ||
    std::is_same_v<T, short> || std::is_same_v<T, unsigned short> || std::is_same_v<T, int> ||
    std::is_same_v<T, unsigned int> || std::is_same_v<T, float> || std::is_same_v<T, double> ||
    std::is_same_v<T, char*> || std::is_same_v<T, const char*>;

class CBinaryOutput {
public:
    explicit CBinaryOutput(BinaryStringLength mode) : m_StringLengthMode(mode) {}
    CBinaryOutput& operator=(const CBinaryOutput&) = delete;

    // What a concrete output supplies.

    virtual ~CBinaryOutput();
    // Takes `count` more bytes, all of them or false.
    virtual bool Write(const void* data, unsigned int count) = 0;
    // A printf-style remark for outputs that are read by people. Writes nothing here: bytes carry no
    // comments.
    virtual void WriteComment(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Values of fixed size: one Write() each.

    CBinaryOutput& operator<<(bool value) { return WriteValue(static_cast<unsigned char>(value)); }
    CBinaryOutput& operator<<(signed char value) { return WriteValue(value); }
    CBinaryOutput& operator<<(unsigned char value) { return WriteValue(value); }
    CBinaryOutput& operator<<(short value) { return WriteValue(value); }
    CBinaryOutput& operator<<(unsigned short value) { return WriteValue(value); }
    CBinaryOutput& operator<<(int value) { return WriteValue(value); }
    CBinaryOutput& operator<<(unsigned int value) { return WriteValue(value); }
    CBinaryOutput& operator<<(float value) { return WriteValue(value); }
    CBinaryOutput& operator<<(double value) { return WriteValue(value); }
    bool WriteInt64(long long value) { return Write(&value, sizeof value); }
    CBinaryOutput& operator<<(const CQVTimestamp& value) { return WriteValue(value.GetValue()); }
    CBinaryOutput& operator<<(const CQVTimeInterval& value) { return WriteValue(value.GetValue()); }

    template<class T>
    requires(std::is_scalar_v<T> && !QVIsBinaryOutputScalar<T>) CBinaryOutput& operator<<(T) = delete;

    // Strings. Malformed UTF-8 is written as the characters that qv_codepoint_from_qvchar() makes of it.
    // Text of 2 GiB and more, whose count a reader might take for negative, gives std::length_error "string
    // too long".

    // Writes the length of a string in the stream's mode.
    bool WriteStringLength(int count);
    // Writes `byteLength` bytes of UTF-8 as a string: false when its length could not be written. Well-formed
    // text goes out with one Write() behind its length, other text with one for each character; whether these
    // succeed is not told.
    bool WriteWString(unsigned int byteLength, const char* utf8) { return WriteText(byteLength, utf8); }
    bool WriteWString(const qvstring& text) { return WriteText(text.size(), text.data()); }
    CBinaryOutput& operator<<(const qvstring& text);
    // A terminated text, not null.
    CBinaryOutput& operator<<(const char* text);
    CBinaryOutput& operator<<(const CQVSecureWString& text);
    // Writes raw bytes, which need not be text, behind their number, which is written like a string's length.
    // False when the bytes were refused; a refused length is not told. `data` may be null for 0 bytes.
    bool WriteVMString(unsigned short length, const unsigned char* data);

    // Lists.

    CBinaryOutput& operator<<(const std::list<qvstring>& strings);
    CBinaryOutput& operator<<(const std::list<unsigned int>& values);
    // Each entry is its type and its number, as int, and its text.
    CBinaryOutput& operator<<(const COutputLogToRawList& log);

    // The codings beneath.

    // Writes a value of up to 31 bits in the 1 to 6 bytes that RFC 2279 gives it, with one Write(). A
    // negative value goes out as its low 8 bits. Surrogates are characters like any other.
    bool WriteUTFCharacter(int value);
    // Writes an integer in groups of seven bits, the lowest first, each in a byte whose top bit says that
    // more follow; 1 to 5 bytes, one Write(). A negative value goes out as its low 7 bits and cannot be read
    // back.
    bool Write7BitEncodedInt(int value);

    // Copying, through a buffer on the stack.

    // Copies `count` bytes from where `input` stands; false, and the rest not read, when a write fails. An
    // input with fewer bytes throws CBinaryInput::EOFException.
    bool ReadDataFromBinaryInput(unsigned int count, CBinaryInput& input);
    // Copies as many bytes as the whole input has from where it stands, so it throws
    // CBinaryInput::EOFException when that is not the start.
    CBinaryOutput& operator<<(CBinaryInput& input);
    // Copies a text to its end as UTF-8 and writes a zero byte behind it.
    CBinaryOutput& operator<<(CTextInput& input);

    BinaryStringLength GetStringLengthMode() const { return m_StringLengthMode; }

protected:
    CBinaryOutput(const CBinaryOutput&) = default;

    const BinaryStringLength m_StringLengthMode;

private:
    template<class T>
    CBinaryOutput& WriteValue(T value) {
        Write(&value, sizeof value);
        return *this;
    }
    bool WriteText(std::size_t byteLength, const char* utf8);
};
