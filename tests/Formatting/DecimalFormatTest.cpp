#include <QVLib/Formatting/DecimalFormat.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/TextOutput.h>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <unicode/decimfmt.h>
#include <vector>

namespace {

constexpr double InfinityValue = std::numeric_limits<double>::infinity();

int Parse(DecimalFormat& format, const std::string& pattern) {
    TextInputQVString input(pattern, "pattern");
    return format.ParseDecimalFormat(&input);
}

DecimalFormat Parsed(const std::string& pattern) {
    DecimalFormat format;
    EXPECT_EQ(Parse(format, pattern), 0) << pattern;
    return format;
}

std::string Write(const DecimalFormat& format, double value) {
    CTextOutputString text;
    format.FormatDouble(value, text);
    return text.GetString();
}

std::string Describe(const DecimalFormat& format) {
    CTextOutputString text;
    format.PrintDecimalFormat(text);
    return text.GetString();
}

double RandomDouble(std::mt19937_64& random) {
    // Of any exponent, of everyday size, or halfway between two numbers of few digits.
    switch (random() % 3) {
    case 0: {
        const unsigned long long bits = random() & 0x7FFFFFFFFFFFFFFFU;
        double value;
        memcpy(&value, &bits, sizeof value);
        return std::isfinite(value) ? value : 1;
    }
    case 1:
        return std::pow(10.0, std::uniform_real_distribution<double>(-12, 17)(random));
    default:
        return static_cast<double>(random() % 100'000'000) /
               std::pow(2.0, static_cast<double>(random() % 60));
    }
}

struct Row {
    const char* pattern;
    double value;
    const char* expected;
};

void ExpectTexts(const std::vector<Row>& rows) {
    for (const Row& row : rows)
        EXPECT_EQ(Write(Parsed(row.pattern), row.value), row.expected) << row.pattern << " of " << row.value;
}

// Of several group sizes the last one counts. A pattern without a '0' has no least digit, but shows one.
TEST(DecimalFormatTest, WritesFixedPoint) {
    const std::vector<Row> rows = {{"#,##0", 0, "0"},         {"#,##,#0", 12345, "1,23,45"},
                                   {"0,000.0", 7, "0,007.0"}, {".00", 0.5, ".50"},
                                   {".00", 0, ".00"},         {"0.", 3, "3."},
                                   {"#.##", 0.5, "0.5"},      {".##", 0.5, ".5"},
                                   {".##", 3, "3.0"},         {"#", 0, "0"},
                                   {"0.####", 0.99996, "1"}};
    ExpectTexts(rows);
}

TEST(DecimalFormatTest, RoundsHalvesToTheEvenDigit) {
    const std::vector<Row> rows = {{"0", 0.5, "0"},         {"0", 1.5, "2"},
                                   {"0.00", 0.125, "0.12"}, {"0.00", 2.675, "2.68"},
                                   {"0.00", 0.005, "0.00"}, {"0.00", 99.995, "100.00"},
                                   {"0", DBL_MIN, "0"},     {"0", -0.0, "-0"}};
    ExpectTexts(rows);
}

// A second pattern counts entirely; text between two parts of a number follows it.
TEST(DecimalFormatTest, WritesTextsAndSigns) {
    const std::vector<Row> rows = {{";", 3.7, "4"},       {"'it''s '0", 7, "it's 7"},
                                   {"''0''", 7, "7"},     {"0 'm' 0", 7, "07 m "},
                                   {"° 0€", -1, "-° 1€"}, {"", -3, "-3"},
                                   {"", 3, "3"},          {"", 1.0625, "1.0625"},
                                   {" A", 1.5, " A2"}};
    ExpectTexts(rows);
    const std::vector<Row> others = {{"0.00;(0.00)", -1.5, "(1.50)"},
                                     {"#,##0", 1e21, "1,000,000,000,000,000,000,000"},
                                     {"0.0000000000000000000#", 0.1, "0.1000000000000000000"},
                                     {"0", 12345678901234567890.0, "12345678901234570000"},
                                     {"'Level: '0.0' m';'Level: -'0.0' m'", -2.25, "Level: -2.2 m"},
                                     {"'Level '0", InfinityValue, "Level Infinity"},
                                     {"0 m;(0)", -InfinityValue, "(Infinity)"},
                                     {"'Level '0", std::numeric_limits<double>::quiet_NaN(), "NaN"},
                                     {"'Level '0", -std::numeric_limits<double>::quiet_NaN(), "NaN"}};
    ExpectTexts(others);
    EXPECT_EQ(Write(DecimalFormat(), -3.25), "3.25");
}

// A point that is always shown is for fixed-point notation. Of two exponents the last one counts.
TEST(DecimalFormatTest, WritesExponents) {
    const std::vector<Row> scientific = {{"0;0.0E0", -1234, "1.2E3"},
                                         {"0.###E0", 12345, "1.234E4"},
                                         {"0.###E0", 1200, "1.2E3"},
                                         {"0.###E0", 0, "0E0"},
                                         {"0.00E0", 0, "0.00E0"},
                                         {"0.###E0", 9.9996, "1E1"},
                                         {"0.E0", 5, "5E0"},
                                         {"00.00E+00", 0.00123, "12.30E-04"},
                                         {"00.00E+00", 123, "12.30E+01"},
                                         {"0e+0", 1e300, "1e+300"},
                                         {"0E++0", 10, "1E+1"},
                                         {".00E0", 12, ".12E2"},
                                         {"#E0", 12, ".1E2"},
                                         {"0E0 0E00", 50, "50E00 "}};
    ExpectTexts(scientific);
    const std::vector<Row> engineering = {{"##0.##E0", 12345, "12.345E3"}, {"##0.##E0", 0.5, "500E-3"},
                                          {"##0.##E0", 0.05, "50E-3"},     {"##0.##E0", 0.00012, "120E-6"},
                                          {"##0.##E0", 1e6, "1E6"},        {"##0.##E0", 999999, "1E6"},
                                          {"##0.##E0", 0, "0E0"},          {"##0.00E0", 0, "0.00E0"}};
    ExpectTexts(engineering);
}

TEST(DecimalFormatTest, WritesIntegersOf64Bits) {
    const struct {
        const char* pattern;
        long long value;
        const char* expected;
    } rows[] = {
        {"0", LLONG_MIN, "-9223372036854775808"},
        {"#,##0.0", LLONG_MAX, "9,223,372,036,854,775,807.0"},
        {"0.###E0", 1200, "1.200E3"}, // zeros at the end stay while nothing is rounded away
        {"0.###E0", 123456, "1.235E5"},
        {"0.###E0", 120049, "1.2E5"},
        {".00", 0, "0.00"},
        {"0;(0)", -5, "(5)"},
    };
    for (const auto& row : rows) {
        CTextOutputString text;
        Parsed(row.pattern).FormatInt64(row.value, text);
        EXPECT_EQ(text.GetString(), row.expected) << row.pattern << " of " << row.value;
    }
    CTextOutputString text;
    Parsed("0;(0)").FormatUInt64(ULLONG_MAX, text);
    EXPECT_EQ(text.GetString(), "18446744073709551615");
}

TEST(DecimalFormatTest, AFaultyPatternHasACodeAndChangesNothing) {
    const std::pair<const char*, int> rows[] = {
        {"#0,.", 8}, {"0#0", 1},   {"0.0#0", 1},   {"0..0", 2},   {"0 m .. ", 2}, {"0.0E", 3},  {"0E+", 3},
        {"0E;0", 3}, {"0EE0", 4},  {"0E0e", 4},    {"#.#0", 6},   {"##.#00", 6},  {"0#.#", 7},  {"0#.", 7},
        {"#,.0", 8}, {"0,", 8},    {"0.0,0", 8},   {"#,", 8},     {"'abc", 9},    {"0'm", 9},   {"0'm''", 9},
        {"0;'", 9},  {"0;0#0", 1}, {"#.#0,'m", 6}, {"0#.,'m", 7}, {"0E'm", 9},    {"0,E'm", 8}, {"#,", 8},
    };
    DecimalFormat format = Parsed("a0.0;b0.00E0c");
    const std::string before = Describe(format);
    for (const auto& [pattern, error] : rows) {
        EXPECT_EQ(Parse(format, pattern), error) << pattern;
        EXPECT_EQ(Describe(format), before) << pattern;
    }
}

TEST(DecimalFormatTest, DescribesItselfAndIsReset) {
    DecimalFormat format = Parsed("a#,##0.;00.0##e+00'\n'");
    EXPECT_EQ(Describe(format), "Prefix 'a', Int 1-2147483647, Frac 0-0, AlwaysShowDecimal;"
                                "Prefix '', Int 2-2, Frac 1-3, e+00, Suffix '\n'");
    EXPECT_TRUE(format.m_bPositiveDefined && format.m_bNegativeDefined);
    EXPECT_EQ(format.m_PositiveFormat.m_GroupingSize, 3);
    format.ResetDecimalFormat();
    EXPECT_FALSE(format.m_bPositiveDefined || format.m_bNegativeDefined);
    EXPECT_EQ(Describe(format), "Prefix 'a', Int 0-2147483647, Frac 0-2147483647");
    EXPECT_EQ(Write(format, -1234.5), "1234.5\n"); // the texts stay

    EXPECT_EQ(Parse(format, ""), 0);
    EXPECT_FALSE(format.m_bPositiveDefined);
    EXPECT_EQ(Write(format, -1), "-a1");
    CTextOutputString text;
    DecimalFormat::DigitList digits;
    digits.SetDouble(0.00123, true, DecimalFormat::Unlimited);
    digits.PrintDigitList(text);
    EXPECT_EQ(text.GetString(), "123, DP -2");
}

TEST(DecimalFormatTest, DigitsAreThoseOfPrintf) {
    std::mt19937_64 random(1);
    for (int i = 0; i < 300'000; ++i) {
        // The neighbours of powers of ten first.
        const double power = strtod(("1e" + std::to_string(i / 3 - 20)).c_str(), nullptr);
        const double value = i >= 120     ? RandomDouble(random)
                             : i % 3 == 0 ? power
                                          : std::nextafter(power, i % 3 == 1 ? 0 : 1e99);
        char text[32];
        snprintf(text, sizeof text, "%1.15e", value);
        std::string expected = text[0] + std::string(text + 2, 15);
        expected.erase(std::max<std::size_t>(expected.find_last_not_of('0') + 1, 1));
        const int decimalAt = value == 0 ? 0 : atoi(text + 18) + 1;
        DecimalFormat::DigitList digits;
        digits.SetDouble(value, false, 0);
        ASSERT_EQ(std::string(digits.m_Digits, static_cast<std::size_t>(digits.m_nCount)),
                  value == 0 ? "" : expected)
            << text;
        ASSERT_EQ(digits.m_nDecimalAt, decimalAt) << text;
    }
}

// ICU differs, and is not compared, in
//     #.##  .##      no digit before the point, and no least digit behind it, for a pattern without '0'
//     "0." "0.E0"    the point is shown only on request
//     ##0.##E0       the significant digits are counted from the fraction's limits alone
//     0,000,00       a second grouping size for the higher groups
//     zero           in engineering notation; infinity and NaN have signs of their own
//     long digits    it rounds the shortest digits that read back, not 16 of them
TEST(DecimalFormatTest, AgreesWithIcuWhereTheRulesDo) {
    std::mt19937_64 random(2);
    for (const char* pattern :
         {"0", "#,##0", "#,##0.00", "0.###", "00000.0", "0.00####", "#,##0.0#;(#,##0.0#)", "'#'0 m",
          "0.###E0", "0.00E0", "0.0##E+00", "0000.00"}) {
        const DecimalFormat format = Parsed(pattern);
        UErrorCode status = U_ZERO_ERROR;
        const icu::DecimalFormat peer(pattern, new icu::DecimalFormatSymbols(icu::Locale::getUS(), status),
                                      status);
        ASSERT_TRUE(U_SUCCESS(status)) << pattern;
        for (int i = 0; i < 5'000; ++i) {
            const double value =
                static_cast<double>(static_cast<int>(random())) / std::pow(10.0, random() % 12);
            char digits[32];
            snprintf(digits, sizeof digits, "%1.15e", std::fabs(value));
            if (digits[16] != '0')
                continue; // more digits than the shortest
            icu::UnicodeString text;
            std::string expected;
            peer.format(value, text).toUTF8String(expected);
            ASSERT_EQ(Write(format, value), expected) << pattern << " of " << value;
        }
    }
}

TEST(DecimalFormatTest, TakesPatternsOfAMegabyteAndLimitsOfAnySize) {
    constexpr std::size_t Million = 1'000'000;
    const std::string zeros(Million, '0');
    const std::string quotes(Million, '\'');
    EXPECT_EQ(Write(Parsed(zeros), 7), std::string(Million - 1, '0') + "7");
    EXPECT_EQ(Write(Parsed("0." + zeros), 0.5), "0.5" + std::string(Million - 1, '0'));
    EXPECT_EQ(Write(Parsed("0E" + zeros), 1e-7), "1E-" + std::string(Million - 1, '0') + "7");
    EXPECT_EQ(Write(Parsed("0.E0" + quotes), 1), "1E0" + std::string(Million / 2 - 1, '\''));
    EXPECT_EQ(Write(Parsed("'" + quotes + "'0"), 1), std::string(Million / 2, '\'') + "1");
    EXPECT_EQ(Write(Parsed("0,0" + std::string(Million, 'x')), 12), "1,2" + std::string(Million, 'x'));
    EXPECT_EQ(Write(Parsed(std::string(Million, '#') + "0.0E0"), 12), "12E0");
    EXPECT_EQ(Write(Parsed("0," + zeros), 1).size(), Million + 2);

    DecimalFormat format;
    DecimalFormat::Format& numbers = format.m_PositiveFormat;
    for (const int maximum : {INT_MIN, -1, 0, 1, 20, INT_MAX}) {
        for (const double value : {0.0, DBL_TRUE_MIN, 0.5, 999.9999, DBL_MAX}) {
            for (const char exponent : {'\0', 'E'}) {
                if (exponent != 0 && maximum == INT_MAX)
                    continue; // a number of gigabytes, as it was asked for
                numbers.m_ExponentChar = exponent;
                numbers.m_MaxFractionDigits = maximum;
                numbers.m_MaxIntegerDigits = maximum;
                EXPECT_NE(Write(format, value), "") << maximum << exponent << value;
            }
        }
    }
    numbers = DecimalFormat::Format();
    numbers.m_MaxIntegerDigits = 2;
    EXPECT_EQ(Write(format, 1234.5), "34.5"); // the leading digits are left out
    EXPECT_EQ(Write(format, 1e20), "00");
}

} // namespace
