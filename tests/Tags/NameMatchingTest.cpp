#include "PatternModel.h"
#include <QVLib/Tags/CellReference.h>
#include <QVLib/Tags/MatchPattern.h>
#include <QVLib/Tags/NaturalSort.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/TextOutput.h>
#include <algorithm>
#include <gtest/gtest.h>
#include <random>

namespace {

int Sign(int value) {
    return (value > 0) - (value < 0);
}

// A "_" is compared with the upper-case letter, and the Arabic-Indic 3 is a number too.
TEST(NaturalSort, OrdersAsPeopleExpect) {
    const std::vector<qvstring> names = {"",   "1.9",   "1.10",   "a",       "a0",     "a1",  "a\u0663",
                                         "a5", "a7",    "a007b",  "a7c",     "aB",     "abc", "abcd",
                                         "a_", "Pump2", "pump10", "Pump10a", "Pump11", "ä1",  "Ä2"};
    const std::vector<qvstring> huge = {"a1", "a4294967296", "a9999999999999999999999998",
                                        "A09999999999999999999999999", "a10000000000000000000000000"};
    for (const auto& order : {names, huge})
        for (const qvstring& a : order)
            for (const qvstring& b : order)
                EXPECT_EQ(Sign(QVNatrualSort(a, b)), (&a > &b) - (&a < &b)) << a << " " << b;
    for (const auto& [a, b] : {std::pair("ABC", "abc"), {"a0", "a00"}, {"a007", "A7"}, {"a\u0663", "a3"}})
        EXPECT_EQ(QVNatrualSort(a, b), 0) << a;
    EXPECT_EQ(QVNatrualSort("ab", "aX"), 'B' - 'X') << "the difference of the upper-case letters";
}

TEST(NaturalSort, IsAStrictWeakOrder) {
    static constexpr const char* pieces[] = {
        "0",        "1",        "9",        "10", "a", "A", "z",    "\xD9\xA0",         "\xD9\xA9",
        "\xDB\xB3", "\xC3\xB6", "\xC2\xB2", "/",  ":", "_", "\xFF", "\xF0\x9D\x9F\x98", "\xEF\xBC\x95"};
    std::mt19937 random(2);
    const auto randomName = [&] {
        qvstring name;
        for (size_t n = random() % 5; n > 0; n--)
            name += pieces[random() % std::size(pieces)];
        return name;
    };
    for (int i = 0; i < 50'000; i++) {
        const qvstring a = randomName();
        const qvstring b = randomName();
        const qvstring c = randomName();
        const int ab = Sign(QVNatrualSort(a, b));
        const int bc = Sign(QVNatrualSort(b, c));
        ASSERT_EQ(Sign(QVNatrualSort(b, a)), -ab) << a << " " << b;
        if (ab == bc || ab == 0 || bc == 0) {
            ASSERT_EQ(Sign(QVNatrualSort(a, c)), ab == 0 ? bc : ab) << a << " " << b << " " << c;
        }
    }
}

// What the model below does not know, and what it is held to.
TEST(MatchPattern, Table) {
    using Rows = std::vector<std::pair<const char*, const char*>>;
    const Rows malformed = {{"x", "[A-C"}};
    const Rows others = {{"Pump1", "Pump[!0-9]"}, {"Pump12", "Pump#"}, {"", "[A-C"},
                         {"+", "[-z]"},           {"a", "[Z-a]"},      {"\u0663", "#"}};
    const Rows matches = {{"Pump1", "P*?"}, {"Pump1", "pump[0-9]"}, {"B", "[a-]]"},
                          {"d", "[a-c-e]"}, {"[", "[[]"},           {"ä", "?"},
                          {"ä", "Ä"},       {"ö", "[ä-ü]"}};
    int result = OPCMatchMalformed;
    for (const Rows& rows : {malformed, others, matches}) {
        for (const auto& [text, pattern] : rows) {
            EXPECT_EQ(OPCMatchPattern(text, pattern, false), result) << text << " " << pattern;
            EXPECT_EQ(OPCMatchPattern(text, qvstring(pattern), false), result);
        }
        result++;
    }
    EXPECT_EQ(OPCMatchPattern("Pump1", "pump[0-9]", true), 1);
    EXPECT_EQ(OPCMatchPattern("B", "[a-B-a]", true), 2);
    EXPECT_EQ(OPCMatchPattern("_", "[Z-a]", true), 2);
    EXPECT_EQ(OPCMatchPattern("ä", qvstring("Ä"), true), 1);
}

TEST(MatchPattern, AgreesWithTheNaiveAlgorithm) {
    std::mt19937 random(3);
    const auto randomText = [&](const char* alphabet, unsigned int count, unsigned int maxLength) {
        std::string text;
        for (size_t n = random() % (maxLength + 1); n > 0; n--)
            text += alphabet[random() % count];
        return text;
    };
    int results[3] = {};
    for (int i = 0; i < 200'000; i++) {
        const std::string text = randomText("aAbB1-", 6, 6);
        const std::string pattern = randomText("aB1*?#[]!-*", 11, 8);
        const bool bCaseSensitive = (i & 1) != 0;
        const int expected = PatternModel(text, pattern, bCaseSensitive).Match();
        ASSERT_EQ(OPCMatchPattern(text, pattern, bCaseSensitive), expected) << text << " " << pattern;
        results[expected]++;
    }
    for (const int count : results)
        EXPECT_GT(count, 5'000) << "the cases are too much alike";
}

TEST(MatchPattern, TakesNoExponentialTime) {
    std::string pattern;
    for (int i = 0; i < 200; i++)
        pattern += "*a";
    EXPECT_EQ(OPCMatchPattern(std::string(5'000, 'a'), pattern + "b", true), OPCMatchNo);
    EXPECT_EQ(OPCMatchPattern(std::string(5'000, 'a'), pattern, true), OPCMatchYes);
}

TEST(CellReference, ParsesAndPrints) {
    const struct {
        const char* text;
        bool bParsed;
        const char* cell; // where the reference stands then; it began at C4
        char next;        // what is left to read; 0: nothing
    } rows[] = {
        {"A1", true, "A1", 0},         {"b3", true, "B3", 0},      {"AB12;x", true, "AB12", 'x'},
        {"CRXP1", true, "CRXP1", 0},   {"CRXQ1", false, "C4", 0},  {"ZZZZ1", false, "C4", 0},
        {"A65536", true, "A65536", 0}, {"A65537", false, "A4", 0}, {"A0", false, "A4", 0},
        {"A", false, "C4", 0},         {"12", false, "C4", '2'},   {"", false, "C4", 0},
        {"D-1", false, "D4", '1'},     {"A00012", true, "A12", 0}, {"A\xD9\xA3", true, "A3", 0},
    };
    for (const auto& row : rows) {
        TextInputQVString input(row.text, "");
        CellReference cell(3, 2);
        EXPECT_EQ(cell.ParseCellReference(input), row.bParsed) << row.text;
        CTextOutputString out;
        cell.PrintCellReference(out);
        EXPECT_EQ(out.GetString(), row.cell) << row.text;
        int next = 0;
        EXPECT_EQ(input.ReadCodePoint(next) ? next : 0, row.next) << row.text;
    }
    for (const std::string& text : {std::string(10'000'000, 'Z') + "1", "A" + std::string(10'000'000, '9')}) {
        TextInputQVString input(text, "");
        EXPECT_FALSE(CellReference().ParseCellReference(input));
    }
}

TEST(CellReference, LabelsColumns) {
    const std::pair<int, const char*> rows[] = {{0, "A"},     {25, "Z"},        {26, "AA"},
                                                {51, "AZ"},   {52, "BA"},       {701, "ZZ"},
                                                {702, "AAA"}, {65'535, "CRXP"}, {2'147'483'647, "FXSHRXX"},
                                                {-1, ""}};
    for (const auto& [column, expected] : rows) {
        char label[CellReference::ColumnLabelSize];
        EXPECT_EQ(CellReference::FormatColumnLabel(column, label), static_cast<int>(strlen(expected)));
        EXPECT_STREQ(label, expected);
    }
    EXPECT_EQ(CellReference().LetterValue('z'), 26u);
    EXPECT_EQ(CellReference().LetterValue('['), 0u);
}

} // namespace
