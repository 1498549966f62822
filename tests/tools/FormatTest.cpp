#include "QvProgram.h"

#include <gmock/gmock.h>

using testing::HasSubstr;

namespace {

class QvFormat : public QvProgram {};

} // namespace

TEST_F(QvFormat, NumbersComeOutAsThePatternSays) {
    EXPECT_EQ(Do("format number '#,##0.00' 1234.567 -5.5 +3 1e3"), "1,234.57\n-5.50\n3.00\n1,000.00\n");
    // What a double would not hold stays an integer, as long as 64 bits do.
    EXPECT_EQ(Do("format number 0 9007199254740993 -9223372036854775808 18446744073709551615"),
              "9007199254740993\n-9223372036854775808\n18446744073709551615\n");
    EXPECT_EQ(Do("format number 0 -- 123456789012345678901234 -inf -.5"),
              "123456789012345700000000\n-Infinity\n-0\n");
    EXPECT_EQ(Do("format number '0.0 m' 1 - 9 --csv", "printf '2, 3\\n\\n 4.25 \\n' |"),
              "value,text\n1,1.0 m\n2,2.0 m\n3,3.0 m\n4.25,4.2 m\n9,9.0 m\n");
    EXPECT_EQ(Do("format number --json \"0'\\\"'\" 7"), "{\"value\":\"7\",\"text\":\"7\\\"\"}\n");
}

// An empty line is nothing to wait with.
TEST_F(QvFormat, ValuesThatComeSlowlyAreShownAsTheyCome) {
    const std::string writer = "rm -f out.txt; { printf '7\\n\\n'; for i in $(seq 1000); do "
                               "grep -q 7 out.txt && break; sleep 0.01; done; cp out.txt seen.txt; } |";
    for (const char* format : {"", " --csv", " --json"}) {
        const std::string all = Do("format number 0 -" + std::string(format), writer);
        EXPECT_THAT(all, HasSubstr("7"));
        EXPECT_EQ(m_Folder.Read("seen.txt"), all) << format;
    }
}

TEST_F(QvFormat, WhatIsNoNumberIsAFinding) {
    Result result = Run("format number 0.0 one 2 0x3 1e999 '' 5");
    EXPECT_EQ(result.m_ExitCode, 1);
    EXPECT_EQ(result.m_Out, "2.0\n5.0\n");
    for (const char* value : {"'one'", "'0x3'", "'1e999'", "''"})
        EXPECT_THAT(result.m_Error, HasSubstr(std::string(value) + " is no number"));

    result = Run("format number 0.0 -", "printf '1\\n2,x\\n\"3\\n4' |");
    EXPECT_EQ(result.m_ExitCode, 1);
    EXPECT_EQ(result.m_Out, "1.0\n2.0\n4.0\n");
    EXPECT_THAT(result.m_Error, HasSubstr("input:2: 'x' is no number"));
    EXPECT_THAT(result.m_Error, HasSubstr("input:3: "));
}

TEST_F(QvFormat, ABadPatternIsShownWithThePlaceOfItsFault) {
    const struct {
        const char* pattern;
        const char* fault;
        const char* picture;
    } rows[] = {
        {"0#0", "error 1 at character 3: ", "  1 | 0#0\n    |   ^\n"},
        {"0.0.", "error 2 at character 4: ", "  1 | 0.0.\n    |    ^\n"},
        {"0.0Em", "error 3 at character 4: ", "  1 | 0.0Em\n    |    ^\n"},
        {"0EE", "error 4 at character 3: ", "  1 | 0EE\n    |   ^\n"},
        {"#.#0", "error 6 at character 2: ", "  1 | #.#0\n    |  ^\n"},
        {"0#.", "error 7 at character 3: ", "  1 | 0#.\n    |   ^\n"},
        {"0,0,.", "error 8 at character 4: ", "  1 | 0,0,.\n    |    ^\n"},
        {"'a'0'b", "error 9 at character 5: ", "  1 | 'a'0'b\n    |     ^\n"},
        {"0\xC2\xB0;'''';,", "", ""},
        {"0\xC2\xB0;'''',", "error 8 at character 8: ", "  1 | 0\xC2\xB0;'''',\n    |        ^\n"},
        {"\n\t0..", "error 2 at line 2, character 4: ", "  2 |     0..\n    |       ^\n"},
    };
    for (const auto& row : rows) {
        const Result result = Run("format number \"" + std::string(row.pattern) + "\" 1");
        EXPECT_EQ(result.m_ExitCode, row.fault[0] == '\0' ? 0 : 2) << row.pattern;
        EXPECT_THAT(result.m_Error, HasSubstr(row.fault));
        EXPECT_THAT(result.m_Error, HasSubstr(row.picture));
    }
    const Result longOne = Run("format number \"$(printf '%05000d')..$(printf '%05000d')\" 1");
    EXPECT_THAT(longOne.m_Error, HasSubstr("error 2 at character 5002: "));
    EXPECT_LT(longOne.m_Error.size(), 300U);
}

TEST_F(QvFormat, TimesAreThoseOfTheZoneInTheLocalesLanguage) {
    const std::string pattern = "format time 'EEEE d. MMMM yyyy HH:mm XXX' ";
    EXPECT_EQ(Do(pattern + "2024-03-05T07:08:09Z --zone Europe/Berlin --locale en"),
              "Tuesday 5. March 2024 08:08 +01:00\n");
    EXPECT_EQ(Do(pattern + "2050-07-05T07:08:09+05:30 --zone America/New_York --locale de_AT.UTF-8"),
              "Montag 4. Juli 2050 21:38 -04:00\n");
    // The zone and the language of who asks.
    EXPECT_EQ(Do(pattern + "2024-03-05T07:08:09Z", "TZ=Asia/Kolkata LC_ALL=de_DE.UTF-8"),
              "Dienstag 5. Marz 2024 12:38 +05:30\n");
    EXPECT_EQ(
        Do("format time yyyy 2024-03-05T07:08:09Z --json --zone UTC --locale de"),
        "{\"time\":\"2024-03-05T07:08:09.0000000Z\",\"zone\":\"UTC\",\"locale\":\"de\",\"text\":\"2024\"}\n");
    EXPECT_GE(Do("format time yyyy --zone UTC"), "2024");

    for (const char* bad :
         {"2024-13-01", "now --zone Nowhere", "now --locale 12", "now --zone ../../etc/passwd"})
        EXPECT_EQ(Run("format time yyyy " + std::string(bad)).m_ExitCode, 2) << bad;
}
