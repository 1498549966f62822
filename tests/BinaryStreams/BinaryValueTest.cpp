// The encoding of values, strings and lists, byte by byte and on hostile data.
#include "BinaryStreamsTesting.h"

#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/SecureMemory.h>
#include <QVPlatform/Unicode.h>
#include <climits>
#include <functional>
#include <gmock/gmock.h>
#include <random>
#include <stdexcept>

namespace {

constexpr BinaryStringLength Mode0 = BinaryStringLengthNotAllowed;
constexpr BinaryStringLength Mode1 = BinaryStringLengthUTF8Character;
constexpr BinaryStringLength Mode2 = BinaryStringLength7BitEncodedInt;

// Reads a copy that ends exactly with the bytes, so that a sanitizer sees a step too far.
class Input : public BinaryInputData {
public:
    Input(BinaryStringLength mode, const std::string& bytes)
        : BinaryInputData(mode, Copy(bytes), static_cast<unsigned int>(bytes.size())) {}

    void Read(void* buffer, unsigned int count) override {
        m_Reads++;
        BinaryInputData::Read(buffer, count);
    }
    unsigned int m_Reads = 0;

private:
    static unsigned char* Copy(const std::string& bytes) {
        unsigned char* const copy = new unsigned char[bytes.size()];
        bytes.copy(reinterpret_cast<char*>(copy), bytes.size());
        return copy;
    }
};

// Keeps the single writes; fails from the n-th on.
class WriteList : public CBinaryOutput {
public:
    explicit WriteList(size_t good = SIZE_MAX) : CBinaryOutput(Mode1), m_Good(good) {}
    bool Write(const void* data, unsigned int count) override {
        m_Writes.emplace_back(static_cast<const char*>(data), count);
        return m_Writes.size() <= m_Good;
    }
    std::vector<std::string> m_Writes;

private:
    const size_t m_Good;
};

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

TEST(BinaryValues, FixedSizesAreOneWriteOfTheirLittleEndianBytes) {
    WriteList output;
    output << true << false << static_cast<signed char>(-2) << static_cast<unsigned char>(0xFE)
           << static_cast<short>(-2) << static_cast<unsigned short>(0x1234) << 1 << 0x89ABCDEFu << 1.0f << 1.0
           << CQVTimestamp(-2) << CQVTimeInterval(0x0102030405060708);
    EXPECT_TRUE(output.WriteInt64(LLONG_MIN));
    output.WriteComment("%d", 1);
    std::vector<std::string> hex;
    std::string all;
    for (const std::string& bytes : output.m_Writes) {
        hex.push_back(Hex(bytes));
        all += bytes;
    }
    EXPECT_THAT(hex,
                testing::ElementsAre("01", "00", "FE", "FE", "FE FF", "34 12", "01 00 00 00", "EF CD AB 89",
                                     "00 00 80 3F", "00 00 00 00 00 00 F0 3F", "FE FF FF FF FF FF FF FF",
                                     "08 07 06 05 04 03 02 01", "00 00 00 00 00 00 00 80"));

    Input input(Mode0, all + '\x02' + 'c');
    bool b1, b2, b3;
    char c;
    signed char sc;
    unsigned char uc;
    short s;
    unsigned short us;
    int i;
    unsigned int u;
    float f;
    double d;
    CQVTimestamp t;
    CQVTimeInterval v;
    input >> b1 >> b2 >> sc >> uc >> s >> us >> i >> u >> f >> d >> t >> v;
    EXPECT_EQ(input.ReadInt64(), LLONG_MIN);
    input >> b3 >> c;
    EXPECT_EQ(input.m_Reads, 15u);
    EXPECT_TRUE(b1 && !b2 && b3 && c == 'c' && sc == -2 && uc == 0xFE && s == -2 && us == 0x1234 && i == 1 &&
                u == 0x89ABCDEF && f == 1 && d == 1 && t.GetValue() == -2 &&
                v.GetValue() == 0x0102030405060708);
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
    EXPECT_EQ(Input(Mode0, FromHex("C0 80")).ReadUTF8Character(), 0);
    EXPECT_EQ(Input(Mode0, FromHex("C3 FF")).ReadUTF8Character(), 0xFF);
    EXPECT_EQ(Input(Mode0, FromHex("81 80 80 80 80 81")).ReadUTF8Character(), 0x40000001);
    EXPECT_EQ(Input(Mode0, FromHex("FE 80 80 80 80 81")).ReadUTF8Character(), 1);
    Input groups(Mode0, FromHex("80 80 80 80 80 80 01"));
    EXPECT_EQ(groups.Read7BitEncodedInt(), 0);
    EXPECT_TRUE(groups.IsEOF());
    EXPECT_EQ(Input(Mode0, FromHex("81 80 80 80 7F")).Read7BitEncodedInt(), static_cast<int>(0xF0000001));
}

TEST(BinaryStrings, PrefixCountsCodePoints) {
    struct Coding {
        std::string text;
        const char* mode1;
        const char* mode2;
    };
    const Coding codings[] = {
        {"", "00", "00"},
        {"\u00E9", "01 C3 A9", "01 C3 A9"},
        {"\U0001F600", "01 F0 9F 98 80", "01 F0 9F 98 80"},
        {std::string("a\0b", 3), "03 61 00 62", "03 61 00 62"},
        {"\xED\xA0\x80", "01 ED A0 80", "01 ED A0 80"},                             // a single surrogate
        {"a\xFF\xC3z", "04 61 EF BF BD EF BF BD 7A", "04 61 EF BF BD EF BF BD 7A"}, // malformed
    };
    for (const Coding& coding : codings) {
        EXPECT_EQ(Encoded(Mode1, [&](CBinaryOutput& o) { o << coding.text; }), coding.mode1);
        EXPECT_EQ(Encoded(Mode2, [&](CBinaryOutput& o) { o << coding.text; }), coding.mode2);
    }
    EXPECT_EQ(Encoded(Mode1, [](CBinaryOutput& o) { o << std::string(200, 'x'); }).substr(0, 8), "C3 88 78");
    EXPECT_EQ(Encoded(Mode2, [](CBinaryOutput& o) { o << std::string(200, 'x'); }).substr(0, 8), "C8 01 78");

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

void WriteAll(CBinaryOutput& output) {
    COutputLogToRawList log;
    log.AppendMessage(COutputLog::Error, 7, "log\u20AC", 6);
    output << "text\u00E9\U0001F600" << CQVSecureWString("secret\u20AC")
           << std::list<std::string>{"", "a\u20AC"} << std::list<unsigned int>{1, 0xFFFFFFFF} << log << 1.5;
    output.WriteVMString(3, reinterpret_cast<const unsigned char*>("abc"));
}

void ReadAll(CBinaryInput& input) {
    std::string text;
    CQVSecureWString secret;
    std::list<std::string> strings{"old"};
    std::list<unsigned int> values{9};
    COutputLogToRawList log;
    double number = 0;
    unsigned short length = 0;
    unsigned char buffer[5];
    input >> text >> secret >> strings >> values >> log >> number;
    input.ReadVMString(length, buffer, sizeof buffer);
    EXPECT_EQ(text, "text\u00E9\U0001F600");
    EXPECT_STREQ(secret.Get(), "secret\u20AC");
    EXPECT_THAT(strings, testing::ElementsAre("", "a\u20AC"));
    EXPECT_THAT(values, testing::ElementsAre(1, 0xFFFFFFFF));
    ASSERT_EQ(log.GetLogEntries().size(), 1u);
    EXPECT_EQ(log.GetFirstLogEntry()->type, COutputLog::Error);
    EXPECT_EQ(log.GetFirstLogEntry()->number, 7);
    EXPECT_EQ(log.GetFirstLogEntry()->text, "log\u20AC");
    EXPECT_EQ(number, 1.5);
    EXPECT_EQ(length, 3);
    EXPECT_EQ(std::string(buffer, buffer + 5), std::string("abc\0\0", 5));
}

TEST(BinaryValues, EveryPrefixOfAMessageEndsInEOFException) {
    for (const BinaryStringLength mode : {Mode1, Mode2}) {
        BinaryOutputBuffer output(mode);
        WriteAll(output);
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

// The exception tells of the very read that failed, although strings are read ahead.
TEST(BinaryStrings, CutStringsFailWhereTheByteIsMissing) {
    struct Cut {
        const char* bytes;
        unsigned int position;
        unsigned int count;
    };
    for (const Cut& cut : {Cut{"", 0, 1},
                           {"C3", 1, 1},
                           {"03 61 62", 3, 1},
                           {"02 61 E2 82", 3, 2},
                           {"02 E2 82 AC F0 9F 98", 5, 3},
                           {"04 61 FC 80", 3, 5}}) {
        Input input(Mode1, FromHex(cut.bytes));
        std::string text;
        try {
            input >> text;
            ADD_FAILURE() << cut.bytes;
        } catch (const CBinaryInput::EOFException& e) {
            EXPECT_STREQ(e.what(), "EOF Exception");
            EXPECT_EQ(e.GetPosition(), cut.position) << cut.bytes;
            EXPECT_EQ(e.GetCount(), cut.count) << cut.bytes;
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
    const std::function<void(CBinaryInput&)> readText = [&](CBinaryInput& i) { i >> text; };
    const std::function<void(CBinaryInput&)> readSecret = [&](CBinaryInput& i) { i >> secret; };
    const std::function<void(CBinaryInput&)> readTwo = [&](CBinaryInput& i) {
        i.ReadWStringArray(2, 1, strings);
    };
    const std::function<void(CBinaryInput&)> readStrings = [&](CBinaryInput& i) { i >> strings; };
    const auto error = [](BinaryStringLength mode, const std::string& bytes,
                          const std::function<void(CBinaryInput&)>& read) -> std::string {
        Input input(mode, bytes);
        try {
            read(input);
        } catch (const std::exception& e) {
            return e.what();
        }
        return "";
    };
    const std::string limit = FromHex("80 80 40"), above = FromHex("81 80 40"),
                      negative = FromHex("FF FF FF FF 0F");
    EXPECT_EQ(error(Mode2, limit + std::string(1'048'576, 'x'), readText), "");
    EXPECT_EQ(text.size(), 1'048'576u);
    EXPECT_EQ(error(Mode2, above + std::string(1'048'577, 'x'), readText), "string too long");
    EXPECT_EQ(text, "");
    EXPECT_EQ(error(Mode2, negative, readText), "string too long");
    EXPECT_EQ(error(Mode1, FromHex("FD BF BF BF BF BF"), readText), "string too long");
    EXPECT_EQ(error(Mode2, FromHex("80 02") + std::string(256, 'x'), readSecret), "");
    EXPECT_EQ(secret.Length(), 256u);
    EXPECT_EQ(error(Mode2, FromHex("81 02") + std::string(257, 'x'), readSecret), "string too long");
    EXPECT_EQ(error(Mode2, negative, readSecret), "");
    EXPECT_EQ(secret.Length(), 0u);
    EXPECT_EQ(error(Mode1, FromHex("02 00 00 00 00 01 61"), readTwo), "");
    EXPECT_EQ(error(Mode1, FromHex("01 00 00 00 02 61 62"), readTwo), "string too long");
    EXPECT_EQ(error(Mode1, FromHex("FF FF FF FF 00"), readTwo), "too many strings");
    EXPECT_EQ(error(Mode1, FromHex("FF FF FF FF 01 61"), readStrings), "EOF Exception");
    EXPECT_THAT(strings, testing::ElementsAre("a"));
}

TEST(BinaryStrings, VMStringsAreCutAtTheBuffer) {
    const unsigned char data[] = "0123456789";
    BinaryOutputBuffer output(Mode1);
    EXPECT_TRUE(output.WriteVMString(10, data) && output.WriteVMString(0, nullptr));
    EXPECT_EQ(Hex(Bytes(output)), "0A 30 31 32 33 34 35 36 37 38 39 00");
    for (const int size : {0, 4, 10, 16}) {
        Input input(Mode1, Bytes(output));
        std::vector<unsigned char> buffer(16, 'x');
        unsigned short length = 99;
        input.ReadVMString(length, buffer.data(), size);
        EXPECT_EQ(length, std::min(size, 10));
        EXPECT_EQ(std::string(buffer.begin(), buffer.end()),
                  std::string(data, data + length) + std::string(static_cast<size_t>(size - length), '\0') +
                      std::string(static_cast<size_t>(16 - size), 'x'));
        EXPECT_EQ(input.Tell(), 11u);
    }
    unsigned short length = 99;
    unsigned char byte = 'x';
    Input(Mode2, FromHex("FF FF FF FF 0F")).ReadVMString(length, &byte, 1);
    EXPECT_TRUE(length == 0 && byte == 0);
    std::vector<unsigned char> large(70'000);
    Input(Mode2, FromHex("F0 A2 04") + std::string(70'000, 'y')).ReadVMString(length, large.data(), 70'000);
    EXPECT_TRUE(length == 65'535 && large[65'534] == 'y' && large[65'535] == 0);
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
