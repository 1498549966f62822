#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/TextOutput.h>
#include <QVPlatform/Unicode.h>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

struct FreeUnits {
    void operator()(Utf8String* text) const { Utf8StringFree(text); }
    void operator()(Utf16String* text) const { Utf16StringFree(text); }
};

// One text in every form that an input reads.
struct Text {
    explicit Text(const std::u32string& text) : m_Utf32(text) {
        for (const char32_t codePoint : text)
            qv_append_codepoint_to_qvstring(static_cast<int>(codePoint), m_Utf8);
        const unsigned int length = static_cast<unsigned int>(m_Utf8.size());
        m_pUtf8.reset(Utf8StringCopy(reinterpret_cast<const unsigned char*>(m_Utf8.data()), length));
        m_pUtf16.reset(Utf16StringCopy(m_Utf8.data(), length));
    }

    std::u32string m_Utf32;
    qvstring m_Utf8;
    std::unique_ptr<Utf8String, FreeUnits> m_pUtf8;
    std::unique_ptr<Utf16String, FreeUnits> m_pUtf16;
};

CTextOutputString* WriteTextOutput(const Text& text) {
    CTextOutputString* output = new CTextOutputString;
    for (const char32_t codePoint : text.m_Utf32)
        output->WriteCodePoint(static_cast<int>(codePoint));
    return output;
}

using InputPtr = std::unique_ptr<CTextInput>;

// Every kind of input over the same text.
std::vector<std::pair<const char*, InputPtr>> MakeInputs(const Text& text) {
    std::vector<std::pair<const char*, InputPtr>> inputs;
    const auto add = [&inputs](const char* kind, CTextInput* input) { inputs.emplace_back(kind, input); };
    add("string", new TextInputQVString(text.m_Utf8, "n"));
    add("zero-terminated", new TextInputQVString(text.m_Utf8.c_str(), "n"));
    add("bytes",
        new TextInputQVString(text.m_Utf8.data(), static_cast<unsigned int>(text.m_Utf8.size()), "n"));
    add("counted UTF-8", new CTextInputUtf8(text.m_pUtf8.get()));
    add("text output", new CTextInputFromTextOutputString(WriteTextOutput(text), "n"));
    add("counted UTF-16", new TextInputU16String(text.m_pUtf16.get()));
    add("UTF-16", new TextInputU16String(text.m_pUtf16->GetUnits(), text.m_pUtf16->m_Length, "n"));
    add("UTF-32", new TextInputU32String(text.m_Utf32, "n"));
    return inputs;
}

struct Item {
    int m_CodePoint;
    unsigned int m_Line;
    unsigned int m_Column;

    bool operator==(const Item&) const = default;
};

void PrintTo(const Item& item, std::ostream* out) {
    *out << item.m_CodePoint << "@" << item.m_Line << ":" << item.m_Column;
}

// One code point and its location; -1 at the end.
Item ReadItem(CTextInput& input) {
    int codePoint = 0;
    CQVTextLocation location;
    if (!input.ReadCodePointWithLocation(codePoint, location))
        codePoint = -1;
    return {codePoint, location.GetLine(), location.GetColumn()};
}

std::u32string ReadAll(CTextInput& input) {
    std::u32string text;
    for (int codePoint; input.ReadCodePoint(codePoint);)
        text.push_back(static_cast<char32_t>(codePoint));
    return text;
}

// The obvious reading: all items are worked out before the first one is asked for.
class Model {
public:
    explicit Model(const std::vector<int>& raw) {
        Item next{0, 1, 1};
        for (std::size_t i = 0; i < raw.size(); ++i) {
            const int c = raw[i];
            if (c == 10 && i > 0 && raw[i - 1] == 13)
                continue;
            const bool isNewline = c == 10 || c == 13 || c == 0x85 || c == 0x2028 || c == 0x2029;
            next.m_CodePoint = isNewline ? 10 : c;
            m_Items.push_back(next);
            next = isNewline ? Item{0, next.m_Line + 1, 1} : Item{0, next.m_Line, next.m_Column + 1};
        }
        next.m_CodePoint = -1;
        m_Items.push_back(next);
    }

    Item Read() {
        if (m_PushBack.empty())
            return m_Next + 1 == m_Items.size() ? m_Items.back() : m_Items[m_Next++];
        const Item item = m_PushBack.back();
        m_PushBack.pop_back();
        return item;
    }

    // Up to a newline, which is appended too, or to the end.
    std::u32string ReadLine() {
        std::u32string line;
        for (Item item = Read(); item.m_CodePoint != -1; item = Read()) {
            line.push_back(static_cast<char32_t>(item.m_CodePoint));
            if (item.m_CodePoint == 10)
                break;
        }
        return line;
    }

