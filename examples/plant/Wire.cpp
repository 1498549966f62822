#include "Wire.h"

#include <QVPlatform/SecureMemory.h>
#include <algorithm>
#include <cstring>
#include <string>

void Wipe(std::vector<unsigned char>& bytes) {
    QVRandomGenerator::ClearMemory(bytes.data(), static_cast<unsigned int>(bytes.size()));
    bytes.clear();
}

void Message::AppendTo(std::vector<unsigned char>& bytes) {
    const auto length = static_cast<unsigned int>(GetTotalDataSize() - sizeof(unsigned int));
    std::memcpy(m_pLength, &length, sizeof length);
    const unsigned char* data = nullptr;
    unsigned int count = 0;
    for (BeginRead(); ReadNoCopy(data, count); ReadAdvance(count))
        bytes.insert(bytes.end(), data, data + count);
}

void FrameReader::Add(const unsigned char* data, unsigned int count) {
    if (m_Bytes.capacity() - m_Bytes.size() < count) {
        // Grows by hand, so that the old bytes are wiped.
        std::vector<unsigned char> grown;
        grown.reserve(2 * m_Bytes.size() + count);
        grown = m_Bytes;
        grown.swap(m_Bytes);
        Wipe(grown);
    }
    m_Bytes.insert(m_Bytes.end(), data, data + count);
}

bool FrameReader::Next(std::span<const unsigned char>& frame) {
    unsigned int length = 0;
    if (m_Bytes.size() - m_Used >= sizeof length) {
        std::memcpy(&length, m_Bytes.data() + m_Used, sizeof length);
        if (length == 0 || length > m_MaxLength)
            throw ProtocolError("a message of " + std::to_string(length) + " bytes was announced");
        if (m_Bytes.size() - m_Used >= sizeof length + length) {
            frame = {m_Bytes.data() + m_Used + sizeof length, length};
            m_Used += sizeof length + length;
            return true;
        }
    }
    // What is left is the beginning of a frame.
    m_Bytes.erase(m_Bytes.begin(), m_Bytes.begin() + static_cast<std::ptrdiff_t>(m_Used));
    m_Used = 0;
    return false;
}

void FrameReader::Clear() {
    Wipe(m_Bytes);
    m_Used = 0;
}
