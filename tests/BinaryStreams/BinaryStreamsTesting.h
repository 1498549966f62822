// What the tests of the binary streams share: bytes as hexadecimal text, and outputs taken apart.
#pragma once

#include <QVLib/BinaryStreams/BinaryOutputBuffer.h>
#include <memory>
#include <string>

inline std::string Bytes(const BinaryOutputBuffer& buffer) {
    const std::unique_ptr<unsigned char[]> array(buffer.ToByteArray());
    return std::string(reinterpret_cast<const char*>(array.get()), buffer.GetTotalDataSize());
}

// "C3 88" for two bytes.
inline std::string Hex(const std::string& bytes) {
    std::string text;
    for (const unsigned char byte : bytes) {
        static constexpr char digits[] = "0123456789ABCDEF";
        text += text.empty() ? "" : " ";
        text += {digits[byte >> 4], digits[byte & 15]};
    }
    return text;
}

inline std::string FromHex(const std::string& text) {
    std::string bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 3)
        bytes += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
    return bytes;
}
