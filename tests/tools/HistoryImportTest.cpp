#include <gmock/gmock.h>

#include "QvProgram.h"

using testing::HasSubstr;

namespace {

class QvHistoryImport : public QvProgram {};

constexpr const char* Header = "time,tag,value,quality\n";

} // namespace

TEST_F(QvHistoryImport, ComesBackUnchanged) {
    const std::string csv = std::string(Header) +
                            "1601-01-01T00:00:00.0000000Z,zero,0,0\n"
                            "2021-03-04T05:06:07.1234567Z,boiler.t1,20.125,0\n"
                            "2021-03-04T05:06:07.1234568Z,boiler.t1,-1e-300,65535\n"
                            "2021-03-04T05:06:08.0000000Z,\"odd,\"\"name\"\"\",nan,1\n"
                            "2021-03-04T05:06:08.0000000Z,4711,inf,1\n"
                            "2021-03-26T23:13:59.9999999Z,zero,1.7976931348623157e+308,0\n";
    Import(csv);
    EXPECT_EQ(Do("history read t --csv"), csv);
    EXPECT_EQ(Do("history read t --csv | '" QV_PROGRAM "' history import t2 - --json"),
              "{\"records\":6,\"skipped\":0,\"new_tags\":3,\"files\":3}\n");
    EXPECT_EQ(Do("history read t2 --csv"), csv);
}

TEST_F(QvHistoryImport, TakesTheFormsThatPeopleWrite) {
    // Ticks, a quoted and a missing quality, blanks, CR LF, empty lines, a mark, no end of the last line.
    Import("\xEF\xBB\xBF 600000000 , a , 1\r\n\r\n1601-01-01 00:02,\"a\",2.50,7\n  "
           "\n1601-01-01T01:03:00+01:00,7,3");
    EXPECT_EQ(Do("history read t --csv"), std::string(Header) + "1601-01-01T00:01:00.0000000Z,a,1,0\n"
                                                                "1601-01-01T00:02:00.0000000Z,a,2.5,7\n"
                                                                "1601-01-01T00:03:00.0000000Z,7,3,0\n");

    // Columns in an order of their own.
    m_Folder.Write("in.csv", "TIME,value,Tag\n0,5,b\n");
    Do("history import t2 in.csv");
    EXPECT_EQ(Do("history read t2 --csv"), std::string(Header) + "1601-01-01T00:00:00.0000000Z,b,5,0\n");
}

