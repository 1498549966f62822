#include "Wire.h"

#include <QVPlatform/SecureMemory.h>
#include <algorithm>
#include <cstring>
#include <string>

void Message::AppendTo(std::vector<unsigned char>& bytes) {
    const auto length = static_cast<unsigned int>(GetTotalDataSize() - sizeof(unsigned int));
    std::memcpy(m_pLength, &length, sizeof length);
    const unsigned char* data = nullptr;
    unsigned int count = 0;
    for (BeginRead(); ReadNoCopy(data, count); ReadAdvance(count))
        bytes.insert(bytes.end(), data, data + count);
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
    QVRandomGenerator::ClearMemory(m_Bytes.data(), static_cast<unsigned int>(m_Bytes.size()));
    m_Bytes.clear();
    m_Used = 0;
}
