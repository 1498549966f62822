#include <QVLib/TextStreams/TextOutputArray.h>
#include <QVLib/TextStreams/TextOutputString.h>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace {

std::string Take(TextOutputToUtf8String& output) {
    const std::unique_ptr<Utf8String, void (*)(Utf8String*)> text(output.GetUtf8String(), Utf8StringFree);
    return std::string(text->GetUnits(), text->GetUnits() + text->m_Length);
}

std::u16string Take(TextOutputToUtf16String& output) {
    const std::unique_ptr<Utf16String, void (*)(Utf16String*)> text(output.GetUtf16String(), Utf16StringFree);
    return std::u16string(text->GetUnits(), text->GetUnits() + text->m_Length);
}

// The same output without runs.
template<class Output>
class OneByOne : public Output {
public:
    using Output::Output;
};

// Texts, and what a sink of code points receives of them.
const struct {
    const char* text;
    const char* utf8;
    const char16_t* utf16;
} Texts[] = {
    {"", "", u""},
    {"longer than 32 units, so that it grows", "longer than 32 units, so that it grows",
     u"longer than 32 units, so that it grows"},
    {"é€😀", "é€😀", u"é€😀"},
    {"a\nb", "a\r\nb", u"a\r\nb"},
    {"cut \xF0\x9F\x98 off \xC3", "cut \uFFFD off \uFFFD", u"cut \uFFFD off \uFFFD"},
    {"\xED\xA0\xBD\xED\xB8\x80", "\xED\xA0\xBD\xED\xB8\x80", u"\xD83D\xDE00"},
};

template<class Output>
auto Written(const char* text) {
    Output output;
    output.SetLineTermination(TextLineTerminationCRLF);
    output.WriteString(text);
    return Take(output);
}

TEST(TextOutputString, TextArrivesByRunsAsByCodePoints) {
    for (const auto& t : Texts) {
        EXPECT_EQ(Written<TextOutputToUtf8String>(t.text), t.utf8);
        EXPECT_EQ(Written<OneByOne<TextOutputToUtf8String>>(t.text), t.utf8);
        EXPECT_EQ(Written<TextOutputToUtf16String>(t.text), t.utf16);
        EXPECT_EQ(Written<OneByOne<TextOutputToUtf16String>>(t.text), t.utf16);
    }
}

// Fills an output up to `filled` units, writes `text` and returns how many units were taken of it and of an
// "x" that follows.
template<class Output>
std::pair<size_t, size_t> TakenBehind(unsigned int filled, const char* text) {
    Output output;
    output.WriteString(std::string(filled, '.'));
    output.WriteString(text);
    const bool bTakesMore = output.WriteCodePoint('x');
    const size_t length = Take(output).size();
    return {length - filled - bTakesMore, bTakesMore};
}

TEST(TextOutputString, TheFirstCodePointThatPassesTheLimitIsTheLast) {
    using Taken = std::pair<size_t, size_t>;
    const struct {
        unsigned int filled;
        const char* text;
        Taken utf8, utf16;
    } cases[] = {
        {65533, "a", {1, 1}, {1, 1}},    {65534, "a", {1, 0}, {1, 0}},     {65535, "a", {0, 0}, {0, 0}},
        {65533, "😀", {0, 0}, {2, 0}},    {65534, "😀", {0, 0}, {0, 0}}, // an "x" would fit, but comes too late
        {65530, "ab€c", {5, 0}, {4, 1}}, {65530, "ab€€c", {5, 0}, {5, 0}}, {65532, "ab€c", {2, 0}, {3, 0}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.filled);
        EXPECT_EQ(TakenBehind<TextOutputToUtf8String>(c.filled, c.text), c.utf8);
        EXPECT_EQ(TakenBehind<OneByOne<TextOutputToUtf8String>>(c.filled, c.text), c.utf8);
        EXPECT_EQ(TakenBehind<TextOutputToUtf16String>(c.filled, c.text), c.utf16);
        EXPECT_EQ(TakenBehind<OneByOne<TextOutputToUtf16String>>(c.filled, c.text), c.utf16);
    }
}

TEST(TextOutputStringDeathTest, NothingIsWrittenBehindTheHandOver) {
    TextOutputToUtf8String utf8;
    EXPECT_EQ(Take(utf8), "");
    EXPECT_EQ(utf8.GetUtf8String(), nullptr);
    EXPECT_DEATH(utf8.WriteCodePoint('a'), "TextOutputString.cpp.*m_pUtf8String");
    EXPECT_DEATH(utf8.WriteString("a"), "m_pUtf8String");
    TextOutputToUtf16String utf16;
    EXPECT_EQ(Take(utf16), u"");
    EXPECT_DEATH(utf16.WriteCodePoint('a'), "TextOutputString.cpp.*m_pUtf16String");
    EXPECT_DEATH(utf16.WriteString("a"), "m_pUtf16String");
}

// What an array of `size` bytes holds after `text`, from the heap so that AddressSanitizer sees a byte too far.
template<class Output>
std::string InArray(unsigned int size, const std::string& text) {
    const std::unique_ptr<char[]> array(new char[size]);
    std::fill_n(array.get(), size, '#');
    Output output(array.get(), size);
    output.WriteString(text);
    return std::string(array.get(), size);
}

TEST(TextOutputArray, TakesWholeCharactersAsLongAsAZeroFits) {
    using namespace std::string_literals;
    const std::string full(31, 'a');
    const struct {
        unsigned int size;
        std::string text, array;
    } cases[] = {
        {0, "a", ""},
        {1, "a", "#"},
        {2, "ab", "a\0"s},
        {32, full, full + '\0'},
        {32, full + "b", full + '\0'},
        {34, full + "€", full + "\0##"s}, // two bytes left besides the zero
        {35, full + "€", full + "€\0"s},
        {4, "a€bc", "abc\0"s}, // a refused character does not keep out a shorter one
        {6, "\xFFé\n", "\uFFFDé\0"s},
        {4, "a\nb", "a\nb\0"s},
        {5, "ab", "ab\0##"s},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.array));
        EXPECT_EQ(InArray<CTextOutputOnCharArray>(c.size, c.text), c.array);
        EXPECT_EQ(InArray<OneByOne<CTextOutputOnCharArray>>(c.size, c.text), c.array);
        // The other array differs only when nothing was written: it is the empty text then.
        std::string array = c.array;
        if (array.starts_with('#'))
            array[0] = '\0';
        EXPECT_EQ(InArray<CTextOutputOnWcharArray>(c.size, c.text), array);
        EXPECT_EQ(InArray<OneByOne<CTextOutputOnWcharArray>>(c.size, c.text), array);
    }
    EXPECT_EQ(InArray<CTextOutputOnCharArray>(2, ""), "##");
    EXPECT_EQ(InArray<CTextOutputOnWcharArray>(2, ""), "\0#"s);

    char array[2];
    CTextOutputOnCharArray output(array, sizeof array);
    EXPECT_TRUE(output.WriteCodePoint('a'));
    EXPECT_FALSE(output.WriteCodePoint('a'));
}

} // namespace