    std::vector<Item> m_PushBack;
    std::size_t m_Next = 0;

private:
    std::vector<Item> m_Items;
};

qvstring ToUtf8(const std::u32string& text) {
    return Text(text).m_Utf8;
}

unsigned int Pick(std::mt19937& random, std::size_t below) {
    return static_cast<unsigned int>(random() % below);
}

// Drives an input and the model with the same random operations.
void CompareWithModel(CTextInput& input, Model model, std::mt19937& random) {
    struct Saved {
        CTextInput::Position m_Position;
        Model m_Model;
    };
    std::vector<Saved> saved;
    const auto pick = [&random](unsigned int below) { return Pick(random, below); };
    for (int step = 0; step < 60; ++step) {
        qvstring line;
        std::u32string line32;
        bool endedByNewline = false;
        switch (pick(10)) {
        case 0:
        case 1:
            for (unsigned int n = pick(12); n > 0; --n) {
                int codePoint;
                if (!input.ReadCodePoint(codePoint))
                    codePoint = -1;
                ASSERT_EQ(codePoint, model.Read().m_CodePoint);
            }
            break;
        case 2:
        case 3:
            ASSERT_EQ(ReadItem(input), model.Read());
            break;
        case 4:
            for (unsigned int n = pick(5); n > 0; --n) {
                const Item item{static_cast<int>(pick(3) ? 'A' + n : 9 + n), 7 + n, 5};
                CQVTextLocation location;
                location.SetLineAndColumn(item.m_Line, item.m_Column);
                input.ReplaceCodePoint(item.m_CodePoint, location);
                model.m_PushBack.push_back(item);
            }
            break;
        case 5: {
            const std::u32string expected = model.ReadLine();
            ASSERT_EQ(input.ReadLine(line, endedByNewline), !expected.empty());
            ASSERT_EQ(endedByNewline ? line + '\n' : line, ToUtf8(expected));
            ASSERT_EQ(endedByNewline, expected.ends_with(U'\n'));
            break;
        }
        case 6: {
            const std::u32string expected = model.ReadLine();
            ASSERT_EQ(input.ReadLine(line32, endedByNewline), !expected.empty());
            ASSERT_EQ(endedByNewline ? line32 + U'\n' : line32, expected);
            break;
        }
        case 7: {
            Saved position{{}, model};
            input.SavePosition(position.m_Position);
            saved.push_back(position);
            break;
        }
        case 8:
            if (!saved.empty()) {
                const Saved& position = saved[pick(static_cast<unsigned int>(saved.size()))];
                input.RestorePosition(position.m_Position);
                model = position.m_Model;
            } else {
                input.ResetPosition();
                model.m_Next = 0;
                model.m_PushBack.clear();
            }
            break;
        default: {
            CTextInput::Position position;
            input.SavePosition(position);
            Model rest = model;
            std::u32string text;
            unsigned int lines = 0;
            for (std::u32string next = rest.ReadLine(); !next.empty(); next = rest.ReadLine(), ++lines)
                text += next;
            input.ReadAllInput(line);
            ASSERT_EQ(line, ToUtf8(text));
            ASSERT_EQ(ReadItem(input), rest.Read());
            input.RestorePosition(position);
            ASSERT_EQ(input.GetLineCount(), lines);
            input.RestorePosition(position);
        }
        }
    }
}

// An input that supplies its code points one by one, as those over files do.
class ListInput : public CTextInput {
public:
    explicit ListInput(const std::vector<int>& codePoints) : m_CodePoints(codePoints) {}
    ListInput(const std::vector<int>& codePoints, const CQVTextLocation& start)
        : CTextInput(start), m_CodePoints(codePoints) {}

    long long Tell() const override { return static_cast<long long>(m_Next); }
    void Seek(long long offset) override { m_Next = static_cast<std::size_t>(offset); }
    bool ReadNextCodePoint(int& codePoint) override {
        if (m_Next == m_CodePoints.size())
            return false;
        codePoint = m_CodePoints[m_Next++];
        return true;
    }
    void IncrementPosition(int codePoint) override {
        m_Delivered.push_back(codePoint);
        CTextInput::IncrementPosition(codePoint);
    }

    std::vector<int> m_Delivered;

private:
    std::vector<int> m_CodePoints;
    std::size_t m_Next = 0;
};

} // namespace

