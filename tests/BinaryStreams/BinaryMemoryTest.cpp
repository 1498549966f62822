// The memory buffer and the four inputs over memory, against a plain byte string as the model.
#include "BinaryStreamsTesting.h"

#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <gmock/gmock.h>
#include <random>

namespace {

constexpr BinaryStringLength Mode = BinaryStringLengthUTF8Character;

std::string RandomBytes(std::mt19937& random, size_t count) {
    std::string bytes(count, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

// Sizes at and around the borders of blocks.
unsigned int RandomCount(std::mt19937& random) {
    static constexpr unsigned int counts[] = {0, 1, 2, 8, 100, 4096, 8191, 8192, 8193, 20'000};
    return counts[random() % std::size(counts)];
}

struct SizeList : CBinaryOutput {
    SizeList() : CBinaryOutput(Mode) {}
    bool Write(const void*, unsigned int count) override {
        m_Sizes.push_back(count);
        return false;
    }
    std::vector<unsigned int> m_Sizes;
};

std::vector<unsigned int> BlockSizes(const BinaryOutputBuffer& buffer) {
    SizeList list;
    buffer.CopyAllDataToBinaryOutput(list);
    return list.m_Sizes;
}

// Everything from the buffer's read cursor on.
std::string ReadRest(const BinaryOutputBuffer& buffer) {
    std::string bytes;
    const unsigned char* data = nullptr;
    unsigned int length = 0;
    while (buffer.ReadNoCopy(data, length)) {
        bytes.append(reinterpret_cast<const char*>(data), length);
        buffer.ReadAdvance(length);
    }
    return bytes;
}

TEST(BinaryOutputBuffer, FillsBlocksAndKeepsOne) {
    const std::string data(20'000, 'x');
    BinaryOutputBuffer buffer(Mode);
    EXPECT_TRUE(buffer.Write(data.data(), 8192));
    EXPECT_THAT(BlockSizes(buffer), testing::ElementsAre(8192));
    buffer.AddByte('x');
    EXPECT_THAT(BlockSizes(buffer), testing::ElementsAre(8192, 1));
    buffer.Clear();
    EXPECT_THAT(BlockSizes(buffer), testing::ElementsAre(0));
    const unsigned char* const block = buffer.ClearAndReserveHeader(0);
    buffer << 1;
    EXPECT_EQ(buffer.ClearAndReserveHeader(0), block);
    EXPECT_TRUE(buffer.Write(data.data(), 20'000) && buffer.Write(nullptr, 0));
    EXPECT_THAT(BlockSizes(buffer), testing::ElementsAre(8192, 8192, 3616));
}

TEST(BinaryOutputBuffer, HeaderIsFilledAfterTheBody) {
    for (const unsigned int size : {8u, 8192u}) {
        BinaryOutputBuffer buffer(Mode);
        buffer << std::string(9000, 'o');
        unsigned char* const header = buffer.ClearAndReserveHeader(size);
        buffer.Write("0123456789", 10);
        for (int i = 0; i < 1000; i++)
            buffer.Write("0123456789", 10);
        EXPECT_EQ(buffer.GetTotalDataSize(), size + 10'010);
        std::memset(header, 'h', size);
        EXPECT_EQ(Bytes(buffer).substr(0, size + 10), std::string(size, 'h') + "0123456789");
    }
    BinaryOutputBuffer buffer(Mode);
    EXPECT_DEATH(buffer.ClearAndReserveHeader(8193), "headerSize <= BlockSize");
}

TEST(BinaryOutputBuffer, SecureClearWipesTheKeptBlock) {
    BinaryOutputBuffer buffer(Mode);
    buffer << "password";
    buffer.SecureClearBuffer();
    const unsigned char* const block = buffer.ClearAndReserveHeader(8192);
    EXPECT_EQ(std::string(block + 1, block + 9), std::string(8, '\0'));
}

TEST(BinaryOutputBuffer, CopyAndMove) {
    BinaryOutputBuffer original(Mode);
    original.Write(std::string(10'000, 'x').data(), 10'000);
    original.ReadAdvance(100);
    BinaryOutputBuffer copy(original);
    original.AddByte('y');
    EXPECT_EQ(Bytes(copy), std::string(10'000, 'x'));
    EXPECT_EQ(ReadRest(copy).size(), 10'000u);
    BinaryOutputBuffer moved(std::move(original));
    EXPECT_EQ(Bytes(moved), std::string(10'000, 'x') + 'y');
    EXPECT_EQ(ReadRest(moved).size(), 10'001u);
    original.SecureClearBuffer(); // NOLINT(bugprone-use-after-move): one of the ways back
    EXPECT_FALSE(original.IsEof());
    original << 7u;
    EXPECT_EQ(Hex(ReadRest(original)), "07 00 00 00");
}

TEST(BinaryOutputBuffer, CursorAtTheEnd) {
    BinaryOutputBuffer buffer(Mode);
    const unsigned char* data = nullptr;
    unsigned int length = 0;
    EXPECT_FALSE(buffer.IsEof());
    buffer << 1u;
    EXPECT_TRUE(buffer.ReadNoCopy(data, length) && length == 4);
    buffer.ReadAdvance(3);
    buffer << 2u; // seen by a cursor inside the last block
    EXPECT_TRUE(buffer.ReadNoCopy(data, length) && length == 5);
    EXPECT_DEATH(buffer.ReadAdvance(6), "count <= ");
    buffer.ReadAdvance(5);
    EXPECT_TRUE(buffer.IsEof());
    buffer << 3u; // not seen by one that was past it
    EXPECT_TRUE(buffer.IsEof());
    EXPECT_FALSE(buffer.ReadNoCopy(data, length));
    buffer.BeginRead();
    EXPECT_EQ(ReadRest(buffer).size(), 12u);
    buffer.Clear();
    EXPECT_FALSE(buffer.IsEof());
    EXPECT_FALSE(buffer.ReadNoCopy(data, length));
    EXPECT_TRUE(buffer.IsEof());
}

TEST(BinaryOutputBuffer, RandomWritesAndReadsMatchTheModel) {
    std::mt19937 random(1);
    for (int round = 0; round < 30; round++) {
        BinaryOutputBuffer buffer(Mode);
        CBinaryInputFromBinaryOutputBuffer input(&buffer);
        std::string model, walked;
        size_t position = 0;
        for (int step = 0; step < 60; step++) {
            const unsigned int count = RandomCount(random);
            switch (random() % 4) {
            case 0: {
                const std::string bytes = RandomBytes(random, count);
                buffer.Write(bytes.data(), count);
                model += bytes;
                break;
            }
            case 1: {
                std::string bytes(count, '\0');
                const size_t there = std::min<size_t>(count, model.size() - position);
                try {
                    input.Read(bytes.data(), count);
                    ASSERT_EQ(there, count);
                } catch (const CBinaryInput::EOFException& e) {
                    // What there was has been delivered; the rest is reported missing.
                    ASSERT_EQ(e.GetPosition(), model.size());
                    ASSERT_EQ(e.GetCount(), count - there);
                }
                ASSERT_EQ(bytes.substr(0, there), model.substr(position, there));
                position += there;
                break;
            }
            case 2: {
                const size_t target = random() % 8 == 0 ? model.size() + 1 : random() % (model.size() + 1);
                ASSERT_EQ(input.Seek(static_cast<unsigned int>(target)), target <= model.size());
                position = std::min(target, model.size());
                break;
            }
            default: {
                const unsigned char* data = nullptr;
                unsigned int length = 0;
                if (!buffer.IsEof() && buffer.ReadNoCopy(data, length)) {
                    length = std::min(length - 1, count); // stays inside, so later writes are seen
                    walked.append(reinterpret_cast<const char*>(data), length);
                    buffer.ReadAdvance(length);
                    ASSERT_EQ(model.compare(0, walked.size(), walked), 0);
                }
            }
            }
            ASSERT_EQ(input.Tell(), position);
            ASSERT_EQ(input.IsEOF(), position == model.size());
            ASSERT_EQ(input.GetLength(), model.size());
        }
        ASSERT_EQ(Bytes(buffer), model);
        ASSERT_EQ(std::string_view(reinterpret_cast<const char*>(
                                       std::unique_ptr<unsigned char[]>(buffer.GetAsByteArray()).get()),
                                   model.size()),
                  model);
        BinaryOutputBuffer sink(Mode), output(Mode);
        buffer.CopyAllDataToDataSink(sink);
        buffer.CopyAllDataToBinaryOutput(output);
        ASSERT_EQ(Bytes(sink), model);
        ASSERT_EQ(Bytes(output), model);
    }
}

TEST(MemoryInputs, BufferKeepsItsLengthAndItsCapacity) {
    CBinaryInputBuffer input(Mode, 16);
    EXPECT_EQ(input.GetLength(), 16u);
    std::memcpy(input.GetBuffer(0), "0123456789abcdef", 16);
    EXPECT_TRUE(input.Seek(12));
    input.SetDataLength(10); // now behind the end
    char byte;
    EXPECT_TRUE(input.IsEOF());
    EXPECT_THROW(input.Read(&byte, 0), CBinaryInput::EOFException);
    unsigned char* const array = input.GetBuffer(0);
    input.SetCapacity(8); // never shrinks
    EXPECT_TRUE(input.Tell() == 0 && input.GetLength() == 10 && input.GetBuffer(0) == array);
    input.SetCapacity(100);
    EXPECT_EQ(input.GetLength(), 10u);
    EXPECT_DEATH(input.SetDataLength(101), "length <= m_Capacity");
}

TEST(MemoryInputs, ReadAndSeekAtTheEnds) {
    const std::string bytes = "0123456789";
    BinaryOutputBuffer buffer(Mode), empty(Mode);
    buffer.Write(bytes.data(), 10);
    CBinaryInputBuffer array(Mode), emptyArray(Mode);
    array.SetCapacity(20);
    bytes.copy(reinterpret_cast<char*>(array.GetBuffer(0)), 10);
    array.SetDataLength(10);
    BinaryInputFromReadOnlyData readOnly(Mode, reinterpret_cast<const unsigned char*>(bytes.data()), 10);
    BinaryInputFromReadOnlyData nothing(Mode, nullptr, 0);
    BinaryInputData owned(Mode, buffer.ToByteArray(), 10);
    CBinaryInputFromBinaryOutputBuffer fromBuffer(&buffer), fromEmpty(&empty);

    for (CBinaryInput* input :
         {static_cast<CBinaryInput*>(&array), static_cast<CBinaryInput*>(&readOnly),
          static_cast<CBinaryInput*>(&owned), static_cast<CBinaryInput*>(&fromBuffer)}) {
        const bool bCopiesPart = input == &fromBuffer;
        std::string read(11, 'x');
        EXPECT_EQ(input->GetLength(), 10u);
        EXPECT_TRUE(input->Seek(10) && input->IsEOF());
        EXPECT_TRUE(!input->Seek(11) && input->IsEOF());
        EXPECT_TRUE(!input->Seek(0xFFFFFFFF) && input->Tell() == 10);
        EXPECT_TRUE(input->Seek(4) && !input->IsEOF());
        try {
            input->Read(read.data(), 7);
            ADD_FAILURE();
        } catch (const CBinaryInput::EOFException& e) {
            EXPECT_EQ(e.GetCount(), bCopiesPart ? 1u : 7u);
        }
        EXPECT_EQ(read.substr(0, 6), bCopiesPart ? "456789" : "xxxxxx");
        input->Seek(4);
        EXPECT_TRUE(bCopiesPart || !input->TryRead(read.data(), 0xFFFFFFFE)); // the sum wraps in 32 bits
        input->Seek(0);
        input->Read(read.data(), 10);
        EXPECT_EQ(read.substr(0, 10), bytes);
    }
    for (CBinaryInput* input : {static_cast<CBinaryInput*>(&emptyArray), static_cast<CBinaryInput*>(&nothing),
                                static_cast<CBinaryInput*>(&fromEmpty)}) {
        char byte;
        EXPECT_TRUE(input->IsEOF() && input->Seek(0));
        input->Read(&byte, 0);
        EXPECT_FALSE(input->TryRead(&byte, 1));
    }
}

} // namespace
