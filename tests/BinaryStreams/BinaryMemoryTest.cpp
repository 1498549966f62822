// The memory buffer and the four inputs over memory, against a plain byte string as the model.
#include "BinaryStreamsTesting.h"

#include <gmock/gmock.h>

namespace {

constexpr BinaryStringLength Mode = BinaryStringLengthUTF8Character;

// The pieces from the buffer's read cursor on, one for each block.
std::vector<unsigned int> RestOf(const BinaryOutputBuffer& buffer) {
    std::vector<unsigned int> sizes;
    const unsigned char* data = nullptr;
    for (unsigned int length; buffer.ReadNoCopy(data, length); buffer.ReadAdvance(length))
        sizes.push_back(length);
    return sizes;
}

TEST(BinaryOutputBuffer, FillsBlocksAndKeepsOne) {
    const std::string data(20'000, 'x');
    BinaryOutputBuffer buffer(Mode);
    EXPECT_TRUE(buffer.Write(data.data(), 8192));
    EXPECT_THAT(RestOf(buffer), testing::ElementsAre(8192));
    buffer.BeginRead();
    buffer.AddByte('x');
    EXPECT_THAT(RestOf(buffer), testing::ElementsAre(8192, 1));
    buffer.Clear();
    EXPECT_THAT(RestOf(buffer), testing::ElementsAre());
    const unsigned char* const block = buffer.ClearAndReserveHeader(0);
    buffer << 1;
    EXPECT_EQ(buffer.ClearAndReserveHeader(0), block);
    EXPECT_TRUE(buffer.Write(data.data(), 20'000) && buffer.Write(nullptr, 0));
    EXPECT_THAT(RestOf(buffer), testing::ElementsAre(8192, 8192, 3616));
}

TEST(BinaryOutputBuffer, HeaderIsFilledAfterTheBody) {
    for (const unsigned int size : {8u, 8192u}) {
        BinaryOutputBuffer buffer(Mode);
        buffer << std::string(9000, 'o');
        unsigned char* const header = buffer.ClearAndReserveHeader(size);
        buffer.Write(Numbered(10'000).data(), 10'000);
        std::memset(header, 'h', size);
        EXPECT_EQ(Bytes(buffer), std::string(size, 'h') + Numbered(10'000));
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
    EXPECT_THAT(RestOf(copy), testing::ElementsAre(8192, 1808)) << "from the start";
    BinaryOutputBuffer moved(std::move(original));
    EXPECT_EQ(Bytes(moved), std::string(10'000, 'x') + 'y');
    EXPECT_THAT(RestOf(moved), testing::ElementsAre(8192, 1809));
    original.SecureClearBuffer(); // NOLINT(bugprone-use-after-move): one of the ways back
    EXPECT_FALSE(original.IsEof());
    original << 7u;
    EXPECT_THAT(RestOf(original), testing::ElementsAre(4));
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
    EXPECT_THAT(RestOf(buffer), testing::ElementsAre(12));
    buffer.Clear();
    EXPECT_FALSE(buffer.IsEof());
    EXPECT_FALSE(buffer.ReadNoCopy(data, length));
    EXPECT_TRUE(buffer.IsEof());
}

TEST(BinaryOutputBuffer, RandomWritesAndReadsMatchTheModel) {
    std::mt19937 random(1);
    for (int round = 0; round < 15; round++) {
        BinaryOutputBuffer buffer(Mode);
        CBinaryInputFromBinaryOutputBuffer input(&buffer);
        std::string content, walked;
        InputBesideAString reader(input, content, InputBesideAString::TellsOfRest);
        for (int step = 0; step < 40; step++) {
            static constexpr unsigned int counts[] = {0, 1, 2, 8, 100, 4096, 8191, 8192, 8193, 20'000};
            const unsigned int count = counts[random() % std::size(counts)];
            buffer.Write(Numbered(count).data(), count);
            content += Numbered(count);
            ASSERT_NO_FATAL_FAILURE(reader.Steps(random, 3)); // sees what was written behind it
            const unsigned char* data = nullptr;
            unsigned int length = 0;
            if (!buffer.IsEof() && buffer.ReadNoCopy(data, length)) {
                length = std::min(length - 1, count); // stays inside, so later writes are seen
                walked.append(reinterpret_cast<const char*>(data), length);
                buffer.ReadAdvance(length);
                ASSERT_EQ(content.compare(0, walked.size(), walked), 0);
            }
        }
        ASSERT_EQ(Bytes(buffer), content);
        const std::unique_ptr<unsigned char[]> array(buffer.GetAsByteArray());
        ASSERT_EQ(std::string(reinterpret_cast<const char*>(array.get()), content.size()), content);
        BinaryOutputBuffer sink(Mode), output(Mode);
        buffer.CopyAllDataToDataSink(sink);
        buffer.CopyAllDataToBinaryOutput(output);
        ASSERT_EQ(Bytes(sink), content);
        ASSERT_EQ(Bytes(output), content);
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

TEST(MemoryInputs, AreLikeAString) {
    std::mt19937 random(4);
    for (const unsigned int size : {0u, 1u, 10u, 9000u}) {
        const std::string content = Numbered(size);
        CBinaryInputBuffer array(Mode);
        array.SetCapacity(2 * size);
        content.copy(reinterpret_cast<char*>(array.GetBuffer(0)), size);
        array.SetDataLength(size);
        BinaryInputFromReadOnlyData readOnly(
            Mode, size == 0 ? nullptr : reinterpret_cast<const unsigned char*>(content.data()), size);
        Input owned(Mode, content);
        for (CBinaryInput* input : std::initializer_list<CBinaryInput*>{&array, &readOnly, &owned})
            InputBesideAString(*input, content, InputBesideAString::LeavesAll).Steps(random, 300);
    }
}

} // namespace
