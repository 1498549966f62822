#include "QvProgram.h"

#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <thread>

using testing::HasSubstr;

namespace {

// Bytes from hexadecimal digits; blanks between them mean nothing.
std::string FromHex(const std::string& text) {
    std::string digits;
    for (const char character : text)
        if (character != ' ')
            digits += character;
    std::string bytes;
    for (std::size_t index = 0; index < digits.size(); index += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(index, 2), nullptr, 16));
    return bytes;
}

// Every type, and bytes to pass over in the middle and at the end.
const std::string AllTypes = " --layout time:i64,tag:u64,a:i8,b:u8,:b3,c:i16,d:u16,e:i32,f:u32,g:i64,h:f32,"
                             "value:f64,:u16";
const std::string AllTypesCsv = "time,tag,a,b,c,d,e,f,g,h,value\n"
                                "2000-01-01T00:00:00.0000019Z,18446744073709551615,-1,255,-2,65535,-3,"
                                "4294967295,-4,0.1,-inf\n"
                                "1999-12-31T23:59:59.9999999Z,120000,0,0,0,0,0,0,0,0,nan\n";

} // namespace

class QvHistoryExport : public QvProgram {
protected:
    // Two and a half records a second from 2000 on: time and value rise together, tags take turns.
    void ImportMany(int count = 5000) {
        std::string csv = "time,tag,value,quality\n";
        for (int i = 0; i < count; ++i)
            csv += std::to_string(125'911'584'000'000'000LL + i * 4'000'000LL) + "," +
                   std::to_string(1 + i % 7) + "," + std::to_string(i) + ".5," + std::to_string(i % 3) + "\n";
        Import(csv);
    }
    void ImportAllTypes() {
        m_Folder.Write("all.csv", AllTypesCsv);
        Do("history import all all.csv" + AllTypes);
    }
};

TEST_F(QvHistoryExport, WritesTheBytesOfEachFormat) {
    Import("time,tag,value,quality\n"
           "2000-01-01T00:00:00.0000019Z,7,1.5,192\n"
           "1999-12-31T23:59:59.9999999Z,4294967295,-inf,0\n");
    ImportAllTypes();
    const std::string pgHeader = "5047434f50590aff0d0a00 00000000 00000000 ";
    struct {
        std::string m_Arguments;
        std::string m_Expected;
    } const cases[] = {
        {"t --format rowbinary", FromHex("13406d25eb53bf01 07000000 c000 0000 000000000000f83f"
                                         "ff3f6d25eb53bf01 ffffffff 0000 0000 000000000000f0ff")},
        {"t --format csv", "time,tag,quality,value\n"
                           "2000-01-01T00:00:00.0000019Z,7,192,1.5\n"
                           "1999-12-31T23:59:59.9999999Z,4294967295,0,-inf\n"},
        // Microseconds of 2000, rounded towards the past.
        {"t --format pgcopy", FromHex(pgHeader + "0004 00000008 0000000000000001 00000008 0000000000000007"
                                                 "00000004 000000c0 00000008 3ff8000000000000"
                                                 "0004 00000008 ffffffffffffffff 00000008 00000000ffffffff"
                                                 "00000004 00000000 00000008 fff0000000000000 ffff")},
        {"all --format csv" + AllTypes, AllTypesCsv},
        // Numerics: 1844 6744 0737 0955 1615, and 12 with a weight of 10,000.
        {"all --format pgcopy --from 2000-01-01" + AllTypes,
         FromHex(pgHeader + "000b 00000008 0000000000000001"
                            "00000012 0005 0004 0000 0000 0734 1a58 02e1 03bb 064f"
                            "00000002 ffff 00000002 00ff 00000002 fffe 00000004 0000ffff 00000004 fffffffd"
                            "00000008 00000000ffffffff 00000008 fffffffffffffffc 00000004 3dcccccd"
                            "00000008 fff0000000000000 ffff")},
        {"t --format rowbinary --from 2010-01-01", ""},
        {"t --format pgcopy --from 2010-01-01", FromHex(pgHeader + "ffff")},
    };
    for (const auto& [arguments, expected] : cases) {
        EXPECT_EQ(Do("history export " + arguments), expected) << arguments;
        EXPECT_EQ(Do("history export " + arguments + " --output file"), "");
        EXPECT_EQ(m_Folder.Read("file"), expected) << arguments;
    }
}

TEST_F(QvHistoryExport, LeavesOutTornRecordsAndThoseBeyondTheRange) {
    ImportMany();
    EXPECT_EQ(Run("history housekeep t --keep 100000 --max-file 24000").m_ExitCode, 0);
    std::string whole;
    std::string newest;
    unsigned int files = 0;
    for (const std::string& name : m_Folder.List("t")) {
        if (!name.ends_with(".qvhis"))
            continue;
        whole += m_Folder.Read(newest = "t/" + name);
        ++files;
    }
    m_Folder.Write(newest, m_Folder.Read(newest) + std::string(23, 'x'));
    EXPECT_GT(files, 2u);
    EXPECT_EQ(whole.size(), 5000u * 24);
    EXPECT_EQ(Do("history export t --format rowbinary"), whole);
    EXPECT_EQ(Do("history export t --format rowbinary --from 125911584400000000 --to 125911588004000000"),
              whole.substr(100 * 24, 902 * 24));
}

TEST_F(QvHistoryExport, FailsWhenTheOutputDoes) {
    ImportMany();
    const std::string qv = "'" QV_PROGRAM "' history export t --format ";
    EXPECT_EQ(Shell(qv + "rowbinary >/dev/full 2>err.txt"), 3);
    EXPECT_THAT(m_Folder.Read("err.txt"), HasSubstr("No space left"));
    EXPECT_EQ(Run("history export t --format pgcopy --output /dev/full").m_ExitCode, 3);
    // More than a pipe holds, and nobody reads it.
    EXPECT_EQ(Shell("(" + qv + "csv 2>err.txt; echo $? >code.txt) | true"), 0);
    EXPECT_EQ(m_Folder.Read("code.txt"), "3\n");
    // A terminal gets text only.
    EXPECT_EQ(Shell("script -qec \"" + qv + "rowbinary\" /dev/null >/dev/null </dev/null"), 2);
    EXPECT_EQ(Shell("script -qec \"" + qv + "csv\" /dev/null >/dev/null </dev/null"), 0);

    // Nothing stays of a file that could not become whole.
    m_Folder.Write("early.csv", "time,tag,value\n2000-01-01,1,1\n");
    Do("history import early early.csv");
    const std::string name = "early/" + m_Folder.List("early").back();
    ASSERT_TRUE(name.ends_with(".qvhis"));
    m_Folder.Write(name, FromHex("0000000000000080") + m_Folder.Read(name).substr(8));
    const Result early = Fails(3, "history export early --format pgcopy --output early.bin", "4714 BC");
    EXPECT_FALSE(m_Folder.Exists("early.bin"));
    EXPECT_EQ(Run("history export t --format csv --output t/x.qvhis").m_ExitCode, 2);
}

TEST_F(QvHistoryExport, MissesAFileThatIsErasedMeanwhile) {
    ImportMany(20'000);
    EXPECT_EQ(Run("history housekeep t --keep 100000 --max-file 24000").m_ExitCode, 0);
    // The first byte arrives with many more than the pipe holds, so the export then waits until it is read.
    EXPECT_EQ(Shell("('" QV_PROGRAM "' history export t --format csv 2>err.txt; echo $? >code.txt) |"
                    " (head -c 1 >/dev/null; rm \"$(ls t/*.qvhis | tail -1)\"; cat >/dev/null)"),
              0);
    EXPECT_EQ(m_Folder.Read("code.txt"), "3\n");
    EXPECT_THAT(m_Folder.Read("err.txt"), HasSubstr(".qvhis cannot be read: No such file"));
}

TEST_F(QvHistoryExport, NamesOfTablesCannotCarryOtherSql) {
    for (const char* engine : {"clickhouse", "postgresql"}) {
        const std::string ddl = std::string("history ddl --engine ") + engine;
        for (const char* name : {"a\"b", "a`b", "a;b", "a b", "1a", "", ".a", "a.", "a.b.c", "a--", "a\\b",
                                 "tab\xC3\xA9", "a\nb"})
            EXPECT_EQ(Run(ddl + " --table '" + name + "'").m_ExitCode, 2) << name;
        EXPECT_EQ(Run(ddl + " --table " + std::string(64, 'a')).m_ExitCode, 2);
    }
    EXPECT_THAT(Do("history ddl --engine postgresql --table plant.select"),
                HasSubstr("CREATE TABLE \"plant\".\"select\" (\n    \"time\" timestamptz NOT NULL,\n"));
    // A layout's own names are kept apart from those of the columns that are added.
    EXPECT_THAT(Do("history ddl --engine clickhouse --layout time:i64,:b3,reserved_8:u8,time_utc:u8"),
                HasSubstr("    `time` Int64,\n    `reserved_8_` FixedString(3),\n    `reserved_8` UInt8,\n"
                          "    `time_utc` UInt8,\n    `time_utc_` DateTime64"));
}

// A server of the test's own, on a socket in the test's folder.
class QvHistoryExportPostgreSql : public QvHistoryExport {
protected:
    void SetUp() override {
        std::error_code missing;
        for (const auto& version : std::filesystem::directory_iterator("/usr/lib/postgresql", missing))
            if (std::filesystem::exists(version.path() / "bin/initdb"))
                m_Programs = version.path() / "bin";
        if (m_Programs.empty() || std::system("command -v psql >/dev/null") != 0)
            GTEST_SKIP() << "the package postgresql is not installed";

        // The server refuses to run as root.
        m_Socket = m_Folder.GetPath() + "/pg";
        std::string user;
        std::filesystem::create_directory(m_Socket);
        if (Shell("test \"$(id -u)\" = 0") == 0) {
            user = "setpriv --reuid=postgres --regid=postgres --init-groups ";
            ASSERT_EQ(Shell("chown postgres pg && chmod a+x ."), 0);
        }
        m_AsUser = "cd pg && exec timeout --signal=INT 60 " + user + m_Programs;
        ASSERT_EQ(
            Shell(m_AsUser +
                  "/initdb -D data -U tester -A trust -E UTF8 --locale=C --no-sync >../initdb.txt 2>&1"),
            0)
            << m_Folder.Read("initdb.txt");
        // The time limit ends the server even if the test is killed. Another time zone must not matter.
        ASSERT_EQ(Shell("(" + m_AsUser + "/postgres -D data -k '" + m_Socket +
                        "' -c listen_addresses= -c fsync=off -c timezone=Asia/Tokyo) >server.txt 2>&1 &"),
                  0);
        m_bStarted = true;
        for (int tries = 0; Shell(m_Programs + "/pg_isready -q -h '" + m_Socket + "'") != 0; ++tries) {
            ASSERT_LT(tries, 100) << m_Folder.Read("server.txt");
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }
    void TearDown() override {
        if (!m_bStarted)
            return;
        EXPECT_EQ(Shell(m_AsUser + "/pg_ctl -D data -m fast -w stop >../stop.txt 2>&1"), 0)
            << m_Folder.Read("stop.txt");
    }

    // What psql prints for the SQL in a file of the test's folder.
    std::string Sql(const std::string& sql) {
        m_Folder.Write("sql.txt", sql);
        EXPECT_EQ(Shell("psql -X -q -A -t -h '" + m_Socket +
                        "' -U tester -d postgres -v ON_ERROR_STOP=1 -f sql.txt >rows.txt 2>&1"),
                  0)
            << sql << m_Folder.Read("rows.txt");
        return m_Folder.Read("rows.txt");
    }
    // Makes the tables "binary" and "text" of a layout and loads the same records into both.
    void Load(const std::string& table, const std::string& layout) {
        Do("history export " + table + " --format pgcopy --output x.bin" + layout);
        Do("history export " + table + " --format csv --output x.csv" + layout);
        EXPECT_EQ(Sql(Do("history ddl --engine postgresql --table binary" + layout) +
                      Do("history ddl --engine postgresql --table text" + layout) +
                      "\\copy \"binary\" from 'x.bin' (format binary)\n"
                      "\\copy \"text\" from 'x.csv' (format csv, header)\n"),
                  "");
    }

    std::string m_Programs;
    std::string m_Socket;
    std::string m_AsUser; // begins a command that runs one of the programs
    bool m_bStarted = false;
};

TEST_F(QvHistoryExportPostgreSql, LoadsExports) {
    ImportMany();
    Load("t", "");
    EXPECT_EQ(Sql("select count(*), sum(tag), sum(quality), sum(value), min(time) at time zone 'UTC',"
                  " max(time) - min(time) from \"binary\";"
                  "select count(*) from (table \"binary\" except all table \"text\") as only_binary;"
                  "select value, quality from \"binary\" where tag = 5 and"
                  " time = '2000-01-01T00:00:01.6Z';"),
              "5000|19995|4999|12500000|2000-01-01 00:00:00|00:33:19.6\n0\n4.5|1\n");

    Sql("drop table \"binary\", \"text\"");
    ImportAllTypes();
    Load("all", AllTypes);
    // The text's times are rounded, the binary ones cut.
    EXPECT_EQ(Sql("set timezone = 'UTC'; table \"binary\"; select count(*) from"
                  " (select tag, a, b, c, d, e, f, g, h, value from \"binary\" intersect"
                  "  select tag, a, b, c, d, e, f, g, h, value from \"text\") as same;"),
              "2000-01-01 00:00:00.000001+00|18446744073709551615|-1|255|-2|65535|-3|4294967295|-4|0.1|"
              "-Infinity\n"
              "1999-12-31 23:59:59.999999+00|120000|0|0|0|0|0|0|0|0|NaN\n2\n");
}
