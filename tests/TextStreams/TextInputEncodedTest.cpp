#include "TextInputModel.h"
#include "support/TemporaryFolder.h"
#include <QVLib/TextStreams/TextInputEncoded.h>
#include <cerrno>
#include <filesystem>
#include <fstream>

namespace {

using std::string;
using namespace std::string_literals;

TextInputFromRawData OfBytes(const string& bytes) {
    return TextInputFromRawData(reinterpret_cast<const unsigned char*>(bytes.data()),
                                static_cast<unsigned int>(bytes.size()), "n");
}

string Encode(const std::u32string& text, int encoding) {
    static const string marks[] = {"", "\xEF\xBB\xBF", "\xFF\xFE", "\xFE\xFF", "", ""};
    string bytes = marks[encoding];
    for (const char32_t codePoint : text) {
        if (encoding < 2) {
            qv_append_codepoint_to_qvstring(static_cast<int>(codePoint), bytes);
            continue;
        }
        unsigned short units[2];
        const unsigned int count = qv_encode_utf16(static_cast<int>(codePoint), units);
        for (unsigned int i = 0; i < count; ++i) {
            const char low = static_cast<char>(units[i]), high = static_cast<char>(units[i] >> 8);
            bytes += encoding % 2 == 0 ? string{low, high} : string{high, low};
        }
    }
    return bytes;
}

// What the bytes say, decoded all at once.
Decoded Decode(const string& bytes, int encoding) {
    const auto byte = [&bytes](size_t at) { return static_cast<unsigned char>(bytes[at]); };
    size_t at = encoding == 1 ? 3 : encoding == 2 || encoding == 3 ? 2 : 0;
    Decoded decoded{{}, {static_cast<long long>(at)}, static_cast<long long>(bytes.size())};
    while (at < bytes.size()) {
        size_t length = 1;
        int value = byte(at);
        if (encoding < 2) {
            length = value < 0x80   ? 1
                     : value < 0xC0 ? 0
                     : value < 0xE0 ? 2
                     : value < 0xF0 ? 3
                     : value < 0xF8 ? 4
                                    : 0;
            if (length == 0)
                value = 0xFFFD, length = 1;
            else if (length > 1)
                value &= 0x7F >> length;
            if (at + length > bytes.size())
                break;
            for (size_t i = 1; i < length; ++i)
                value = value * 64 + byte(at + i) % 64;
        } else {
            const auto unit = [&](size_t from) {
                return encoding % 2 == 0 ? byte(from) + 256 * byte(from + 1)
                                         : byte(from + 1) + 256 * byte(from);
            };
            if (at + 2 > bytes.size())
                break;
            value = unit(at);
            length = value / 0x400 == 0x36 ? 4 : 2;
            if (at + length > bytes.size())
                break;
            if (length == 4)
                value = 0x10000 + (value - 0xD800) * 0x400 + unit(at + 2) % 0x400;
        }
        at += length;
        decoded.m_CodePoints.push_back(value);
        decoded.m_Ends.push_back(static_cast<long long>(at));
    }
    return decoded;
}

} // namespace

TEST(TextInputEncoded, MarksTellTheEncoding) {
    const struct {
        string m_Bytes;
        int m_Encoding;
        long long m_Start;
        std::u32string m_Text;
    } cases[] = {
        {"", 0, 0, U""},
        {"A", 0, 0, U"A"},
        {"\xEF\xBB\xBF", 1, 3, U""},
        {"\xEF\xBB\xBF\xC3\xA9", 1, 3, U"\u00E9"},
        {"\xEF\xBB\xBF\xEF\xBB\xBF", 1, 3, U"\uFEFF"},
        {"\xFF\xFE"s, 2, 2, U""},
        {"\xFF\xFE\x41\x00"s, 2, 2, U"A"},
        {"\xFF\xFE\xBF"s, 2, 2, U""},
        {"\xFE\xFF\x00\x41"s, 3, 2, U"A"},
        {"\xFE\xFF\xD8\x3D\xDE\x00"s, 3, 2, U"\U0001F600"},
        {"\xEF\xBB\x41", 0, 0, U"\uFEC1"},
        {"\xEF\xBB", 0, 0, U""},
        {"\xEF", 0, 0, U""},
        {"\xFF", 0, 0, U"\uFFFD"},
        {"\xFE\x41", 0, 0, U"\uFFFDA"},
        {"\x80\x41\xF8\xBF\xFF", 0, 0, U"\uFFFDA\uFFFD\uFFFD\uFFFD"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.m_Bytes));
        TextInputFromRawData input = OfBytes(c.m_Bytes);
        EXPECT_EQ(input.GetEncoding(), c.m_Encoding);
        EXPECT_EQ(input.Tell(), c.m_Start);
        EXPECT_EQ(ReadAll(input), c.m_Text);
    }
}

