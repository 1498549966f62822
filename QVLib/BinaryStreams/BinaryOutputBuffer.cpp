#include <QVLib/BinaryStreams/BinaryOutputBuffer.h>

#include <QVPlatform/SecureMemory.h>
#include <algorithm>
#include <limits>
#include <stdexcept>
#include <utility>

BinaryOutputBuffer::BinaryOutputBuffer(BinaryStringLength mode) : CBinaryOutput(mode) {
    Clear();
}

BinaryOutputBuffer::BinaryOutputBuffer(const BinaryOutputBuffer& other)
    : CBinaryOutput(other), QVDataSink(other), m_TotalDataSize(other.m_TotalDataSize) {
    for (const Block& block : other.m_Blocks) {
        Block& copy = m_Blocks.emplace_back(block.offset);
        copy.used = block.used;
        std::memcpy(copy.data, block.data, block.used);
    }
    BeginRead();
}

BinaryOutputBuffer::BinaryOutputBuffer(BinaryOutputBuffer&& other) noexcept
    : CBinaryOutput(other), QVDataSink(other), m_Blocks(std::move(other.m_Blocks)),
      m_TotalDataSize(std::exchange(other.m_TotalDataSize, 0)) {
    BeginRead();
    other.BeginRead();
}

BinaryOutputBuffer::~BinaryOutputBuffer() = default;

void BinaryOutputBuffer::Clear() {
    if (m_Blocks.size() == 1) {
        m_Blocks.front().used = 0;
    } else {
        m_Blocks.clear();
        m_Blocks.emplace_back(0u);
    }
    m_TotalDataSize = 0;
    BeginRead();
}

void BinaryOutputBuffer::SecureClearBuffer() {
    for (Block& block : m_Blocks)
        QVRandomGenerator::ClearMemory(block.data, BlockSize);
    Clear();
}

unsigned char* BinaryOutputBuffer::ClearAndReserveHeader(unsigned int headerSize) {
    QV_ASSERT(headerSize <= BlockSize);
    Clear();
    Block& block = m_Blocks.front();
    block.used = headerSize;
    m_TotalDataSize = headerSize;
    return block.data;
}

unsigned char* BinaryOutputBuffer::ToByteArray() const {
    unsigned char* const array = new unsigned char[m_TotalDataSize];
    for (const Block& block : m_Blocks)
        std::memcpy(array + block.offset, block.data, block.used);
    return array;
}

unsigned char* BinaryOutputBuffer::GetAsByteArray() const {
    std::size_t size = 0;
    for (const Block& block : m_Blocks)
        size += block.used;
    unsigned char* const array = new unsigned char[size];
    unsigned char* target = array;
    for (const Block& block : m_Blocks)
        target = std::copy_n(block.data, block.used, target);
    return array;
}

void BinaryOutputBuffer::CopyAllDataToDataSink(QVDataSink& sink) const {
    for (const Block& block : m_Blocks)
        sink.AddBytes(block.data, block.used);
}

void BinaryOutputBuffer::CopyAllDataToBinaryOutput(CBinaryOutput& output) const {
    for (const Block& block : m_Blocks)
        output.Write(block.data, block.used);
}

void BinaryOutputBuffer::BeginRead() const {
    m_ReadBlock = m_Blocks.begin();
    m_ReadOffset = 0;
}

bool BinaryOutputBuffer::ReadNoCopy(const unsigned char*& data, unsigned int& length) const {
    for (; m_ReadBlock != m_Blocks.end(); ++m_ReadBlock, m_ReadOffset = 0) {
        if (m_ReadOffset < m_ReadBlock->used) {
            data = m_ReadBlock->data + m_ReadOffset;
            length = m_ReadBlock->used - m_ReadOffset;
            return true;
        }
    }
    return false;
}

void BinaryOutputBuffer::ReadAdvance(unsigned int count) const {
    QV_ASSERT(m_ReadBlock != m_Blocks.end() ? count <= m_ReadBlock->used - m_ReadOffset : count == 0);
    if (m_ReadBlock == m_Blocks.end())
        return;
    m_ReadOffset += count;
    if (m_ReadOffset >= m_ReadBlock->used) {
        ++m_ReadBlock;
        m_ReadOffset = 0;
    }
}

bool BinaryOutputBuffer::WriteAcrossBlocks(const unsigned char* data, unsigned int count) {
    while (count > 0) {
        Block* block = &m_Blocks.back();
        if (block->used == BlockSize) {
            // The total of a block more would not fit into 32 bits once it is full.
            if (block->offset > std::numeric_limits<unsigned int>::max() - 2 * BlockSize)
                throw std::length_error("BinaryOutputBuffer: 4 GiB");
            block = &m_Blocks.emplace_back(block->offset + BlockSize);
        }
        const unsigned int part = std::min(count, BlockSize - block->used);
        std::memcpy(block->data + block->used, data, part);
        block->used += part;
        m_TotalDataSize += part;
        data += part;
        count -= part;
    }
    return true;
}
