#include <QVLib/BinaryStreams/BinaryInputMemory.h>

#include <QVPlatform/Assert.h>
#include <algorithm>
#include <iterator>

// CBinaryInputFromBinaryOutputBuffer

CBinaryInputFromBinaryOutputBuffer::CBinaryInputFromBinaryOutputBuffer(const BinaryOutputBuffer* buffer)
    : CBinaryInput(buffer->GetStringLengthMode()), m_pBuffer(buffer), m_Block(buffer->m_Blocks.begin()) {
    QV_ASSERT(!buffer->m_Blocks.empty());
}

CBinaryInputFromBinaryOutputBuffer::~CBinaryInputFromBinaryOutputBuffer() = default;

bool CBinaryInputFromBinaryOutputBuffer::Seek(unsigned int position) {
    m_Block = m_pBuffer->m_Blocks.begin();
    while (position - m_Block->offset > m_Block->used && NextBlock()) {
    }
    m_Offset = std::min(position - m_Block->offset, m_Block->used);
    m_Position = m_Block->offset + m_Offset;
    return m_Position == position;
}

void CBinaryInputFromBinaryOutputBuffer::ReadAcrossBlocks(unsigned char* buffer, unsigned int count) {
    while (count > 0) {
        const unsigned int part = std::min(count, m_Block->used - m_Offset);
        if (part == 0) {
            if (!NextBlock())
                RaiseEOFException(count);
            continue;
        }
        std::memcpy(buffer, m_Block->data + m_Offset, part);
        m_Offset += part;
        m_Position += part;
        buffer += part;
        count -= part;
    }
}

// Stays on the last block, so that what is written there later is found.
bool CBinaryInputFromBinaryOutputBuffer::NextBlock() {
    const auto next = std::next(m_Block);
    if (next == m_pBuffer->m_Blocks.end())
        return false;
    m_Block = next;
    m_Offset = 0;
    return true;
}

// CBinaryInputBuffer

CBinaryInputBuffer::CBinaryInputBuffer(BinaryStringLength mode) : CBinaryInput(mode) {}

CBinaryInputBuffer::CBinaryInputBuffer(BinaryStringLength mode, unsigned int capacity)
    : CBinaryInput(mode), m_Capacity(capacity), m_pBuffer(new unsigned char[capacity]),
      m_DataLength(capacity) {}

CBinaryInputBuffer::~CBinaryInputBuffer() = default;

void CBinaryInputBuffer::SetCapacity(unsigned int capacity) {
    if (m_Capacity < capacity) {
        m_pBuffer.reset(new unsigned char[capacity]);
        m_Capacity = capacity;
    }
    m_Position = 0;
}

void CBinaryInputBuffer::SetDataLength(unsigned int length) {
    QV_ASSERT(length <= m_Capacity);
    m_DataLength = length;
}

unsigned char* CBinaryInputBuffer::GetBuffer(unsigned int offset) {
    QV_ASSERT(offset <= m_Capacity);
    return m_pBuffer.get() + offset;
}

bool CBinaryInputBuffer::Seek(unsigned int position) {
    m_Position = std::min(position, m_DataLength);
    return m_Position == position;
}

// BinaryInputFromReadOnlyData

BinaryInputFromReadOnlyData::BinaryInputFromReadOnlyData(BinaryStringLength mode, const unsigned char* data,
                                                         unsigned int length)
    : CBinaryInput(mode) {
    SetData(data, length);
}

BinaryInputFromReadOnlyData::~BinaryInputFromReadOnlyData() = default;

bool BinaryInputFromReadOnlyData::Seek(unsigned int position) {
    m_pCurrent = m_pStart + std::min(position, m_Length);
    return position <= m_Length;
}

void BinaryInputFromReadOnlyData::SetData(const unsigned char* data, unsigned int length) {
    m_Length = length;
    m_pCurrent = m_pStart = data;
    m_pEnd = data + length;
}

// BinaryInputData

BinaryInputData::BinaryInputData(BinaryStringLength mode, unsigned char* data, unsigned int length)
    : BinaryInputFromReadOnlyData(mode, data, length), m_pData(data) {}

BinaryInputData::~BinaryInputData() = default;
