#include <QVPlatform/TextOutput.h>
#include <gtest/gtest.h>

namespace {

TEST(TextOutput, LineEnds) {
    const struct {
        TextLineTermination termination;
        const char* text;
    } cases[] = {{TextLineTerminationCR, "a\rb\rc\r\rd"},
                 {TextLineTerminationLF, "a\nb\nc\n\nd"},
                 {TextLineTerminationCRLF, "a\r\nb\r\nc\r\n\r\nd"}};
    for (const auto& c : cases) {
        CTextOutputString output;
        output.SetLineTermination(c.termination);
        output.PrintLine("%c", 'a');
        output.WriteString("b\nc");
        output.PrintChars(2, '\n');
        output.PrintChar('d');
        EXPECT_EQ(output.GetString(), c.text);
    }
    CTextOutputString plain; // line feeds are the default; the raw sink changes nothing
    plain.PrintLine();
    plain.SetLineTermination(TextLineTerminationCRLF);
    plain.WriteCodePoint('\n');
    plain.WriteCodePoints(2, 10);
    EXPECT_EQ(plain.GetString(), "\n\n\r\n\r\n");
}

TEST(TextOutput, IndentsLinesThatHaveCharacters) {
    CTextOutputString output;
    output.AdjustIndent(-5);
    output.PrintLine("{");
    output.AdjustIndent(2);
    output.WriteString("one\n\ntwo\n");
    output.AdjustIndent(-1); // behind the line end and still in time
    output.Print("%s", "three");
    output.WriteCodePoints(2, 0x20AC);
    output.PrintLine();
    output.AdjustIndent(-3);
    output.PrintBase64("}", 1);
    EXPECT_STREQ(output.GetCStr(), "{\n    one\n\n    two\n  three\xE2\x82\xAC\xE2\x82\xAC\nfQ==");
    output.AdjustIndent(1);
    output.Clear();
    output.PrintChar('x');
    EXPECT_EQ(output.GetString(), "  x");
}

TEST(TextOutput, PrintsTextOfAnyLengthAndReplacesOnlyMalformedBytes) {
    for (size_t length : {0U, 1023U, 1024U, 70000U}) {
        const std::string body(length, '%');
        CTextOutputString output;
        output.Print("%s\xE2\x82\xAC%s", body.c_str(), "\xFF!");
        EXPECT_EQ(output.GetString(), body + "\xE2\x82\xAC\xEF\xBF\xBD!");
    }
    CTextOutputString output;
    output.WriteString(std::string("a\0\xED\xA0\x80", 5)); // a zero and a single surrogate pass as they are
    EXPECT_EQ(output.GetString(), std::string("a\0\xED\xA0\x80", 5));
}

TEST(TextOutput, Base64) {
    const struct {
        const char* bytes;
        const char* text;
    } cases[] = {{"", ""},
                 {"f", "Zg=="},
                 {"fo", "Zm8="},
                 {"foo", "Zm9v"},
                 {"foob", "Zm9vYg=="},
                 {"foobar", "Zm9vYmFy"},
                 {"\xFB\xFF\xFE", "+//+"}}; // RFC 4648, chapter 10
    for (const auto& c : cases) {
        CTextOutputString output;
        output.PrintBase64(c.bytes, static_cast<unsigned int>(strlen(c.bytes)));
        EXPECT_EQ(output.GetString(), c.text);
    }
}

// An output with its own idea of a line, as a log or a mark-up writer has.
class MarkedLines : public CTextOutput {
public:
    bool WriteCodePoint(int codePoint) override {
        m_Text.push_back(static_cast<char>(codePoint));
        return true;
    }
    void WriteNewLine() override { m_Text += "<end>"; }
    void IndentNewLine() override { Print(">"); }
    std::string m_Text;
};

TEST(TextOutput, DerivedLineEndsAndIndentationServeEveryHelper) {
    MarkedLines output;
    output.AdjustIndent(1);
    output.Print("a\n");
    output.PrintChar('\n');
    output.WriteString("b");
    output.WriteCodePoints(1, 10);
    output.PrintLine("c");
    EXPECT_EQ(output.m_Text, ">a<end><end>>b<end>>c<end>");
}

} // namespace
