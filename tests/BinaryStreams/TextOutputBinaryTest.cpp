#include <BinaryStreams/BinaryStreamsTesting.h>
#include <QVLib/BinaryStreams/TextOutputBinary.h>

namespace {

// The same output without runs.
template<class Output>
class OneByOne : public Output {
public:
    using Output::Output;
};

TEST(TextOutputUTF8, TextIsInTheBufferAsUtf8) {
    const std::pair<const char*, const char*> cases[] = {
        {"", ""},
        {"a\n\xF0\x9F\x98\x80", "61 0A F0 9F 98 80"},
        {"\xE2\x82z\xED\xA0\x80", "EF BF BD 7A ED A0 80"},
    };
    for (const auto& [text, bytes] : cases) {
        CTextOutputUTF8 runs;
        OneByOne<CTextOutputUTF8> codePoints;
        runs.WriteString(text);
        codePoints.WriteString(text);
        EXPECT_EQ(Hex(Bytes(runs)), bytes);
        EXPECT_EQ(Hex(Bytes(codePoints)), bytes);
    }
}

TEST(TextOutputUTF8, IsBufferAndTextOutputInOne) {
    CTextOutputUTF8 output;
    EXPECT_TRUE(output.WriteCodePoint(0x3FFFFFF)); // the buffer's coding knows more than Unicode
    EXPECT_TRUE(output.WriteCodePoint(-1));
    EXPECT_EQ(Hex(Bytes(output)), "FB BF BF BF BF FF");
    for (size_t level = 1; level <= 3; level++) {
        output.AdjustIndent(1);
        level == 2 ? output.SecureClearBuffer() : output.Clear();
        output.Print("%s", std::string(20000, 'x').c_str()); // across blocks
        EXPECT_EQ(Bytes(output), std::string(2 * level, ' ') + std::string(20000, 'x'));
    }
    EXPECT_EQ(static_cast<void*>(static_cast<CTextOutput*>(&output)), &output); // the first base
}

TEST(TextOutputToBinaryOutput, WritesEveryEncodingWithCarriageReturns) {
    const char* const expected[] = {"C3 A9 0D 0A 78",
                                    "EF BB BF C3 A9 0D 0A 78",
                                    "FF FE E9 00 0D 00 0A 00 78 00",
                                    "FE FF 00 E9 00 0D 00 0A 00 78",
                                    "E9 00 0D 00 0A 00 78 00",
                                    "00 E9 00 0D 00 0A 00 78"};
    for (int encoding = 0; encoding <= 5; ++encoding) {
        BinaryOutputBuffer runBuffer(BinaryStringLengthNotAllowed), otherBuffer(BinaryStringLengthNotAllowed);
        CTextOutputToBinaryOutput runs(&runBuffer);
        OneByOne<CTextOutputToBinaryOutput> codePoints(&otherBuffer);
        for (CTextOutputToBinaryOutput* output :
             {&runs, static_cast<CTextOutputToBinaryOutput*>(&codePoints)}) {
            if (encoding != 0) // 0 is what they begin with
                output->SetEncoding(static_cast<TextEncoding>(encoding));
            output->WriteString("\xC3\xA9\nx");
        }
        EXPECT_EQ(Hex(Bytes(runBuffer)), expected[encoding]);
        EXPECT_EQ(Hex(Bytes(otherBuffer)), expected[encoding]);
    }
}

TEST(TextOutputToBinaryOutput, TellsWhatTheOutputRefused) {
    WriteList refusing(0);
    CTextOutputToBinaryOutput output(&refusing);
    EXPECT_FALSE(output.WriteCodePoint('x'));
    output.WriteString("abc"); // a run that failed is not sent a second time
    EXPECT_EQ(refusing.m_Writes.size(), 2u);
}

} // namespace
