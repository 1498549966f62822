#include "support/TemporaryFolder.h"
#include <QVLib/TextStreams/TextInputEncoded.h>
#include <QVPlatform/Unicode.h>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace {

using std::string;
using namespace std::string_literals;

std::u32string ReadAll(CTextInput& input) {
    std::u32string text;
    for (int codePoint; input.ReadCodePoint(codePoint);)
        text.push_back(static_cast<char32_t>(codePoint));
    return text;
}

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

// What the bytes say, decoded all at once: each raw code point with the offset behind it.
struct Decoded {
    std::vector<int> m_CodePoints;
    std::vector<long long> m_Ends; // one more: m_Ends[0] is the start of the text
};

Decoded Decode(const string& bytes, int encoding) {
    const auto byte = [&bytes](size_t at) { return static_cast<unsigned char>(bytes[at]); };
    size_t at = encoding == 1 ? 3 : encoding == 2 || encoding == 3 ? 2 : 0;
    Decoded decoded{{}, {static_cast<long long>(at)}};
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

// The text as a reader of code points gets it.
std::u32string Translate(const std::vector<int>& raw) {
    std::u32string text;
    for (size_t i = 0; i < raw.size(); ++i) {
        const int c = raw[i];
        if (c == 10 && i > 0 && raw[i - 1] == 13)
            continue;
        text.push_back(c == 13 || c == 0x85 || c == 0x2028 || c == 0x2029 ? U'\n' : static_cast<char32_t>(c));
    }
    return text;
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
    const TemporaryFolder folder;
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.m_Bytes));
        TextInputFromRawData raw = OfBytes(c.m_Bytes);
        folder.Write("text", c.m_Bytes);
        TextInputFile file;
        ASSERT_TRUE(file.OpenFile(folder.File("text")));
        for (CTextInputWithEncoding* input :
             {static_cast<CTextInputWithEncoding*>(&raw), static_cast<CTextInputWithEncoding*>(&file)}) {
            EXPECT_EQ(input->GetEncoding(), c.m_Encoding);
            EXPECT_EQ(input->Tell(), c.m_Start);
            EXPECT_EQ(ReadAll(*input), c.m_Text);
            input->Seek(0);
            EXPECT_EQ(input->Tell(), c.m_Start);
            input->ResetPosition();
            EXPECT_EQ(ReadAll(*input), c.m_Text);
        }
    }
}

// Every encoding, cut at every byte, decoded like the obvious decoder does; also the two that no mark tells.
TEST(TextInputEncoded, EveryPrefixDecodesAsFarAsItsCharactersAreWhole) {
    const std::u32string text = U"a\r\n\u00E9\r\u2028\u6E29\n\U0001F525z";
    for (int encoding = 0; encoding < 6; ++encoding) {
        const string bytes = Encode(text, encoding);
        for (const string& tail : {""s, "\xED\xA0\x80"s, "\xF7\xBF\x3F"s, "\xD8\x41"s, "\x00\xDC\x41\xD8"s}) {
            const string all = bytes + tail;
            for (size_t length = Encode(U"", encoding).size(); length <= all.size(); ++length) {
                const string cut = all.substr(0, length);
                TextInputFromRawData input = OfBytes(cut);
                if (encoding > 3)
                    input.SetEncoding(static_cast<TextEncoding>(encoding));
                ASSERT_EQ(ReadAll(input), Translate(Decode(cut, encoding).m_CodePoints))
                    << encoding << " " << testing::PrintToString(cut);
                int codePoint;
                ASSERT_FALSE(input.ReadCodePoint(codePoint));
            }
        }
    }
}

// Characters of every length, and both halves of a CR LF, on both sides of the border of a block.
TEST(TextInputFile, BlockBordersCutNothing) {
    const TemporaryFolder folder;
    const std::u32string text = U"\u00E9\r\n\u6E29\r\r\n\U0001F525\u2028z\n";
    for (int encoding = 0; encoding < 4; ++encoding)
        for (size_t lead = 1010; lead <= 1030; ++lead) {
            const std::u32string whole = std::u32string(encoding < 2 ? lead : lead / 2, U'x') + text +
                                         std::u32string(2000, U'y') + text;
            folder.Write("text", Encode(whole, encoding));
            TextInputFile input;
            ASSERT_TRUE(input.OpenFile(folder.File("text")));
            const std::u32string expected = Translate(std::vector<int>(whole.begin(), whole.end()));
            ASSERT_EQ(ReadAll(input), expected) << encoding << " " << lead;
            input.ResetPosition();
            qvstring read;
            input.ReadAllInput(read);
            ASSERT_EQ(read, Encode(expected, 0)) << encoding << " " << lead;
        }
}

