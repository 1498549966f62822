// The binary inputs over bytes in memory.
//
// CBinaryInputFromBinaryOutputBuffer   what a BinaryOutputBuffer holds, while it may still grow
// CBinaryInputBuffer                   an array of its own that the caller fills, from a socket say
// BinaryInputFromReadOnlyData          bytes that belong to somebody else
// BinaryInputData                      an array that it is given to keep
//
// Errors:    a read past the end throws CBinaryInput::EOFException with the bytes it asked for and delivers
//            none of them. CBinaryInputFromBinaryOutputBuffer is different: it delivers the bytes up to the
//            end, and its exception counts only those that were missing.
//            A Seek() past the end goes to the end and answers false.
// Cost:      GetLength() and Seek() read nothing.
// Threads:   one thread at a time.
#pragma once

#include <QVLib/BinaryStreams/BinaryInput.h>
#include <QVLib/BinaryStreams/BinaryOutputBuffer.h>
#include <cstddef>
#include <list>
#include <memory>

// Reads what a BinaryOutputBuffer holds, with its string length mode, without changing the buffer. Bytes that
// are written later are seen, also after an EOFException. The buffer is borrowed. Clearing or moving it makes
// the input useless.
class CBinaryInputFromBinaryOutputBuffer : public CBinaryInput {
public:
    explicit CBinaryInputFromBinaryOutputBuffer(const BinaryOutputBuffer* buffer);
    ~CBinaryInputFromBinaryOutputBuffer() override;

    unsigned int GetLength() const override { return m_pBuffer->GetTotalDataSize(); }
    void Read(void* buffer, unsigned int count) override {
        if (count == 0 || count > m_Block->used - m_Offset)
            return ReadAcrossBlocks(static_cast<unsigned char*>(buffer), count);
        CopyBytes(buffer, m_Block->data + m_Offset, count);
        m_Offset += count;
        m_Position += count;
    }
    bool IsEOF() const override { return m_Position >= m_pBuffer->GetTotalDataSize(); }
    unsigned int Tell() const override { return m_Position; }
    bool Seek(unsigned int position) override;

private:
    void ReadAcrossBlocks(unsigned char* buffer, unsigned int count);
    bool NextBlock();

    const BinaryOutputBuffer* m_pBuffer;
    std::list<BinaryOutputBuffer::Block>::const_iterator m_Block; // never past the last one
    unsigned int m_Offset = 0;                                    // within m_Block
    unsigned int m_Position = 0;
};

// Reads an array that the caller fills:
//
//     input.SetCapacity(size);
//     input.SetDataLength(Receive(input.GetBuffer(0), size));
//     input >> number >> text;
class CBinaryInputBuffer : public CBinaryInput {
public:
    explicit CBinaryInputBuffer(BinaryStringLength mode);
    // An array of `capacity` bytes that all count as data, though they are not set yet.
    CBinaryInputBuffer(BinaryStringLength mode, unsigned int capacity);
    ~CBinaryInputBuffer() override;

    // Makes room for `capacity` bytes and goes to the start. The array is replaced, and its contents lost,
    // when it is smaller. The data length stays.
    void SetCapacity(unsigned int capacity);
    // Says how many bytes of the array are data, at most the capacity.
    void SetDataLength(unsigned int length);
    // The address of a byte of the array; `offset` is at most the capacity. Good until SetCapacity().
    unsigned char* GetBuffer(unsigned int offset);

    unsigned int GetLength() const override { return m_DataLength; }
    void Read(void* buffer, unsigned int count) override {
        // The position may lie past the end when the data length was set later.
        if (static_cast<unsigned long long>(m_Position) + count > m_DataLength)
            RaiseEOFException(count);
        CopyBytes(buffer, m_pBuffer.get() + m_Position, count);
        m_Position += count;
    }
    bool IsEOF() const override { return m_Position >= m_DataLength; }
    unsigned int Tell() const override { return m_Position; }
    bool Seek(unsigned int position) override;

private:
    unsigned int m_Capacity = 0;
    std::unique_ptr<unsigned char[]> m_pBuffer;
    unsigned int m_DataLength = 0;
    unsigned int m_Position = 0;
};

// Reads bytes in place. They stay the caller's and must be there as long as the input; `data` may be null
// when `length` is 0.
class BinaryInputFromReadOnlyData : public CBinaryInput {
public:
    BinaryInputFromReadOnlyData(BinaryStringLength mode, const unsigned char* data, unsigned int length);
    ~BinaryInputFromReadOnlyData() override;

    unsigned int GetLength() const override { return m_Length; }
    void Read(void* buffer, unsigned int count) override {
        if (count > static_cast<std::size_t>(m_pEnd - m_pCurrent))
            RaiseEOFException(count);
        CopyBytes(buffer, m_pCurrent, count);
        m_pCurrent += count;
    }
    bool IsEOF() const override { return m_pCurrent >= m_pEnd; }
    unsigned int Tell() const override { return static_cast<unsigned int>(m_pCurrent - m_pStart); }
    bool Seek(unsigned int position) override;

protected:
    // For derived classes that find their bytes later: reads these from now on, from their start.
    void SetData(const unsigned char* data, unsigned int length);

private:
    unsigned int m_Length;
    const unsigned char* m_pCurrent;
    const unsigned char* m_pStart;
    const unsigned char* m_pEnd;
};

// Reads an array that it owns: `data` was made with new[] and is released with delete[]. May be null when
// `length` is 0.
class BinaryInputData : public BinaryInputFromReadOnlyData {
public:
    BinaryInputData(BinaryStringLength mode, unsigned char* data, unsigned int length);
    ~BinaryInputData() override;

private:
    std::unique_ptr<unsigned char[]> m_pData;
};
