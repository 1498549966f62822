// The encoding of values, strings and lists, byte by byte and on hostile data.
#include "BinaryStreamsTesting.h"

#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/SecureMemory.h>
#include <QVPlatform/Unicode.h>
#include <climits>
#include <functional>
#include <gmock/gmock.h>
#include <stdexcept>

namespace {

constexpr BinaryStringLength Mode0 = BinaryStringLengthNotAllowed;
constexpr BinaryStringLength Mode1 = BinaryStringLengthUTF8Character;
constexpr BinaryStringLength Mode2 = BinaryStringLength7BitEncodedInt;

template<class T>
concept Writable = requires(CBinaryOutput& output, T value) {
    output << value;
};
static_assert(Writable<bool> && Writable<short> && Writable<double> && Writable<const char*> &&
              Writable<char*> && Writable<std::string> && Writable<BinaryInputData&>);
static_assert(!Writable<char> && !Writable<wchar_t> && !Writable<char32_t> && !Writable<long> &&
              !Writable<unsigned long> && !Writable<long long> && !Writable<unsigned long long> &&
              !Writable<long double> && !Writable<BinaryStringLength> && !Writable<const void*> &&
              !Writable<const unsigned char*> && !Writable<CBinaryInput*> && !Writable<std::nullptr_t> &&
              !Writable<void (*)()> && !Writable<int WriteList::*>);

std::string Encoded(BinaryStringLength mode, const std::function<void(CBinaryOutput&)>& write) {
    BinaryOutputBuffer output(mode);
    write(output);
    return Hex(Bytes(output));
}

// Reads one value; EXPECT_EQ compares it.
template<class T>
T Take(CBinaryInput& input) {
    T value;
    input >> value;
    return value;
}

TEST(BinaryValues, FixedSizesAreOneWriteOfTheirLittleEndianBytes) {
    WriteList output;
    output << true << false << static_cast<signed char>(-2) << static_cast<unsigned char>(0xFE)
           << static_cast<short>(-2) << static_cast<unsigned short>(0x1234) << 1 << 0x89ABCDEFu << 1.0f << 1.0
           << CQVTimestamp(-2) << CQVTimeInterval(0x0102030405060708);
    EXPECT_TRUE(output.WriteInt64(LLONG_MIN));
    output.WriteComment("%d", 1);
    std::string all, hex;
    for (const std::string& bytes : output.m_Writes) {
        hex += Hex(bytes) + "|";
        all += bytes;
    }
    EXPECT_EQ(hex, "01|00|FE|FE|FE FF|34 12|01 00 00 00|EF CD AB 89|00 00 80 3F|00 00 00 00 00 00 F0 3F|"
                   "FE FF FF FF FF FF FF FF|08 07 06 05 04 03 02 01|00 00 00 00 00 00 00 80|");

    Input input(Mode0, all + '\x02' + 'c');
    EXPECT_TRUE(Take<bool>(input));
    EXPECT_FALSE(Take<bool>(input));
    EXPECT_EQ(Take<signed char>(input), -2);
    EXPECT_EQ(Take<unsigned char>(input), 0xFE);
    EXPECT_EQ(Take<short>(input), -2);
    EXPECT_EQ(Take<unsigned short>(input), 0x1234);
    EXPECT_EQ(Take<int>(input), 1);
    EXPECT_EQ(Take<unsigned int>(input), 0x89ABCDEF);
    EXPECT_EQ(Take<float>(input), 1);
    EXPECT_EQ(Take<double>(input), 1);
    EXPECT_EQ(Take<CQVTimestamp>(input).GetValue(), -2);
    EXPECT_EQ(Take<CQVTimeInterval>(input).GetValue(), 0x0102030405060708);
    EXPECT_EQ(input.ReadInt64(), LLONG_MIN);
    EXPECT_TRUE(Take<bool>(input)) << "every byte but 0";
    EXPECT_EQ(Take<char>(input), 'c');
    EXPECT_EQ(input.m_Reads, 15u);
}

TEST(BinaryValues, CharactersAndSevenBitIntegers) {
    struct Coding {
        int value;
        const char* character;
        const char* sevenBit;
    };
    const Coding codings[] = {
        {0, "00", "00"},
        {0x7F, "7F", "7F"},
        {0x80, "C2 80", "80 01"},
        {200, "C3 88", "C8 01"},
        {0x7FF, "DF BF", "FF 0F"},
        {0x800, "E0 A0 80", "80 10"},
        {0xD800, "ED A0 80", "80 B0 03"},
        {0xFFFF, "EF BF BF", "FF FF 03"},
        {0x10000, "F0 90 80 80", "80 80 04"},
        {0x1FFFFF, "F7 BF BF BF", "FF FF 7F"},
        {0x200000, "F8 88 80 80 80", "80 80 80 01"},
        {0x3FFFFFF, "FB BF BF BF BF", "FF FF FF 1F"},
        {0x4000000, "FC 84 80 80 80 80", "80 80 80 20"},
        {INT_MAX, "FD BF BF BF BF BF", "FF FF FF FF 07"},
    };
    for (const Coding& coding : codings) {
        EXPECT_EQ(Encoded(Mode0, [&](CBinaryOutput& o) { o.WriteUTFCharacter(coding.value); }),
                  coding.character);
        EXPECT_EQ(Encoded(Mode0, [&](CBinaryOutput& o) { o.Write7BitEncodedInt(coding.value); }),
                  coding.sevenBit);
        EXPECT_EQ(Input(Mode0, FromHex(coding.character)).ReadUTF8Character(), coding.value);
        EXPECT_EQ(Input(Mode0, FromHex(coding.sevenBit)).Read7BitEncodedInt(), coding.value);
    }
    // Negative values keep their low bits only.
    EXPECT_EQ(Encoded(Mode0, [](CBinaryOutput& o) { o.WriteUTFCharacter(-1); }), "FF");
    EXPECT_EQ(Encoded(Mode0, [](CBinaryOutput& o) { o.Write7BitEncodedInt(-2); }), "7E");

    // What no writer writes: stray and unchecked continuation bytes, over-long forms, superfluous groups.
    const std::pair<const char*, int> characters[] = {
        {"C0 80", 0}, {"C3 FF", 0xFF}, {"81 80 80 80 80 81", 0x40000001}, {"FE 80 80 80 80 81", 1}};
    for (const auto& [bytes, value] : characters)
        EXPECT_EQ(Input(Mode0, FromHex(bytes)).ReadUTF8Character(), value) << bytes;
    Input groups(Mode0, FromHex("80 80 80 80 80 80 01"));
    EXPECT_EQ(groups.Read7BitEncodedInt(), 0);
    EXPECT_TRUE(groups.IsEOF());
    EXPECT_EQ(Input(Mode0, FromHex("81 80 80 80 7F")).Read7BitEncodedInt(), static_cast<int>(0xF0000001));
}

TEST(BinaryStrings, PrefixCountsCodePoints) {
    const std::pair<std::string, std::string> codings[] = {
        {"", "00"},
        {"\u00E9", "01 C3 A9"},
        {"\U0001F600", "01 F0 9F 98 80"},
        {std::string("a\0b", 3), "03 61 00 62"},
        {"\xED\xA0\x80", "01 ED A0 80"},              // a single surrogate
        {"a\xFF\xC3z", "04 61 EF BF BD EF BF BD 7A"}, // malformed
    };
    for (const auto& [text, bytes] : codings) {
        EXPECT_EQ(Encoded(Mode1, [&](CBinaryOutput& o) { o << text; }), bytes);
        EXPECT_EQ(Encoded(Mode2, [&](CBinaryOutput& o) { o << text; }), bytes);
    }
    const std::string longText(200, 'x');
    EXPECT_EQ(Encoded(Mode1, [&](CBinaryOutput& o) { o << longText; }).substr(0, 8), "C3 88 78");
    EXPECT_EQ(Encoded(Mode2, [&](CBinaryOutput& o) { o << longText; }).substr(0, 8), "C8 01 78");

    // Well-formed text is one write behind its prefix; a failed prefix is the only failure that is told.
    WriteList good, prefixFails(0), textFails(1);
    EXPECT_TRUE(good.WriteWString(std::string(5000, 'x') + "\u00E9"));
    EXPECT_EQ(good.m_Writes.size(), 2u);
    EXPECT_FALSE(prefixFails.WriteWString("x"));
    EXPECT_EQ(prefixFails.m_Writes.size(), 1u);
    EXPECT_TRUE(textFails.WriteWString(1, "\xFF"));

    BinaryOutputBuffer none(Mode0);
    EXPECT_DEATH(none << "", "m_StringLengthMode != BinaryStringLengthNotAllowed");
    EXPECT_DEATH(Input(Mode0, "x").ReadStringLength(), "m_StringLengthMode != BinaryStringLengthNotAllowed");
}

// Strings are read in runs. On any bytes that gives the same text, the same end and the same exception as one
// character at a time.
TEST(BinaryStrings, RunsReadWhatCharactersRead) {
    static constexpr unsigned char likely[] = {'a',  0x80, 0xA0, 0xBF, 0xC0, 0xC3,
                                               0xE0, 0xE2, 0xED, 0xF0, 0xF4, 0xFE};
    std::mt19937 random(3);
    const auto read = [](CBinaryInput& input, std::string& text, bool bRuns) {
        try {
            if (bRuns)
                input >> text;
            else
                for (int count = input.ReadStringLength(); count > 0; count--)
                    qv_append_codepoint_to_qvstring(input.ReadUTF8Character(), text);
        } catch (const CBinaryInput::EOFException& e) {
            text += "|" + std::to_string(e.GetPosition()) + "|" + std::to_string(e.GetCount());
        }
    };
    for (int round = 0; round < 2000; round++) {
        std::string bytes{static_cast<char>(0x80 | random() % 128), static_cast<char>(random() % 5)};
        for (auto i = random() % 1000; i > 0; i--)
            bytes += static_cast<char>(
                round % 2 == 0 && random() % 4 != 0 ? 'b' : likely[random() % sizeof likely]);
        Input runs(Mode2, bytes), characters(Mode2, bytes);
        std::string text, expected;
        read(runs, text, true);
        read(characters, expected, false);
        ASSERT_EQ(Hex(text), Hex(expected)) << Hex(bytes);
        ASSERT_EQ(runs.Tell(), characters.Tell()) << Hex(bytes);
    }
}

void ReadAll(CBinaryInput& input) {
    std::string text;
    CQVSecureWString secret;
    std::list<std::string> strings{"old"};
    std::list<unsigned int> values{9};
    COutputLogToRawList log;
    unsigned short length = 0;
    unsigned char buffer[5];
    input >> text >> secret >> strings >> values >> log;
    input.ReadVMString(length, buffer, sizeof buffer);
    EXPECT_EQ(text, "text\u00E9\U0001F600");
    EXPECT_STREQ(secret.Get(), "secret\u20AC");
    EXPECT_THAT(strings, testing::ElementsAre("", "a\u20AC"));
    EXPECT_THAT(values, testing::ElementsAre(1, 0xFFFFFFFF));
    ASSERT_EQ(log.GetLogEntries().size(), 1u);
    const auto& entry = *log.GetFirstLogEntry();
    EXPECT_TRUE(entry.type == COutputLog::Error && entry.number == 7 && entry.text == "log\u20AC");
    EXPECT_EQ(length, 3);
    EXPECT_EQ(std::string(buffer, buffer + 5), std::string("abc\0\0", 5));
}

TEST(BinaryValues, EveryPrefixOfAMessageEndsInEOFException) {
    COutputLogToRawList log;
    log.AppendMessage(COutputLog::Error, 7, "log\u20AC", 6);
    for (const BinaryStringLength mode : {Mode1, Mode2}) {
        BinaryOutputBuffer output(mode);
        output << "text\u00E9\U0001F600" << CQVSecureWString("secret\u20AC")
               << std::list<std::string>{"", "a\u20AC"} << std::list<unsigned int>{1, 0xFFFFFFFF} << log;
        output.WriteVMString(3, reinterpret_cast<const unsigned char*>("abc"));
        const std::string message = Bytes(output);
        Input whole(mode, message);
        ReadAll(whole);
        EXPECT_TRUE(whole.IsEOF());
        for (size_t length = 0; length < message.size(); length++) {
            Input cut(mode, message.substr(0, length));
            ASSERT_THROW(ReadAll(cut), CBinaryInput::EOFException) << length;
        }
    }
}

// Goes back to other bytes than it came from, as an input that starts in the middle of its source may.
class InputThatRewinds : public Input {
public:
    using Input::Input;
    bool Seek(unsigned int) override { return Input::Seek(0); }
};

TEST(BinaryStrings, CutStringsNeverTurnIntoOthers) {
    InputThatRewinds input(Mode1, FromHex("01 62 02 61"));
    std::string text;
    input >> text;
    EXPECT_EQ(text, "b");
    EXPECT_THROW(input >> text, CBinaryInput::EOFException);
}

TEST(BinaryStrings, CountsAreLimitedBeforeAnythingIsAllocated) {
    std::string text;
    std::list<std::string> strings;
    CQVSecureWString secret;
    using Reader = std::function<void(CBinaryInput&)>;
    const Reader readText = [&](CBinaryInput& i) { i >> text; };
    const Reader readSecret = [&](CBinaryInput& i) { i >> secret; };
    const Reader readTwo = [&](CBinaryInput& i) { i.ReadWStringArray(2, 1, strings); };
    const Reader readStrings = [&](CBinaryInput& i) { i >> strings; };
    const std::string negative = FromHex("FF FF FF FF 0F");
    const struct {
        BinaryStringLength mode;
        std::string bytes;
        const Reader& read;
        const char* error;
    } rows[] = {
        {Mode2, FromHex("80 80 40") + std::string(1'048'576, 'x'), readText, ""},
        {Mode2, FromHex("81 80 40") + std::string(1'048'577, 'x'), readText, "string too long"},
        {Mode2, negative, readText, "string too long"},
        {Mode1, FromHex("FD BF BF BF BF BF"), readText, "string too long"},
        {Mode2, FromHex("80 02") + std::string(256, 'x'), readSecret, ""},
        {Mode2, FromHex("81 02") + std::string(257, 'x'), readSecret, "string too long"},
        {Mode2, negative, readSecret, ""},
        {Mode1, FromHex("02 00 00 00 00 01 61"), readTwo, ""},
        {Mode1, FromHex("01 00 00 00 02 61 62"), readTwo, "string too long"},
        {Mode1, FromHex("FF FF FF FF 00"), readTwo, "too many strings"},
        {Mode1, FromHex("FF FF FF FF 01 61"), readStrings, "EOF Exception"},
    };
    for (const auto& row : rows) {
        std::string error;
        Input input(row.mode, row.bytes);
        try {
            row.read(input);
        } catch (const std::exception& e) {
            error = e.what();
        }
        EXPECT_EQ(error, row.error) << Hex(row.bytes.substr(0, 9));
        EXPECT_TRUE(!error.empty() || input.IsEOF());
    }
    EXPECT_EQ(text, "");
    EXPECT_EQ(secret.Length(), 0u);
    EXPECT_THAT(strings, testing::ElementsAre("a"));
}

TEST(BinaryStrings, VMStringsAreCutAtTheBuffer) {
    BinaryOutputBuffer output(Mode1);
    EXPECT_TRUE(output.WriteVMString(10, reinterpret_cast<const unsigned char*>("0123456789")));
    EXPECT_TRUE(output.WriteVMString(0, nullptr));
    EXPECT_EQ(Hex(Bytes(output)), "0A 30 31 32 33 34 35 36 37 38 39 00");
    const auto read = [](BinaryStringLength mode, const std::string& bytes, int size) {
        Input input(mode, bytes);
        std::string buffer(static_cast<size_t>(size) + 1, 'x');
        unsigned short length = 99;
        input.ReadVMString(length, reinterpret_cast<unsigned char*>(buffer.data()), size);
        EXPECT_TRUE(input.IsEOF());
        return std::pair<int, std::string>(length, buffer);
    };
    const std::string ten = Bytes(output).substr(0, 11);
    EXPECT_EQ(read(Mode1, ten, 0), std::pair(0, std::string("x")));
    EXPECT_EQ(read(Mode1, ten, 4), std::pair(4, std::string("0123x")));
    EXPECT_EQ(read(Mode1, ten, 12), std::pair(10, std::string("0123456789\0\0x", 13)));
    EXPECT_EQ(read(Mode2, FromHex("FF FF FF FF 0F"), 1), std::pair(0, std::string("\0x", 2)));
    EXPECT_EQ(read(Mode2, FromHex("F0 A2 04") + std::string(70'000, 'y'), 70'000),
              std::pair(65'535, std::string(65'535, 'y') + std::string(4'465, '\0') + 'x'));
}

TEST(BinaryStrings, JavaModifiedUTF8) {
    const std::pair<const char*, std::string> cases[] = {
        {"00 06 ED A0 BD ED B8 80", "\U0001F600"},
        {"00 02 C0 80", std::string(1, '\0')},
        {"00 06 61 C3 A9 E2 82 AC", "a\u00E9\u20AC"},
        {"00 04 ED A0 BD 61", "\uFFFDa"},            // high surrogate, then none
        {"00 06 ED A0 BD ED A0 BD", "\uFFFD\uFFFD"}, // two high ones, the last unfinished
        {"00 04 ED B8 80 61", "\uFFFDa"},            // low surrogate alone
        {"00 09 ED A0 BD ED B8 80 ED B8 80", "\U0001F600\uFFFD"},
        {"00 03 80 82 AC", "\u00AC"}, // any other first byte takes three
        {"00 01 C3 A9", "\u00E9"},    // the count is looked at between characters only
    };
    for (const auto& [bytes, expected] : cases) {
        Input input(Mode0, FromHex(bytes));
        std::string text("old");
        input.ReadJavaModifiedString(text);
        EXPECT_EQ(text, expected) << bytes;
        EXPECT_TRUE(input.IsEOF()) << bytes;
    }
    std::string text;
    EXPECT_THROW(Input(Mode0, FromHex("00 03 E2 82")).ReadJavaModifiedString(text),
                 CBinaryInput::EOFException);
    Input bigEndian(Mode0, std::string("\1\2", 2) + std::string(258, 'x'));
    bigEndian.ReadJavaModifiedString(text);
    EXPECT_EQ(text.size(), 258u);
}

TEST(BinaryCopies, MoveBytesInChunks) {
    std::string data(2500, 'x');
    data.back() = 'y';
    Input input(Mode1, data);
    WriteList all, some(1);
    all << input;
    ASSERT_EQ(all.m_Writes.size(), 3u);
    EXPECT_EQ(all.m_Writes[0].size(), 1024u);
    EXPECT_EQ(all.m_Writes[2], data.substr(2048));
    input.Seek(1);
    EXPECT_THROW(all << input, CBinaryInput::EOFException); // copies the whole length from where it stands
    input.Seek(0);
    EXPECT_FALSE(some.ReadDataFromBinaryInput(2500, input));
    EXPECT_EQ(input.Tell(), 2048u);

    BinaryOutputBuffer sink(Mode0);
    input.m_Reads = 0;
    input.Seek(1990);
    input.ReadInputToDataSink(510, &sink);
    EXPECT_EQ(Bytes(sink), data.substr(1990));
    EXPECT_EQ(input.m_Reads, 2u);

    TextInputQVString text("\u20ACa", "name");
    EXPECT_EQ(Encoded(Mode0, [&](CBinaryOutput& o) { o << text; }), "E2 82 AC 61 00");
}

TEST(BinaryInputs, MovingNeverWraps) {
    Input input(Mode0, "0123456789");
    char buffer[11] = {};
    EXPECT_FALSE(input.TryRead(buffer, 11));
    EXPECT_TRUE(input.TryRead(buffer, 4));
    EXPECT_TRUE(input.SkipBytes(2));
    EXPECT_EQ(input.CBinaryInput::GetLength(), 10u); // counted byte by byte
    EXPECT_EQ(input.Tell(), 6u);
    EXPECT_FALSE(input.SkipBytes(0xFFFFFFFB)); // 6 and this is 1 in 32 bits
    EXPECT_TRUE(input.IsEOF());
}

} // namespace
