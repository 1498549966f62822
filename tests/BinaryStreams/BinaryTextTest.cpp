// Binary data as text, and back.
#include "BinaryStreamsTesting.h"
#include <QVLib/BinaryStreams/Base64.h>
#include <QVLib/BinaryStreams/BinaryInputFromTextInput.h>
#include <QVLib/BinaryStreams/BinaryOutputToTextOutput.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/TextOutput.h>
#include <gtest/gtest.h>
#include <numeric>

namespace {

std::string CountingBytes(size_t count) {
    std::string bytes(count, 0);
    std::iota(bytes.begin(), bytes.end(), static_cast<char>(0));
    return bytes;
}

std::string Dump(const std::string& bytes, TextToBinaryMode mode, bool lineBreaks, size_t piece) {
    CTextOutputString text;
    BinaryOutputToTextOutput dump(BinaryStringLengthUTF8Character, text, mode, lineBreaks);
    for (size_t i = 0; i < bytes.size(); i += piece)
        EXPECT_TRUE(
            dump.Write(bytes.data() + i, static_cast<unsigned int>(std::min(piece, bytes.size() - i))));
    dump.WriteComment("not in the data: %d", 5);
    dump.FlushFinalOutput();
    dump.FlushFinalOutput();
    return text.GetString();
}

std::string Hexadecimal(const std::string& bytes) {
    std::string hex = Hex(bytes);
    std::erase(hex, ' ');
    return hex;
}

TEST(BinaryOutputToTextOutput, BreaksLinesWhateverThePieces) {
    for (const size_t size : {0u, 1u, 47u, 48u, 49u, 95u, 96u, 97u, 100u, 250u}) {
        const std::string bytes = CountingBytes(size);
        std::string lines;
        for (size_t i = 0; i < size; i += 48)
            lines += (i == 0 ? "" : "\n") + Hexadecimal(bytes.substr(i, 48));
        for (const size_t piece : {1u, 7u, 48u, 49u, 200u}) {
            EXPECT_EQ(Dump(bytes, TextToBinaryHex, true, piece), lines);
            EXPECT_EQ(Dump(bytes, TextToBinaryHex, false, piece), Hexadecimal(bytes));
            CTextOutputString base64;
            base64.PrintBase64(bytes.data(), static_cast<unsigned int>(size));
            EXPECT_EQ(Dump(bytes, TextToBinaryBase64, false, piece), base64.GetString());
            std::string joined = Dump(bytes, TextToBinaryBase64, true, piece);
            EXPECT_EQ(joined.size() > 65 && joined[64] == '\n', size > 48);
            std::erase(joined, '\n');
            EXPECT_EQ(joined, base64.GetString());
        }
    }
}

TEST(BinaryInputFromTextInput, ReadsDigitsAndPassesOverTheRest) {
    const std::string text = "4a 6B,\n7\xC3\xA4"
                             "c \xD9\xA3 -";
    TextInputQVString input(text, "");
    CBinaryInputFromTextInput binary(BinaryStringLengthUTF8Character, &input, TextToBinaryHex);
    const auto read = [&](unsigned int count) {
        std::string bytes(count, 0);
        binary.Read(bytes.data(), count);
        return Hex(bytes);
    };
    EXPECT_EQ(binary.GetLength(), 3u);
    EXPECT_EQ(read(2), "4A 6B");
    EXPECT_FALSE(binary.IsEOF());
    EXPECT_FALSE(binary.IsEOF());
    EXPECT_EQ(binary.Tell(), 2u);
    EXPECT_EQ(read(1), "7C");
    EXPECT_TRUE(binary.IsEOF());
    EXPECT_TRUE(binary.Seek(1));
    EXPECT_EQ(read(1), "6B");
    EXPECT_TRUE(binary.Seek(3));
    EXPECT_FALSE(binary.Seek(4));
    EXPECT_TRUE(binary.Seek(0));
    try {
        read(5);
        FAIL();
    } catch (const CBinaryInput::EOFException& exception) {
        EXPECT_EQ(exception.GetCount(), 5u);
        EXPECT_EQ(exception.GetPosition(), 3u);
    }
    const std::string odd = "12 3";
    TextInputQVString oddInput(odd, "");
    CBinaryInputFromTextInput oddBinary(BinaryStringLengthUTF8Character, &oddInput, TextToBinaryHex);
    unsigned char bytes[2];
    EXPECT_THROW(oddBinary.Read(bytes, 2), CBinaryInput::EOFException);
}

TEST(Base64, DecodesGroupsAndRefusesTheRest) {
    const struct {
        std::string text;
        unsigned int room;
        bool bDecoded;
        const char* bytes;
    } rows[] = {
        {"TWFu", 3, true, "4D 61 6E"},
        {"TWE=", 2, true, "4D 61"},
        {"TQ==", 1, true, "4D"},
        {"", 0, true, ""},
        {"TQ==TWE=TWFu", 6, true, "4D 4D 61 4D 61 6E"},
        {"++//", 3, true, "FB EF FF"},
        {"TR==", 1, true, "4D"}, // bits left over
        {"TWFuTWF", 9, false, ""},
        {"TW!u", 3, false, ""},
        {"TWFuTW\xC3\xA4", 9, false, "4D 61 6E"},
        {"TWFuTWFu", 5, false, "4D 61 6E"},
        {"TWFuTQ==", 3, false, "4D 61 6E"},
        {"TWFu", 0, false, ""},
        {"TW=u", 3, false, ""},
        {"T=E=", 3, false, ""},
        {"T===", 3, false, ""},
        {"====", 3, false, ""},
        {"TWF\n", 3, false, ""},
        {"TW-_", 3, false, ""},
    };
    for (const auto& row : rows) {
        std::string bytes(row.room, 0);
        unsigned int written = 77;
        EXPECT_EQ(CBase64::DecodeBase64(row.text, reinterpret_cast<unsigned char*>(bytes.data()), row.room,
                                        written),
                  row.bDecoded)
            << row.text;
        EXPECT_EQ(Hex(bytes.substr(0, written)), row.bytes) << row.text;
    }
    for (size_t size = 0; size < 300; size++) {
        const std::string bytes = CountingBytes(size);
        const std::string text = Dump(bytes, TextToBinaryBase64, false, 100);
        std::string decoded(size, 0);
        unsigned int written;
        ASSERT_TRUE(CBase64::DecodeBase64(text, reinterpret_cast<unsigned char*>(decoded.data()),
                                          static_cast<unsigned int>(size), written));
        ASSERT_EQ(decoded, bytes);
    }
}

} // namespace
