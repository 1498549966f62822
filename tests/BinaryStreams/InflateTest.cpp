// Compressed input against the bytes that were compressed.
#include "BinaryStreamsTesting.h"
#include <QVLib/BinaryStreams/BinaryInputZlibInflate.h>
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

TEST(Inflate, IsLikeAString) {
    std::mt19937 random(7);
    for (const size_t size : {0u, 1u, 1'023u, 1'024u, 1'025u, 20'000u}) {
        const std::string data = MakeData(size);
        const std::string compressed = Compress(data);
        BinaryInputZlibInflate input = Open(compressed, size);
        InputBesideAString(input, data, InputBesideAString::TellsOfRest).Steps(random, 1000);
    }
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
            } catch (const CBinaryInput::EOFException& end) {
                EXPECT_GE(end.GetCount(), 1u);
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
