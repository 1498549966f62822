// BinaryInputZlibInflate - reads the uncompressed bytes of a zlib stream (RFC 1950) that another input delivers.
//
//     BinaryInputZlibInflate input(BinaryStringLengthUTF8Character, length, new CBinaryInputFile(...));
//     input >> value;
//
// The stream does not tell how long its data are, so the caller does; reading goes on for as long as there are data,
// whatever was told.
// Errors:    corrupt data, and data that ask for a preset dictionary, throw std::logic_error "ZLIB error". A stream that
//            ends too early, or is cut off, throws CBinaryInput::EOFException; the bytes before that are in the buffer.
// Cost:      1,024 bytes of input and of output at a time, inside the object. Nothing is allocated on the word of the data.
//            Reading on never inflates anything twice. Seeking anywhere but into the present 1,024 bytes starts from
//            the beginning, so a seek is as dear as reading all that lies before.
// Ownership: the object owns the compressed input, from its first byte on, and deletes it.
// Threads:   one thread at a time.
#pragma once

#include <QVLib/BinaryStreams/BinaryInput.h>
#include <memory>

struct z_stream_s;

class BinaryInputZlibInflate : public CBinaryInput {
public:
    // `uncompressedLength` is what GetLength() answers and where IsEOF() is true.
    BinaryInputZlibInflate(BinaryStringLength mode, unsigned int uncompressedLength,
                           CBinaryInput* compressed);
    ~BinaryInputZlibInflate() override;

    unsigned int GetLength() const override { return m_UncompressedLength; }
    void Read(void* buffer, unsigned int count) override;
    bool IsEOF() const override { return m_Position == m_UncompressedLength; }
    unsigned int Tell() const override { return m_Position; }
    // False when the data end before `position`, or the compressed input cannot be read again.
    bool Seek(unsigned int position) override;

private:
    static constexpr unsigned int BlockSize = 1024;

    unsigned int TakeFromBlock(void* buffer, unsigned int count);
    bool InflateBlock();
    void ReadChunk();
    void StartInflating();
    void EndInflating();

    const unsigned int m_UncompressedLength;
    const std::unique_ptr<CBinaryInput> m_pCompressed;
    const unsigned int m_CompressedLength;
    std::unique_ptr<z_stream_s> m_pStream;
    bool m_bStreamEnded = false;
    unsigned char m_Input[BlockSize];
    unsigned int m_Consumed = 0; // bytes read from m_pCompressed
    unsigned char m_Block[BlockSize];
    unsigned int m_BlockStart = 0; // where the block lies in the uncompressed data
    unsigned int m_BlockSize = 0;
    unsigned int m_BlockIndex = 0; // the next unread byte
    unsigned int m_Position = 0;
};