// Every encoding, cut at every byte; also the two that no mark tells.
TEST(TextInputEncoded, EveryPrefixDecodesAsFarAsItsCharactersAreWhole) {
    const std::u32string text = U"a\r\n\u00E9\r\u2028\u6E29\n\U0001F525z";
    std::mt19937 random(5);
    for (int encoding = 0; encoding < 6; ++encoding)
        for (const string& tail : {""s, "\xED\xA0\x80"s, "\xF7\xBF\x3F"s, "\xD8\x41"s, "\x00\xDC\x41\xD8"s}) {
            const string all = Encode(text, encoding) + tail;
            for (size_t length = Encode(U"", encoding).size(); length <= all.size(); ++length) {
                const string cut = all.substr(0, length);
                SCOPED_TRACE(testing::Message() << encoding << " " << testing::PrintToString(cut));
                TextInputFromRawData input = OfBytes(cut);
                if (encoding > 3)
                    input.SetEncoding(static_cast<TextEncoding>(encoding));
                CompareWithModel(input, TextInputModel(Decode(cut, encoding)), random);
                ASSERT_FALSE(HasFatalFailure());
            }
        }
}

// Characters of every length, and both halves of a CR LF, on the borders of the blocks; malformed bytes in places, and
// files that end with a block.
TEST(TextInputFile, RandomOperationsAgreeWithTheObviousReading) {
    const TemporaryFolder folder;
    std::mt19937 random(7);
    const std::u32string alphabet = U"abc,\t\n\n\r\u0085\u00FC\u2028\u6E29\U0001F525";
    for (int round = 0; round < 300; ++round) {
        const int encoding = round % 4;
        std::u32string text;
        for (unsigned int n = Pick(random, 3000); n > 0; --n)
            text += alphabet[Pick(random, alphabet.size())];
        string bytes = Encode(text, encoding);
        for (unsigned int n = round % 3 == 0 ? Pick(random, 40) : 0; n > 0 && bytes.size() > 3; --n)
            bytes[3 + Pick(random, bytes.size() - 3)] = static_cast<char>(Pick(random, 256));
        if (round % 5 == 0)
            bytes.resize(1024 * (1 + Pick(random, 3)), 'e');
        folder.Write("text", bytes);
        SCOPED_TRACE(round);
        TextInputFile input;
        ASSERT_TRUE(input.OpenFile(folder.File("text")));
        CompareWithModel(input, TextInputModel(Decode(bytes, encoding)), random);
        ASSERT_FALSE(HasFatalFailure());
    }
}