// Positions saved and restored at random, and plain seeks, against the text decoded beforehand.
TEST(TextInputFile, RandomPositionsReadWhatIsThere) {
    const TemporaryFolder folder;
    std::mt19937 random(7);
    const auto pick = [&random](size_t below) { return random() % below; };
    const std::u32string alphabet = U"abc,\t\n\n\r\u0085\u00FC\u2028\u6E29\U0001F525";
    for (int round = 0; round < 60; ++round) {
        const int encoding = round % 4;
        std::u32string text;
        for (size_t n = pick(3000); n > 0; --n)
            text += alphabet[pick(alphabet.size())];
        string bytes = Encode(text, encoding);
        for (size_t n = round % 3 == 0 ? pick(40) : 0; n > 0 && bytes.size() > 3; --n)
            bytes[3 + pick(bytes.size() - 3)] = static_cast<char>(pick(256));
        if (round % 5 == 0)
            bytes.resize(1024 * (1 + pick(3)), 'e');
        folder.Write("text", bytes);
        const Decoded model = Decode(bytes, encoding);
        TextInputFile input;
        ASSERT_TRUE(input.OpenFile(folder.File("text")));
        struct Saved {
            CTextInput::Position m_Position;
            size_t m_Next;
        };
        std::vector<Saved> saved;
        size_t next = 0; // of the model's raw code points
        for (int step = 0; step < 200; ++step) {
            SCOPED_TRACE(testing::Message() << round << " " << step << " at " << next);
            switch (pick(4)) {
            case 0:
                saved.push_back({{}, next});
                input.SavePosition(saved.back().m_Position);
                break;
            case 1:
                if (saved.empty())
                    break;
                next = saved[step % saved.size()].m_Next;
                input.RestorePosition(saved[step % saved.size()].m_Position);
                break;
            case 2:
                next = pick(model.m_Ends.size());
                input.Seek(model.m_Ends[next]);
                ASSERT_EQ(input.Tell(), model.m_Ends[next]);
                int raw;
                ASSERT_EQ(input.ReadNextCodePoint(raw), next < model.m_CodePoints.size());
                if (next < model.m_CodePoints.size()) {
                    ASSERT_EQ(raw, model.m_CodePoints[next]);
                }
                input.ResetPosition();
                next = 0;
                break;
            default:
                for (size_t n = pick(pick(4) ? 30 : 3000); n > 0; --n) {
                    // The second half of a CR LF is swallowed with what follows it.
                    const bool half = next > 0 && model.m_CodePoints[next - 1] == 13 &&
                                      next < model.m_CodePoints.size() && model.m_CodePoints[next] == 10;
                    const size_t at = half ? next + 1 : next;
                    int codePoint;
                    const bool read = input.ReadCodePoint(codePoint);
                    ASSERT_EQ(read, at < model.m_CodePoints.size());
                    if (!read)
                        break;
                    ASSERT_EQ(static_cast<char32_t>(codePoint), Translate({model.m_CodePoints[at]})[0]);
                    next = at + 1;
                }
            }
            // A cut character or half a CR LF at the very end may have been looked at already.
            if (next < model.m_CodePoints.size()) {
                ASSERT_EQ(input.Tell(), model.m_Ends[next]);
            }
        }
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
    const struct {
        string m_Bytes;
        unsigned int m_Estimate;
    } cases[] = {{"", 0},
                 {"1234", 2},
                 {"\xFF\xFE\x41\x00\x41"s, 2},
                 {"\xEF\xBB\xBF"
                  "abc",
                  4}};
    for (const auto& c : cases) {
        folder.Write("text", c.m_Bytes);
        TextInputFile input;
        ASSERT_TRUE(input.OpenFile(folder.File("text")));
        EXPECT_EQ(input.GetLengthEstimate(), c.m_Estimate);
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