TEST(TextInputTest, EveryNewlineIsDeliveredAsOneLineFeed) {
    const struct {
        const char32_t* m_Text;
        const char32_t* m_Read;
        unsigned int m_Lines;
    } cases[] = {
        {U"", U"", 0},
        {U"a", U"a", 1},
        {U"a\n", U"a\n", 1},
        {U"a\nb", U"a\nb", 2},
        {U"\n\n", U"\n\n", 2},
        {U"a\r\nb", U"a\nb", 2},
        {U"a\rb", U"a\nb", 2},
        {U"a\r\r\nb", U"a\n\nb", 3},
        {U"a\n\rb", U"a\n\nb", 3},
        {U"a\r", U"a\n", 1},
        {U"a\r\n", U"a\n", 1},
        {U"\r\n\n\r\n", U"\n\n\n", 3},
        {U"a\u0085\nb", U"a\n\nb", 3},
        {U"a\u2028b\u2029\nc", U"a\nb\n\nc", 4},
        {U"\u00FC\u6E29\r\n\U0001F600\u2027\u202A", U"\u00FC\u6E29\n\U0001F600\u2027\u202A", 2},
        {U"a long line\tof plain ASCII\r\nand more of it, up to the end",
         U"a long line\tof plain ASCII\nand more of it, up to the end", 2},
    };
    for (const auto& c : cases) {
        const Text text(c.m_Text);
        for (const auto& [kind, input] : MakeInputs(text)) {
            SCOPED_TRACE(testing::Message() << kind << " of " << text.m_Utf8);
            EXPECT_EQ(ReadAll(*input), c.m_Read);
            EXPECT_EQ(ReadItem(*input).m_CodePoint, -1);
            input->ResetPosition();
            EXPECT_EQ(input->GetLineCount(), c.m_Lines);
            EXPECT_EQ(input->Tell(), 0);
            input->ResetPosition();
            qvstring all;
            input->ReadAllInput(all);
            EXPECT_EQ(all, ToUtf8(c.m_Read));
        }
    }
}

// The window's fast path, the windowless grammar and the model, over texts that mix everything.
TEST(TextInputTest, RandomOperationsAgreeWithTheObviousReading) {
    const std::u32string alphabet =
        U"abcdefgh .,\t\n\n\r\r\u0085\u00FC\u2027\u2028\u2029\u6E29\uFFFD\U0001F525\x7F";
    const char* const malformed[] = {"\xFF",     "\xC3",         "\xE2\x80", "\x80\x80",
                                     "\xF0\x9F", "\xED\xA0\x80", "\xC0\x8A"};
    std::mt19937 random(20240517);
    for (int round = 0; round < 600 && !HasFatalFailure(); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        qvstring bytes;
        for (unsigned int n = Pick(random, 60); n > 0; --n) {
            if (Pick(random, 5) == 0)
                bytes += "plain text in a row";
            else if (round % 2 == 1 && Pick(random, 20) == 0)
                bytes += malformed[Pick(random, std::size(malformed))];
            else
                qv_append_codepoint_to_qvstring(static_cast<int>(alphabet[Pick(random, alphabet.size())]),
                                                bytes);
        }
        const char* const end = bytes.data() + bytes.size();
        std::vector<int> lenient, strict;
        for (const char* p = bytes.data(); p != end;)
            lenient.push_back(qv_codepoint_from_qvchar(p, end));
        const unsigned char* strictEnd = reinterpret_cast<const unsigned char*>(end);
        for (const unsigned char* p = strictEnd - bytes.size(); p != strictEnd;) {
            strict.push_back(qv_decode_utf8(p, strictEnd));
            if (strict.back() == -1) {
                strict.pop_back();
                break;
            }
        }
        TextInputQVString string(bytes, "string");
        CompareWithModel(string, Model(lenient), random);
        const std::unique_ptr<Utf8String, FreeUnits> counted(Utf8StringCopy(
            reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<unsigned int>(bytes.size())));
        CTextInputUtf8 utf8(counted.get());
        CompareWithModel(utf8, Model(strict), random);
        ListInput list(lenient);
        CompareWithModel(list, Model(lenient), random);
    }
}

TEST(TextInputTest, OffsetsCountUnitsAndSeekLeavesTheLocationAlone) {
    const Text text(U"\U0001F600\u00FCa");
    for (const auto& [kind, input] : MakeInputs(text)) {
        const bool is16 = strstr(kind, "16"), is32 = strstr(kind, "32");
        EXPECT_EQ(ReadItem(*input), (Item{0x1F600, 1, 1})) << kind;
        const long long offset = input->Tell();
        EXPECT_EQ(offset, is32 ? 1 : is16 ? 2 : 4) << kind;
        ReadAll(*input);
        EXPECT_EQ(input->Tell(), is32 ? 3 : is16 ? 4 : 7) << kind;
        input->Seek(offset);
        EXPECT_EQ(ReadItem(*input), (Item{0xFC, 1, 4})) << kind;
    }
}

