// Binary data as text, and back.
#include "BinaryStreamsTesting.h"
#include <QVLib/BinaryStreams/Base64.h>
#include <QVLib/BinaryStreams/BinaryInputFromTextInput.h>
#include <QVLib/BinaryStreams/BinaryOutputToTextOutput.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/TextOutput.h>

namespace {

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

TEST(BinaryOutputToTextOutput, BreaksLinesWhateverThePieces) {
    for (const size_t size : {0u, 1u, 47u, 48u, 49u, 96u, 97u, 250u}) {
        const std::string bytes = Numbered(size);
        std::string hex = Hex(bytes);
        std::erase(hex, ' ');
        CTextOutputString base64;
        base64.PrintBase64(bytes.data(), static_cast<unsigned int>(size));
        for (const size_t piece : {1u, 7u, 48u, 49u, 200u}) {
            for (const auto& [mode, all, width] : {std::tuple(TextToBinaryHex, hex, 96u),
                                                   std::tuple(TextToBinaryBase64, base64.GetString(), 64u)}) {
                std::string lines;
                for (size_t i = 0; i < all.size(); i += width)
                    lines += (i == 0 ? "" : "\n") + all.substr(i, width);
                EXPECT_EQ(Dump(bytes, mode, false, piece), all);
                EXPECT_EQ(Dump(bytes, mode, true, piece), lines);
            }
        }
    }
}

TEST(BinaryInputFromTextInput, ReadsDigitsAndPassesOverTheRest) {
    std::mt19937 random(5);
    for (const auto& [text, content] :
         std::vector<std::pair<std::string, std::string>>{{"4a 6B,\n7\u00E4c \u0663 -", "\x4A\x6B\x7C"},
                                                          {"", ""},
                                                          {Hex(Numbered(2000)), Numbered(2000)}}) {
        TextInputQVString input(text, "");
        CBinaryInputFromTextInput binary(BinaryStringLengthUTF8Character, &input, TextToBinaryHex);
        InputBesideAString(binary, content, InputBesideAString::TellsOfWhole).Steps(random, 50);
    }
    const std::string odd = "12 3";
    TextInputQVString oddInput(odd, "");
    CBinaryInputFromTextInput oddBinary(BinaryStringLengthUTF8Character, &oddInput, TextToBinaryHex);
    EXPECT_THROW(Read(oddBinary, 2), CBinaryInput::EOFException);
}

TEST(Base64, DecodesGroupsAndRefusesTheRest) {
    const struct {
        std::string text;
        unsigned int room;
        bool bDecoded;
        const char* bytes;
    } rows[] = {
        {"TWE=", 2, true, "4D 61"},
        {"TQ==", 1, true, "4D"},
        {"TQ==TWE=TWFu", 6, true, "4D 4D 61 4D 61 6E"},
        {"++//", 3, true, "FB EF FF"},
        {"TR==", 1, true, "4D"}, // bits left over
        {"TWFuTWF", 9, false, ""},
        {"TW!u", 3, false, ""},
        {"TWFuTW\xC3\xA4", 9, false, "4D 61 6E"},
        {"TWFuTWFu", 5, false, "4D 61 6E"},
        {"TWFuTQ==", 3, false, "4D 61 6E"},
        {"TWFu", 0, false, ""},
        {"TWE=", 1, false, ""},
        {"TW=u", 3, false, ""},
        {"T===", 3, false, ""},
        {"TWF\n", 3, false, ""},
        {"TW-_", 3, false, ""},
    };
    const auto decode = [](const std::string& text, size_t room, std::string& bytes) {
        bytes.assign(room, 0);
        unsigned int written = 77;
        const bool bDecoded = CBase64::DecodeBase64(text, reinterpret_cast<unsigned char*>(bytes.data()),
                                                    static_cast<unsigned int>(room), written);
        bytes.resize(written);
        return bDecoded;
    };
    std::string bytes;
    for (const auto& row : rows) {
        EXPECT_EQ(decode(row.text, row.room, bytes), row.bDecoded) << row.text;
        EXPECT_EQ(Hex(bytes), row.bytes) << row.text;
    }
    for (size_t size = 0; size < 300; size++) {
        ASSERT_TRUE(decode(Dump(Numbered(size), TextToBinaryBase64, false, 100), size, bytes));
        ASSERT_EQ(bytes, Numbered(size));
    }
}

} // namespace
