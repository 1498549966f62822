#include "TextInputModel.h"
#include "support/ChunkedInput.h"
#include <QVLib/TextStreams/TextInputEncoded.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/TextOutput.h>
#include <cstring>
#include <functional>
#include <memory>

namespace {

template<class String>
using Counted = std::unique_ptr<String, void (*)(String*)>;

Counted<Utf8String> CountedUtf8(const std::string& bytes) {
    const unsigned char* const data = reinterpret_cast<const unsigned char*>(bytes.data());
    return {Utf8StringCopy(data, static_cast<unsigned int>(bytes.size())), Utf8StringFree};
}

CTextOutputString* WriteTextOutput(const std::string& bytes) {
    CTextOutputString* const output = new CTextOutputString;
    output->WriteString(bytes);
    return output;
}

// What the platform's decoders say, up to the first byte that the strict one refuses.
Decoded Decode(const std::string& bytes, bool strict) {
    const char* const start = bytes.data();
    const char* const end = start + bytes.size();
    Decoded decoded{{}, {0}, end - start};
    for (const char* p = start; p != end;) {
        const unsigned char* checked = reinterpret_cast<const unsigned char*>(p);
        if (strict && qv_decode_utf8(checked, reinterpret_cast<const unsigned char*>(end)) == -1)
            break;
        decoded.m_CodePoints.push_back(qv_codepoint_from_qvchar(p, end));
        decoded.m_Ends.push_back(p - start);
    }
    return decoded;
}

// The same text counted in the units of another input.
Decoded InUnits(Decoded decoded, const std::function<int(int codePoint)>& unitsOf) {
    for (std::size_t i = 0; i < decoded.m_CodePoints.size(); ++i)
        decoded.m_Ends[i + 1] = decoded.m_Ends[i] + unitsOf(decoded.m_CodePoints[i]);
    decoded.m_Size = decoded.m_Ends.back();
    return decoded;
}

} // namespace

// The window's fast path, the windowless grammar and the model, over texts that mix everything.
TEST(TextInputTest, RandomOperationsAgreeWithTheObviousReading) {
    const std::u32string alphabet =
        U"abcdefgh .,\t\n\n\r\r\u0085\u00FC\u2027\u2028\u2029\u6E29\uFFFD\U0001F525\x7F";
    const char* const malformed[] = {"\xFF",     "\xC3",         "\xE2\x80", "\x80\x80",
                                     "\xF0\x9F", "\xED\xA0\x80", "\xC0\x8A"};
    std::mt19937 random(20240517);
    for (int round = 0; round < 600; ++round) {
        const bool isWellFormed = round % 2 == 0;
        std::string bytes;
        for (unsigned int n = Pick(random, 60); n > 0; --n) {
            if (Pick(random, 5) == 0)
                bytes += "plain text in a row";
            else if (!isWellFormed && Pick(random, 20) == 0)
                bytes += malformed[Pick(random, std::size(malformed))];
            else
                bytes += ToUtf8({alphabet[Pick(random, alphabet.size())]});
        }
        const unsigned int length = static_cast<unsigned int>(bytes.size());
        const Decoded lenient = Decode(bytes, false);
        const Decoded strict = Decode(bytes, true);
        const Decoded utf32 = InUnits(lenient, [](int) { return 1; });
        const Decoded utf16 = InUnits(lenient, [](int codePoint) { return codePoint > 0xFFFF ? 2 : 1; });
        const std::u32string text32(lenient.m_CodePoints.begin(), lenient.m_CodePoints.end());
        const Counted<Utf8String> counted8 = CountedUtf8(bytes);
        const Counted<Utf16String> counted16(Utf16StringCopy(bytes.data(), length), Utf16StringFree);

        const auto compare = [&](const char* kind, CTextInput* input, const Decoded& text) {
            const std::unique_ptr<CTextInput> owner(input);
            SCOPED_TRACE(testing::Message() << kind << " in round " << round);
            CompareWithModel(*input, TextInputModel(text), random);
            return !HasFatalFailure();
        };
        ASSERT_TRUE(compare("string", new TextInputQVString(bytes, "n"), lenient));
        ASSERT_TRUE(compare("zero-terminated", new TextInputQVString(bytes.c_str(), "n"), lenient));
        ASSERT_TRUE(compare("bytes", new TextInputQVString(bytes.data(), length, "n"), lenient));
        ASSERT_TRUE(compare("counted UTF-8", new CTextInputUtf8(counted8.get()), strict));
        ASSERT_TRUE(compare("UTF-32", new TextInputU32String(text32, "n"), utf32));
        const unsigned int readSize = ReadSizes[Pick(random, std::size(ReadSizes))];
        ASSERT_TRUE(compare("chunks", new ChunkedInput(bytes, readSize), lenient));
        if (isWellFormed) {
            CTextInput* const written = new CTextInputFromTextOutputString(WriteTextOutput(bytes), "n");
            ASSERT_TRUE(compare("text output", written, lenient));
            ASSERT_TRUE(compare("counted UTF-16", new TextInputU16String(counted16.get()), utf16));
            ASSERT_TRUE(compare("UTF-16", new TextInputU16String(counted16.get(), "n"), utf16));
        }
    }
}