TEST(TextInputTest, CountedUtf8EndsAtAnInvalidByte) {
    const unsigned char bytes[] = {'a', 0xFF, 'b', '\n', 'c'};
    const std::unique_ptr<Utf8String, FreeUnits> text(Utf8StringCopy(bytes, 5));
    CTextInputUtf8 input(text.get());
    EXPECT_EQ(ReadAll(input), U"a");
    EXPECT_EQ(input.Tell(), 5);
    CTextInput::Position atEnd;
    input.SavePosition(atEnd);
    input.Seek(2);
    EXPECT_EQ(ReadAll(input), U"b\nc");
    input.RestorePosition(atEnd);
    EXPECT_EQ(ReadItem(input), (Item{-1, 1, 2}));
}

// A count leaves everything but the offset where it ended.
TEST(TextInputTest, LineCountRestoresTheOffsetOnly) {
    TextInputQVString input("a\nb", "n");
    input.ReplaceCodePoint('x', CQVTextLocation());
    EXPECT_EQ(input.GetLineCount(), 2u);
    EXPECT_EQ(ReadItem(input), (Item{'a', 2, 2}));
}

TEST(TextInputTest, ResetForgetsThePreviousCodePoint) {
    const Text text(U"\na\r");
    for (const auto& [kind, input] : MakeInputs(text)) {
        ReadAll(*input);
        input->ResetPosition();
        EXPECT_EQ(ReadItem(*input), (Item{10, 1, 1})) << kind;
    }
}

TEST(TextInputTest, ZeroIsACharacterWhereTheLengthIsGiven) {
    TextInputQVString counted("a\0b", 3, "n");
    EXPECT_EQ(ReadAll(counted), std::u32string(U"a\0b", 3));
    TextInputQVString terminated("a\0b", "n");
    EXPECT_EQ(ReadAll(terminated), U"a");
}

TEST(TextInputTest, UnicodeCharactersStandInForCodePoints) {
    TextInputQVString input("\xC3\xBCx", "n");
    UnicodeCharacter character;
    CQVTextLocation location;
    ASSERT_TRUE(input.ReadCodePoint(character));
    EXPECT_EQ(character.GetCodePoint(), 0xFC);
    ASSERT_TRUE(input.ReadCodePointWithLocation(character, location));
    input.ReplaceCodePoint(character, location);
    EXPECT_EQ(ReadItem(input), (Item{'x', 1, 2}));
    EXPECT_FALSE(input.ReadCodePoint(character));
    EXPECT_FALSE(input.ReadCodePointWithLocation(character, location));
}

// An input over pieces of other texts sets the location at the start of each.
TEST(TextInputTest, LocationsMayJumpBetweenPieces) {
    class Pieces : public ListInput {
    public:
        using ListInput::ListInput;
        void IncrementPosition(int codePoint) override {
            CQVTextLocation piece;
            piece.SetLineAndColumn(7, 20);
            if (Tell() == 2)
                SetLocation(piece);
            else
                ListInput::IncrementPosition(codePoint);
        }
    };
    class WindowPieces : public TextInputQVString {
    public:
        using TextInputQVString::SetLocation, TextInputQVString::TextInputQVString;
    };
    Pieces pieces({'a', 'b', 'c', 10, 'd'});
    for (const Item& item :
         {Item{'a', 1, 1}, Item{'b', 1, 2}, Item{'c', 7, 20}, Item{10, 7, 21}, Item{'d', 8, 1}})
        EXPECT_EQ(ReadItem(pieces), item);

    WindowPieces window("ab", "n");
    int codePoint;
    CQVTextLocation piece;
    piece.SetLineAndColumn(3, 5);
    EXPECT_TRUE(window.ReadCodePoint(codePoint));
    window.SetLocation(piece);
    EXPECT_EQ(ReadItem(window), (Item{'b', 3, 5}));
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
    ListInput embedded({'x', 13, 10, 'y'}, second);
    EXPECT_EQ(ReadItem(embedded), (Item{'x', 1, 2}));
    embedded.GetName(name);
    EXPECT_EQ(name, "new");
    ReadAll(embedded);
    EXPECT_EQ(embedded.m_Delivered, (std::vector<int>{'x', 10, 'y'}));

    ListInput unnamed({});
    unnamed.GetName(name);
    EXPECT_EQ(name, "");
}
