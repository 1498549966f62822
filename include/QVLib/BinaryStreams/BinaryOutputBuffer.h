// BinaryOutputBuffer - collects any amount of binary output in memory.
//
//     BinaryOutputBuffer message(BinaryStringLengthUTF8Character);
//     message << 1u << "text";
//     message.CopyAllDataToBinaryOutput(file);
//
// Bytes go into blocks of 8,192; a full block is followed by another, so nothing written is ever moved and an
// address inside a block stays good until the buffer is cleared. One object serves again and again: Clear()
// keeps a single block, so small messages allocate nothing after the first.
//
// Reading:   CBinaryInputFromBinaryOutputBuffer (BinaryInputMemory.h) decodes the values; BeginRead(),
//            ReadNoCopy() and ReadAdvance() walk the bytes themselves without copying them, for a socket say;
//            ToByteArray() makes one array of all.
// Errors:    a write cannot fail; what the allocation throws passes through, and std::length_error comes when
//            the buffer would pass 4 GiB.
// Secrets:   SecureClearBuffer() wipes them. The destructor and Clear() do not.
// Threads:   one thread at a time; the read cursor moves in const operations too.
#pragma once

#include <QVLib/BinaryStreams/BinaryOutput.h>
#include <QVLib/BinaryStreams/DataSink.h>
#include <QVPlatform/Assert.h>
#include <cstring>
#include <list>

class BinaryOutputBuffer : public CBinaryOutput, public QVDataSink {
public:
    static constexpr unsigned int BlockSize = 8192;

    // Part of the data. All blocks but the last are full.
    struct Block {
        explicit Block(unsigned int blockOffset)
            : offset(blockOffset) {} // leaves `data` unset: used bounds it

        unsigned int offset; // where its first byte lies in all the data, a multiple of BlockSize
        unsigned int used = 0;
        unsigned char data[BlockSize];
    };

    explicit BinaryOutputBuffer(BinaryStringLength mode);
    // The copy's read cursor is at its start.
    BinaryOutputBuffer(const BinaryOutputBuffer& other);
    // Takes the blocks; the read cursor is at the start. Until it is cleared in one of the three ways below,
    // nothing but destruction may happen to `other`.
    BinaryOutputBuffer(BinaryOutputBuffer&& other) noexcept;
    ~BinaryOutputBuffer() override;

    // Writing.

    // Always true.
    bool Write(const void* data, unsigned int count) override {
        Block& block = LastBlock();
        if (count == 0 || count > BlockSize - block.used)
            return WriteAcrossBlocks(static_cast<const unsigned char*>(data), count);
        std::memcpy(block.data + block.used, data, count);
        block.used += count;
        m_TotalDataSize += count;
        return true;
    }
    void AddByte(unsigned char byte) override { Write(&byte, 1); }
    // How many bytes the buffer holds, a reserved header among them.
    unsigned int GetTotalDataSize() const { return m_TotalDataSize; }

    // Starting anew. Each puts the read cursor at the start; addresses handed out before are no longer good.

    void Clear();
    // Wipes every byte of every block first.
    void SecureClearBuffer();
    // Clears, sets the first `headerSize` bytes aside (at most BlockSize) and returns their address, to be
    // filled when what follows them has been written. Good until the buffer is cleared.
    unsigned char* ClearAndReserveHeader(unsigned int headerSize);

    // Taking everything out.

    // All bytes in one new array, GetTotalDataSize() long; the caller releases it with delete[].
    unsigned char* ToByteArray() const;
    // The same content, the array's size taken from the blocks themselves.
    unsigned char* GetAsByteArray() const;
    // Pass the bytes on from where they lie, one call for each block. What the target made of them is not
    // told.
    void CopyAllDataToDataSink(QVDataSink& sink) const;
    void CopyAllDataToBinaryOutput(CBinaryOutput& output) const;

    // Walking the bytes without copying, with the buffer's own cursor. While the cursor is in the last block
    // it sees what is written later; once past it, it stays at the end until BeginRead().

    // Puts the cursor at the first byte.
    void BeginRead() const;
    // Gives the unread bytes of the cursor's block or, when it has none left, of the next. False at the end.
    // The cursor stays in front of the bytes; they are good until the buffer is cleared.
    bool ReadNoCopy(const unsigned char*& data, unsigned int& length) const;
    // Moves past `count` bytes, at most as many as ReadNoCopy() gave.
    void ReadAdvance(unsigned int count) const;
    // Whether the cursor has left the last block. In an empty buffer it does so with the first ReadNoCopy().
    bool IsEof() const { return m_ReadBlock == m_Blocks.end(); }

private:
    friend class CBinaryInputFromBinaryOutputBuffer;

    Block& LastBlock() {
        QV_ASSERT(!m_Blocks.empty());
        return m_Blocks.back();
    }
    bool WriteAcrossBlocks(const unsigned char* data, unsigned int count);

    std::list<Block> m_Blocks; // never empty, except after a move from here
    unsigned int m_TotalDataSize = 0;
    mutable std::list<Block>::const_iterator m_ReadBlock;
    mutable unsigned int m_ReadOffset = 0; // within m_ReadBlock
};