TEST(TextInputFile, NothingIsReadAtOrBehindTheEnd) {
    const TemporaryFolder folder;
    for (const size_t size : {0u, 1u, 1023u, 1024u, 1025u, 2048u}) {
        folder.Write("text", string(size, 'a'));
        TextInputFile input;
        ASSERT_TRUE(input.OpenFile(folder.File("text")));
        EXPECT_EQ(ReadAll(input).size(), size);
        int codePoint;
        for (int i = 0; i < 3; ++i)
            EXPECT_FALSE(input.ReadCodePoint(codePoint));
        EXPECT_EQ(input.Tell(), static_cast<long long>(size));
        CTextInput::Position atEnd;
        input.SavePosition(atEnd);
        for (const long long offset : {0LL, 1LL, 700LL, 5000LL, 1LL << 33}) {
            const long long target = static_cast<long long>(size) + offset;
            input.Seek(target);
            EXPECT_FALSE(input.ReadCodePoint(codePoint));
            EXPECT_EQ(input.Tell(), target);
            EXPECT_EQ(input.PeekText(), "");
            input.RestorePosition(atEnd);
            EXPECT_FALSE(input.ReadCodePoint(codePoint));
            EXPECT_EQ(input.Tell(), static_cast<long long>(size));
        }
        input.ResetPosition();
        EXPECT_EQ(ReadAll(input).size(), size);
        // What another program appends meanwhile is found, at its own offset.
        std::ofstream(folder.File("text").GetPathCStr(), std::ios::app) << string(1500, 'b') + "c";
        EXPECT_EQ(ReadAll(input), std::u32string(1500, U'b') + U'c');
        input.Seek(static_cast<long long>(size) + 1500);
        EXPECT_EQ(ReadAll(input), U"c");
    }
}

TEST(TextInputFile, ASecondFileStartsAfresh) {
    const TemporaryFolder folder;
    folder.Write("wide", "\xFF\xFE\x41\x00\x0D\x00"s);
    folder.Write("plain", "\n\xC3\xA9");
    folder.Write("empty", "");
    TextInputFile input;
    int codePoint;
    EXPECT_FALSE(input.ReadCodePoint(codePoint));
    for (const char* const second : {"plain", "empty", "plain"}) {
        ASSERT_TRUE(input.OpenFile(folder.File("wide"), "first"));
        EXPECT_EQ(ReadAll(input), U"A\n");
        ASSERT_TRUE(input.OpenFile(folder.File(second)));
        CQVTextLocation location;
        input.GetNextLocation(location);
        EXPECT_EQ(location.GetLine(), 1u);
        EXPECT_EQ(location.GetSourceNameRef()->GetName(), folder.File(second).GetPath());
        EXPECT_EQ(ReadAll(input), second == "empty"s ? U"" : U"\n\u00E9");
    }
    input.Close();
    input.Seek(1);
    EXPECT_FALSE(input.ReadCodePoint(codePoint));
}

TEST(TextInputFile, TellsWhyItCannotRead) {
    const TemporaryFolder folder;
    folder.Write("text", "a");
    TextInputFile input;
    EXPECT_FALSE(input.OpenFile(folder.File("missing")));
    EXPECT_EQ(input.GetLastError(), ENOENT);
    EXPECT_FALSE(input.OpenFile(folder.GetFilePath()));
    EXPECT_EQ(input.GetLastError(), EISDIR);
    EXPECT_TRUE(input.OpenFile(folder.File("text")));
    EXPECT_EQ(input.GetLastError(), 0);
}

TEST(TextInputFile, EstimatesItsLength) {
    const TemporaryFolder folder;
    const std::pair<string, unsigned int> cases[] = {
        {"", 0}, {"1234", 2}, {"\xFF\xFE\x41\x00\x41"s, 2}, {"\xEF\xBB\xBFxyz", 4}};
    for (const auto& [bytes, estimate] : cases) {
        folder.Write("text", bytes);
        TextInputFile input;
        ASSERT_TRUE(input.OpenFile(folder.File("text")));
        EXPECT_EQ(input.GetLengthEstimate(), estimate);
    }
    std::filesystem::resize_file(folder.File("text").GetPath(), 7LL << 30);
    TextInputFile huge;
    ASSERT_TRUE(huge.OpenFile(folder.File("text")));
    EXPECT_EQ(huge.GetLengthEstimate(), 0xFFFFFFFFu);
    huge.Seek((6LL << 30) + 5);
    int codePoint;
    EXPECT_TRUE(huge.ReadCodePoint(codePoint));
    EXPECT_EQ(huge.Tell(), (6LL << 30) + 6);
}