// A count leaves everything but the offset where it ended.
TEST(TextInputTest, LineCountRestoresTheOffsetOnly) {
    TextInputQVString input("a\nb", "n");
    input.ReplaceCodePoint('x', CQVTextLocation());
    EXPECT_EQ(input.GetLineCount(), 2u);
    EXPECT_EQ(ReadItem(input), Item('a', 2, 2));
}

TEST(TextInputTest, ZeroIsACharacterWhereTheLengthIsGiven) {
    TextInputQVString counted("a\0b", 3, "n");
    EXPECT_EQ(ReadAll(counted), std::u32string(U"a\0b", 3));
    TextInputQVString terminated("a\0b", "n");
    EXPECT_EQ(ReadAll(terminated), U"a");
}

// An input over pieces of other texts sets the location at the start of each.
TEST(TextInputTest, LocationsMayJumpWithinAWindow) {
    class WindowPieces : public TextInputQVString {
    public:
        using TextInputQVString::SetLocation, TextInputQVString::TextInputQVString;
    };
    WindowPieces input("ab", "n");
    CQVTextLocation piece;
    piece.SetLineAndColumn(3, 5);
    int codePoint;
    EXPECT_TRUE(input.ReadCodePoint(codePoint));
    input.SetLocation(piece);
    EXPECT_EQ(ReadItem(input), Item('b', 3, 5));
}

TEST(TextInputTest, LocationsKeepTheNameTheyWereReadUnder) {
    CQVTextLocation first, second;
    qvstring name;
    int codePoint;
    {
        TextInputQVString input("ab", "old");
        input.ReadCodePointWithLocation(codePoint, first);
        input.SetName("new");
        input.ReadCodePointWithLocation(codePoint, second);
        input.GetName(name);
    }
    EXPECT_EQ(name, "new");
    EXPECT_EQ(first.GetSourceNameRef()->GetName(), "old");
    EXPECT_EQ(second.GetSourceNameRef()->GetName(), "new");

    // Embedded text goes on from a location of the larger text, under its name.
    TextInputFromRawData embedded(reinterpret_cast<const unsigned char*>("x"), 1, second);
    EXPECT_EQ(ReadItem(embedded), Item('x', 1, 2));
    embedded.GetName(name);
    EXPECT_EQ(name, "new");
    TextInputFromRawData unnamed(nullptr, 0);
    unnamed.GetName(name);
    EXPECT_EQ(name, "");
}

TEST(TextInputTest, AnInputWithoutAWindowMovesItsLocationItself) {
    class Input : public TextInputU32String {
    public:
        using TextInputU32String::TextInputU32String;
        void IncrementPosition(int codePoint) override { m_Delivered.push_back(codePoint); }
        std::vector<int> m_Delivered;
    };
    Input input(U"x\r\ny", 4, "n");
    EXPECT_EQ(ReadAll(input), U"x\ny");
    EXPECT_EQ(input.m_Delivered, (std::vector<int>{'x', 10, 'y'}));
    EXPECT_EQ(ReadItem(input), Item(-1, 1, 1));
}
