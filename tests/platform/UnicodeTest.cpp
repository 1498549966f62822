#include <QVPlatform/Unicode.h>
#include <QVPlatform/UnicodeCharacter.h>
#include <algorithm>
#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <vector>

namespace {

// ---- A slow decoder straight from the Unicode Standard's table of well-formed byte sequences ----

constexpr struct {
    unsigned int length;
    unsigned char bytes[4][2]; // from, to
} Rows[] = {
    {1, {{0x00, 0x7F}}},
    {2, {{0xC2, 0xDF}, {0x80, 0xBF}}},
    {3, {{0xE0, 0xE0}, {0xA0, 0xBF}, {0x80, 0xBF}}},
    {3, {{0xE1, 0xEF}, {0x80, 0xBF}, {0x80, 0xBF}}}, // surrogates included
    {4, {{0xF0, 0xF0}, {0x90, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}}},
    {4, {{0xF1, 0xF3}, {0x80, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}}},
    {4, {{0xF4, 0xF4}, {0x80, 0x8F}, {0x80, 0xBF}, {0x80, 0xBF}}},
};

struct Decoded {
    std::vector<int> codePoints;
    bool valid = true;
};

Decoded ReferenceDecode(const std::string& text) {
    Decoded result;
    for (size_t at = 0; at < text.size();) {
        unsigned int best = 0;
        bool whole = false;
        for (const auto& row : Rows) {
            unsigned int matched = 0;
            while (matched < row.length && at + matched < text.size()) {
                const unsigned char byte = static_cast<unsigned char>(text[at + matched]);
                if (byte < row.bytes[matched][0] || byte > row.bytes[matched][1])
                    break;
                ++matched;
            }
            whole |= matched == row.length;
            best = std::max(best, matched);
        }
        int codePoint = 0xFFFD;
        if (whole) {
            codePoint = text[at] & (best == 1 ? 0x7F : 0x7F >> best);
            for (unsigned int i = 1; i < best; ++i)
                codePoint = codePoint << 6 | (text[at + i] & 0x3F);
        }
        result.valid &= whole && (codePoint < 0xD800 || codePoint > 0xDFFF);
        result.codePoints.push_back(codePoint);
        at += std::max(best, 1U);
    }
    return result;
}

std::string Utf8(const std::vector<int>& codePoints) {
    std::string text;
    for (int codePoint : codePoints)
        qv_append_codepoint_to_qvstring(codePoint, text);
    return text;
}

std::vector<unsigned short> Utf16(const std::vector<int>& codePoints) {
    std::vector<unsigned short> units;
    for (int codePoint : codePoints) {
        if (codePoint >= 0x10000)
            units.push_back(static_cast<unsigned short>(0xD7C0 + (codePoint >> 10)));
        units.push_back(
            static_cast<unsigned short>(codePoint < 0x10000 ? codePoint : 0xDC00 | (codePoint & 0x3FF)));
    }
    return units;
}

// Everything that reads UTF-8 agrees with the slow decoder on `text`. The vectors have no byte to spare, so that
// AddressSanitizer sees every read past the end.
void CheckAllReaders(const std::string& text) {
    const Decoded expected = ReferenceDecode(text);
    const std::vector<char> bytes(text.begin(), text.end());
    const std::vector<unsigned char> unsignedBytes(text.begin(), text.end());
    const auto size = static_cast<unsigned int>(text.size());

    std::vector<int> decoded;
    for (const char* at = bytes.data(); at < bytes.data() + size;)
        decoded.push_back(qv_codepoint_from_qvchar(at, bytes.data() + size));
    ASSERT_EQ(decoded, expected.codePoints);
    ASSERT_EQ(qv_utf32len_of_wchar(bytes.data(), size), decoded.size());

    unsigned int validCount = 4711;
    ASSERT_EQ(qv_is_valid_utf8(bytes.data(), size, validCount), expected.valid);
    ASSERT_EQ(validCount, expected.valid ? decoded.size() : 4711);

    bool strictlyValid = true;
    for (const unsigned char* at = unsignedBytes.data(); at < unsignedBytes.data() + size;) {
        const unsigned char* const before = at;
        if (qv_decode_utf8(at, unsignedBytes.data() + size) == -1) {
            strictlyValid = false;
            ASSERT_EQ(at, before + 1);
        }
        ASSERT_GT(at, before);
    }
    ASSERT_EQ(strictlyValid, expected.valid);

    const std::vector<unsigned short> units = Utf16(decoded);
    std::vector<unsigned short> unitBuffer(units.size());
    const auto unitRoom = static_cast<unsigned int>(units.size());
    ASSERT_EQ(qv_utf16len_of_utf8(unsignedBytes.data(), size), unitRoom);
    ASSERT_EQ(qv_utf16len_of_qvchar(bytes.data(), size), unitRoom);
    ASSERT_EQ(qv_utf16_from_utf8(unsignedBytes.data(), size, unitBuffer.data(), unitRoom), unitRoom);
    ASSERT_EQ(unitBuffer, units);

    const std::string cleaned = Utf8(decoded);
    std::string buffer(cleaned.size(), '\0');
    const auto room = static_cast<unsigned int>(cleaned.size());
    ASSERT_EQ(qv_utf8len_of_qvchar(bytes.data(), size), room);
    ASSERT_EQ(qv_qvchar_from_utf8(unsignedBytes.data(), size, buffer.data(), room), room);
    ASSERT_EQ(buffer, cleaned);
}

TEST(Unicode, EveryCodePointSurvivesBothEncodings) {
    for (int codePoint = 0; codePoint <= 0x10FFFF; ++codePoint) {
        char bytes[4];
        const unsigned int length = qv_qvchar_from_codepoint(codePoint, bytes);
        const char* at = bytes;
        ASSERT_EQ(qv_codepoint_from_qvchar(at, bytes + length), codePoint);
        ASSERT_EQ(at, bytes + length);

        unsigned short units[2];
        const unsigned int count = qv_utf16_from_qvchar(bytes, length, units, 2);
        ASSERT_EQ(count, codePoint < 0x10000 ? 1U : 2U);
        unsigned char encoded[4];
        unsigned short encodedUnits[2];
        ASSERT_EQ(qv_utf8len_of_utf32(codePoint), length);
        ASSERT_EQ(qv_encode_utf8(codePoint, encoded), length);
        ASSERT_EQ(memcmp(encoded, bytes, length), 0);
        ASSERT_EQ(qv_utf16len_of_utf32(codePoint), count);
        ASSERT_EQ(qv_encode_utf16(codePoint, encodedUnits), count);
        ASSERT_TRUE(std::equal(units, units + count, encodedUnits));
        const unsigned short* unit = units;
        ASSERT_EQ(qv_decode_utf16(unit, units + count), codePoint);
        ASSERT_EQ(unit, units + count);

        char again[4];
        ASSERT_EQ(qv_utf8len_of_utf16(units, count), length);
        ASSERT_EQ(qv_qvchar_from_utf16(units, count, again, 4), length);
        ASSERT_TRUE(std::equal(again, again + length, bytes));
    }
    for (const int none : {-1, 0x110000, INT_MIN, INT_MAX}) {
        EXPECT_EQ(Utf8({none}), "\xEF\xBF\xBD");
        unsigned short unit = 0;
        EXPECT_EQ(qv_utf8len_of_utf32(none), 3U);
        EXPECT_EQ(qv_utf16len_of_utf32(none), 1U);
        EXPECT_EQ(qv_encode_utf16(none, &unit), 1U);
        EXPECT_EQ(unit, 0xFFFD);
    }
}

TEST(Unicode, KnownSequences) {
    const struct {
        const char* bytes;
        std::vector<int>
            codePoints; // of malformed bytes, one replacement for each longest start of a character
    } cases[] = {
        {"A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", {'A', 0xE9, 0x20AC, 0x1F600}},
        {"\xED\xA0\x80\xED\xB0\x80", {0xD800, 0xDC00}},
        {"\xC0\x80\xF5", {0xFFFD, 0xFFFD, 0xFFFD}},
        {"\xE0\x80\x80", {0xFFFD, 0xFFFD, 0xFFFD}},
        {"\xF0\x9F\x98\xC3\xA9", {0xFFFD, 0xE9}},
        {"\xF4\x90\x80\x80", {0xFFFD, 0xFFFD, 0xFFFD, 0xFFFD}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ReferenceDecode(c.bytes).codePoints, c.codePoints);
        CheckAllReaders(c.bytes);
    }
    EXPECT_EQ(Utf8(cases[0].codePoints), cases[0].bytes);
    EXPECT_EQ(Utf8(cases[1].codePoints), cases[1].bytes);
}

TEST(Unicode, ReadersAgreeOnCutTextsAndRandomBytes) {
    const std::string whole = "Pump 17 \xC3\xBC"
                              "ber 80 \xC2\xB0"
                              "C, \xE2\x82\xAC \xF0\x9F\x98\x80 long ASCII tail";
    for (size_t from = 0; from <= whole.size(); ++from)
        for (size_t length = 0; from + length <= whole.size(); ++length)
            CheckAllReaders(whole.substr(from, length));

    // Bytes that often meet: ASCII runs of every length at every place of a word, leads, tails, wrong ones.
    constexpr unsigned char Mixed[] = {'a',  'b',  'c',  0x7F, 0x80, 0xBF, 0xC1, 0xC3, 0xE0, 0xA0,
                                       0xED, 0xEF, 0xF0, 0x90, 0xF4, 0x8F, 0xF5, 0xFF, 0,    0x9F};
    std::mt19937 random(20240229);
    for (int round = 0; round < 20000 && !testing::Test::HasFatalFailure(); ++round) {
        std::string text(random() % 40, ' ');
        for (char& byte : text)
            byte = static_cast<char>(round % 2      ? random()
                                     : random() % 4 ? Mixed[random() % sizeof Mixed]
                                                    : 'x');
        CheckAllReaders(text);
    }
}

TEST(Unicode, Utf16ReadersAgreeOnRandomUnits) {
    std::mt19937 random(17);
    for (int round = 0; round < 20000; ++round) {
        std::vector<unsigned short> units(random() % 24);
        for (unsigned short& unit : units)
            unit = static_cast<unsigned short>(random() % 2 ? 'u' : 0xD7F0 + random() % 0x820);
        const auto size = static_cast<unsigned int>(units.size());
        std::vector<int> decoded;
        for (const unsigned short* at = units.data(); at < units.data() + size;)
            decoded.push_back(qv_decode_utf16(at, units.data() + size));
        ASSERT_EQ(Utf16(decoded), units);
        const std::string expected = Utf8(decoded);
        const unsigned int length = qv_utf8len_of_utf16(units.data(), size);
        std::string text(length, '\0');
        ASSERT_EQ(qv_qvchar_from_utf16(units.data(), size, text.data(), length), length);
        ASSERT_EQ(text, expected);
    }
}

TEST(Unicode, ConversionsStopBeforeACharacterThatDoesNotFit) {
    const std::string text = "abcdefgh\xC3\xA9\xF0\x9F\x98\x80z"; // 15 bytes, 12 units
    constexpr unsigned int BytesIn[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 8, 10, 10, 10, 10, 14, 15, 15};
    constexpr unsigned int UnitsIn[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 9, 11, 12, 12};
    const std::vector<unsigned short> units = Utf16(ReferenceDecode(text).codePoints);
    for (unsigned int capacity = 0; capacity < std::size(BytesIn); ++capacity) {
        const auto buffer = std::make_unique<unsigned char[]>(capacity);
        EXPECT_EQ(qv_utf8_from_qvchar(text.data(), 15, buffer.get(), capacity), BytesIn[capacity]);
        EXPECT_EQ(std::string(buffer.get(), buffer.get() + BytesIn[capacity]),
                  text.substr(0, BytesIn[capacity]));
        EXPECT_EQ(qv_utf8_from_utf16(units.data(), 12, buffer.get(), capacity), BytesIn[capacity]);
    }
    for (unsigned int capacity = 0; capacity < std::size(UnitsIn); ++capacity) {
        const auto buffer = std::make_unique<unsigned short[]>(capacity);
        EXPECT_EQ(qv_utf16_from_qvchar(text.data(), 15, buffer.get(), capacity), UnitsIn[capacity]);
    }
}

TEST(UnicodeCharacter, Properties) {
    const struct {
        int codePoint;
        const char* kind; // white space, letter, digit and its value, none
        int upper, width;
    } cases[] = {
        {'a', "l", 'A', 1},          {'Z', "l", 'Z', 1},
        {'_', "", '_', 1},           {'@', "", '@', 1},
        {'7', "d7", '7', 1},         {'\t', "w", '\t', 0},
        {'\r', "w", '\r', 0},        {0x1C, "", 0x1C, 0},
        {0x7F, "", 0x7F, 0},         {0x85, "w", 0x85, 0},
        {0xA0, "w", 0xA0, 1},        {0xB2, "", 0xB2, 1},
        {0xDF, "l", 0xDF, 1},        {0xE4, "l", 0xC4, 1},
        {0xFF, "l", 0x178, 1},       {0x0301, "", 0x0301, 0},
        {0x0663, "d3", 0x0663, 1},   {0x200B, "", 0x200B, 0},
        {0x3000, "w", 0x3000, 2},    {0x4E09, "l", 0x4E09, 2},
        {0xFF21, "l", 0xFF21, 2},    {0x10428, "l", 0x10400, 1},
        {0x1D7D8, "d0", 0x1D7D8, 1}, {0x1F600, "", 0x1F600, 2},
        {0xD800, "", 0xD800, 1},     {-1, "", -1, 1},
        {0x110000, "", 0x110000, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.codePoint);
        const UnicodeCharacter character(c.codePoint);
        std::string kind = character.IsWhitespace() ? "w" : "";
        kind += character.IsLetter() ? "l" : character.IsDigit() ? "d" : "";
        if (character.GetNumericValue() != -1)
            kind += std::to_string(character.GetNumericValue());
        EXPECT_EQ(kind, c.kind);
        EXPECT_EQ(character.ToUpper(), c.upper);
        EXPECT_EQ(character.GetDisplayWidth(), c.width);
    }
}

TEST(UnicodeCharacter, TheAsciiShortCutsAgreeWithTheTables) {
    for (int codePoint = 0; codePoint < 0x80; ++codePoint) {
        SCOPED_TRACE(codePoint);
        const UnicodeCharacter character(codePoint);
        EXPECT_EQ(character.IsWhitespace(), UnicodeCharTable::IsWhitespace(codePoint));
        EXPECT_EQ(character.IsDigit(), UnicodeCharTable::IsDigit(codePoint));
        EXPECT_EQ(character.IsLetter(), UnicodeCharTable::IsLetter(codePoint));
        EXPECT_EQ(character.GetNumericValue(), UnicodeCharTable::GetNumericValue(codePoint));
        EXPECT_EQ(character.GetDisplayWidth(), UnicodeCharTable::GetDisplayWidth(codePoint));
    }
}

} // namespace
