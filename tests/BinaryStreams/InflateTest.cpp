// Compressed input against the bytes that were compressed.
#include "BinaryStreamsTesting.h"
#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVLib/BinaryStreams/BinaryInputZlibInflate.h>
#include <gtest/gtest.h>
#include <random>
#include <zlib.h>

namespace {

std::string Compress(const std::string& data) {
    uLongf size = compressBound(data.size());
    std::string compressed(size, 0);
    EXPECT_EQ(compress(reinterpret_cast<Bytef*>(compressed.data()), &size,
                       reinterpret_cast<const Bytef*>(data.data()), data.size()),
              Z_OK);
    return compressed.substr(0, size);
}

// Text that compresses, mixed with bytes that do not.
std::string MakeData(size_t size) {
    std::mt19937 random(size);
    std::string data;
    while (data.size() < size)
        data += random() % 3 == 0 ? std::string(1, static_cast<char>(random())) : "the same again and again";
    return data.substr(0, size);
}

BinaryInputZlibInflate Open(const std::string& compressed, size_t length) {
    return BinaryInputZlibInflate(
        BinaryStringLengthUTF8Character, static_cast<unsigned int>(length),
        new BinaryInputFromReadOnlyData(BinaryStringLengthUTF8Character,
                                        reinterpret_cast<const unsigned char*>(compressed.data()),
                                        static_cast<unsigned int>(compressed.size())));
}

std::string Read(CBinaryInput& input, size_t count) {
    std::string bytes(count, 0);
    input.Read(bytes.data(), static_cast<unsigned int>(count));
    return bytes;
}

TEST(Inflate, ReadsInPiecesOfAnySize) {
    for (const size_t size : {0u, 1u, 1'023u, 1'024u, 1'025u, 5'000u, 300'000u}) {
        const std::string data = MakeData(size);
        const std::string compressed = Compress(data);
        for (const size_t piece : {1u, 100u, 1'024u, 5'000u, 300'000u}) {
            BinaryInputZlibInflate input = Open(compressed, size);
            EXPECT_EQ(input.GetLength(), size);
            std::string read;
            while (!input.IsEOF()) {
                read += Read(input, std::min(piece, size - read.size()));
                ASSERT_EQ(input.Tell(), read.size());
            }
            ASSERT_TRUE(read == data) << size << " in pieces of " << piece;
        }
    }
}

TEST(Inflate, ReadsWhatAnotherProgramCompressed) {
    // Lines, compressed by a script in another language; 5,000 bytes became 198.
    const std::string hex =
        "78daedd5b90d02510c45d19c2a5c025ed8ca99e08f18e90b10e380f21109f12de0e52f3ab27ce7f61876"
        "b4e76a8bf5f8b4f57d697b8fd7587ab7adf731d7c3fc8d9c8c828c928c8a8c4e647426a30b195dc9e886"
        "301939327784ee48dd11bb237747f08ee41dd13bb20f641fecde917d20fb40f681ec03d907b20f641fc8"
        "3e917d22fb64cf06d927b24f649fc83e917d22fb44f685ec0bd917b22ff6e9917d21fb42f685ec0bd917"
        "b2576155581556855561555815568555615558155685fd17f60b221fc30c";
    std::string compressed;
    for (size_t i = 0; i < hex.size(); i += 2)
        compressed += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    std::string data;
    for (int i = 0; data.size() < 5'000; i++)
        data += "line " + std::to_string(i % 50) + " of a text that repeats itself\n";
    data.resize(5'000);
    BinaryInputZlibInflate input = Open(compressed, data.size());
    EXPECT_EQ(Read(input, data.size()), data);
    EXPECT_TRUE(input.IsEOF());
}

TEST(Inflate, SeeksAnywhere) {
    const std::string data = MakeData(20'000);
    const std::string compressed = Compress(data);
    BinaryInputZlibInflate input = Open(compressed, data.size());
    std::mt19937 random(7);
    for (int i = 0; i < 400; i++) {
        const size_t position =
            i % 3 == 0 ? std::min<size_t>(input.Tell() + random() % 900, 20'000) : random() % 20'001;
        ASSERT_TRUE(input.Seek(static_cast<unsigned int>(position)));
        ASSERT_EQ(input.Tell(), position);
        const size_t count = std::min<size_t>(random() % 3'000, 20'000 - position);
        ASSERT_TRUE(Read(input, count) == data.substr(position, count)) << position;
    }
    EXPECT_FALSE(input.Seek(20'001));
    EXPECT_TRUE(input.Seek(20'000));
    EXPECT_TRUE(input.IsEOF());
    EXPECT_FALSE(input.Seek(4'000'000'000));
    EXPECT_TRUE(input.Seek(19'999));
    EXPECT_EQ(Read(input, 1), data.substr(19'999));
}

TEST(Inflate, GivesWhatIsThereBeforeTheEnd) {
    const std::string data = MakeData(3'000);
    const std::string compressed = Compress(data);
    for (size_t length = 0; length <= compressed.size(); length++) {
        const std::string cut = compressed.substr(0, length);
        BinaryInputZlibInflate input = Open(cut, 4'000);
        std::string read(4'000, 0);
        try {
            input.Read(read.data(), 4'000);
            FAIL() << "read past the end";
        } catch (const CBinaryInput::EOFException& exception) {
            const size_t got = 4'000 - exception.GetCount();
            ASSERT_EQ(input.Tell(), got);
            ASSERT_TRUE(read.substr(0, got) == data.substr(0, got));
            // zlib hands out all that the bytes before the cut tell.
            ASSERT_TRUE(length < compressed.size() - 4 || got == 3'000) << length;
        }
        EXPECT_FALSE(input.Seek(3'001));
    }
}

TEST(Inflate, RefusesDamage) {
    const std::string data = MakeData(3'000);
    const std::string compressed = Compress(data);
    int refused = 0;
    for (size_t i = 0; i < compressed.size(); i++) {
        for (const int bit : {0, 5}) {
            std::string damaged = compressed;
            damaged[i] = static_cast<char>(damaged[i] ^ 1 << bit);
            BinaryInputZlibInflate input = Open(damaged, data.size());
            try {
                // To the end, where zlib reads its check value. Damaged data may be longer.
                Read(input, 1'000'000);
                FAIL() << "byte " << i;
            } catch (const CBinaryInput::EOFException&) {
            } catch (const std::logic_error& error) {
                EXPECT_STREQ(error.what(), "ZLIB error");
                EXPECT_THROW(input.Seek(input.Tell() + 1), std::logic_error);
                EXPECT_THROW(Read(input, 1'025), std::logic_error) << "and goes on refusing";
                refused++;
            }
        }
    }
    EXPECT_GT(refused, static_cast<int>(compressed.size()));

    const std::string withDictionary = FromHex("78 F9 1C AE 04 B8 2B CF 2C C9 50 48 44 12 00 00 39 46 06 94");
    BinaryInputZlibInflate input = Open(withDictionary, 17);
    EXPECT_THROW(Read(input, 1), std::logic_error);
    EXPECT_THROW(input.Seek(3), std::logic_error);
}

TEST(Inflate, StaysSmallWhateverComesOut) {
    const std::string compressed = Compress(std::string(50'000'000, 'x'));
    EXPECT_LT(compressed.size(), 50'000u);
    BinaryInputZlibInflate input = Open(compressed, 0xFFFFFFFF);
    EXPECT_TRUE(input.Seek(49'999'999));
    EXPECT_EQ(Read(input, 1), "x");
    EXPECT_THROW(Read(input, 1), CBinaryInput::EOFException);
}

} // namespace