TEST_F(QvHistoryImport, LocatesBadLinesAndLeavesTheTableAlone) {
    const std::string quotedPart(70'000, 'x');
    const struct {
        std::string line;
        const char* problem;
    } cases[] = {
        {"yesterday,a,1", "the time 'yesterday' is neither ISO 8601"},
        {"9223372036854775807,a,1", "is not in the years 1 to 9999"},
        {"99999999999999999999,a,1", "the time '99999999999999999999' is neither"},
        {"2021-02-29,a,1", "the time '2021-02-29' is neither"},
        {"1,a", "there are 2 fields where 3 to 4 belong"},
        {"1,a,1,0,5", "there are 5 fields where 3 to 4 belong"},
        {"1,a,1x", "the value '1x' is no number"},
        {"1,a,", "the value '' is no number"},
        {"1,a,0,65536", "the quality '65536' is no number that the field can hold"},
        {"1,4294967296,1", "the tag '4294967296' is no number that the field can hold"},
        {"1,two words,1", "'two words' is no tag name"},
        {"1,\x1b[31m,1", "'\\x1b[31m' is no tag name"},
        {"1,\xff,1", "is no tag name"},
        {"1,\"a,1", "a quoted field is not closed on its line"},
        {"1,\"a\"b,1", "text follows a quoted field"},
        {std::string("1,a,\0001", 6), "the value '\\x001' is no number"},
        {"1,a," + quotedPart, "the line is longer than 65536 bytes"},
    };
    Import("1,first,1\n");
    const std::string before = Do("history read t --csv");
    for (const auto& each : cases) {
        SCOPED_TRACE(each.problem);
        m_Folder.Write("in.csv", "5,first,1\n" + each.line + "\n6,new,1\n");
        const Result result = Fails(3, "history import t in.csv", std::string("qv: error: in.csv:2: "));
        EXPECT_THAT(result.m_Error, HasSubstr(each.problem));
        EXPECT_THAT(result.m_Error, HasSubstr("1 bad line; nothing was imported"));
        EXPECT_EQ(Do("history read t --csv"), before);
    }
    EXPECT_EQ(m_Folder.Read("t/tags.txt"), "# number name unit\n1 first\n");
}

TEST_F(QvHistoryImport, KeepGoingCountsWhatItLeavesOut) {
    std::string csv;
    for (int line = 1; line <= 300; ++line)
        csv += line % 10 == 0 ? "bad\n" : std::to_string(line) + ",a,1\n";
    m_Folder.Write("in.csv", csv);
    const Result result = Run("history import t in.csv --keep-going --json");
    EXPECT_EQ(result.m_ExitCode, 1);
    EXPECT_EQ(result.m_Out, "{\"records\":270,\"skipped\":30,\"new_tags\":1,\"files\":1}\n");
    EXPECT_THAT(result.m_Error, HasSubstr("in.csv:10: there are 1 fields"));
    EXPECT_THAT(result.m_Error, HasSubstr("in.csv:200: "));
    EXPECT_THAT(result.m_Error, HasSubstr("in.csv:210: further bad lines are only counted"));
    EXPECT_THAT(result.m_Error, testing::Not(HasSubstr("in.csv:220")));
}

TEST_F(QvHistoryImport, ReadsAPipeUpToItsFirstBadLine) {
    m_Folder.Write("in.csv", "1,a,1\n2,a,2\n3,a\n4,a,4\n");
    const Result result = Run("history import t - --json", "cat in.csv |");
    EXPECT_EQ(result.m_ExitCode, 3);
    EXPECT_EQ(JsonNumber(result.m_Out, "records"), 2);
    EXPECT_THAT(result.m_Error, HasSubstr("standard input:3: there are 2 fields"));
    EXPECT_THAT(result.m_Error, HasSubstr("stopped at a bad line; 2 records before it imported"));
    EXPECT_EQ(Run("history import t missing.csv").m_ExitCode, 3);
}

TEST_F(QvHistoryImport, NeverGivesANameANumberInUse) {
    Import("1,5,1\n");
    m_Folder.Write("in.csv", "2,pump,1\n3,9,1\n");
    Do("history import t in.csv");
    EXPECT_EQ(m_Folder.Read("t/tags.txt"), "# number name unit\n10 pump\n");
    m_Folder.Remove("t/tags.txt");
    m_Folder.Write("in.csv", "4,valve,1\n");
    Do("history import t in.csv");
    EXPECT_EQ(m_Folder.Read("t/tags.txt"), "# number name unit\n11 valve\n");
}

TEST_F(QvHistoryImport, TellsWhatIsWrongWithTags) {
    Import("1,a,1\n2,b,2\n");
    m_Folder.Write("t/tags.txt",
                   "# mine\r\n\r\n 1\ta  m3 / h \r\nx b\n2\n1 c\n3 a\n7 8\n2 \x01\n4294967296 d");
    const Result read = Run("history read t --csv");
    EXPECT_EQ(read.m_ExitCode, 0);
    EXPECT_THAT(read.m_Out, HasSubstr("Z,a,1,0\n"));
    EXPECT_THAT(read.m_Out, HasSubstr("Z,2,2,0\n")); // has no name any more
    for (const char* const warning :
         {"tags.txt:4: 'x' is no tag number", "tags.txt:5: the tag has no name",
          "tags.txt:6: the number 1 is given", "tags.txt:7: the name 'a' is given twice",
          "tags.txt:8: '8' is no tag name", "tags.txt:9: '\\x01' is no",
          "tags.txt:10: '4294967296' is no tag number"})
        EXPECT_THAT(read.m_Error, HasSubstr(warning));
    EXPECT_THAT(Do("history read t --tag a", "sed -i 4,10d t/tags.txt;"), HasSubstr("1  m3 / h"));

    // New names would land in a file that nobody understands.
    m_Folder.Write("t/tags.txt", "garbage\n");
    Fails(3, "history import t in.csv",
          "t/tags.txt:1: 'garbage' is no tag number (0 to 4294967295); correct");
}
