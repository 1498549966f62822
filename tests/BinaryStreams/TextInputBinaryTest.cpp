#include <BinaryStreams/BinaryStreamsTesting.h>
#include <QVLib/BinaryStreams/TextInputBinary.h>
#include <QVLib/TextStreams/TextInputString.h>

namespace {

std::u32string ReadAll(CTextInput& input) {
    std::u32string text;
    for (int codePoint; input.ReadCodePoint(codePoint);)
        text.push_back(static_cast<char32_t>(codePoint));
    return text;
}

TEST(TextInputBinary, AZeroEndsTheTextForGood) {
    const struct {
        const char* m_Bytes;
        const char32_t* m_Text;
        unsigned int m_End;
    } cases[] = {
        {"41 00 42", U"A", 2},
        {"00 42", U"", 1},
        {"41 42", U"AB", 2},
        {"EF BB BF 41 00 42", U"A", 5},
        {"FF FE 41 00 00 00 42 00", U"A", 6},
        {"FE FF 01 00 00 41 00 00 00 42", U"\u0100A", 8},
        {"C3", U"", 1},
        {"", U"", 0},
    };
    // Over both bridges. The bytes of an input may be preceded by others, read before.
    for (const auto& c : cases) {
        SCOPED_TRACE(c.m_Bytes);
        Input data(BinaryStringLengthNotAllowed, "--" + FromHex(c.m_Bytes));
        data.Seek(2);
        CTextInputFromBinaryInput input(&data, false);
        BinaryOutputBuffer buffer(BinaryStringLengthNotAllowed);
        buffer.Write(FromHex(c.m_Bytes).data(), static_cast<unsigned int>(FromHex(c.m_Bytes).size()));
        CTextInputFromBinaryOutputBuffer bufferInput(&buffer);
        for (TextInputFromBinary* text : std::initializer_list<TextInputFromBinary*>{&input, &bufferInput}) {
            EXPECT_EQ(ReadAll(*text), c.m_Text);
            EXPECT_EQ(ReadAll(*text), U"");
            CTextInput::Position atEnd;
            text->SavePosition(atEnd);
            text->ResetPosition();
            EXPECT_EQ(ReadAll(*text), c.m_Text);
            text->RestorePosition(atEnd);
            EXPECT_EQ(ReadAll(*text), U"");
            EXPECT_EQ(text->Tell(), c.m_End + (text == &input ? 2 : 0));
        }
    }
}

TEST(TextInputBinary, ReadsBackTextThatWasWrittenAmongValues) {
    const qvstring text = "caf\xC3\xA9\n" + qvstring(20000, 'x') + "\xF0\x9F\x98\x80";
    BinaryOutputBuffer buffer(BinaryStringLengthUTF8Character);
    TextInputQVString source(text, "n");
    buffer << source << 4711u;
    CBinaryInputFromBinaryOutputBuffer data(&buffer);
    qvstring read;
    CTextInputFromBinaryInput(&data, false).ReadAllInput(read);
    EXPECT_EQ(read, text);
    unsigned int number = 0;
    data >> number;
    EXPECT_EQ(number, 4711u);
}

// Counts itself, and may be one that cannot be read.
class CountedInput : public BinaryInputFromReadOnlyData {
public:
    CountedInput(int& live, bool bBroken)
        : BinaryInputFromReadOnlyData(BinaryStringLengthNotAllowed, nullptr, 0), m_Live(++live),
          m_bBroken(bBroken) {}
    ~CountedInput() override { --m_Live; }
    bool IsEOF() const override { return !m_bBroken; }

private:
    int& m_Live;
    const bool m_bBroken;
};

TEST(TextInputBinary, DeletesWhatItOwns) {
    int live = 0;
    EXPECT_THROW(CTextInputFromBinaryInput(new CountedInput(live, true), true), CBinaryInput::EOFException);
    { const CTextInputFromBinaryInput input(new CountedInput(live, false), true); }
    EXPECT_EQ(live, 0);
    CountedInput borrowed(live, true);
    EXPECT_THROW(CTextInputFromBinaryInput(&borrowed, false), CBinaryInput::EOFException);
    EXPECT_EQ(live, 1);
}

} // namespace
