// What the tests of the binary streams share: bytes as hexadecimal text, inputs over bytes, and any input beside the
// simplest model there is, a string.
#pragma once

#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVLib/BinaryStreams/BinaryOutputBuffer.h>
#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <vector>

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

// Bytes of which none is like those around it at the distance of a block.
inline std::string Numbered(size_t size) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; i++)
        bytes[i] = static_cast<char>(i * 7 + i / 256);
    return bytes;
}

// Reads a copy that ends exactly with the bytes, so that a sanitizer sees a step too far.
class Input : public BinaryInputData {
public:
    Input(BinaryStringLength mode, const std::string& bytes)
        : BinaryInputData(mode, Copy(bytes), static_cast<unsigned int>(bytes.size())) {}

    void Read(void* buffer, unsigned int count) override {
        m_Reads++;
        BinaryInputData::Read(buffer, count);
    }
    unsigned int m_Reads = 0;

private:
    static unsigned char* Copy(const std::string& bytes) {
        unsigned char* const copy = new unsigned char[bytes.size()];
        bytes.copy(reinterpret_cast<char*>(copy), bytes.size());
        return copy;
    }
};

// Keeps the single writes; fails from the n-th on.
class WriteList : public CBinaryOutput {
public:
    explicit WriteList(size_t good = SIZE_MAX)
        : CBinaryOutput(BinaryStringLengthUTF8Character), m_Good(good) {}
    bool Write(const void* data, unsigned int count) override {
        m_Writes.emplace_back(static_cast<const char*>(data), count);
        return m_Writes.size() <= m_Good;
    }
    std::vector<std::string> m_Writes;

private:
    const size_t m_Good;
};

inline std::string Read(CBinaryInput& input, size_t count) {
    std::string bytes(count, '\0');
    input.Read(bytes.data(), static_cast<unsigned int>(count));
    return bytes;
}

// An input and the string that it should be like, under random reads and seeks.
class InputBesideAString {
public:
    enum ShortRead {
        LeavesAll,    // stays where it was and tells of the whole read
        TellsOfRest,  // delivers what there is and tells of the rest
        TellsOfWhole, // delivers what there is and tells of the whole read
    };

    InputBesideAString(CBinaryInput& input, const std::string& content, ShortRead shortRead)
        : m_Input(input), m_Content(content), m_ShortRead(shortRead) {}

    void Step(std::mt19937& random) {
        random() % 4 == 0 ? SeekAnywhere(random) : ReadSome(random);
        ASSERT_EQ(m_Input.Tell(), m_Position);
        ASSERT_EQ(m_Input.IsEOF(), m_Position == m_Content.size());
        ASSERT_EQ(m_Input.GetLength(), m_Content.size());
    }
    void Steps(std::mt19937& random, int count) {
        for (int i = 0; i < count && !testing::Test::HasFatalFailure(); i++)
            Step(random);
    }

    bool m_bSeeksBeyond = true; // tries that too; files allow it

private:
    void SeekAnywhere(std::mt19937& random) {
        const size_t size = m_Content.size();
        const size_t targets[] = {random() % (size + 1),
                                  std::min(m_Position + random() % 900, size),
                                  std::min<size_t>(random() % 1024, size),
                                  size,
                                  m_bSeeksBeyond ? size + 1 : 0,
                                  m_bSeeksBeyond ? 0xFFFFFFFF : size};
        const size_t target = targets[random() % std::size(targets)];
        ASSERT_EQ(m_Input.Seek(static_cast<unsigned int>(target)), target <= size);
        m_Position = std::min(target, size);
    }

    void ReadSome(std::mt19937& random) {
        static constexpr unsigned int counts[] = {0,    1,    2,    4,    8,      100,  1023,      1024,
                                                  1025, 3000, 8191, 8192, 20'000, 8193, 0xFFFFFFFE};
        const unsigned int count = counts[random() % std::size(counts)];
        const size_t there = std::min<size_t>(count, m_Content.size() - m_Position);
        std::string bytes(there, '\0');
        try {
            m_Input.Read(bytes.data(), count);
            ASSERT_EQ(there, count);
        } catch (const CBinaryInput::EOFException& e) {
            ASSERT_LT(there, count);
            ASSERT_EQ(e.GetCount(), m_ShortRead == TellsOfRest ? count - there : count);
            if (m_ShortRead == LeavesAll) {
                ASSERT_EQ(e.GetPosition(), m_Position);
                ASSERT_TRUE(m_Input.Seek(static_cast<unsigned int>(m_Position))); // what was read is open
                return;
            }
            ASSERT_EQ(e.GetPosition(), m_Content.size());
        }
        ASSERT_TRUE(m_Content.compare(m_Position, there, bytes) == 0) << count << " at " << m_Position;
        m_Position += there;
    }

    CBinaryInput& m_Input;
    const std::string& m_Content; // may grow
    const ShortRead m_ShortRead;
    size_t m_Position = 0;
};
